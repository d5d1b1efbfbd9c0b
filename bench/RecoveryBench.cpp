// How soon quotesd answers again after a flood of idle connections took all its open files:
// from the last flood connection closed to a login answered, the worst of three floods. The
// server runs in its own process with a small open-file limit (as nobody when the bench runs as
// root); gRPC stops listening once accept4 fails, and the server's self-check listens anew.

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QElapsedTimer>
#include <QThread>
#include <algorithm>
#include <cstdio>
#include <string>

#include "BenchRegistry.h"
#include "CRemoteAdmin.h"
#include "ConnectionFlood.h"
#include "QuotesdProcess.h"

namespace {

const char* const kPassword = "bench-password-1";
const int kFileLimit = 256;
const int kFloodConnections = 400;

// Waits until the server's log holds the text `times` times; false after the timeout.
bool logShows(QuotesdProcess& server, const QString& text, int times, int timeoutMs) {
    QDeadlineTimer deadline(timeoutMs);
    while (server.log().count(text) < times) {
        if (deadline.hasExpired())
            return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
        QThread::msleep(20);
    }
    return true;
}

bool loginAnswers(const QuotesdProcess& server) {
    CRemoteAdmin admin({server.address().toStdString()}, server.certificatePem().toStdString(),
                       std::chrono::seconds(1));
    return admin.login("admin", kPassword).isSuccess();
}

// Seconds from the flood's end to a login answered; negative when none answered in 60 s.
double recoverySeconds(QuotesdProcess& server, int round) {
    ConnectionFlood flood;
    flood.open(server.port(), kFloodConnections);
    // gRPC says it once each time its listener gives up: the round-th time in this round.
    if (!logShows(server, QStringLiteral("Failed accept4"), round, 30000))
        std::fprintf(stderr, "recovery bench: the flood did not exhaust the open files\n");
    flood.close();
    QElapsedTimer timer;
    timer.start();
    while (timer.elapsed() < 60000) {
        if (loginAnswers(server))
            return double(timer.nsecsElapsed()) / 1e9;
    }
    return -1;
}

void runRecoveryBench() {
    if (qEnvironmentVariableIsEmpty("QUOTES_BINARY_DIR"))
        qputenv("QUOTES_BINARY_DIR", (QCoreApplication::applicationDirPath() + "/..").toUtf8());
    QuotesdProcess server;
    server.setOpenFileLimit(kFileLimit, kFileLimit);
    if (!server.init(QString::fromLatin1(kPassword)) || !server.start()) {
        std::fprintf(stderr, "recovery bench: quotesd did not start: %s\n",
                     server.log().toUtf8().constData());
        return;
    }
    double worst = 0;
    for (int round = 1; round <= 3; ++round) {
        const double seconds = recoverySeconds(server, round);
        if (seconds < 0) {
            std::fprintf(stderr, "recovery bench: no login answered within 60 s\n%s",
                         server.log().toUtf8().constData());
            worst = seconds;
            break;
        }
        worst = std::max(worst, seconds);
    }
    benchReport("self_check_recovery_s", worst, "s");
    server.stop();
}

static BenchRegistrar reg("recovery", &runRecoveryBench);

}  // namespace
