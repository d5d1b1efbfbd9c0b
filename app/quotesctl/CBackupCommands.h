#pragma once

class CCtlArguments;
class CCtlCommand;
class CCtlGlobals;
class CCtlSession;

// quotesctl's online copy of a live SQLite database and its restore into a data directory.
class CBackupCommands {
public:
    static void backup(CCtlSession& session);
    static void restore(CCtlSession& session);

    // Through a server the copy goes where the server keeps its data: no --output there.
    static void checkBackup(const CCtlCommand& command, const CCtlArguments& arguments,
                            const CCtlGlobals& globals);
    // A restore replaces a SQLite file from a file: never PostgreSQL, never standard input.
    static void checkRestore(const CCtlCommand& command, const CCtlArguments& arguments,
                             const CCtlGlobals& globals);
};
