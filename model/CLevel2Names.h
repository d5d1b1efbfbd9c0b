#pragma once

namespace Hlx {

// What the Level-2 token is called, without Qt: its panel's object name (the host's key of the
// panel) and the noun of its titles, buttons and refusals (UTF-8).
struct CLevel2Names {
    static constexpr const char* kPanelObjectName = "level2quote";
    static constexpr const char* kTokenNoun = "Level-2行情源token";
};

}  // namespace Hlx
