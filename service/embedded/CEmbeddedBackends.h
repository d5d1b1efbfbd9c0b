#pragma once

#include <boost/shared_ptr.hpp>

#include "CEmbeddedAdmin.h"
#include "Hlx/IDataServiceBackend.h"

class CQuotesService;

// The data service in this process as the client centre and the console use it. Kept apart from
// CEmbeddedAdmin because these need the user manager and the client centre's adapter, which a
// server does not link.
class CEmbeddedBackends {
public:
    // For the user manager's current user (the embedded console, whose tool bar chooses the
    // user: a safeguard against mistakes, not security). Without a current user nothing may be
    // changed.
    static boost::shared_ptr<CEmbeddedAdmin> forCurrentUser(
        boost::shared_ptr<CQuotesService> service);
    // The same and the owner's, behind the client centre.
    static boost::shared_ptr<Hlx::IDataServiceBackend> backendAsOwner(
        boost::shared_ptr<CQuotesService> service);
    static boost::shared_ptr<Hlx::IDataServiceBackend> backendForCurrentUser(
        boost::shared_ptr<CQuotesService> service);
};
