#include "Hlx/CAdminBackend.h"

#include <boost/make_shared.hpp>

#include "Hlx/CAnswer.h"
#include "rkservice/DataTypeIds.h"

namespace Hlx {

IQuotesAdmin::~IQuotesAdmin() = default;

utils::RKError IQuotesAdmin::modifySource(int id, const SourcePatch& patch) {
    rkservice::COrinQueryDataReq query;
    query.dataType = rkservice::kDataQuoteSources;
    std::vector<rkservice::IDataPtr> datas;
    utils::RKError error = this->query(CRequestTarget::centre(), query, &datas);
    if (!error.isSuccess())
        return error;
    for (const auto& data : datas) {
        const auto& stored = static_cast<const rkservice::COrinQuoterSourceInfo&>(*data);
        if (stored.m_nId != id)
            continue;
        auto source = boost::make_shared<rkservice::COrinQuoterSourceInfo>(stored);
        patch(source.get());
        source->m_nId = id;
        rkservice::COperateDataReq request;
        request.dataType = rkservice::kDataQuoteSources;
        request.operateType = rkservice::kOperateModify;
        request.datas.push_back(source);
        return operate(CRequestTarget::centre(), request, nullptr);
    }
    return utils::RKError::fail("行情源不存在: " + std::to_string(id));
}

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
