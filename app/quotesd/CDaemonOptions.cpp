#include "CDaemonOptions.h"

#include "CServerLog.h"

#include <functional>
#include <vector>

#include "CProbeAllowList.h"
#include "CServiceError.h"

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
    } else if (command == QLatin1String("cert")) {
        options->command = CDaemonOptions::Cert;
        options->certAction = rest->isEmpty() ? QString() : rest->takeFirst();
        if (!QStringList{"renew", "show", "migrate"}.contains(options->certAction)) {
            *error = QStringLiteral("cert needs renew, show or migrate");
            return false;
        }
    } else {
        *error = QStringLiteral("unknown command \"%1\"").arg(command);
        return false;
    }
    return true;
}

// The options that take a number: the smallest and largest value, and where it goes.
struct NumberOption {
    const char* name;
    qint64 minimum;
    qint64 maximum;
    std::function<void(CDaemonOptions*, qint64)> set;
};

const std::vector<NumberOption>& numberOptions() {
    const qint64 day = 24 * 3600 * 1000;
    const qint64 many = 100000;
    static const std::vector<NumberOption> options{
        // For tests (a lockout they can wait out), so --help does not list it.
        {"--lockout-base-ms", 1, day, [](CDaemonOptions* o, qint64 v) { o->lockoutBaseMs = v; }},
        {"--handshake-timeout-ms", 100, day,
         [](CDaemonOptions* o, qint64 v) { o->limits.handshakeTimeoutMs = v; }},
        {"--idle-connection-ms", 100, day,
         [](CDaemonOptions* o, qint64 v) { o->limits.idleConnectionMs = v; }},
        {"--max-streams-per-connection", 1, many,
         [](CDaemonOptions* o, qint64 v) { o->limits.streamsPerConnection = int(v); }},
        {"--max-threads", 4, many,
         [](CDaemonOptions* o, qint64 v) { o->limits.maxThreads = int(v); }},
        {"--max-event-streams", 1, many,
         [](CDaemonOptions* o, qint64 v) { o->limits.eventStreams = int(v); }},
        {"--max-event-streams-per-login", 1, many,
         [](CDaemonOptions* o, qint64 v) { o->limits.eventStreamsPerLogin = int(v); }},
        {"--max-password-checks", 1, many,
         [](CDaemonOptions* o, qint64 v) { o->limits.passwordChecks = int(v); }},
        {"--self-check-ms", 100, day,
         [](CDaemonOptions* o, qint64 v) { o->limits.selfCheckMs = v; }},
        {"--certificate-check-s", 1, 60,
         [](CDaemonOptions* o, qint64 v) { o->certificateCheckSeconds = v; }},
        {"--probe-interval", 1, day / 1000,
         [](CDaemonOptions* o, qint64 v) { o->probeIntervalS = v; }},
    };
    return options;
}

const NumberOption* numberOption(const QString& option) {
    for (const NumberOption& known : numberOptions()) {
        if (option == QLatin1String(known.name))
            return &known;
    }
    return nullptr;
}

bool parseNumber(const NumberOption& option, const QString& value, CDaemonOptions* options,
                 QString* error) {
    bool ok = false;
    const qint64 number = value.toLongLong(&ok);
    if (!ok || number < option.minimum || number > option.maximum) {
        *error = QStringLiteral("%1 needs a number from %2 to %3")
                     .arg(QLatin1String(option.name))
                     .arg(option.minimum)
                     .arg(option.maximum);
        return false;
    }
    option.set(options, number);
    return true;
}

// The options that name a text.
QString* textTarget(const QString& option, CDaemonOptions* options) {
    if (option == QLatin1String("--data"))
        return &options->dataDir;
    if (option == QLatin1String("--db"))
        return &options->dbUrl;
    if (option == QLatin1String("--cert"))
        return &options->certFile;
    if (option == QLatin1String("--key"))
        return &options->keyFile;
    if (option == QLatin1String("--secrets-key"))
        return &options->secretsKeyFile;
    if (option == QLatin1String("--metrics-listen"))
        return &options->metricsListen;
    if (option == QLatin1String("--log-level"))
        return &options->logLevel;
    if (option == QLatin1String("--public"))
        return &options->publicDir;
    if (option == QLatin1String("--ca-key"))
        return &options->caKeyFile;
    if (option == QLatin1String("--probe-allow"))
        return &options->probeAllow;
    return nullptr;
}

