#include "CProbeThrottle.h"

namespace {

// Beyond this many remembered probes the expired ones are dropped.
constexpr std::size_t kForgetAbove = 10000;

}  // namespace

bool CProbeThrottle::admit(const std::string& session, const std::string& address, int port,
                           long long nowMs) {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_last.size() > kForgetAbove)
        forgetOld(nowMs);
    long long& last = m_last[{session, {address, port}}];
    if (last != 0 && nowMs - last < kPeriodMs)
        return false;
    last = nowMs;
    return true;
}

void CProbeThrottle::forgetOld(long long nowMs) {
    for (auto it = m_last.begin(); it != m_last.end();) {
        if (nowMs - it->second >= kPeriodMs)
            it = m_last.erase(it);
        else
            ++it;
    }
}
