#include "Hlx/IQuotesAdmin.h"

namespace Hlx {

IQuotesAdmin::~IQuotesAdmin() = default;

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
