#pragma once

#include <QString>
#include <vector>

#include "model/CPlatformIds.h"
#include "model/PanelQuotesManageGlobal.h"

namespace Hlx {

// The market-data platforms: their names and which trade types offer them.
class PANELQUOTESMANAGE_EXPORT CPlatformTable : public CPlatformIds {
public:
    // The display name; the brand prefix "Kx" unless the client holds login type 0.
    static QString name(int platformId);
    // The platforms offered for a trade type, in order; futuresOnly restricts stocks to futures.
    static std::vector<int> platformsFor(int tradeType, bool futuresOnly);
    // Every platform id the table knows.
    static std::vector<int> knownIds();
};

// The display text of a platform id; empty for an unknown one.
PANELQUOTESMANAGE_EXPORT QString getPlatformName(int platformId);

}  // namespace Hlx
