// Refused logins against a real quotesd: one client sends logins with a new name each time, as
// fast as it can, and the figure is how many audit rows that adds a minute (the trail keeps one
// entry per address a minute, counting the attempts on it).

#include <QCoreApplication>
#include <QDateTime>
#include <QElapsedTimer>
#include <boost/make_shared.hpp>
#include <cstdio>
#include <string>

#include "BenchRegistry.h"
#include "CEmbeddedAdmin.h"
#include "CQuotesService.h"
#include "CRemoteAdmin.h"
#include "QuotesdProcess.h"
#include "model/CAuditVocabulary.h"

namespace {

const char* const kPassword = "bench-password-1";

// The entries of refused logins written since the time, and the attempts they count.
void countRefusals(const QString& dataDir, long long sinceMs, long long* rows,
                   long long* attempts) {
    CServiceOptions options;
    options.dataDir = dataDir;
    QString error;
    const auto service = CQuotesService::open(options, &error);
    *rows = *attempts = 0;
    if (!service)
        return;
    Hlx::CAuditFilter filter;
    filter.action = CAuditVocabulary::kLogin;
    filter.sinceMs = sinceMs;
    std::vector<Hlx::CAuditEntry> entries;
    service->auditEntries(CCaller::owner(), filter, &entries);
    for (const Hlx::CAuditEntry& entry : entries) {
        if (entry.error.empty())
            continue;
        ++*rows;
        *attempts += entry.count;
    }
}

}  // namespace

void runLoginFloodBench() {
    if (qEnvironmentVariableIsEmpty("QUOTES_BINARY_DIR"))
        qputenv("QUOTES_BINARY_DIR", (QCoreApplication::applicationDirPath() + "/..").toUtf8());
    QuotesdProcess server;
    if (!server.init(QString::fromLatin1(kPassword)) || !server.start()) {
        std::fprintf(stderr, "login bench: quotesd did not start: %s\n",
                     server.log().toUtf8().constData());
        return;
    }
    CRemoteAdmin client({server.address().toStdString()}, server.certificatePem().toStdString());
    const double seconds = benchSeconds(60);
    const long long startMs = QDateTime::currentMSecsSinceEpoch();
    QElapsedTimer timer;
    timer.start();
    long long sent = 0;
    while (timer.elapsed() < qint64(seconds * 1000)) {
        client.login("flood-" + std::to_string(sent), "not the password");
        ++sent;
    }
    const double elapsed = double(timer.nsecsElapsed()) / 1e9;
    client.shutdown();
    server.stop();
    long long rows = 0;
    long long counted = 0;
    countRefusals(server.dataDir(), startMs, &rows, &counted);
    benchReport("login_refused_audit_rows_per_min", double(rows) * 60.0 / elapsed, "rows/min");
    benchReport("login_refused_attempts_per_s", double(sent) / elapsed, "logins/s");
    benchReport("login_refused_attempts_counted", double(counted), "logins");
}

static BenchRegistrar reg("logins", &runLoginFloodBench);
