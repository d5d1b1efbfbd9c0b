#include "CServiceBackend.h"

#include "CQuotesService.h"
#include "Hlx/CAnswer.h"
#include "Hlx/CUserManager.h"

CServiceBackend::CServiceBackend(boost::shared_ptr<CQuotesService> service, CallerProvider caller)
    : m_service(std::move(service)), m_caller(std::move(caller)) {}

boost::shared_ptr<CServiceBackend> CServiceBackend::asOwner(
    boost::shared_ptr<CQuotesService> service) {
    return boost::shared_ptr<CServiceBackend>(
        new CServiceBackend(std::move(service), [] { return CCaller::owner(); }));
}

boost::shared_ptr<CServiceBackend> CServiceBackend::actingForCurrentUser(
    boost::shared_ptr<CQuotesService> service) {
    return boost::shared_ptr<CServiceBackend>(new CServiceBackend(std::move(service), [] {
        const rkservice::CUserInfoPtr user = Hlx::CUserManager::instance()->getUserInfoPtr();
        return user ? CCaller::user(*user) : CCaller::user(std::string(), {});
    }));
}

void CServiceBackend::query(const Hlx::CRequestTarget& target,
                            const rkservice::COrinQueryDataReq& request,
                            const Hlx::CQueryAnswer& answer) {
    std::vector<rkservice::IDataPtr> datas;
    const utils::RKError error = m_service->querySync(m_caller(), target, request, &datas);
    answer.answer(error, datas);
}

void CServiceBackend::operate(const Hlx::CRequestTarget& target,
                              const rkservice::COperateDataReq& request,
                              const Hlx::COperateAnswer& answer) {
    bson::BSONObj result;
    const utils::RKError error = m_service->operateSync(m_caller(), target, request, &result);
    answer.answer(error, result);
}

std::vector<Hlx::SubsystemInfo> CServiceBackend::subsystems() const {
    return m_service->subsystems();
}

bool CServiceBackend::hasClientLoginTypeAuth(int loginType) const {
    return m_service->hasClientLoginTypeAuth(loginType);
}
