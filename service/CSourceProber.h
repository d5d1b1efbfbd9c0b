#pragma once

#include <QString>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "CProbeTargets.h"
#include "CTcpProber.h"
#include "Hlx/CProbeResult.h"

class CDatabase;
class CProberLock;

// Probes where the stored sources connect and records what it finds (CProbeStore). On demand
// (probeNow) in the caller's thread; on a timer (start) in a thread of its own, which first
// takes the database's prober lock, so that of several servers on one database one probes and
// another takes over when it stops. Each address is probed at most once per interval, at a
// jittered time of its own, so the connects spread over the interval.
class CSourceProber {
public:
    explicit CSourceProber(CDatabase& database);
    ~CSourceProber();

    CSourceProber(const CSourceProber&) = delete;
    CSourceProber& operator=(const CSourceProber&) = delete;

    CTcpProber& tcp() { return *m_tcp; }

    // Probes the endpoints (those the allow list refuses are recorded as not probed) and
    // records the outcomes; answers them as stored, with the sources of each.
    std::vector<Hlx::CProbeResult> probeNow(const CProbeTargets::Endpoints& endpoints);

    // Probes every stored source's endpoints every interval until destroyed.
    void start(std::chrono::milliseconds interval);
    // Whether the timer's thread holds the database's prober lock now.
    bool probing() const { return m_probing.load(); }
    // Rounds of probes the timer's thread has made.
    long long rounds() const { return m_rounds.load(); }

private:
    using Clock = std::chrono::steady_clock;

    void run();
    // One pass: reads the endpoints, probes those due, records them; when the next is due.
    Clock::time_point pass(Clock::time_point now);
    void schedule(const CProbeTargets::Endpoints& endpoints, Clock::time_point now);
    Clock::duration jitter(Clock::duration upTo);
    // Waits until then or until stopped; false when stopped.
    bool sleepUntil(Clock::time_point then);

    CDatabase& m_database;
    std::unique_ptr<CTcpProber> m_tcp;
    std::chrono::milliseconds m_interval{0};
    CProbeTargets::Endpoints m_endpoints;
    std::map<CProbeTargets::Endpoint, Clock::time_point> m_due;
    Clock::time_point m_read;
    Clock::time_point m_thinned;
    std::unique_ptr<CProberLock> m_lock;
    std::mutex m_mutex;
    std::condition_variable m_wake;
    bool m_stopping = false;
    std::atomic<bool> m_probing{false};
    std::atomic<long long> m_rounds{0};
    std::thread m_thread;
};
