#include "CCtlCommandTable.h"

#include "CHistoryCommands.h"

#include "CAccountCommands.h"
#include "CAuditCommand.h"
#include "CBackupCommands.h"
#include "CReferenceCommands.h"
#include "CServiceCommands.h"
#include "CSourceCommands.h"
#include "CTokenCommand.h"
#include "CTransferCommands.h"
#include "model/CRightsTable.h"

namespace {

using C = CCtlCommand;
using O = CCtlOption;
using P = CCtlCommand::PositionalKind;
const int kAdminister = Hlx::CRightsTable::kAdminister;

std::vector<C> sourceCommands() {
    return {
        C({"sources", "list"}, &CSourceCommands::list)
            .option(O::kTradeType)
            .option(O::kSubsystem)
            .option(O::kJson)
            .checkedBy(&CSourceCommands::checkList)
            .help("List quote sources (all trade types and sub-systems unless filtered)."),
        C({"sources", "add"}, &CSourceCommands::add)
            .required(O::kPlatform)
            .required(O::kTradeType)
            .option(O::kSubsystem)
            .alternative()
            .required(O::kAddress)
            .required(O::kPort)
            .option(O::kUser)
            .hidden(O::kPassword)
            .option(O::kPasswordFile)
            .option(O::kMarkets)
            .alternative()
            .required(O::kBroker)
            .required(O::kServerGroup)
            .checkedBy(&CSourceCommands::checkAdd)
            .changesData()
            .help("Add one source (to the default sub-system unless named); prints its id."),
        C({"sources", "modify"}, &CSourceCommands::modify)
            .positional(P::SourceId, "ID", 1, 1)
            .option(O::kPlatform)
            .option(O::kTradeType)
            .option(O::kAddress)
            .option(O::kPort)
            .option(O::kUser)
            .hidden(O::kPassword)
            .option(O::kPasswordFile)
            .option(O::kMarkets)
            .option(O::kBroker)
            .option(O::kServerGroup)
            .option(O::kIfRevision)
            .refused(O::kSubsystem, "a source stays in its sub-system; %1 does not apply")
            .checkedBy(&CSourceCommands::checkModify)
            .changesData()
            .help("Change the given fields of source ID; the others keep their values. The\n"
                  "service reads and changes the source in one transaction (also through\n"
                  "--server), so a field someone else changed meanwhile is kept.\n"
                  "--if-revision N: only while the source's revision (sources list --json)\n"
                  "is still N; refused when someone changed it since.\n"
                  "--password-file: the password is the first line of FILE, or of standard\n"
                  "input for -; --password TEXT still works but warns (other local users\n"
                  "can read the command line)."),
        C({"sources", "delete"}, &CSourceCommands::remove)
            .positional(P::SourceId, "ID", 1, -1)
            .changesData()
            .help("Delete sources by id (all or nothing)."),
    };
}

// What a source does and did: where it connects now, its history, a restore.
std::vector<C> sourceStateCommands() {
    return {
        C({"sources", "probe"}, &CSourceCommands::probe)
            .positional(P::SourceId, "ID", 0, -1)
            .option(O::kAll)
            .option(O::kJson)
            .checkedBy(&CSourceCommands::checkProbe)
            .help("Connect now (TCP, nothing sent) to where sources ID... (or --all) connect:\n"
                  "their stored address, or each address of a broker's server group, each\n"
                  "once. Prints each address's state: reachable with the connect time,\n"
                  "refused, timeout, unreachable with the error, or not_probed with why\n"
                  "(documentation and other never-contacted addresses, or outside the\n"
                  "server's --probe-allow). An address this login probed within 10 s\n"
                  "answers its stored state."),
        C({"sources", "history"}, &CHistoryCommands::history)
            .positional(P::SourceId, "ID", 1, 1)
            .option(O::kJson)
            .help("The changes of source ID from the audit trail (also of a deleted source),\n"
                  "oldest first: when, who, from where, and the fields each changed (the\n"
                  "password only as changed or not). Says where the history begins: entries\n"
                  "removed by audit prune, or from before an import, are no longer part of it."),
        C({"sources", "restore"}, &CHistoryCommands::restore)
            .positional(P::SourceId, "ID", 1, 1)
            .required(O::kEntry)
            .changesData()
            .help("Set source ID back to its fields after entry N of its history (a modify,\n"
                  "recorded as restore; a deleted source is added again with its id). The\n"
                  "audit trail holds no password: the stored password is kept, a source added\n"
                  "again has none."),
    };
}

std::vector<C> brokerAndPlatformCommands() {
    return {
        C({"brokers", "list"}, &CReferenceCommands::brokers)
            .option(O::kTradeType)
            .option(O::kJson)
            .help("Futures companies with their server groups (trade types 1 and 5)."),
        C({"platforms", "list"}, &CReferenceCommands::platforms)
            .option(O::kTradeType)
            .option(O::kJson)
            .help("Futures platforms."),
    };
}

std::vector<C> tokenCommands() {
    return {
        C({"token", "show"}, &CTokenCommand::show)
            .option(O::kJson)
            .help("Print the Level-2 token (nothing when none is stored)."),
        C({"token", "set"}, &CTokenCommand::set)
            .positional(P::SecretInput, "TOKEN", 1, 1)
            .changesData()
            .help("Store the Level-2 token (1 to 100 ASCII letters and digits), read from the\n"
                  "first line of standard input for - (TOKEN on the command line warns)."),
        C({"token", "delete"}, &CTokenCommand::remove)
            .changesData()
            .help("Delete the Level-2 token."),
    };
}

std::vector<C> subsystemAndUserCommands() {
    return {
        C({"subsystems", "list"}, &CReferenceCommands::subsystems)
            .option(O::kJson)
            .help("Sub-systems, the default first."),
        C({"users", "list"}, &CReferenceCommands::users)
            .option(O::kJson)
            .help("Users with their rights."),
    };
}

std::vector<C> transferCommands() {
    return {
        C({"export"}, &CTransferCommands::exportAll)
            .option(O::kOutput)
            .option(O::kNoSecrets)
            .option(O::kWithAudit)
            .help("Write everything as one JSON document to standard output, or to FILE (mode\n"
                  "0600, written whole or not at all). Passwords and the token are in clear\n"
                  "(a restore needs no key) unless --no-secrets, which writes empty passwords,\n"
                  "no token and no password hashes (an import of it keeps the stored ones).\n"
                  "The token shows as ****** to an account without a Level-2 right (an import\n"
                  "keeps the stored one). Every export is recorded in the audit trail.\n"
                  "--with-audit adds the audit trail under \"audit\" (import passes over it)."),
        C({"import"}, &CTransferCommands::importAll)
            .option(O::kDryRun)
            .option(O::kBackup)
            .option(O::kKey)
            .option(O::kOnly)
            .positional(P::Input, "FILE", 1, 1, "json")
            .arity("import needs one FILE (or -)")
            .checkedBy(&CTransferCommands::checkImport)
            .changesData()
            .help("Replace everything with a document written by export (FILE - reads standard\n"
                  "input). The document must hold every section with the type export writes;\n"
                  "source ids go up to 999999999. The whole document is checked first; nothing\n"
                  "changes if any of it is bad, or if no enabled account would keep the\n"
                  "administrator right (90002). --dry-run prints what would change per section\n"
                  "and changes nothing. A real import first writes the current content to\n"
                  "import-backup-<time>.json in the data directory (mode 0600, the last 10 kept)\n"
                  "and prints its name; with --db postgresql://... name it with --backup FILE;\n"
                  "with --server the server writes it in its own data directory. A backup is\n"
                  "sealed under the key of the stored secrets; FILE may be one: it is opened\n"
                  "with the database's key file, or with --key FILE (needed with --server:\n"
                  "the server's secrets.key, or the key before a rekey).\n"
                  "--only LIST: only the sections named (comma-separated, e.g. brokers,platforms)\n"
                  "replace the stored ones; the document must be of this version and hold them,\n"
                  "the other sections stay as stored (checked together as a whole import)."),
    };
}

std::vector<C> databaseCommands() {
    return {
        C({"integrity"}, &CServiceCommands::integrity)
            .help("Run the database's consistency check."),
        C({"rekey"}, &CServiceCommands::rekey)
            .localOnly("rekey changes the key file of the database itself: run it with %1 or %2 "
                       "where the key lives, not %3")
            .changesData()
            .help("Encrypt the stored passwords and token under a new key in one transaction\n"
                  "and replace the key file (embedded only; copy the new file to every other\n"
                  "program on the same database)."),
        C({"backup"}, &CBackupCommands::backup)
            .option(O::kOutput)
            .checkedBy(&CBackupCommands::checkBackup)
            .needs(kAdminister)
            .help("Copy the live SQLite database while others go on writing, to FILE or to\n"
                  "backup-<time>.db in the data directory (mode 0600); prints where it went.\n"
                  "With --server the server writes it in its own data directory and the path\n"
                  "printed is the server's. The copy holds the key's check value, not the key:\n"
                  "keep secrets.key apart from it. PostgreSQL is backed up with pg_dump."),
        C({"restore"}, &CBackupCommands::restore)
            .positional(P::Input, "FILE", 1, 1, "db")
            .option(O::kData)
            .option(O::kKey)
            .arity("restore needs one FILE")
            .localOnly("restore replaces the database file itself: run it where the database "
                       "lives with %1, not %3")
            .checkedBy(&CBackupCommands::checkRestore)
            .withoutDatabase()
            .changesData()
            .help("Replace the database of the data directory (--data DIR, else the global\n"
                  "one) with a copy made by backup. Nothing is replaced unless the copy passes\n"
                  "the integrity check, its schema is one this program knows and the key file\n"
                  "(--key FILE, else the directory's secrets.key) opens its secrets, and no\n"
                  "program has the database open: stop the server first. The replaced database\n"
                  "is kept as quotes-before-restore-<time>.db; a --key FILE that differs is\n"
                  "installed as the directory's key (the old one kept beside it)."),
    };
}

std::vector<C> accountCommands() {
    return {
        C({"accounts", "list"}, &CAccountCommands::list)
            .option(O::kJson)
            .ignored(O::kPasswordFile)
            .ignored(O::kRights)
            .arity("accounts list takes no NAME")
            .needs(kAdminister)
            .help("Accounts with their rights and whether they may log in."),
        C({"accounts", "password"}, &CAccountCommands::password)
            .positional(P::Name, "NAME", 1, 1)
            .required(O::kPasswordFile, "%2 needs %1 %3 (or - for standard input)")
            .ignored(O::kRights)
            .changesData()
            .needs(kAdminister)
            .help("Set an account's password (at least 12 characters), read from the first\n"
                  "line of FILE or of standard input; its logins end."),
        C({"accounts", "enable"}, &CAccountCommands::enable)
            .positional(P::Name, "NAME", 1, 1)
            .ignored(O::kPasswordFile)
            .ignored(O::kRights)
            .changesData()
            .needs(kAdminister),
        C({"accounts", "disable"}, &CAccountCommands::disable)
            .positional(P::Name, "NAME", 1, 1)
            .ignored(O::kPasswordFile)
            .ignored(O::kRights)
            .changesData()
            .needs(kAdminister)
            .help("Let an account log in, or end its logins and refuse new ones."),
        C({"accounts", "rights"}, &CAccountCommands::rights)
            .positional(P::Name, "NAME", 1, 1)
            .required(O::kRights, "%2 needs %1 %3 (comma-separated; empty for none)")
            .ignored(O::kPasswordFile)
            .changesData()
            .needs(kAdminister)
            .help("Replace an account's rights (comma-separated numbers; empty for none)."),
        C({"accounts", "unlock"}, &CAccountCommands::unlock)
            .positional(P::Name, "NAME", 0, 1)
            .option(O::kAddress)
            .ignored(O::kPasswordFile)
            .ignored(O::kRights)
            .changesData()
            .needs(kAdminister)
            .help("Forget failed logins: of the account NAME (from every address), of the\n"
                  "address --address A (every name), or of the one pair when both are given.")
            .note("The account commands need the administrator right (90002)."),
    };
}

// audit prune's word may follow options, so both take the same ones (those of the other hidden).
std::vector<C> auditCommands() {
    const char* const pruneOnly = "%1 goes with audit prune, and audit prune needs it";
    return {
        C({"audit"}, &CAuditCommand::list)
            .option(O::kSince)
            .option(O::kUntil)
            .option(O::kLogin)
            .option(O::kAction)
            .option(O::kLimit)
            .option(O::kBefore)
            .option(O::kJson)
            .needs(kAdminister)
            .help("The audit trail, newest first (times ISO-8601; without an offset local):\n"
                  "at most --limit entries (default 1000), older than entry --before ID; a\n"
                  "listing that stops at its limit says how to read on."),
        C({"audit", "prune"}, &CAuditCommand::prune)
            .required(O::kBefore, pruneOnly)
            .hidden(O::kSince)
            .hidden(O::kUntil)
            .hidden(O::kLogin)
            .hidden(O::kAction)
            .hidden(O::kLimit)
            .hidden(O::kJson)
            .changesData()
            .needs(kAdminister)
            .help("Remove the audit entries older than DATE (the prune itself is recorded).")
            .note("Both audit commands need the administrator right (90002)."),
    };
}

std::vector<C> pingCommand() {
    return {C({"ping"}, &CServiceCommands::ping)
                .option(O::kJson)
                .help("The data service's version, database and uptime."),
            C({"health"}, &CServiceCommands::health)
                .withoutLogin()
                .checkedBy(&CServiceCommands::checkHealth)
                .help("Ask each --server's standard health service, without a login: one line\n"
                      "each (SERVING while it answers and its database does, its version and\n"
                      "commit); exit 0 when all serve, 1 otherwise.")};
}

std::vector<C> table() {
    std::vector<C> all;
    for (const auto& part : {sourceCommands(), sourceStateCommands(), brokerAndPlatformCommands(),
                             tokenCommands(), subsystemAndUserCommands(), transferCommands(),
                             databaseCommands(), accountCommands(), auditCommands(), pingCommand()})
        all.insert(all.end(), part.begin(), part.end());
    return all;
}

}  // namespace

const std::vector<CCtlCommand>& CCtlCommandTable::all() {
    static const std::vector<CCtlCommand> commands = table();
    return commands;
}

const CCtlCommand* CCtlCommandTable::find(const QStringList& words) {
    for (const CCtlCommand& command : all()) {
        if (command.words() == words)
            return &command;
    }
    return nullptr;
}

QStringList CCtlCommandTable::groups() {
    QStringList groups;
    for (const CCtlCommand& command : all()) {
        if (!groups.contains(command.words().front()))
            groups << command.words().front();
    }
    return groups;
}

QStringList CCtlCommandTable::actions(const QString& group) {
    QStringList actions;
    for (const CCtlCommand& command : all()) {
        if (command.words().size() > 1 && command.words().front() == group)
            actions << command.words().at(1);
    }
    return actions;
}
