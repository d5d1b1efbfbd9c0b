#pragma once

#include <boost/shared_ptr.hpp>
#include <functional>

#include "CCaller.h"
#include "Hlx/IDataServiceBackend.h"

class CQuotesService;

// The embedded data service as the client centre's backend: every request acts for the caller
// its provider names at the time of the request (the console: the user chosen in its tool bar).
class CServiceBackend : public Hlx::IDataServiceBackend {
public:
    using CallerProvider = std::function<CCaller()>;

    CServiceBackend(boost::shared_ptr<CQuotesService> service, CallerProvider caller);
    // Acting with every right, as the owner of the database file.
    static boost::shared_ptr<CServiceBackend> asOwner(boost::shared_ptr<CQuotesService> service);
    // Acting for the user manager's current user at each request (the embedded console, whose
    // tool bar chooses the user: a safeguard against mistakes, not security). Without a current
    // user nothing may be changed.
    static boost::shared_ptr<CServiceBackend> actingForCurrentUser(
        boost::shared_ptr<CQuotesService> service);

    void query(const Hlx::CRequestTarget& target, const rkservice::COrinQueryDataReq& request,
               const Hlx::CQueryAnswer& answer) override;
    void operate(const Hlx::CRequestTarget& target, const rkservice::COperateDataReq& request,
                 const Hlx::COperateAnswer& answer) override;
    std::vector<Hlx::SubsystemInfo> subsystems() const override;
    bool hasClientLoginTypeAuth(int loginType) const override;

    const boost::shared_ptr<CQuotesService>& service() const { return m_service; }

private:
    boost::shared_ptr<CQuotesService> m_service;
    CallerProvider m_caller;
};
