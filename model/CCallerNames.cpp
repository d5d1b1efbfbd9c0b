#include "model/CCallerNames.h"

namespace Hlx {

QString CCallerNames::who(const CAuditEntry& entry) {
    const QString account = QString::fromStdString(entry.account);
    if (!entry.local)
        return account;
    const QString marker = entry.osUser.empty()
                               ? QStringLiteral("本地")
                               : QStringLiteral("本地 ") + QString::fromStdString(entry.osUser);
    return account.isEmpty() ? marker : QStringLiteral("%1 (%2)").arg(account, marker);
}

}  // namespace Hlx
