#include "CTransferCommands.h"

#include <unistd.h>

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <limits>

#include "CAuditCommand.h"
#include "CCtlArguments.h"
#include "CCtlCheck.h"
#include "CCtlError.h"
#include "CCtlGlobals.h"
#include "CCtlOutput.h"
#include "CCtlSession.h"
#include "CImportBackups.h"
#include "CPrivateFile.h"
#include "CQuotesService.h"
#include "CSecretKeyFile.h"
#include "CServiceError.h"
#include "Hlx/IQuotesAdmin.h"

using O = CCtlOption;

void CTransferCommands::checkImport(const CCtlCommand& command, const CCtlArguments& arguments,
                                    const CCtlGlobals& globals) {
    CCtlCheck::standard(command, arguments, globals);
    const bool postgres = globals.service.dbUrl.startsWith(QLatin1String("postgres"));
    if (postgres && !arguments.has(O::kDryRun) && !arguments.has(O::kBackup))
        throw CCtlError::usage(QStringLiteral("import into PostgreSQL needs %1")
                                   .arg(CCtlOption::of(O::kBackup).synopsis()));
}

void CTransferCommands::exportAll(CCtlSession& session) {
    const CCtlArguments& arguments = session.arguments();
    QJsonObject document;
    Hlx::CExportOptions options;
    options.withoutSecrets = arguments.has(O::kNoSecrets);
    CCtlError::check(session.admin().exportDocument(&document, options));
    if (arguments.has(O::kWithAudit)) {
        // For the record only: import passes over it and leaves the trail as it is.
        document.insert(QStringLiteral("audit"),
                        CAuditCommand::toJson(CAuditCommand::everything(session)));
    }
    const QByteArray text = QJsonDocument(document).toJson(QJsonDocument::Indented);
    if (arguments.has(O::kOutput)) {
        QString failure;
        if (!CPrivateFile::write(arguments.text(O::kOutput), text, &failure))
            throw CCtlError::refused(failure);
        return;
    }
    // A full disk or a closed pipe must not pass for a complete backup.
    if (!CPrivateFile::writeAll(fileno(stdout), text))
        throw CCtlError::refused(
            QStringLiteral("无法写出导出数据: %1").arg(QString::fromLocal8Bit(strerror(errno))));
}

QJsonObject CTransferCommands::readDocument(const CCtlSession& session, const QString& name) {
    QFile file;
    if (!CCtlSession::openInput(&file, name))
        throw CCtlError::refused(QStringLiteral("无法读取文件: %1").arg(name));
    const QByteArray bytes = file.readAll();
    if (CImportBackups::isSealed(bytes))
        return openBackup(session, bytes);
    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(bytes, &parseError);
    if (parseError.error != QJsonParseError::NoError || !document.isObject())
        throw CCtlError::refused(
            QStringLiteral("导入文件不是有效的 JSON: %1").arg(parseError.errorString()));
    return document.object();
}

QJsonObject CTransferCommands::openBackup(const CCtlSession& session, const QByteArray& bytes) {
    const CCtlArguments& arguments = session.arguments();
    QString keyFile = arguments.has(O::kKey) ? arguments.text(O::kKey) : QString();
    if (keyFile.isEmpty() && session.service())
        keyFile = session.service()->keyFile();
    if (keyFile.isEmpty())
        throw CCtlError::usage(QStringLiteral("a sealed backup through a server needs %1")
                                   .arg(CCtlOption::of(O::kKey).synopsis()));
    try {
        return CImportBackups::open(bytes, CSecretKeyFile::read(keyFile));
    } catch (const CServiceError& e) {
        throw CCtlError::refused(QString::fromStdString(e.what()));
    }
}

void CTransferCommands::importAll(CCtlSession& session) {
    const CCtlArguments& arguments = session.arguments();
    const QJsonObject document = readDocument(session, arguments.positional().front());
    Hlx::CImportOptions options;
    options.dryRun = arguments.has(O::kDryRun);
    if (arguments.has(O::kBackup))
        options.backupFile = arguments.text(O::kBackup).toStdString();
    if (arguments.has(O::kOnly)) {
        for (const QString& section :
             arguments.text(O::kOnly).split(QLatin1Char(','), Qt::SkipEmptyParts))
            options.onlySections.push_back(section.trimmed().toStdString());
    }
    Hlx::CImportReport report;
    CCtlError::check(session.admin().importDocument(document, options, &report));
    if (!report.backupFile.empty())
        CCtlOutput::print(
            QStringLiteral("backup %1\n").arg(QString::fromStdString(report.backupFile)));
    for (const Hlx::CSectionChange& change : report.sections)
        CCtlOutput::print(QStringLiteral("%1 %2 -> %3 (+%4 -%5)\n")
                              .arg(QString::fromStdString(change.section))
                              .arg(change.before)
                              .arg(change.after)
                              .arg(change.added)
                              .arg(change.removed));
    CCtlOutput::printKept(report.keptValues);
}
