#pragma once

#include <boost/shared_ptr.hpp>
#include <chrono>
#include <memory>

class CQuotesService;
class CSourceProber;

// The embedded console's own prober: it probes the sources of its database on a timer while the
// dock 行情源状态 is open, and stops when it closes (a console on quotesd leaves probing to the
// server). It contacts what the service's prober may contact.
class CConsoleProber {
public:
    static constexpr std::chrono::seconds kInterval{30};

    CConsoleProber(boost::shared_ptr<CQuotesService> service,
                   std::chrono::milliseconds interval = kInterval);
    ~CConsoleProber();

    CConsoleProber(const CConsoleProber&) = delete;
    CConsoleProber& operator=(const CConsoleProber&) = delete;

    // Starts or stops the timer (stopping waits for a round in progress).
    void setRunning(bool running);
    bool isRunning() const { return bool(m_prober); }
    // Rounds of probes made since it last started.
    long long rounds() const;

private:
    boost::shared_ptr<CQuotesService> m_service;
    std::chrono::milliseconds m_interval;
    std::unique_ptr<CSourceProber> m_prober;
};
