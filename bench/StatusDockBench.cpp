// Status dock figure: one refresh of the dock 行情源状态 with the states of 10k sources (each on
// an address of its own), shown and painted, with an address selected that stays selected.
#include <QApplication>
#include <QElapsedTimer>
#include <algorithm>
#include <boost/make_shared.hpp>
#include <string>
#include <vector>

#include "BenchRegistry.h"
#include "CStatusDock.h"
#include "Hlx/IReachability.h"

namespace {

const char* const kStates[] = {"reachable", "refused", "timeout", "unreachable", "not_probed"};

std::vector<Hlx::CProbeResult> makeResults(int count, int round) {
    std::vector<Hlx::CProbeResult> results;
    results.reserve(size_t(count));
    for (int i = 0; i < count; ++i) {
        Hlx::CProbeResult result;
        result.address = "10." + std::to_string(i / 65536 % 256) + "." +
                         std::to_string(i / 256 % 256) + "." + std::to_string(i % 256);
        result.port = 7000 + i % 1000;
        // Each refresh finds other states, as after a round of probes.
        result.state = kStates[(i + round) % 5];
        result.connectUs = result.state == std::string("reachable") ? 300 + i % 900 : 0;
        result.sinceMs = 1700000000000LL + i;
        result.sourceIds = {100000 + i};
        results.push_back(std::move(result));
    }
    return results;
}

void settle() {
    for (int i = 0; i < 3; ++i)
        QApplication::processEvents();
}

void runStatusBench() {
    const int kSources = 10000;
    const int kRounds = 7;
    // The figure is the dock's own work: the states are there already, as a read answers them.
    CStatusDock dock(boost::make_shared<Hlx::IReachability>());
    dock.resize(1000, 700);
    dock.show();
    dock.showResults(makeResults(kSources, 0));
    dock.selectEndpoint("10.0.10.0", 7000 + 2560 % 1000);
    settle();
    std::vector<double> times;
    for (int round = 1; round <= kRounds; ++round) {
        std::vector<Hlx::CProbeResult> results = makeResults(kSources, round);
        QElapsedTimer timer;
        timer.start();
        dock.showResults(std::move(results));
        dock.repaint();
        settle();
        times.push_back(timer.nsecsElapsed() / 1e6);
    }
    std::sort(times.begin(), times.end());
    benchReport("status_dock_refresh_ms_10k", times[times.size() / 2], "ms");
}

const BenchRegistrar registrar("status", &runStatusBench);

}  // namespace
