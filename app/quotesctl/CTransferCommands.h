#pragma once

#include <QByteArray>
#include <QJsonObject>

class CCtlArguments;
class CCtlCommand;
class CCtlGlobals;
class CCtlSession;

// quotesctl's export and import: everything as one JSON document.
class CTransferCommands {
public:
    static void exportAll(CCtlSession& session);
    static void importAll(CCtlSession& session);

    // A real import into PostgreSQL names its backup file: there is no data directory for it.
    static void checkImport(const CCtlCommand& command, const CCtlArguments& arguments,
                            const CCtlGlobals& globals);

private:
    // An export document, or the one a sealed backup holds.
    static QJsonObject readDocument(const CCtlSession& session, const QString& name);
    // Opens a sealed backup with --key FILE or the database's own key file.
    static QJsonObject openBackup(const CCtlSession& session, const QByteArray& bytes);
};
