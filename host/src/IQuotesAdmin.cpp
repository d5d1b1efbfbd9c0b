#include "Hlx/IQuotesAdmin.h"

namespace Hlx {

IQuoteData::~IQuoteData() = default;

utils::RKError IQuoteData::reloadSettings() {
    return utils::RKError();
}

utils::RKError IQuoteData::sourceHistory(int, CSourceHistory*) {
    return utils::RKError::fail(utils::ErrorKind::Unavailable, "此数据服务不提供行情源历史");
}

utils::RKError IQuoteData::restoreSource(int, long long, long long, long long*) {
    return utils::RKError::fail(utils::ErrorKind::Unavailable, "此数据服务不提供行情源恢复");
}

IAccountAdmin::~IAccountAdmin() = default;

IAuditTransfer::~IAuditTransfer() = default;

utils::RKError IAuditTransfer::importDocument(const QJsonObject& document,
                                              const CImportOptions& options, CImportReport*) {
    if (options.dryRun || !options.backupFile.empty())
        return utils::RKError::fail(utils::ErrorKind::Invalid,
                                    "导入预演和指定备份文件只能直接打开数据库时使用");
    return importDocument(document);
}

utils::RKError IAuditTransfer::auditPage(const CAuditFilter& filter, CAuditPage* page) {
    const utils::RKError error = auditEntries(filter, &page->entries);
    page->more = filter.limit > 0 && page->entries.size() >= std::size_t(filter.limit);
    return error;
}

IChangeEvents::~IChangeEvents() = default;

std::shared_ptr<void> IChangeEvents::watchChanges(const ChangeHandler&) {
    return nullptr;
}

IQuotesAdmin::~IQuotesAdmin() = default;

}  // namespace Hlx
