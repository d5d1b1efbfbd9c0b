#include "Hlx/IQuotesAdmin.h"

#include <boost/make_shared.hpp>

#include "rkservice/COperateDataReq.h"
#include "rkservice/COrinQueryDataReq.h"
#include "rkservice/COrinQuoterSourceInfo.h"
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

std::shared_ptr<void> IQuotesAdmin::watchChanges(const ChangeHandler&) {
    return nullptr;
}

utils::RKError IQuotesAdmin::reloadSettings() {
    return utils::RKError();
}

}  // namespace Hlx
