#include "CEmbeddedBackends.h"

#include "Hlx/CAdminBackend.h"
#include "Hlx/CUserManager.h"

boost::shared_ptr<CEmbeddedAdmin> CEmbeddedBackends::forCurrentUser(
    boost::shared_ptr<CQuotesService> service) {
    return boost::shared_ptr<CEmbeddedAdmin>(new CEmbeddedAdmin(std::move(service), [] {
        const rkservice::CUserInfoPtr user = Hlx::CUserManager::instance()->getUserInfoPtr();
        return (user ? CCaller::user(*user) : CCaller::user(std::string(), {}))
            .locally(CCaller::operatingSystemUser())
            .inSession(CCaller::processSession());
    }));
}

boost::shared_ptr<Hlx::IDataServiceBackend> CEmbeddedBackends::backendAsOwner(
    boost::shared_ptr<CQuotesService> service) {
    return boost::shared_ptr<Hlx::IDataServiceBackend>(
        new Hlx::CAdminBackend(CEmbeddedAdmin::asOwner(std::move(service))));
}

boost::shared_ptr<Hlx::IDataServiceBackend> CEmbeddedBackends::backendForCurrentUser(
    boost::shared_ptr<CQuotesService> service) {
    return boost::shared_ptr<Hlx::IDataServiceBackend>(
        new Hlx::CAdminBackend(forCurrentUser(std::move(service))));
}
