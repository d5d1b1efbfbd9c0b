// One source's history among 100,000 audit entries of 5,000 sources (20 entries each), read as
// the history dialog and quotesctl sources history read it; and a restore on databases of 1,000
// and 100,000 sources, whose cost must not grow with the table.

#include <QElapsedTimer>
#include <QTemporaryDir>
#include <algorithm>
#include <vector>

#include "BenchRegistry.h"
#include "BenchService.h"
#include "BenchSources.h"
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

// Two states of one source to restore to by turns, so that every restore changes it.
struct RestorePoints {
    int id = 0;
    long long entries[2] = {0, 0};
};

RestorePoints restorePoints(CQuotesService& service, int sources) {
    RestorePoints points;
    points.id = sources / 2 + 1;
    for (int port : {9101, 9102}) {
        Hlx::CSourcePatch patch;
        patch.port = port;
        if (!service.modifySource(CCaller::owner(), points.id, patch).isSuccess())
            return {};
    }
    Hlx::CSourceHistory history;
    service.sourceHistory(CCaller::owner(), points.id, &history);
    if (history.entries.size() < 2)
        return {};
    points.entries[0] = history.entries[history.entries.size() - 2].id;
    points.entries[1] = history.entries.back().id;
    return points;
}

// The median of 21 restores on a database of the sources; negative when one failed.
double restoreMs(int sources) {
    QTemporaryDir dir;
    auto service = openBenchService(dir.path());
    if (!service || !fillBenchSources(*service, sources))
        return -1;
    const RestorePoints points = restorePoints(*service, sources);
    if (points.id == 0)
        return -1;
    std::vector<double> times;
    for (int round = 0; round < 21; ++round) {
        long long written = 0;
        QElapsedTimer timer;
        timer.start();
        const utils::RKError restored = service->restoreSource(
            CCaller::owner(), points.id, points.entries[round % 2], 0, &written);
        times.push_back(double(timer.nsecsElapsed()) / 1e6);
        if (!restored.isSuccess()) {
            std::fprintf(stderr, "restore bench: %s\n", restored.errorMsg().c_str());
            return -1;
        }
    }
    std::sort(times.begin(), times.end());
    return times[times.size() / 2];
}

void runRestoreBench() {
    const double small = restoreMs(1000);
    const double large = restoreMs(100000);
    benchReport("restore_ms_1k", small, "ms");
    benchReport("restore_ms_100k", large, "ms");
    benchReport("restore_ratio_100k_1k", small > 0 ? large / small : -1, "x");
}

static BenchRegistrar reg("history", &runHistoryBench);
static BenchRegistrar restoreReg("restore", &runRestoreBench);

}  // namespace
