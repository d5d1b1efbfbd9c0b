#pragma once

#include <string>
#include <vector>

namespace Hlx {

// What the last probe of one address and port found (names of states: CProbeVocabulary).
struct CProbeResult {
    std::string address;
    int port = 0;
    std::string state;           // not_probed, reachable, refused, timeout or unreachable
    long long connectUs = 0;     // how long the connect took (reachable only)
    std::string error;           // why it is unreachable, or why it was not probed
    long long sinceMs = 0;       // when the state last changed (UTC ms)
    long long checkedMs = 0;     // when it was last probed (UTC ms)
    std::vector<int> sourceIds;  // the sources that connect there (an answer to a probe)
};

// One point of an address's history: a probe, or beyond the last hour a few minutes of them.
struct CProbeSample {
    long long timeMs = 0;
    std::string state;        // the worst of the period
    long long connectUs = 0;  // the mean of the reachable probes; 0 without any
    int samples = 1;
};

}  // namespace Hlx
