#pragma once

namespace Hlx {

// The version of this build, as the project declares it (for example "1.0.0").
const char* quotesVersion();

} // namespace Hlx
