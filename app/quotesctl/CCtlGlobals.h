#pragma once

#include <QStringList>
#include <vector>

#include "CCtlOption.h"
#include "CServiceOptions.h"

// The global options of quotesctl, before the command: their table (for the parser, --help, the
// manual page and the completion), the values a command line gave them and the rules between
// them.
class CCtlGlobals {
public:
    enum Id { kData, kDb, kSecretsKey, kServer, kCa, kLogin, kLoginPasswordFile, kHelp, kVersion };
    struct Option {
        Id id;
        const char* name;
        const char* alias;  // a short name, or empty
        CCtlOption::Kind kind;
        const char* metavar;
        // Lines of --help; %1 is the default data directory.
        const char* help;
        // What the manual page says instead, if anything.
        const char* manual = "";
    };

    // In the order of --help.
    static const std::vector<Option>& options();
    static const Option& option(Id id);
    // "--data", and with its value "--data DIR".
    static QString flag(Id id);
    static QString label(Id id);

    // Takes the global options off the front of arguments; true when they ask for --help or
    // --version (then wantsVersion says which).
    // Throws CCtlError on an unknown option or a missing value.
    bool take(QStringList* arguments);
    // Throws CCtlError when the options given do not go together.
    void check() const;
    // Throws CCtlError when a server is named without a login (a command that logs in).
    void checkLogin() const;

    bool remote() const { return !servers.isEmpty(); }
    // How many of them read standard input (0 or 1).
    int inputReaders() const;
    // Warnings about secrets on the command line.
    QStringList warnings() const;
    // One line a given option: "global --data \"/srv/quotes\"".
    QStringList describe() const;

    CServiceOptions service;
    QStringList servers;
    QString caFile;
    QString login;
    QString passwordFile;
    bool wantsVersion = false;

private:
    void set(Id id, const QString& value);
};
