#include "Hlx/CAdminBackend.h"

#include <boost/make_shared.hpp>

#include "Hlx/CAnswer.h"
#include "rkservice/DataTypeIds.h"

namespace Hlx {

CAdminBackend::CAdminBackend(boost::shared_ptr<IQuotesAdmin> admin) : m_admin(std::move(admin)) {}

void CAdminBackend::query(const CRequestTarget& target, const rkservice::COrinQueryDataReq& request,
                          const CQueryAnswer& answer) {
    std::vector<rkservice::IDataPtr> datas;
    const utils::RKError error = m_admin->query(target, request, &datas);
    answer.answer(error, datas);
}

void CAdminBackend::operate(const CRequestTarget& target, const rkservice::COperateDataReq& request,
                            const COperateAnswer& answer) {
    bson::BSONObj result;
    const utils::RKError error = m_admin->operate(target, request, &result);
    answer.answer(error, result);
}

std::vector<SubsystemInfo> CAdminBackend::subsystems() const {
    return m_admin->subsystems();
}

bool CAdminBackend::hasClientLoginTypeAuth(int loginType) const {
    return m_admin->hasClientLoginTypeAuth(loginType);
}

}  // namespace Hlx
