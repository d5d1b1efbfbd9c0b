#pragma once

#include <QString>
#include <QStringList>

#include "CServerLimits.h"

// quotesd's command line.
struct CDaemonOptions {
    enum Command { Serve, Init, Join, ResetPassword, Help };

    Command command = Serve;
    QString dataDir;
    QString dbUrl;
    QString listen = QStringLiteral("127.0.0.1:7461");
    QStringList hosts;  // init: names the certificate is valid for
    QString certFile;   // init: an existing certificate and key instead of a new pair
    QString keyFile;
    // The key of the stored secrets: init copies it into the data directory (a server joining a
    // shared database needs the first server's); serving reads it in place.
    QString secretsKeyFile;
    bool generate = false;  // init: make admin's password instead of reading it
    QString account;        // reset-password
    qint64 lockoutBaseMs = 30 * 1000;
    // Serving: probe every source's addresses every so many seconds (0: only on demand), and
    // where probes may connect ("CIDR,..."; empty: everything but loopback and link-local).
    qint64 probeIntervalS = 0;
    QString probeAllow;
    CServerLimits limits;

    // Arguments without the program name. False with *error set on a bad command line.
    static bool parse(const QStringList& arguments, CDaemonOptions* options, QString* error);
    static QString helpText();
};
