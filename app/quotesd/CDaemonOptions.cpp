#include "CDaemonOptions.h"

namespace {

// The value after an option, consumed; empty with *error set when there is none.
QString takeValue(QStringList* rest, const QString& option, QString* error) {
    if (rest->isEmpty() || rest->front().startsWith(QLatin1String("--"))) {
        *error = QStringLiteral("%1 needs a value").arg(option);
        return QString();
    }
    return rest->takeFirst();
}

bool parseCommand(QStringList* rest, CDaemonOptions* options, QString* error) {
    if (rest->isEmpty() || rest->front().startsWith(QLatin1String("-")))
        return true;
    const QString command = rest->takeFirst();
    if (command == QLatin1String("init")) {
        options->command = CDaemonOptions::Init;
    } else if (command == QLatin1String("reset-password")) {
        options->command = CDaemonOptions::ResetPassword;
        if (rest->isEmpty() || rest->front().startsWith(QLatin1String("-"))) {
            *error = QStringLiteral("reset-password needs an account name");
            return false;
        }
        options->account = rest->takeFirst();
    } else {
        *error = QStringLiteral("unknown command \"%1\"").arg(command);
        return false;
    }
    return true;
}

bool parseOption(const QString& option, QStringList* rest, CDaemonOptions* options,
                 QString* error) {
    if (option == QLatin1String("--help") || option == QLatin1String("-h")) {
        options->command = CDaemonOptions::Help;
        return true;
    }
    if (option == QLatin1String("--generate")) {
        options->generate = true;
        return true;
    }
    if (option == QLatin1String("--join")) {
        options->command = CDaemonOptions::Join;
        return true;
    }
    QString* target = nullptr;
    if (option == QLatin1String("--data"))
        target = &options->dataDir;
    else if (option == QLatin1String("--db"))
        target = &options->dbUrl;
    else if (option == QLatin1String("--listen"))
        target = &options->listen;
    else if (option == QLatin1String("--cert"))
        target = &options->certFile;
    else if (option == QLatin1String("--key"))
        target = &options->keyFile;
    else if (option == QLatin1String("--secrets-key"))
        target = &options->secretsKeyFile;
    else if (option != QLatin1String("--host") && option != QLatin1String("--lockout-base-ms")) {
        *error = QStringLiteral("unknown option \"%1\"").arg(option);
        return false;
    }
    const QString value = takeValue(rest, option, error);
    if (value.isEmpty())
        return false;
    if (target) {
        *target = value;
    } else if (option == QLatin1String("--host")) {
        options->hosts << value;
    } else {
        bool ok = false;
        options->lockoutBaseMs = value.toLongLong(&ok);
        if (!ok || options->lockoutBaseMs < 1) {
            *error = QStringLiteral("--lockout-base-ms needs a positive number");
            return false;
        }
    }
    return true;
}

bool checkCombination(CDaemonOptions* options, QString* error) {
    if (options->command == CDaemonOptions::Help)
        return true;
    if (options->dataDir.isEmpty())
        *error = QStringLiteral("--data DIR is required");
    else if (options->command == CDaemonOptions::Join && options->dbUrl.isEmpty())
        *error = QStringLiteral("init --join needs --db URL: it joins a shared database");
    else if (options->certFile.isEmpty() != options->keyFile.isEmpty())
        *error = QStringLiteral("--cert and --key go together");
    else if (options->command == CDaemonOptions::Join && options->generate)
        *error = QStringLiteral("--generate sets the first password; a joining server sets none");
    if (options->hosts.isEmpty())
        options->hosts = QStringList{QStringLiteral("localhost"), QStringLiteral("127.0.0.1")};
    return error->isEmpty();
}

}  // namespace

bool CDaemonOptions::parse(const QStringList& arguments, CDaemonOptions* options, QString* error) {
    QStringList rest = arguments;
    if (!parseCommand(&rest, options, error))
        return false;
    while (!rest.isEmpty()) {
        const QString option = rest.takeFirst();
        if (!option.startsWith(QLatin1String("-"))) {
            *error = QStringLiteral("unexpected argument \"%1\"").arg(option);
            return false;
        }
        if (!parseOption(option, &rest, options, error))
            return false;
    }
    if (options->command == Join && !arguments.contains(QStringLiteral("init"))) {
        *error = QStringLiteral("--join belongs to init");
        return false;
    }
    return checkCombination(options, error);
}

QString CDaemonOptions::helpText() {
    return QStringLiteral(
        "Usage:\n"
        "  quotesd init --data DIR [--db URL] [--host NAME]... [--cert FILE --key FILE] "
        "[--generate]\n"
        "      Set up a new server: the data directory (mode 0700), the database (seeded),\n"
        "      the password of the account admin (read from standard input, at least 12\n"
        "      characters; --generate makes one and prints it once) and, without --cert/--key,\n"
        "      a private key and a self-signed certificate valid 2 years for the host names\n"
        "      (default localhost and 127.0.0.1), whose SHA-256 fingerprint is printed.\n"
        "  quotesd init --join --data DIR --db URL --secrets-key FILE [--host NAME]...\n"
        "               [--cert FILE --key FILE]\n"
        "      Prepare a further server for a PostgreSQL database that is set up already;\n"
        "      FILE is the first server's DIR/secrets.key, copied into this DIR.\n"
        "  quotesd reset-password NAME --data DIR [--db URL]\n"
        "      Set an account's password (read from standard input) on this machine.\n"
        "  quotesd --data DIR [--db URL] [--listen ADDR:PORT]\n"
        "      Serve (default 127.0.0.1:7461) until SIGTERM, which lets calls in flight finish.\n"
        "\n"
        "The sources' passwords and the Level-2 token are stored encrypted under the key in\n"
        "DIR/secrets.key (mode 0600, made by init); every server of one database needs the\n"
        "same key. --secrets-key FILE names another key file (init copies it into DIR).\n"
        "A password in a --db URL is visible to other local users: use ~/.pgpass or\n"
        "PGPASSFILE instead.\n"
        "quotesd refuses to run as root: run it as its own unprivileged user.\n"
        "--lockout-base-ms N sets the first refusal interval after 5 failed logins (default\n"
        "30000), for tests.\n"
        "Exit codes: 0 done, 1 refused or failed, 2 bad command line.\n");
}
