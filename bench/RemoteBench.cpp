// The data service through quotesd: a 100k-source query against the embedded service on the same
// database in the same run, and change latencies from one and from sixteen threads. The server
// runs in its own process (as nobody when the bench runs as root); this process is the client.

#include <QCoreApplication>
#include <QElapsedTimer>
#include <algorithm>
#include <boost/make_shared.hpp>
#include <cstdlib>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "BenchRegistry.h"
#include "BenchSources.h"
#include "CEmbeddedAdmin.h"
#include "CQuotesService.h"
#include "CRemoteAdmin.h"
#include "QuotesdProcess.h"
#include "rkservice/COrinQuoterSourceInfo.h"
#include "rkservice/DataTypeIds.h"

namespace {

const char* const kPassword = "bench-password-1";
const int kSources = 100000;

rkservice::COrinQuoterSourceInfoPtr source(int n) {
    return benchSource(n);
}

double seconds(const QElapsedTimer& timer) {
    return double(timer.nsecsElapsed()) / 1e9;
}

double percentile(std::vector<double> values, double p) {
    std::sort(values.begin(), values.end());
    return values[std::min(values.size() - 1, size_t(p * double(values.size())))];
}

// Median milliseconds of five 100k queries.
double queryMs(Hlx::IQuotesAdmin& admin) {
    rkservice::COrinQueryDataReq request;
    request.dataType = rkservice::kDataQuoteSources;
    request.condition = "2";
    std::vector<double> times;
    for (int round = 0; round < 5; ++round) {
        std::vector<rkservice::IDataPtr> datas;
        QElapsedTimer timer;
        timer.start();
        const utils::RKError error = admin.query(Hlx::CRequestTarget::centre(), request, &datas);
        times.push_back(seconds(timer) * 1000);
        if (!error.isSuccess() || datas.size() != size_t(kSources))
            std::fprintf(stderr, "remote bench: query gave %zu sources: %s\n", datas.size(),
                         error.errorMsg().c_str());
    }
    return percentile(times, 0.5);
}

bool fill(Hlx::IQuotesAdmin& admin) {
    rkservice::COperateDataReq add;
    add.dataType = rkservice::kDataQuoteSources;
    add.operateType = rkservice::kOperateAdd;
    for (int n = 0; n < kSources;) {
        add.datas.clear();
        for (int k = 0; k < 5000 && n < kSources; ++k)
            add.datas.push_back(source(n++));
        bson::BSONObj result;
        const utils::RKError error = admin.operate(Hlx::CRequestTarget::centre(), add, &result);
        if (!error.isSuccess()) {
            std::fprintf(stderr, "remote bench: fill: %s\n", error.errorMsg().c_str());
            return false;
        }
    }
    return true;
}

// Latencies in ms of `count` modifies of the source with the id, one after the other; each
// sends the revision the one before answered, as a client that keeps its record does.
std::vector<double> modifies(Hlx::IQuotesAdmin& admin, int id, int count) {
    std::vector<double> latencies;
    auto record = source(kSources + id);
    record->m_nId = id;
    record->setRevision(1);
    rkservice::COperateDataReq modify;
    modify.dataType = rkservice::kDataQuoteSources;
    modify.operateType = rkservice::kOperateModify;
    for (int i = 0; i < count; ++i) {
        record->m_nPort = 1000 + i % 2;
        modify.datas = {record};
        bson::BSONObj result;
        QElapsedTimer timer;
        timer.start();
        const utils::RKError error = admin.operate(Hlx::CRequestTarget::centre(), modify, &result);
        latencies.push_back(seconds(timer) * 1000);
        if (!error.isSuccess())
            std::fprintf(stderr, "remote bench: modify %d: %s\n", id, error.errorMsg().c_str());
        record->setRevision(std::atoll(result.getStringField("revisions").c_str()));
    }
    return latencies;
}

void runRemoteBench() {
    if (qEnvironmentVariableIsEmpty("QUOTES_BINARY_DIR"))
        qputenv("QUOTES_BINARY_DIR", (QCoreApplication::applicationDirPath() + "/..").toUtf8());
    QuotesdProcess server;
    if (!server.init(QString::fromLatin1(kPassword)) || !server.start()) {
        std::fprintf(stderr, "remote bench: quotesd did not start: %s\n",
                     server.log().toUtf8().constData());
        return;
    }
    auto remote =
        boost::make_shared<CRemoteAdmin>(std::vector<std::string>{server.address().toStdString()},
                                         server.certificatePem().toStdString());
    if (!remote->login("admin", kPassword).isSuccess() || !fill(*remote))
        return;

    CServiceOptions options;
    options.dataDir = server.dataDir();
    QString error;
    const auto embedded = CQuotesService::open(options, &error);
    if (!embedded) {
        std::fprintf(stderr, "remote bench: %s\n", error.toUtf8().constData());
        return;
    }
    const double local = queryMs(*CEmbeddedAdmin::asOwner(embedded));
    const double over = queryMs(*remote);
    benchReport("remote_query_ms_100k", over, "ms");
    benchReport("embedded_query_ms_100k", local, "ms");
    benchReport("remote_query_ratio_100k", over / local, "x");

    benchReport("remote_op_p50_ms_c1", percentile(modifies(*remote, 1, 300), 0.5), "ms");

    std::vector<double> all;
    std::mutex mutex;
    std::vector<std::thread> clients;
    QElapsedTimer timer;
    timer.start();
    for (int c = 0; c < 16; ++c) {
        clients.emplace_back([&, c] {
            const std::vector<double> mine = modifies(*remote, 2 + c, 100);
            std::lock_guard<std::mutex> lock(mutex);
            all.insert(all.end(), mine.begin(), mine.end());
        });
    }
    for (std::thread& client : clients)
        client.join();
    const double elapsed = seconds(timer);
    benchReport("remote_op_p99_ms_c16", percentile(all, 0.99), "ms");
    benchReport("remote_ops_per_s_c16", double(all.size()) / elapsed, "ops/s");
    remote->shutdown();
    server.stop();
}

static BenchRegistrar reg("remote", &runRemoteBench);

}  // namespace
