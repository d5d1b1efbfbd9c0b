#pragma once

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
    // The document with empty passwords and no token.
    static QJsonObject withoutSecrets(QJsonObject document);
    static QJsonObject readDocument(const QString& name);
};
