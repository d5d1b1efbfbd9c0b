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
    if (options.dryRun || !options.backupFile.empty() || !options.onlySections.empty())
        return utils::RKError::fail(utils::ErrorKind::Invalid,
                                    "导入预演、指定备份文件和部分导入只能直接打开数据库时使用");
    return importDocument(document);
}

utils::RKError IAuditTransfer::backupDatabase(const CBackupOptions&, std::string*) {
    return utils::RKError::fail(utils::ErrorKind::Invalid, "此连接不支持备份数据库");
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

IReachability::~IReachability() = default;

namespace {

utils::RKError noProber() {
    return utils::RKError::fail(utils::ErrorKind::Unavailable, "探测连接不可用");
}

}  // namespace

utils::RKError IReachability::probeSources(const std::vector<int>&, bool,
                                           std::vector<CProbeResult>*) {
    return noProber();
}

utils::RKError IReachability::probeStatus(const std::string&, std::vector<CProbeResult>*) {
    return noProber();
}

utils::RKError IReachability::probeHistory(const std::string&, int, long long,
                                           std::vector<CProbeSample>*) {
    return noProber();
}

IQuotesAdmin::~IQuotesAdmin() = default;

}  // namespace Hlx
