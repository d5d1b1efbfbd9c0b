#include "CServiceCommands.h"

#include <QJsonObject>

#include "CCaller.h"
#include "CCtlArguments.h"
#include "CCtlError.h"
#include "CCtlOutput.h"
#include "CCtlSession.h"
#include "CQuotesService.h"
#include "Hlx/IQuotesAdmin.h"

void CServiceCommands::integrity(CCtlSession& session) {
    std::vector<std::string> kept;
    const utils::RKError error = session.admin().checkIntegrity(&kept);
    if (!error.isSuccess())
        throw CCtlError::refused(QStringLiteral("数据库一致性检查失败: %1")
                                     .arg(QString::fromStdString(error.errorMsg())));
    // Values an earlier release stored are no damage: listed, and the check still passes.
    CCtlOutput::printKept(kept);
    CCtlOutput::print(QStringLiteral("ok\n"));
}

void CServiceCommands::rekey(CCtlSession& session) {
    // The command table lets rekey run only on a database of its own.
    CQuotesService& service = *session.service();
    CCtlError::check(service.rekey(CCaller::owner().locally(CCaller::operatingSystemUser())));
    CCtlOutput::print(QStringLiteral("key %1\n").arg(service.keyFile()));
}

void CServiceCommands::ping(CCtlSession& session) {
    Hlx::CServiceStatus status;
    CCtlError::check(session.admin().status(&status));
    const QString version = QString::fromStdString(status.version);
    const QString commit = QString::fromStdString(status.commit);
    const QString database = QString::fromStdString(status.database);
    if (session.arguments().has(CCtlOption::kJson)) {
        CCtlOutput::printJson(QJsonObject{{QStringLiteral("version"), version},
                                          {QStringLiteral("commit"), commit},
                                          {QStringLiteral("database"), database},
                                          {QStringLiteral("uptimeMs"), double(status.uptimeMs)}});
        return;
    }
    CCtlOutput::print(
        QStringLiteral("version %1\ndatabase %2\nuptime %3 s\ncommit %4\n")
            .arg(version, database, QString::number(status.uptimeMs / 1000.0, 'f', 1), commit));
}
