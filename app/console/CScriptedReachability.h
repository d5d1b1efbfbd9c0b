#pragma once

#include <vector>

#include "Hlx/IReachability.h"

// What the pictures of the dock 行情源状态 show: every state a probe can find and an hour of one
// address's connect times, all at fixed times ending at kUntilMs, never measured ones.
class CScriptedReachability : public Hlx::IReachability {
public:
    // 2026-11-23 10:00:00 UTC.
    static constexpr long long kUntilMs = 1795428000000LL;
    static constexpr const char* kChartAddress = "127.0.0.1";
    static constexpr int kChartPort = 41021;

    utils::RKError probeStatus(const std::string& subsystem,
                               std::vector<Hlx::CProbeResult>* results) override;
    utils::RKError probeHistory(const std::string& address, int port, long long sinceMs,
                                std::vector<Hlx::CProbeSample>* samples) override;

    // The chart's hour: a probe every 30 s, a timeout among them.
    static std::vector<Hlx::CProbeSample> hour();
};
