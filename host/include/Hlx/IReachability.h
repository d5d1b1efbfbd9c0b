#pragma once

#include <string>
#include <vector>

#include "Hlx/CProbeResult.h"
#include "utils/RKError.h"

namespace Hlx {

// Whether the sources' addresses answer: probes on demand and what the probes found. Only
// stored addresses are probed, never one a caller names. Answered on the calling thread; an
// implementation without a prober refuses each call as unavailable.
class IReachability {
public:
    virtual ~IReachability();

    // Probes now where the sources with the ids connect (every stored source with all); an
    // address this login had probed within the last 10 s answers its stored state instead.
    virtual utils::RKError probeSources(const std::vector<int>& ids, bool all,
                                        std::vector<CProbeResult>* results);
    // The stored state of every address the sources of the sub-system (all when empty) connect
    // to, with those sources.
    virtual utils::RKError probeStatus(const std::string& subsystem,
                                       std::vector<CProbeResult>* results);
    // One address's history since sinceMs, oldest first.
    virtual utils::RKError probeHistory(const std::string& address, int port, long long sinceMs,
                                        std::vector<CProbeSample>* samples);
};

}  // namespace Hlx
