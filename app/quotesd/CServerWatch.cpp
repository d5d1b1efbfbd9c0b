#include "CServerWatch.h"

#include "CAdminServer.h"
#include "CDaemonOptions.h"
#include "CDatabase.h"
#include "CGuardedServer.h"
#include "CLoginManager.h"
#include "CQuotesService.h"
#include "CServerMetrics.h"

namespace {

CServerLog::Level levelOf(const CDaemonOptions& options) {
    CServerLog::Level level = CServerLog::Level::Info;
    CServerLog::parseLevel(options.logLevel, &level);
    return level;
}

}  // namespace

CServerWatch::CServerWatch(const CDaemonOptions& options)
    : m_metricsListen(options.metricsListen),
      m_log(levelOf(options), CServerLog::journalAttached() ? CServerLog::Output::Journal
                                                            : CServerLog::Output::StandardError) {
    m_log.takeQtMessages();
}

CServerWatch::~CServerWatch() = default;

bool CServerWatch::watch(CQuotesService& service, CLoginManager& logins, CAdminServer& admin,
                         std::function<QDateTime()> certificateExpiry, QString* error) {
    if (!m_metricsListen.isEmpty()) {
        CServerMetrics::Sources sources;
        sources.liveLogins = [&logins] {
            return logins.liveLogins(QDateTime::currentMSecsSinceEpoch());
        };
        sources.certificateExpiry = std::move(certificateExpiry);
        m_metrics = std::make_unique<CServerMetrics>(sources);
        std::string why;
        if (!m_metrics->listen(m_metricsListen.toStdString(), &why)) {
            *error = QStringLiteral("cannot serve metrics on %1: %2")
                         .arg(m_metricsListen, QString::fromStdString(why));
            m_metrics.reset();
            return false;
        }
        m_log.write(
            CServerLog::Level::Notice,
            "metrics on " +
                m_metricsListen.left(m_metricsListen.lastIndexOf(QLatin1Char(':'))).toStdString() +
                ":" + std::to_string(m_metrics->port()) + "/metrics");
    }
    m_database = &service.database();
    m_admin = &admin;
    m_database->setObserver(this);
    m_admin->setObserver(this);
    return true;
}

void CServerWatch::unwatch() {
    if (m_database)
        m_database->setObserver(nullptr);
    if (m_admin)
        m_admin->setObserver(nullptr);
    m_database = nullptr;
    m_admin = nullptr;
    std::unique_ptr<CServerMetrics> gone;
    {
        std::unique_lock<std::shared_mutex> alone(m_metricsMutex);
        gone = std::move(m_metrics);
    }
    // Outside the lock: a scrape that is ending may still tell of its statement, and the
    // metrics' end waits for it.
    gone.reset();
}

void CServerWatch::instrument(CGuardedServer& server) {
    if (CServerMetrics* metrics = m_metrics.get())
        server.setInterceptors([metrics] { return metrics->interceptors(); });
}

void CServerWatch::statementRan(std::chrono::nanoseconds elapsed) {
    std::shared_lock<std::shared_mutex> telling(m_metricsMutex);
    if (m_metrics)
        m_metrics->statementRan(elapsed);
}

void CServerWatch::groupCommitted(std::size_t writers) {
    std::shared_lock<std::shared_mutex> telling(m_metricsMutex);
    if (m_metrics)
        m_metrics->groupCommitted(writers);
}

void CServerWatch::recorded(const Hlx::CAuditEntry& entry, bool repeat) {
    m_log.recorded(entry, repeat);
    std::shared_lock<std::shared_mutex> telling(m_metricsMutex);
    if (m_metrics)
        m_metrics->recorded(entry, repeat);
}

void CServerWatch::loginAnswered(const std::string& name, const std::string& address,
                                 LoginOutcome outcome, const std::string& refusal) {
    m_log.loginAnswered(name, address, outcome, refusal);
    std::shared_lock<std::shared_mutex> telling(m_metricsMutex);
    if (m_metrics)
        m_metrics->loginAnswered(name, address, outcome, refusal);
}

void CServerWatch::eventStreamsChanged(int delta) {
    std::shared_lock<std::shared_mutex> telling(m_metricsMutex);
    if (m_metrics)
        m_metrics->eventStreamsChanged(delta);
}
