#pragma once

#include <string>
#include <vector>

#include "Hlx/CProbeResult.h"

// The finding of one address and port among a probe's results; null when there is none.
inline const Hlx::CProbeResult* probeResultAt(const std::vector<Hlx::CProbeResult>& results,
                                              const std::string& address, int port) {
    for (const Hlx::CProbeResult& result : results) {
        if (result.address == address && result.port == port)
            return &result;
    }
    return nullptr;
}
