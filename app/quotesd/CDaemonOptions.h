#pragma once

#include <QString>
#include <QStringList>

#include "CServerLimits.h"

// quotesd's command line.
struct CDaemonOptions {
    enum Command { Serve, Init, Join, ResetPassword, Cert, Help, Version };

    Command command = Serve;
    QString dataDir;
    QString dbUrl;
    // Where to serve: each --listen adds one; none given, loopback.
    QStringList listen;
    QStringList hosts;  // init: names the certificate is valid for
    QString certFile;   // init: an existing certificate and key instead of a new pair
    QString keyFile;
    // The key of the stored secrets: init copies it into the data directory (a server joining a
    // shared database needs the first server's); serving reads it in place.
    QString secretsKeyFile;
    bool generate = false;    // init: make admin's password instead of reading it
    bool sampleData = false;  // init: also the sample brokers (documentation-range addresses)
    QString account;          // reset-password
    QString certAction;       // cert: renew, show or migrate
    // The directory of the files desktops need (init, cert); empty: beside the data directory.
    QString publicDir;
    QString caKeyFile;  // cert renew: the authority's key when it is kept off the server
    // How often the server reads its certificate files for a renewed pair.
    qint64 certificateCheckSeconds = 30;
    qint64 lockoutBaseMs = 30 * 1000;
    QString metricsListen;  // serving: where /metrics answers; empty: no metrics
    QString logLevel = QStringLiteral("info");
    // Serving: probe every source's addresses every so many seconds (0: only on demand), and
    // where probes may connect ("CIDR,..."; empty: everything but loopback and link-local).
    qint64 probeIntervalS = 0;
    QString probeAllow;
    CServerLimits limits;

    // Arguments without the program name. False with *error set on a bad command line.
    static bool parse(const QStringList& arguments, CDaemonOptions* options, QString* error);
    static QString helpText();
};
