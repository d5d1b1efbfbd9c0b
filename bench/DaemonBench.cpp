// What an administrator's monitors meet: how fast quotesd answers the standard health check over
// loopback (on an open connection, and with a new TLS connection and Ping as quotesctl health
// makes), and how soon after its database hangs quotesd stops pinging systemd's watchdog (the
// PostgreSQL test cluster suspended with SIGSTOP; skipped when it cannot start).

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QElapsedTimer>
#include <QThread>
#include <algorithm>
#include <cstdio>
#include <vector>

#include "BenchRegistry.h"
#include "CHealthCheck.h"
#include "NotifySocket.h"
#include "PostgresCluster.h"
#include "QuotesdProcess.h"

namespace {

const char* const kPassword = "bench-password-1";
const int kChecks = 2000;
const int kNewConnectionChecks = 300;
const std::chrono::seconds kDeadline(5);
// WatchdogSec= of the packaged unit.
const double kWatchdogSec = 60;

void useBuildTree() {
    if (qEnvironmentVariableIsEmpty("QUOTES_BINARY_DIR"))
        qputenv("QUOTES_BINARY_DIR", (QCoreApplication::applicationDirPath() + "/..").toUtf8());
}

double percentile(std::vector<double> values, double fraction) {
    std::sort(values.begin(), values.end());
    return values[std::min(values.size() - 1, size_t(double(values.size()) * fraction))];
}

// Milliseconds of each call; empty when one failed.
template <typename Call>
std::vector<double> timed(int count, Call call) {
    std::vector<double> ms;
    for (int i = 0; i < count; ++i) {
        QElapsedTimer timer;
        timer.start();
        if (!call())
            return {};
        ms.push_back(double(timer.nsecsElapsed()) / 1e6);
    }
    return ms;
}

void healthFigures(const QuotesdProcess& server) {
    const std::string address = server.address().toStdString();
    const std::string pem = server.certificatePem().toStdString();
    const auto channel = CHealthCheck::channelTo(address, pem);
    const auto open =
        timed(kChecks, [&] { return CHealthCheck::check(channel, kDeadline).serving(); });
    const auto fresh = timed(kNewConnectionChecks,
                             [&] { return CHealthCheck::ask(address, pem, kDeadline).serving(); });
    if (open.empty() || fresh.empty()) {
        std::fprintf(stderr, "daemon bench: a health check did not answer SERVING\n");
        return;
    }
    benchReport("health_check_ms_p50", percentile(open, 0.5), "ms");
    benchReport("health_check_ms_p99", percentile(open, 0.99), "ms");
    benchReport("health_check_new_connection_ms_p99", percentile(fresh, 0.99), "ms");
}

// Seconds from the database's hang to the first watchdog ping quotesd withholds (it says "not
// serving" in its status line at that check); negative when it never did within a minute.
double watchdogDetectSeconds(PostgresCluster& database, NotifySocket& systemd) {
    const qint64 hung = systemd.now();
    database.suspend();
    QDeadlineTimer deadline(60000);
    qint64 detected = -1;
    while (!deadline.hasExpired() && detected < 0) {
        for (const NotifySocket::Message& message : systemd.messages()) {
            if (message.atMs >= hung &&
                message.text.startsWith(QStringLiteral("STATUS=not serving")))
                detected = message.atMs;
        }
        QThread::msleep(10);
    }
    database.resume();
    return detected < 0 ? -1 : double(detected - hung) / 1000.0;
}

void watchdogFigure() {
    PostgresCluster database;
    if (!database.start().isEmpty() || !database.createDatabase(QStringLiteral("quotes"))) {
        std::fprintf(stderr, "daemon bench: no PostgreSQL cluster, watchdog_detect_s skipped\n");
        return;
    }
    NotifySocket systemd;
    QuotesdProcess server;
    server.setDatabaseUrl(database.url(QStringLiteral("quotes")));
    server.setEnvironment(systemd.environment(qint64(kWatchdogSec * 1000)));
    if (!server.init(QString::fromLatin1(kPassword)) || !server.start()) {
        std::fprintf(stderr, "daemon bench: quotesd on PostgreSQL did not start\n");
        return;
    }
    QDeadlineTimer settle(30000);
    while (systemd.count(QStringLiteral("WATCHDOG=1")) < 3 && !settle.hasExpired())
        QThread::msleep(10);
    const double seconds = watchdogDetectSeconds(database, systemd);
    benchReport("watchdog_detect_s", seconds, "s");
    benchReport("watchdog_sec", kWatchdogSec, "s");
    server.stop();
}

void runDaemonBench() {
    useBuildTree();
    QuotesdProcess server;
    if (!server.init(QString::fromLatin1(kPassword)) || !server.start()) {
        std::fprintf(stderr, "daemon bench: quotesd did not start: %s\n",
                     server.log().toUtf8().constData());
        return;
    }
    healthFigures(server);
    server.stop();
    watchdogFigure();
}

const BenchRegistrar registrar("daemon", &runDaemonBench);

}  // namespace