bool parseOption(const QString& option, QStringList* rest, CDaemonOptions* options,
                 QString* error) {
    if (option == QLatin1String("--help") || option == QLatin1String("-h")) {
        options->command = CDaemonOptions::Help;
        return true;
    }
    if (option == QLatin1String("--version")) {
        options->command = CDaemonOptions::Version;
        return true;
    }
    if (option == QLatin1String("--generate")) {
        options->generate = true;
        return true;
    }
    if (option == QLatin1String("--sample-data")) {
        options->sampleData = true;
        return true;
    }
    if (option == QLatin1String("--join")) {
        options->command = CDaemonOptions::Join;
        return true;
    }
    QString* target = textTarget(option, options);
    const NumberOption* number = numberOption(option);
    const bool listing = option == QLatin1String("--host") || option == QLatin1String("--listen");
    if (!target && !number && !listing) {
        *error = QStringLiteral("unknown option \"%1\"").arg(option);
        return false;
    }
    const QString value = takeValue(rest, option, error);
    if (value.isEmpty())
        return false;
    if (number)
        return parseNumber(*number, value, options, error);
    CServerLog::Level level;
    if (option == QLatin1String("--log-level") && !CServerLog::parseLevel(value, &level)) {
        *error = QStringLiteral("--log-level needs error, warning, notice, info or debug");
        return false;
    }
    if (target)
        *target = value;
    else if (option == QLatin1String("--listen"))
        options->listen << value;
    else
        options->hosts << value;
    return true;
}

// Why the ranges of --probe-allow cannot be read; empty when they can.
QString allowListError(const QString& ranges) {
    try {
        CProbeAllowList::parse(ranges);
    } catch (const CServiceError& e) {
        return QStringLiteral("--probe-allow: %1").arg(QString::fromUtf8(e.what()));
    }
    return QString();
}

