#include "CSourceProber.h"

#include <QDateTime>
#include <QRandomGenerator>

#include "CDatabase.h"
#include "CProbeStore.h"
#include "CProberLock.h"

namespace {

// How often the timer's thread reads the endpoints again (an edited source is probed at its
// new address within this) and thins the history, at most.
constexpr auto kReadEvery = std::chrono::seconds(5);
constexpr auto kThinEvery = std::chrono::minutes(1);
// How long a prober that could not take the lock (or lost the database) waits to try again.
constexpr auto kRetry = std::chrono::seconds(1);
constexpr auto kBatch = std::chrono::milliseconds(100);

}  // namespace

CSourceProber::CSourceProber(CDatabase& database)
    : m_database(database), m_tcp(std::make_unique<CTcpProber>()) {}

CSourceProber::~CSourceProber() {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_stopping = true;
    }
    m_wake.notify_all();
    if (m_thread.joinable())
        m_thread.join();
}

std::vector<Hlx::CProbeResult> CSourceProber::probeNow(const CProbeTargets::Endpoints& endpoints) {
    std::vector<CTcpProber::Target> targets;
    for (const auto& endpoint : endpoints)
        targets.push_back({endpoint.first.first, endpoint.first.second});
    const std::vector<CTcpProber::Outcome> outcomes = m_tcp->probe(targets);
    std::vector<Hlx::CProbeResult> probes;
    auto source = endpoints.begin();
    for (std::size_t i = 0; i < outcomes.size(); ++i, ++source) {
        Hlx::CProbeResult probe;
        probe.address = targets[i].address.toStdString();
        probe.port = targets[i].port;
        probe.state = outcomes[i].state;
        probe.connectUs = outcomes[i].connectUs;
        probe.error = outcomes[i].error;
        probe.sourceIds = source->second;
        probes.push_back(probe);
    }
    std::vector<Hlx::CProbeResult> recorded;
    m_database.transact(true, [&](QSqlDatabase& db) {
        recorded = CProbeStore(m_database).record(db, probes, QDateTime::currentMSecsSinceEpoch());
    });
    return recorded;
}

void CSourceProber::start(std::chrono::milliseconds interval) {
    m_interval = interval;
    m_lock = std::make_unique<CProberLock>(m_database);
    m_thread = std::thread([this] { run(); });
}

void CSourceProber::run() {
    Clock::time_point next = Clock::now();
    while (sleepUntil(next)) {
        try {
            if (!m_lock->hold()) {
                m_probing = false;
                next = Clock::now() + kRetry;
                continue;
            }
            m_probing = true;
            next = pass(Clock::now());
            ++m_rounds;
        } catch (const std::exception& e) {
            // The database did not answer: a new connection holds no lock until taken again.
            qWarning("prober: %s", e.what());
            m_lock->release();
            m_database.dropConnection();
            m_probing = false;
            next = Clock::now() + kRetry;
        }
    }
    m_lock->release();
    m_database.dropConnection();
    m_probing = false;
}

CSourceProber::Clock::time_point CSourceProber::pass(Clock::time_point now) {
    if (now - m_read >= kReadEvery) {
        m_read = now;
        m_database.transact(
            false, [&](QSqlDatabase& db) { m_endpoints = CProbeTargets(m_database).all(db); });
        schedule(m_endpoints, now);
    }
    CProbeTargets::Endpoints due;
    for (auto& [endpoint, when] : m_due) {
        if (when > now)
            continue;
        due[endpoint] = m_endpoints[endpoint];
        when = now + m_interval + jitter(m_interval / 10);
    }
    if (!due.empty())
        probeNow(due);
    if (Clock::now() - m_thinned >= kThinEvery) {
        m_thinned = Clock::now();
        m_database.transact(true, [&](QSqlDatabase& db) {
            CProbeStore(m_database).thin(db, QDateTime::currentMSecsSinceEpoch());
        });
    }
    Clock::time_point next = m_read + kReadEvery;
    for (const auto& entry : m_due)
        next = std::min(next, entry.second);
    // Probes due close together go in one batch.
    return std::max(next, Clock::now() + kBatch);
}

// New endpoints start within a tenth of the interval, each at a time of its own; endpoints no
// source names any more are forgotten.
void CSourceProber::schedule(const CProbeTargets::Endpoints& endpoints, Clock::time_point now) {
    for (auto it = m_due.begin(); it != m_due.end();) {
        if (endpoints.count(it->first) == 0)
            it = m_due.erase(it);
        else
            ++it;
    }
    for (const auto& endpoint : endpoints) {
        if (m_due.count(endpoint.first) == 0)
            m_due[endpoint.first] = now + jitter(m_interval / 10);
    }
}

CSourceProber::Clock::duration CSourceProber::jitter(Clock::duration upTo) {
    const long long bound = std::chrono::duration_cast<std::chrono::microseconds>(upTo).count();
    if (bound <= 0)
        return Clock::duration::zero();
    return std::chrono::microseconds(
        static_cast<long long>(QRandomGenerator::global()->generate64() % quint64(bound)));
}

bool CSourceProber::sleepUntil(Clock::time_point then) {
    std::unique_lock<std::mutex> lock(m_mutex);
    m_wake.wait_until(lock, then, [this] { return m_stopping; });
    return !m_stopping;
}
