#include "CBackupCommands.h"

#include <QFileInfo>

#include "CCtlArguments.h"
#include "CCtlCheck.h"
#include "CCtlError.h"
#include "CCtlGlobals.h"
#include "CCtlOutput.h"
#include "CCtlSession.h"
#include "CDatabaseRestore.h"
#include "CQuotesService.h"
#include "CSecretKeyFile.h"
#include "CServiceError.h"
#include "Hlx/IQuotesAdmin.h"

using O = CCtlOption;

void CBackupCommands::checkBackup(const CCtlCommand& command, const CCtlArguments& arguments,
                                  const CCtlGlobals& globals) {
    CCtlCheck::standard(command, arguments, globals);
    if (globals.remote() && arguments.has(O::kOutput))
        throw CCtlError::usage(
            QStringLiteral("with %1 the server writes the copy in its own data directory; %2 "
                           "does not apply")
                .arg(CCtlGlobals::flag(CCtlGlobals::kServer), CCtlOption::of(O::kOutput).flag()));
}

void CBackupCommands::checkRestore(const CCtlCommand& command, const CCtlArguments& arguments,
                                   const CCtlGlobals& globals) {
    CCtlCheck::standard(command, arguments, globals);
    if (!globals.service.dbUrl.isEmpty())
        throw CCtlError::usage(
            QStringLiteral("restore replaces the SQLite database of a data directory (%1); a "
                           "PostgreSQL database is restored with pg_restore")
                .arg(CCtlOption::of(O::kData).synopsis()));
    if (arguments.positional().front() == QLatin1String("-"))
        throw CCtlError::usage(QStringLiteral("restore reads its copy from a FILE, not -"));
}

void CBackupCommands::backup(CCtlSession& session) {
    Hlx::CBackupOptions options;
    if (session.arguments().has(O::kOutput))
        options.file =
            QFileInfo(session.arguments().text(O::kOutput)).absoluteFilePath().toStdString();
    std::string written;
    CCtlError::check(session.admin().backupDatabase(options, &written));
    CCtlOutput::print(QStringLiteral("backup %1\n").arg(QString::fromStdString(written)));
}

void CBackupCommands::restore(CCtlSession& session) {
    const CCtlArguments& arguments = session.arguments();
    const CServiceOptions& service = session.globals().service;
    CDatabaseRestore::Plan plan;
    plan.backup = arguments.positional().front();
    plan.dataDir = arguments.has(O::kData)     ? arguments.text(O::kData)
                   : service.dataDir.isEmpty() ? CQuotesService::defaultDataDir()
                                               : service.dataDir;
    plan.keyFile = service.secretsKeyFile.isEmpty() ? CSecretKeyFile::defaultPath(plan.dataDir)
                                                    : service.secretsKeyFile;
    plan.checkKeyFile = arguments.has(O::kKey) ? arguments.text(O::kKey) : plan.keyFile;
    CDatabaseRestore::Outcome outcome;
    try {
        outcome = CDatabaseRestore::run(plan);
    } catch (const CServiceError& e) {
        // Nothing was replaced: a database in use is one quotesctl could not have (exit 3).
        const QString message = QString::fromStdString(e.what());
        throw e.kind() == utils::ErrorKind::Unavailable ? CCtlError::unavailable(message)
                                                        : CCtlError::refused(message);
    }
    CCtlOutput::print(
        QStringLiteral("restored %1 (schema %2)\n").arg(outcome.database).arg(outcome.schema));
    if (!outcome.previous.isEmpty())
        CCtlOutput::print(QStringLiteral("previous %1\n").arg(outcome.previous));
    if (!outcome.previousKey.isEmpty())
        CCtlOutput::print(QStringLiteral("previous key %1\n").arg(outcome.previousKey));
}
