#include "Hlx/CAdminBackend.h"

#include "Hlx/CAnswer.h"

namespace Hlx {

IQuotesAdmin::~IQuotesAdmin() = default;

utils::RKError IQuotesAdmin::importDocument(const QJsonObject& document,
                                            const CImportOptions& options, CImportReport*) {
    if (options.dryRun || !options.backupFile.empty())
        return utils::RKError::fail("导入预演和指定备份文件只能直接打开数据库时使用");
    return importDocument(document);
}

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
