#pragma once

#include <map>
#include <mutex>
#include <string>
#include <utility>

// Probes on demand: each login may have an address probed at most once per period, so that no
// client turns the service into a connect flood. Kept in memory (a restart forgets it).
class CProbeThrottle {
public:
    static constexpr long long kPeriodMs = 10 * 1000;

    // True when the session may have the address probed at nowMs (and counts it); false while
    // its last probe of it is younger than the period.
    bool admit(const std::string& session, const std::string& address, int port, long long nowMs);

private:
    using Key = std::pair<std::string, std::pair<std::string, int>>;
    void forgetOld(long long nowMs);

    std::mutex m_mutex;
    std::map<Key, long long> m_last;
};
