// The audit trail: reading the newest entries of one account among 100,000, and what recording
// costs a single add (the same adds with the trail and without it).

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
#include "rkservice/DataTypeIds.h"

namespace {

boost::shared_ptr<CQuotesService> openService(const QString& dir, bool audit, bool full = true) {
    CServiceOptions options;
    options.dataDir = dir;
    options.auditTrail = audit;
    options.synchronousFull = full;
    return openBenchService(options);
}

// Single adds per second, each its own request and transaction, as an operator makes them.
double singleAddRate(bool audit, bool full) {
    QTemporaryDir dir;
    auto service = openService(dir.path(), audit, full);
    if (!service)
        return 0;
    const CCaller caller = CCaller::localOwner();
    const int count = 300;
    QElapsedTimer timer;
    timer.start();
    for (int n = 0; n < count; ++n) {
        rkservice::COperateDataReq request;
        request.dataType = rkservice::kDataQuoteSources;
        request.operateType = rkservice::kOperateAdd;
        request.datas = {benchSource(n)};
        if (!service->operateSync(caller, Hlx::CRequestTarget::subsystem("sys1"), request)
                 .isSuccess())
            return 0;
    }
    return count / (double(timer.nsecsElapsed()) / 1e9);
}

// 100,000 entries of ten accounts, each with one detail row, written in one transaction.
void fillTrail(CQuotesService& service) {
    const CAuditTrail trail(service.database(), true);
    service.database().transact(true, [&](QSqlDatabase& db) {
        for (int n = 0; n < 100000; ++n) {
            Hlx::CAuditEntry entry = CAuditTrail::entry("modify", "quote_source", "sys1");
            entry.ids = std::to_string(n);
            entry.details.push_back({entry.ids, QJsonObject{{QStringLiteral("port"), 9000}},
                                     QJsonObject{{QStringLiteral("port"), 9001}}});
            trail.write(db, CCaller::user("op" + std::to_string(n % 10), {}).from("10.0.0.1"),
                        entry);
        }
    });
}

void runAuditBench() {
    {
        QTemporaryDir dir;
        auto service = openService(dir.path(), true);
        if (!service)
            return;
        fillTrail(*service);
        Hlx::CAuditFilter filter;
        filter.account = "op3";
        filter.limit = 1000;
        std::vector<double> times;
        for (int round = 0; round < 5; ++round) {
            std::vector<Hlx::CAuditEntry> entries;
            QElapsedTimer timer;
            timer.start();
            service->auditEntries(CCaller::owner(), filter, &entries);
            times.push_back(double(timer.nsecsElapsed()) / 1e6);
            if (entries.size() != 1000)
                std::fprintf(stderr, "audit bench: read %zu entries\n", entries.size());
        }
        std::sort(times.begin(), times.end());
        benchReport("audit_query_ms_100k", times[times.size() / 2], "ms");
    }
    // With synchronous=FULL a single add waits for the disk, which hides what the trail costs;
    // synchronous=NORMAL shows it.
    benchReport("service_add_single_audit_per_s", singleAddRate(true, true), "sources/s");
    benchReport("service_add_single_no_audit_per_s", singleAddRate(false, true), "sources/s");
    benchReport("service_add_single_normal_audit_per_s", singleAddRate(true, false), "sources/s");
    benchReport("service_add_single_normal_no_audit_per_s", singleAddRate(false, false),
                "sources/s");
}

static BenchRegistrar reg("audit", &runAuditBench);

}  // namespace
