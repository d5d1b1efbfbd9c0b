// Reachability: one round of probes of 10,000 sources that connect to 200 loopback addresses
// and ports (each probed once): half of them closed, 20 listeners whose backlog is full so that
// their connects time out after 3 s, the rest open; 64 connects at once.

#include <QElapsedTimer>
#include <QSqlQuery>
#include <QTemporaryDir>
#include <QVariant>

#include "BenchRegistry.h"
#include "BenchService.h"
#include "CCaller.h"
#include "CDatabase.h"
#include "CProbeAllowList.h"
#include "CSourceProber.h"
#include "LoopbackListeners.h"

namespace {

constexpr int kEndpoints = 200;
constexpr int kFull = 20;
constexpr int kSources = 10000;

// Endpoint n: on 127.0.0.(1 + n % 100); the first half closed, then the full ones, then open.
QString endpointOf(LoopbackListeners& listeners, int n) {
    const uint32_t host = INADDR_LOOPBACK + uint32_t(n % 100);
    const int port = n < kEndpoints / 2           ? listeners.closed(host)
                     : n < kEndpoints / 2 + kFull ? listeners.full(host)
                                                  : listeners.open(host);
    return QStringLiteral("127.0.0.%1:%2").arg(1 + n % 100).arg(port);
}

// One broker whose 200 server groups each name one endpoint, and 10,000 of its sources (50
// trade types of each group), written as rows: the prober reads only where they connect.
void fill(CQuotesService& service, LoopbackListeners& listeners) {
    CDatabase& database = service.database();
    database.transact(true, [&](QSqlDatabase& db) {
        database.exec(db, QStringLiteral("INSERT INTO brokers (platform_id, broker_id, "
                                         "broker_key, broker_name, ord) VALUES (20000, 1, "
                                         "'bench', 'bench', 99)"));
        QSqlQuery group(db);
        group.prepare(
            QStringLiteral("INSERT INTO server_groups (platform_id, broker_id, "
                           "group_id, group_name, addresses, ord) VALUES (20000, 1, "
                           "?, 'bench', ?, ?)"));
        for (int n = 0; n < kEndpoints; ++n) {
            group.addBindValue(n + 1);
            group.addBindValue(endpointOf(listeners, n));
            group.addBindValue(n);
            database.exec(group);
        }
        QSqlQuery source(db);
        source.prepare(QStringLiteral(
            "INSERT INTO kx_orin_quoter_source (subsystem, platform_id, broker_id, "
            "server_group_id, address, port, user_name, password, trade_type, markets) VALUES "
            "('sys1', 20000, 1, ?, '', 0, '', '', ?, '')"));
        for (int n = 0; n < kSources; ++n) {
            source.addBindValue(1 + n % kEndpoints);
            source.addBindValue(n / kEndpoints);
            database.exec(source);
        }
    });
}

void runProbeBench() {
    QTemporaryDir dir;
    auto service = openBenchService(dir.path());
    if (!service)
        return;
    LoopbackListeners listeners;
    fill(*service, listeners);
    service->prober().tcp().setAllowList(CProbeAllowList::only({QStringLiteral("127.0.0.0/8")}));
    std::vector<Hlx::CProbeResult> results;
    QElapsedTimer timer;
    timer.start();
    const utils::RKError probed =
        service->probeSources(CCaller::owner(), std::vector<int>(), true, &results);
    const double seconds = double(timer.nsecsElapsed()) / 1e9;
    if (!probed.isSuccess() || results.size() != std::size_t(kEndpoints)) {
        std::fprintf(stderr, "bench: probe: %s (%zu)\n", probed.errorMsg().c_str(), results.size());
        return;
    }
    benchReport("probe_cycle_s_10k", seconds, "s");
    benchReport("probe_connects_10k", double(service->prober().tcp().connectsStarted()),
                "connects");
}

}  // namespace

static BenchRegistrar reg("probe", &runProbeBench);
