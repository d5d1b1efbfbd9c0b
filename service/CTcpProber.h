#pragma once

#include <QString>
#include <atomic>
#include <condition_variable>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "CProbeAllowList.h"

// Reachability by TCP connect: non-blocking connects (IPv4 and IPv6), a bounded number in flight
// across every caller, each given up after a timeout. Nothing is sent: a connect that completes
// is closed at once. An address the allow list refuses is never contacted; it counts every
// connect it starts, per address, so that this can be checked.
class CTcpProber {
public:
    struct Options {
        int timeoutMs = 3000;
        int concurrency = 64;
    };
    struct Target {
        QString address;
        int port = 0;
    };
    struct Outcome {
        std::string state;  // CProbeVocabulary's names
        long long connectUs = 0;
        std::string error;
    };

    // Everything but loopback and link-local, with the default bounds.
    CTcpProber();
    CTcpProber(CProbeAllowList allow, Options options);

    // Probes every target, several at once; the outcomes in the targets' order. Blocks the
    // calling thread for at most about the timeout per concurrency's worth of targets.
    std::vector<Outcome> probe(const std::vector<Target>& targets);

    void setAllowList(const CProbeAllowList& allow);
    // Takes effect from the next call of probe.
    void setOptions(const Options& options);
    Options options() const;
    CProbeAllowList allowList() const;
    // Empty when the address may be contacted, otherwise why not.
    std::string refusal(const QString& address) const;

    // Connects started, in all and to one address (as the targets spell it).
    long long connectsStarted() const { return m_started.load(); }
    long long connectsTo(const QString& address) const;
    // The most connects there ever were in flight at once.
    int peakInFlight() const;

private:
    struct Flight;
    class Round;

    // Takes up to wanted places of the shared bound; 0 when none is free.
    int takeSlots(int wanted);
    void giveSlots(int count);
    void waitForSlot();
    void counted(const QString& address);

    mutable std::mutex m_mutex;
    Options m_options;
    std::condition_variable m_freed;
    CProbeAllowList m_allow;
    int m_inFlight = 0;
    int m_peak = 0;
    std::map<QString, long long> m_perAddress;
    std::atomic<long long> m_started{0};
};
