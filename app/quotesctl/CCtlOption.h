#pragma once

#include <QString>
#include <set>
#include <vector>

// One option of quotesctl's commands ("--port N"), declared once in the registry: the commands
// name options by id, and the parser, the checks, the handlers, --help, the manual page and the
// completion read the name, kind and value name from here.
class CCtlOption {
public:
    enum Id {
        kTradeType,
        kPlatform,
        kPort,
        kBroker,
        kServerGroup,
        kSubsystem,
        kAddress,
        kUser,
        kPassword,
        kPasswordFile,
        kMarkets,
        kJson,
        kRights,
        kSince,
        kUntil,
        kBefore,
        kLogin,
        kAction,
        kOutput,
        kNoSecrets,
        kWithAudit,
        kDryRun,
        kBackup,
        kKey,
        kLimit,
        kIfRevision,
        kData,
        kOnly,
        kAll,
        kEntry,
    };
    enum class Kind {
        Flag,       // no value
        Text,       // any text
        Int,        // a whole number
        Time,       // an ISO-8601 date or date and time
        File,       // a file name
        Directory,  // a directory name
        Input,      // a file to read, or - for standard input
        Secret,     // a secret given on the command line (works, but warns)
        Rights,     // right numbers separated by commas
    };

    Id id;
    const char* name;  // without the leading dashes
    Kind kind;
    const char* metavar;  // the value's name in a synopsis; none for a flag
    // For a secret: the option that reads it from a file instead.
    Id saferInput = kPasswordFile;

    // In the order their values are checked, so that of two bad values the same one is named.
    static const std::vector<CCtlOption>& all();
    static const CCtlOption& of(Id id);
    // The option called --name; null when there is none.
    static const CCtlOption* named(const QString& name);

    // "--port"
    QString flag() const;
    // How a synopsis shows it: "--port N", "--password-file FILE|-", "--json".
    QString synopsis() const;
    bool takesValue() const { return kind != Kind::Flag; }
    bool readsStandardInput(const QString& value) const;
    // Why value does not do for this option; empty when it does.
    QString problem(const QString& value) const;

    // An ISO-8601 date or date and time ("2026-11-23", "2026-11-23T08:00:00Z"); without an
    // offset it is local time. False when the text is no such time.
    static bool parseTime(const QString& text, long long* ms);
    // "10937, 90001" (empty: none); false when a part is no right number.
    static bool parseRights(const QString& text, std::set<int>* rights);
};
