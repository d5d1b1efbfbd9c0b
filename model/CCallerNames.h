#pragma once

#include <QString>

#include "Hlx/CAuditEntry.h"
#include "model/PanelQuotesManageGlobal.h"

namespace Hlx {

// Who made an audit entry, as the console names them wherever it shows one: the account, and
// for a change made on the machine itself (quotesctl on the data file, the embedded console)
// 本地 with the operating-system user.
class PANELQUOTESMANAGE_EXPORT CCallerNames {
public:
    static QString who(const CAuditEntry& entry);
};

}  // namespace Hlx
