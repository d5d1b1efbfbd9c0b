// The data service: one large query through the client centre, and adds in batches and one
// by one under the chosen durability setting.

#include <QElapsedTimer>
#include <QTemporaryDir>
#include <algorithm>
#include <boost/make_shared.hpp>
#include <future>
#include <string>
#include <vector>

#include "BenchRegistry.h"
#include "BenchService.h"
#include "BenchSources.h"
#include "CEmbeddedBackends.h"
#include "CQuotesService.h"
#include "Hlx/COrinClientCenter.h"
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

        // 100,000 sources, filled directly in large batches.
        rkservice::COperateDataReq fill;
        fill.dataType = rkservice::kDataQuoteSources;
        fill.operateType = rkservice::kOperateAdd;
        int n = 10000;
        int stored = 200 + 3000;
        while (stored < 100000) {
            fill.datas.clear();
            for (int k = 0; k < 5000 && stored < 100000; ++k, ++stored)
                fill.datas.push_back(source(n++));
            service->operateSync(CCaller::owner(), Hlx::CRequestTarget::centre(), fill);
        }
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