bool checkCombination(CDaemonOptions* options, QString* error) {
    if (options->command == CDaemonOptions::Help || options->command == CDaemonOptions::Version)
        return true;
    if (options->dataDir.isEmpty())
        *error = QStringLiteral("--data DIR is required");
    else if (options->command == CDaemonOptions::Join && options->dbUrl.isEmpty())
        *error = QStringLiteral("init --join needs --db URL: it joins a shared database");
    else if (options->certFile.isEmpty() != options->keyFile.isEmpty())
        *error = QStringLiteral("--cert and --key go together");
    else if (options->command == CDaemonOptions::Join && options->generate)
        *error = QStringLiteral("--generate sets the first password; a joining server sets none");
    else if (!options->probeAllow.isEmpty())
        *error = allowListError(options->probeAllow);
    if (error->isEmpty())
        *error = options->limits.conflict();
    // A renewal or migration keeps the certificate's names unless told others.
    if (options->hosts.isEmpty() && options->command != CDaemonOptions::Cert)
        options->hosts = QStringList{QStringLiteral("localhost"), QStringLiteral("127.0.0.1")};
    if (options->listen.isEmpty())
        options->listen = QStringList{QStringLiteral("127.0.0.1:7461")};
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
        "               [--sample-data]\n"
        "      Set up a new server: the data directory (mode 0700), the database (seeded),\n"
        "      the password of the account admin (read from standard input, at least 12\n"
        "      characters; --generate makes one and prints it once) and, without --cert/--key,\n"
        "      a private certificate authority (key DIR/ca.key) and a server certificate it\n"
        "      signs, valid 397 days for the host names (default localhost and 127.0.0.1).\n"
        "      Desktops trust the authority: ca.crt in the public directory (--public PUBDIR,\n"
        "      default DIR-public, mode 0755), whose SHA-256 fingerprint is printed.\n"
        "      The database starts with the futures platforms and no brokers (quotesctl\n"
        "      import --only brokers,platforms FILE loads yours); --sample-data adds sample\n"
        "      brokers whose addresses are documentation ranges, for trying things out.\n"
        "  quotesd init --join --data DIR --db URL --secrets-key FILE [--host NAME]...\n"
        "               [--cert FILE --key FILE]\n"
        "      Prepare a further server for a PostgreSQL database that is set up already;\n"
        "      FILE is the first server's DIR/secrets.key, copied into this DIR.\n"
        "  quotesd cert renew --data DIR [--host NAME]... [--ca-key FILE]\n"
        "      A new server certificate from the same authority (its key DIR/ca.key unless\n"
        "      --ca-key names it); the running server serves it within --certificate-check-s.\n"
        "  quotesd cert show --data DIR [--public PUBDIR]\n"
        "      The certificate's names, fingerprints and expiry.\n"
        "  quotesd cert migrate --data DIR [--public PUBDIR] [--host NAME]...\n"
        "      Give a server set up by an earlier release (self-signed) an authority; each\n"
        "      desktop then needs PUBDIR/ca.crt once.\n"
        "  quotesd reset-password NAME --data DIR [--db URL]\n"
        "      Set an account's password (read from standard input) on this machine.\n"
        "  quotesd --data DIR [--db URL] [--listen ADDR:PORT]... [--metrics-listen ADDR:PORT]\n"
        "          [--log-level LEVEL]\n"
        "      Serve (default 127.0.0.1:7461; --listen again for each further address) until\n"
        "      SIGTERM, which lets calls in flight finish; SIGHUP is logged and never stops it.\n"
        "      0.0.0.0 and [::] both mean every IPv4 and IPv6 address: to serve on IPv4 alone,\n"
        "      name each address.\n"
        "      --metrics-listen serves Prometheus metrics over plain HTTP at /metrics (off\n"
        "      unless given; keep it on loopback or a monitoring network, e.g. 127.0.0.1:9461).\n"
        "      --log-level error, warning, notice, info (default) or debug: logins (info; refused\n"
        "      notice, locked out warning), refused requests (warning) and changes (notice), to\n"
        "      the journal under systemd, else to standard error.\n"
        "  quotesd --version\n"
        "      The version and the commit it was built from.\n"
        "\n"
        "The sources' passwords and the Level-2 token are stored encrypted under the key in\n"
        "DIR/secrets.key (mode 0600, made by init); every server of one database needs the\n"
        "same key. --secrets-key FILE names another key file (init copies it into DIR).\n"
        "A password in a --db URL is visible to other local users: use ~/.pgpass or\n"
        "PGPASSFILE instead.\n"
        "quotesd refuses to run as root: run it as its own unprivileged user.\n"
        "\n"
        "What clients may hold (serving; the defaults suit a team of a few dozen consoles):\n"
        "  --handshake-timeout-ms N      a connection's TLS handshake (default 10000)\n"
        "  --idle-connection-ms N        a connection without calls (default 300000)\n"
        "  --max-streams-per-connection N  calls at once on one connection (default 16)\n"
        "  --max-threads N               threads, each with a database connection; a call\n"
        "                                beyond them is refused RESOURCE_EXHAUSTED (default 64)\n"
        "  --max-event-streams N         live-update streams, each holding a thread, at most\n"
        "                                half the threads (default 32)\n"
        "  --max-event-streams-per-login N  (default 4)\n"
        "  --max-password-checks N       password checks at once, 64 MiB each (default 4)\n"
        "  --self-check-ms N             how often the server calls itself over loopback and\n"
        "                                starts listening anew when it no longer accepts\n"
        "                                connections (default 1000)\n"
        "  --certificate-check-s N       how often the server reads its certificate files for\n"
        "                                a renewed one, 1 to 60 (default 30); from 30 days\n"
        "                                before its end the log warns once a day\n"
        "\n"
        "Reachability of the sources (TCP connects; nothing is sent):\n"
        "  --probe-interval SECONDS      probe every source's addresses this often (default:\n"
        "                                off; on demand only). Of several servers on one\n"
        "                                database one probes, another takes over when it stops\n"
        "  --probe-allow CIDR,...        where probes may connect (default: every address but\n"
        "                                loopback and link-local). Whoever may add a source\n"
        "                                chooses where quotesd connects: confine it to the\n"
        "                                platform's networks. Documentation ranges, unspecified,\n"
        "                                multicast and broadcast addresses are never probed.\n"
        "At start quotesd raises its open-file limit to the hard limit; the threads' database\n"
        "connections take at most half of it (fewer threads when it is too small).\n"
        "Exit codes: 0 done, 1 refused or failed, 2 bad command line.\n");
}
