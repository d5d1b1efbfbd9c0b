#pragma once

#include <grpcpp/support/server_interceptor.h>

#include <QDateTime>
#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "IAdminObserver.h"
#include "IServiceObserver.h"

namespace prometheus {
class Counter;
class Exposer;
class Gauge;
class Histogram;
class Registry;
template <typename T>
class Family;
}  // namespace prometheus

// quotesd's metrics in Prometheus' text exposition, served over HTTP on an address of their own
// (--metrics-listen). No label names an account or an address: their number has no bound.
// Counted as it happens: calls (by method and gRPC status, with their latency, through a server
// interceptor), logins, live-update streams, database statements, group commits, audit rows and
// refusals. Read at each scrape: the logged-in tokens, the open files and the certificate's
// days left.
class CServerMetrics final : public IServiceObserver, public IAdminObserver {
public:
    // What a scrape reads; each may be empty. liveLogins may throw (the database did not
    // answer): the gauge is then left out of that scrape.
    struct Sources {
        std::function<long long()> liveLogins;
        std::function<QDateTime()> certificateExpiry;
    };

    explicit CServerMetrics(Sources sources);
    ~CServerMetrics() override;

    CServerMetrics(const CServerMetrics&) = delete;
    CServerMetrics& operator=(const CServerMetrics&) = delete;

    // Serves /metrics on "HOST:PORT" (port 0: any free one); false with *error set when it
    // cannot listen.
    bool listen(const std::string& address, std::string* error);
    // The port it serves on, 0 before listen.
    int port() const;
    // The exposition a scrape answers now.
    std::string exposition() const;

    // For each new grpc::Server: counts every call it answers.
    std::vector<std::unique_ptr<grpc::experimental::ServerInterceptorFactoryInterface>>
    interceptors();
    // A call of the method ("/package.Service/Method") ended with the code after this long.
    void callEnded(const std::string& method, grpc::StatusCode code,
                   std::chrono::nanoseconds elapsed);

    void statementRan(std::chrono::nanoseconds elapsed) override;
    void groupCommitted(std::size_t writers) override;
    void recorded(const Hlx::CAuditEntry& entry, bool repeat) override;
    void loginAnswered(const std::string& name, const std::string& address, LoginOutcome outcome,
                       const std::string& refusal) override;
    void eventStreamsChanged(int delta) override;

    // A status code's name as gRPC spells it ("OK", "UNAVAILABLE").
    static const char* codeName(grpc::StatusCode code);

private:
    class ScrapeGauges;
    class CallCounter;
    class CallCounterFactory;

    std::shared_ptr<prometheus::Registry> m_registry;
    std::shared_ptr<ScrapeGauges> m_scrapeGauges;
    std::unique_ptr<prometheus::Exposer> m_exposer;
    prometheus::Family<prometheus::Counter>* m_calls;
    prometheus::Family<prometheus::Histogram>* m_callSeconds;
    prometheus::Family<prometheus::Counter>* m_logins;
    prometheus::Family<prometheus::Counter>* m_refusals;
    prometheus::Gauge* m_eventStreams;
    prometheus::Histogram* m_statementSeconds;
    prometheus::Histogram* m_commitWriters;
    prometheus::Counter* m_auditRows;
};
