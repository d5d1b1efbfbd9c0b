#include "CServiceCommands.h"

#include <QDateTime>
#include <QFile>
#include <QJsonObject>
#include <chrono>

#include "CCaller.h"
#include "CCtlArguments.h"
#include "CCtlError.h"
#include "CCtlGlobals.h"
#include "CCtlOutput.h"
#include "CCtlSession.h"
#include "CHealthCheck.h"
#include "CQuotesService.h"
#include "CServedCertificate.h"
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
    CCtlError::check(service.rekey(CCaller::localOwner()));
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

namespace {

// A monitor's call: short, so a hung server is reported rather than waited for.
const std::chrono::seconds kHealthDeadline(5);

QByteArray trustedCertificate(const QString& file) {
    if (file.isEmpty())
        return QByteArray();
    QFile in(file);
    if (!in.open(QIODevice::ReadOnly))
        throw CCtlError::refused(QStringLiteral("无法读取证书文件: %1").arg(file));
    return in.readAll();
}

// "127.0.0.1:7461 SERVING version 3.0.0 commit 0123456789ab", or what went wrong.
QString healthLine(const QString& server, const CHealthCheck::Answer& answer) {
    if (!answer.reached)
        return QStringLiteral("%1 UNREACHABLE %2")
            .arg(server, QString::fromStdString(answer.failure));
    QString line = server + QLatin1Char(' ') + QString::fromStdString(answer.status);
    if (!answer.version.empty())
        line +=
            QStringLiteral(" version %1 commit %2")
                .arg(QString::fromStdString(answer.version), QString::fromStdString(answer.commit));
    // A monitor's line is where an administrator sees the certificate's end coming.
    if (answer.certificateExpiresMs > 0) {
        const QString warning = CServedCertificate::expiryWarning(
            QDateTime::fromMSecsSinceEpoch(answer.certificateExpiresMs, Qt::UTC),
            QDateTime::currentDateTimeUtc());
        if (!warning.isEmpty())
            line += QStringLiteral("; ") + warning;
    }
    return line;
}

}  // namespace

void CServiceCommands::checkHealth(const CCtlCommand&, const CCtlArguments&,
                                   const CCtlGlobals& globals) {
    if (!globals.remote())
        throw CCtlError::usage(QStringLiteral("health needs %1: it asks a server")
                                   .arg(CCtlGlobals::flag(CCtlGlobals::kServer)));
}

void CServiceCommands::health(CCtlSession& session) {
    const CCtlGlobals& globals = session.globals();
    const std::string ca = trustedCertificate(globals.caFile).toStdString();
    int failing = 0;
    for (const QString& server : globals.servers) {
        const CHealthCheck::Answer answer =
            CHealthCheck::ask(server.toStdString(), ca, kHealthDeadline);
        CCtlOutput::print(healthLine(server, answer) + QLatin1Char('\n'));
        failing += answer.serving() ? 0 : 1;
    }
    if (failing > 0)
        throw CCtlError::refused(QStringLiteral("%1 of %2 servers not serving")
                                     .arg(failing)
                                     .arg(globals.servers.size()));
}
