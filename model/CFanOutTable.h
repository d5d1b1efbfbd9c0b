#pragma once

#include <vector>

#include "model/PanelQuotesManageGlobal.h"

namespace Hlx {

// One record of an all-types add: the right it needs, the platform and the stored trade type.
struct CFanOutRow {
    int right;
    int platformId;
    int tradeType;
};

// The records an add from the all-types panel fans out into, in order.
class PANELQUOTESMANAGE_EXPORT CFanOutTable {
public:
    static const std::vector<CFanOutRow>& rows();
};

}  // namespace Hlx
