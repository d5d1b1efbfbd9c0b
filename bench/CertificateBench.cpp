// What a certificate renewal costs: signing a server certificate from the authority, and the
// time from `quotesd cert renew` to a new connection served the renewed certificate by the
// running server, at the default check interval (the server reads its files every 30 s), the
// worst of three renewals.

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QElapsedTimer>
#include <QThread>
#include <algorithm>
#include <cstdio>

#include "BenchRegistry.h"
#include "CTlsIdentity.h"
#include "QuotesdProcess.h"
#include "TlsProbe.h"

namespace {

const char* const kPassword = "bench-password-1";
const int kSignings = 20;
const int kRenewals = 3;

double signMs() {
    const CTlsIdentity authority = CTlsIdentity::createAuthority(QStringLiteral("localhost"));
    QElapsedTimer timer;
    timer.start();
    for (int i = 0; i < kSignings; ++i)
        authority.signServer(CTlsIdentity::defaultHostNames());
    return double(timer.nsecsElapsed()) / 1e6 / kSignings;
}

// Seconds from the renewal's end to a handshake that presents the new certificate; negative
// when none did within 90 s.
double renewedServedSeconds(QuotesdProcess& server) {
    const QStringList renew{QStringLiteral("cert"), QStringLiteral("renew"),
                            QStringLiteral("--data"), server.dataDir()};
    if (server.run(renew) != 0)
        return -1;
    const QString renewed = CTlsIdentity::fingerprintOf(server.servedCertificatePem());
    QElapsedTimer timer;
    timer.start();
    while (timer.elapsed() < 90000) {
        if (TlsProbe::servedFingerprint(server.port()) == renewed)
            return double(timer.nsecsElapsed()) / 1e9;
        QThread::msleep(50);
    }
    return -1;
}

void runCertificateBench() {
    if (qEnvironmentVariableIsEmpty("QUOTES_BINARY_DIR"))
        qputenv("QUOTES_BINARY_DIR", (QCoreApplication::applicationDirPath() + "/..").toUtf8());
    benchReport("cert_sign_ms", signMs(), "ms");
    QuotesdProcess server;
    if (!server.init(QString::fromLatin1(kPassword)) || !server.start()) {
        std::fprintf(stderr, "certificate bench: quotesd did not start: %s\n",
                     server.log().toUtf8().constData());
        return;
    }
    // Where a renewal falls in the server's interval is chance: the worst of a few.
    double worst = 0;
    for (int round = 0; round < kRenewals && worst >= 0; ++round) {
        const double seconds = renewedServedSeconds(server);
        worst = seconds < 0 ? seconds : std::max(worst, seconds);
    }
    benchReport("cert_renew_served_s", worst, "s");
    server.stop();
}

static BenchRegistrar reg("certificates", &runCertificateBench);

}  // namespace
