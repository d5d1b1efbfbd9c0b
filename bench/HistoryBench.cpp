// One source's history among 100,000 audit entries of 5,000 sources (20 entries each), read as
// the history dialog and quotesctl sources history read it.

#include <QElapsedTimer>
#include <QTemporaryDir>
#include <algorithm>
#include <vector>

#include "BenchRegistry.h"
#include "BenchService.h"
#include "CAuditTrail.h"
#include "CCaller.h"
#include "CDatabase.h"
#include "CQuotesService.h"

namespace {

const int kEntries = 100000;
const int kSources = 5000;

// Entries of modifies, each touching one source, written in one transaction.
void fillTrail(CQuotesService& service) {
    const CAuditTrail trail(service.database(), true);
    service.database().transact(true, [&](QSqlDatabase& db) {
        for (int n = 0; n < kEntries; ++n) {
            Hlx::CAuditEntry entry = CAuditTrail::entry("modify", "quote_source", "sys1");
            entry.ids = std::to_string(n % kSources + 1);
            entry.details.push_back({entry.ids, QJsonObject{{QStringLiteral("port"), 9000 + n}},
                                     QJsonObject{{QStringLiteral("port"), 9001 + n}}});
            trail.write(db, CCaller::user("op" + std::to_string(n % 10), {}).from("10.0.0.1"),
                        entry);
        }
    });
}

void runHistoryBench() {
    QTemporaryDir dir;
    auto service = openBenchService(dir.path());
    if (!service)
        return;
    fillTrail(*service);
    std::vector<double> times;
    for (int round = 0; round < 21; ++round) {
        Hlx::CSourceHistory history;
        QElapsedTimer timer;
        timer.start();
        service->sourceHistory(CCaller::owner(), 1 + round * 211 % kSources, &history);
        times.push_back(double(timer.nsecsElapsed()) / 1e6);
        if (history.entries.size() != std::size_t(kEntries / kSources))
            std::fprintf(stderr, "history bench: read %zu entries\n", history.entries.size());
    }
    std::sort(times.begin(), times.end());
    benchReport("history_query_ms", times[times.size() / 2], "ms");
}

static BenchRegistrar reg("history", &runHistoryBench);

}  // namespace
