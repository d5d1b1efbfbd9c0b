#pragma once

#include <QString>
#include <QStringList>

// The console's command line.
struct CConsoleOptions {
    QString dataDir;         // database, logs and settings; empty: the user's data directory
    QString dbUrl;           // a PostgreSQL database instead of the SQLite file
    QString screenshotDir;   // render every panel and dialog to PNG there, then exit
    QString user;            // log in as this user instead of the last one
    QStringList servers;     // quotesd servers instead of a database of our own
    QString caFile;          // the servers' certificate to trust
    QString secretsKeyFile;  // the key of the stored secrets; empty: the data directory's
    bool demo = false;       // sample data in a directory of its own
    bool reset = false;      // with demo: start the sample data afresh

    // Parses the arguments; false with a message for bad input.
    static bool parse(const QStringList& arguments, CConsoleOptions* options, QString* error);
};
