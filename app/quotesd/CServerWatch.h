#pragma once

#include <QDateTime>
#include <QString>
#include <functional>
#include <memory>
#include <shared_mutex>

#include "CServerLog.h"
#include "IAdminObserver.h"
#include "IServiceObserver.h"

class CAdminServer;
class CDatabase;
class CGuardedServer;
class CLoginManager;
class CQuotesService;
class CServerMetrics;
struct CDaemonOptions;

// What watches a serving quotesd: its log (always) and its metrics (with --metrics-listen),
// told by the service (statements, commits, audit entries) and the transport (logins,
// streams, calls). Made before the service, so it outlives every thread that tells it.
class CServerWatch final : public IServiceObserver, public IAdminObserver {
public:
    explicit CServerWatch(const CDaemonOptions& options);
    ~CServerWatch() override;

    CServerWatch(const CServerWatch&) = delete;
    CServerWatch& operator=(const CServerWatch&) = delete;

    const CServerLog& log() const { return m_log; }

    // Watches the service and its transport from now on and, with --metrics-listen, serves
    // the metrics; false with *error set when they cannot listen. The scrape reads the logins
    // and the expiry of the certificate served then (renewed while the server runs).
    bool watch(CQuotesService& service, CLoginManager& logins, CAdminServer& admin,
               std::function<QDateTime()> certificateExpiry, QString* error);
    // Counts the calls of the server (before it starts).
    void instrument(CGuardedServer& server);
    // Stops the metrics (no scrape reads the logins after this) and stops listening to the
    // service and its transport: before they go.
    void unwatch();

    void statementRan(std::chrono::nanoseconds elapsed) override;
    void groupCommitted(std::size_t writers) override;
    void recorded(const Hlx::CAuditEntry& entry, bool repeat) override;
    void loginAnswered(const std::string& name, const std::string& address, LoginOutcome outcome,
                       const std::string& refusal) override;
    void eventStreamsChanged(int delta) override;

private:
    const QString m_metricsListen;
    CServerLog m_log;
    // Held shared while a thread tells the metrics, alone while they go.
    mutable std::shared_mutex m_metricsMutex;
    std::unique_ptr<CServerMetrics> m_metrics;
    CDatabase* m_database = nullptr;
    CAdminServer* m_admin = nullptr;
};
