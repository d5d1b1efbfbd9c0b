#include "CScriptedReachability.h"

#include "CProbeAllowList.h"
#include "model/CProbeVocabulary.h"

namespace {

const long long kMinuteMs = 60 * 1000;

Hlx::CProbeResult result(const char* address, int port, const char* state, long long connectUs,
                         long long sinceMinutes, std::vector<int> sources) {
    Hlx::CProbeResult probe;
    probe.address = address;
    probe.port = port;
    probe.state = state;
    probe.connectUs = connectUs;
    probe.sinceMs = CScriptedReachability::kUntilMs - sinceMinutes * kMinuteMs;
    probe.checkedMs = CScriptedReachability::kUntilMs;
    probe.sourceIds = std::move(sources);
    return probe;
}

}  // namespace

utils::RKError CScriptedReachability::probeStatus(const std::string&,
                                                  std::vector<Hlx::CProbeResult>* results) {
    using V = CProbeVocabulary;
    // The documentation address reads as the service's own allow list says why.
    Hlx::CProbeResult documentation = result("192.0.2.11", 7709, V::kNotProbed, 0, 0, {1});
    documentation.error = CProbeAllowList().refusal(QStringLiteral("192.0.2.11"));
    documentation.sinceMs = documentation.checkedMs = 0;
    Hlx::CProbeResult unreachable = result("10.8.0.22", 7710, V::kUnreachable, 0, 12, {4});
    unreachable.error = "No route to host";
    *results = {documentation,
                result(kChartAddress, kChartPort, V::kReachable, 1240, 95, {2}),
                result(kChartAddress, 41022, V::kReachable, 860, 95, {3}),
                result(kChartAddress, 41023, V::kRefused, 0, 95, {5}),
                result("10.8.0.21", 7709, V::kTimeout, 0, 3, {6, 7}),
                unreachable};
    return utils::RKError();
}

utils::RKError CScriptedReachability::probeHistory(const std::string& address, int port, long long,
                                                   std::vector<Hlx::CProbeSample>* samples) {
    samples->clear();
    if (address == kChartAddress && port == kChartPort)
        *samples = hour();
    return utils::RKError();
}

std::vector<Hlx::CProbeSample> CScriptedReachability::hour() {
    std::vector<Hlx::CProbeSample> samples;
    for (int i = 0; i < 120; ++i) {
        Hlx::CProbeSample sample;
        sample.timeMs = kUntilMs - 60 * kMinuteMs + i * 30 * 1000LL;
        // A steady connect with a slow spell and one timeout, the same on every run.
        const bool timedOut = i == 70;
        sample.state = timedOut ? CProbeVocabulary::kTimeout : CProbeVocabulary::kReachable;
        sample.connectUs = timedOut ? 0 : 900 + (i * 37 % 11) * 40 + (i > 60 && i < 80 ? 2500 : 0);
        samples.push_back(sample);
    }
    return samples;
}
