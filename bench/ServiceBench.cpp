// The data service: one large query through the client centre, and adds in batches and one
// by one under the chosen durability setting.

#include <QElapsedTimer>
#include <QTemporaryDir>
#include <algorithm>
#include <boost/make_shared.hpp>
#include <future>
#include <map>
#include <string>
#include <vector>

#include <QSqlQuery>

#include "BenchRegistry.h"
#include "BenchService.h"
#include "BenchSources.h"
#include "CDatabase.h"
#include "CEmbeddedBackends.h"
#include "CQuotesService.h"
#include "Hlx/COrinClientCenter.h"
#include "Hlx/CSourcePatch.h"
#include "rkservice/COrinQuoterSourceInfo.h"
#include "rkservice/DataTypeIds.h"

namespace {

rkservice::IDataPtr source(int n) {
    return benchSource(n);
}

bool addThroughCentre(std::vector<rkservice::IDataPtr> datas) {
    auto request = boost::make_shared<rkservice::COperateDataReq>();
    request->dataType = rkservice::kDataQuoteSources;
    request->operateType = rkservice::kOperateAdd;
    request->datas = std::move(datas);
    std::promise<bool> done;
    Hlx::COrinClientCenter::instance()->operateData_async(
        request,
        [&done](const utils::RKError& error, bson::BSONObj) { done.set_value(error.isSuccess()); },
        false);
    return done.get_future().get();
}

// Sources added per second, `perRequest` to a request, over `requests` requests.
double addRate(int perRequest, int requests, int offset) {
    QElapsedTimer timer;
    timer.start();
    for (int r = 0; r < requests; ++r) {
        std::vector<rkservice::IDataPtr> batch;
        for (int k = 0; k < perRequest; ++k)
            batch.push_back(source(offset + r * perRequest + k));
        if (!addThroughCentre(batch))
            return 0;
    }
    return double(perRequest) * requests / (double(timer.nsecsElapsed()) / 1e9);
}

// Fills the service with sources up to `total`, in large batches as the owner.
void fillTo(CQuotesService& service, int stored, int total, int first) {
    rkservice::COperateDataReq fill;
    fill.dataType = rkservice::kDataQuoteSources;
    fill.operateType = rkservice::kOperateAdd;
    int n = first;
    while (stored < total) {
        fill.datas.clear();
        for (int k = 0; k < 5000 && stored < total; ++k, ++stored)
            fill.datas.push_back(source(n++));
        service.operateSync(CCaller::owner(), Hlx::CRequestTarget::centre(), fill);
    }
}

double median(std::vector<double> times) {
    std::sort(times.begin(), times.end());
    return times.empty() ? 0 : times[times.size() / 2];
}

// The stored sources, as the owner reads them.
std::vector<rkservice::IDataPtr> storedSources(CQuotesService& service) {
    rkservice::COrinQueryDataReq request;
    request.dataType = rkservice::kDataQuoteSources;
    std::vector<rkservice::IDataPtr> datas;
    service.querySync(CCaller::owner(), Hlx::CRequestTarget::centre(), request, &datas);
    return datas;
}

// Milliseconds of one modify of one source (its port), the median of `count` spread over the
// table; each writes its audit entry as every change does.
double modifyMs(CQuotesService& service, int count) {
    const std::vector<rkservice::IDataPtr> stored = storedSources(service);
    std::vector<double> times;
    for (int i = 0; i < count && !stored.empty(); ++i) {
        const auto& old = static_cast<const rkservice::COrinQuoterSourceInfo&>(
            *stored[size_t(i) * stored.size() / size_t(count)]);
        auto changed = boost::make_shared<rkservice::COrinQuoterSourceInfo>(old);
        changed->m_nPort = 9001 + i % 1000;
        const int id = old.m_nId;
        rkservice::COperateDataReq modify;
        modify.dataType = rkservice::kDataQuoteSources;
        modify.operateType = rkservice::kOperateModify;
        modify.datas.push_back(changed);
        QElapsedTimer timer;
        timer.start();
        const utils::RKError error =
            service.operateSync(CCaller::owner(), Hlx::CRequestTarget::centre(), modify);
        times.push_back(double(timer.nsecsElapsed()) / 1e6);
        if (!error.isSuccess())
            std::fprintf(stderr, "service bench: modify %d: %s\n", id, error.errorMsg().c_str());
    }
    return median(times);
}

// Seconds of one patch of the port of the source, conditional on the revision it knows (the
// check) or not; revisions holds what each source is at.
double patchSeconds(CQuotesService& service, int id, int port, bool check,
                    std::map<int, long long>* revisions) {
    Hlx::CSourcePatch patch;
    patch.port = port;
    if (check)
        patch.ifRevision = (*revisions)[id];
    QElapsedTimer timer;
    timer.start();
    const utils::RKError error = service.modifySource(CCaller::owner(), id, patch);
    const double seconds = double(timer.nsecsElapsed()) / 1e9;
    if (!error.isSuccess())
        std::fprintf(stderr, "service bench: patch %d: %s\n", id, error.errorMsg().c_str());
    ++(*revisions)[id];
    return seconds;
}

// Modify throughput with the revision check over throughput without it, in one run: the two
// alternate patch by patch (who goes first alternating too), on sources spread over the same
// table, so that neither sees a warmer cache or a quieter disk.
double revisionCheckOverhead(CQuotesService& service, int count) {
    const std::vector<rkservice::IDataPtr> stored = storedSources(service);
    if (stored.size() < 2)
        return 0;
    std::map<int, long long> revisions;
    for (const auto& data : stored)
        revisions[static_cast<const rkservice::COrinQuoterSourceInfo&>(*data).m_nId] =
            data->getRevision();
    double with = 0;
    double without = 0;
    for (int i = 0; i < count; ++i) {
        const size_t index = size_t(i) * (stored.size() / 2) / size_t(count) * 2;
        const auto idAt = [&stored](size_t at) {
            return static_cast<const rkservice::COrinQuoterSourceInfo&>(*stored[at]).m_nId;
        };
        const bool checkFirst = i % 2 == 0;
        const double first =
            patchSeconds(service, idAt(index), 9001 + i % 1000, checkFirst, &revisions);
        const double second =
            patchSeconds(service, idAt(index + 1), 9001 + i % 1000, !checkFirst, &revisions);
        with += checkFirst ? first : second;
        without += checkFirst ? second : first;
    }
    // Throughput is count over time: the ratio of throughputs is the inverse one of times.
    return with > 0 ? without / with : 0;
}

// The floor of a query of every source of trade type 2: a forward-only Qt SQL select of the
// same rows and columns, each value read, no record built.
double rawSelectMs(CQuotesService& service) {
    std::vector<double> times;
    for (int round = 0; round < 5; ++round) {
        QElapsedTimer timer;
        timer.start();
        service.database().transact(false, [&](QSqlDatabase& db) {
            QSqlQuery query(db);
            query.setForwardOnly(true);
            query.prepare(QStringLiteral(
                "SELECT id, subsystem, platform_id, broker_id, server_group_id, address, port, "
                "user_name, password, trade_type, markets FROM kx_orin_quoter_source WHERE "
                "trade_type = ? ORDER BY id"));
            query.addBindValue(2);
            query.exec();
            while (query.next()) {
                for (int column = 0; column < 11; ++column)
                    query.value(column);
            }
        });
        times.push_back(double(timer.nsecsElapsed()) / 1e6);
    }
    return median(times);
}

// Milliseconds of the service's own query of every source of trade type 2 for the caller.
double queryMs(CQuotesService& service, const CCaller& caller) {
    std::vector<double> times;
    for (int round = 0; round < 5; ++round) {
        rkservice::COrinQueryDataReq request;
        request.dataType = rkservice::kDataQuoteSources;
        request.condition = "2";
        std::vector<rkservice::IDataPtr> datas;
        QElapsedTimer timer;
        timer.start();
        service.querySync(caller, Hlx::CRequestTarget::centre(), request, &datas);
        times.push_back(double(timer.nsecsElapsed()) / 1e6);
    }
    return median(times);
}

boost::shared_ptr<CQuotesService> openService(const QString& dir, bool full) {
    CServiceOptions options;
    options.dataDir = dir;
    options.synchronousFull = full;
    return openBenchService(options);
}

void runServiceBench() {
    auto* centre = Hlx::COrinClientCenter::instance();
    {
        QTemporaryDir dir;
        auto service = openService(dir.path(), true);
        if (!service)
            return;
        centre->setBackend(CEmbeddedBackends::backendAsOwner(service));

        // Adds under WAL with synchronous=FULL, the service's setting.
        benchReport("service_add_single_per_s", addRate(1, 200, 0), "sources/s");
        benchReport("service_add_batch_per_s", addRate(100, 30, 1000), "sources/s");

        // The cost of one change on 1,000 sources, then on 100,000 (filled directly in large
        // batches): it must not grow with the table.
        fillTo(*service, 200 + 3000, 1000 + 3200, 10000);
        const double modify1k = modifyMs(*service, 200);
        fillTo(*service, 1000 + 3200, 100000, 20000);
        const double modify100k = modifyMs(*service, 200);
        benchReport("service_modify_ms_1k", modify1k, "ms");
        benchReport("service_modify_ms_100k", modify100k, "ms");
        benchReport("service_modify_ratio_100k_1k", modify100k / modify1k, "x");
        benchReport("revision_check_overhead", revisionCheckOverhead(*service, 600), "x");
        const double raw = rawSelectMs(*service);
        const double owner = queryMs(*service, CCaller::owner());
        benchReport("raw_select_ms_100k", raw, "ms");
        benchReport("service_query_owner_ms_100k", owner, "ms");
        benchReport("service_query_ratio_100k", owner / raw, "x");
        // A viewer receives no password, so none is decrypted for it.
        const double viewer = queryMs(*service, CCaller::user("viewer", {10385}));
        benchReport("service_query_viewer_ms_100k", viewer, "ms");
        benchReport("service_query_viewer_ratio_100k", viewer / raw, "x");
        std::vector<double> times;
        size_t received = 0;
        for (int round = 0; round < 5; ++round) {
            auto request = boost::make_shared<rkservice::COrinQueryDataReq>();
            request->dataType = rkservice::kDataQuoteSources;
            request->condition = "2";
            std::promise<size_t> done;
            QElapsedTimer timer;
            timer.start();
            centre->queryData_async(
                request,
                [&done](const utils::RKError&, const std::vector<rkservice::IDataPtr>& datas, int,
                        bson::BSONObj) { done.set_value(datas.size()); },
                false);
            received = done.get_future().get();
            times.push_back(double(timer.nsecsElapsed()) / 1e6);
            // The answer's records are released after the callback; keep that out of the next
            // round.
            centre->waitForIdle();
        }
        std::sort(times.begin(), times.end());
        if (received != 100000)
            std::fprintf(stderr, "service bench: the query returned %zu sources\n", received);
        benchReport("service_query_ms_100k", times[times.size() / 2], "ms");
        centre->waitForIdle();
        centre->setBackend(nullptr);
    }
    {
        // The same single adds with synchronous=NORMAL, for comparison.
        QTemporaryDir dir;
        auto service = openService(dir.path(), false);
        if (!service)
            return;
        centre->setBackend(CEmbeddedBackends::backendAsOwner(service));
        benchReport("service_add_single_normal_per_s", addRate(1, 200, 0), "sources/s");
        centre->waitForIdle();
        centre->setBackend(nullptr);
    }
}

static BenchRegistrar reg("service", &runServiceBench);

}  // namespace
