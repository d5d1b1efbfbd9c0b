#pragma once

#include "Hlx/IAccountAdmin.h"
#include "Hlx/IAuditTransfer.h"
#include "Hlx/IChangeEvents.h"
#include "Hlx/IQuoteData.h"
#include "Hlx/IReachability.h"

namespace Hlx {

// The administration of the platform's data: every call the console and quotesctl make, with the
// embedded service or a remote server behind it, so each command has one code path. Its roles
// are small interfaces of their own, so that a part of the program (or a test double) needs only
// the role it uses.
class IQuotesAdmin : public IQuoteData,
                     public IAccountAdmin,
                     public IAuditTransfer,
                     public IChangeEvents,
                     public IReachability {
public:
    ~IQuotesAdmin() override;
};

}  // namespace Hlx
