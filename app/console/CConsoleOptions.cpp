#include "CConsoleOptions.h"

#include <QCommandLineParser>

bool CConsoleOptions::parse(const QStringList& arguments, CConsoleOptions* options,
                            QString* error) {
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("Quote-source administration console"));
    parser.addHelpOption();
    // Answered by main before anything starts; listed here for --help.
    parser.addOption(QCommandLineOption(QStringLiteral("version"),
                                        QStringLiteral("The version and the commit it was "
                                                       "built from.")));
    const QCommandLineOption data(QStringLiteral("data"),
                                  QStringLiteral("Data directory (database, logs, settings)."),
                                  QStringLiteral("DIR"));
    const QCommandLineOption db(QStringLiteral("db"), QStringLiteral("PostgreSQL database URL."),
                                QStringLiteral("URL"));
    const QCommandLineOption screenshot(
        QStringLiteral("screenshot"),
        QStringLiteral("Render every panel and dialog to PNG files in DIR, then exit."),
        QStringLiteral("DIR"));
    const QCommandLineOption user(QStringLiteral("user"), QStringLiteral("Log in as this user."),
                                  QStringLiteral("NAME"));
    const QCommandLineOption server(
        QStringLiteral("server"),
        QStringLiteral("A quotesd server to log in to (repeat for further servers)."),
        QStringLiteral("HOST:PORT"));
    const QCommandLineOption ca(QStringLiteral("ca"),
                                QStringLiteral("The servers' certificate (PEM) to trust."),
                                QStringLiteral("FILE"));
    const QCommandLineOption secretsKey(
        QStringLiteral("secrets-key"),
        QStringLiteral("The key of the stored passwords (default: secrets.key in the data "
                       "directory)."),
        QStringLiteral("FILE"));
    const QCommandLineOption demo(
        QStringLiteral("demo"),
        QStringLiteral("Sample data in a data directory of its own (created if absent)."));
    const QCommandLineOption reset(QStringLiteral("reset"),
                                   QStringLiteral("With --demo: recreate the sample data."));
    parser.addOptions({data, db, screenshot, user, server, ca, secretsKey, demo, reset});
    if (!parser.parse(arguments)) {
        *error = parser.errorText();
        return false;
    }
    if (parser.isSet(QStringLiteral("help"))) {
        *error = parser.helpText();
        return false;
    }
    if (!parser.positionalArguments().isEmpty()) {
        *error =
            QStringLiteral("unexpected argument: %1").arg(parser.positionalArguments().first());
        return false;
    }
    options->dataDir = parser.value(data);
    options->dbUrl = parser.value(db);
    options->screenshotDir = parser.value(screenshot);
    options->user = parser.value(user);
    options->servers = parser.values(server);
    options->caFile = parser.value(ca);
    options->secretsKeyFile = parser.value(secretsKey);
    options->demo = parser.isSet(demo);
    options->reset = parser.isSet(reset);
    if (options->demo &&
        (!options->dataDir.isEmpty() || !options->dbUrl.isEmpty() || !options->servers.isEmpty())) {
        *error = QStringLiteral("--demo excludes --data, --db and --server: it keeps its own data");
        return false;
    }
    if (options->reset && !options->demo) {
        *error = QStringLiteral("--reset needs --demo");
        return false;
    }
    if (!options->servers.isEmpty() && (!options->dbUrl.isEmpty() || !options->user.isEmpty())) {
        *error = QStringLiteral(
            "--server excludes --db and --user: the server keeps the data "
            "and the login names the account");
        return false;
    }
    if (options->servers.isEmpty() && !options->caFile.isEmpty()) {
        *error = QStringLiteral("--ca needs --server");
        return false;
    }
    return true;
}
