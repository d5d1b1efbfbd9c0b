#pragma once

#include <grpcpp/grpcpp.h>
#include <grpcpp/support/server_interceptor.h>

#include <QString>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "CServerLimits.h"

class CSelfCheck;
class CServedCertificate;

// quotesd's grpc::Server with the caps on what clients may hold, and its guard. gRPC (1.51)
// stops listening for good once accept4 fails for lack of open files, while the process and
// its established connections live on, so no supervisor would restart it. The guard calls the
// server over loopback (CSelfCheck) every interval; when two checks in a row fail while the
// process could open files and the check has passed before, it builds a new server on the same
// port, then shuts the old one down.
class CGuardedServer {
public:
    // Told the outcome of each check (a systemd watchdog can be fed from it).
    using CheckObserver = std::function<void(bool passed)>;
    using Log = std::function<void(const QString&)>;

    // The certificate is read from its files while the server runs (CServedCertificate).
    CGuardedServer(grpc::Service& service, CServedCertificate& certificate,
                   const CServerLimits& limits, Log log);
    ~CGuardedServer();

    CGuardedServer(const CGuardedServer&) = delete;
    CGuardedServer& operator=(const CGuardedServer&) = delete;

    // Makes the interceptors each new grpc::Server runs its calls through (metrics); before
    // start.
    using Interceptors = std::function<
        std::vector<std::unique_ptr<grpc::experimental::ServerInterceptorFactoryInterface>>()>;
    void setInterceptors(Interceptors make) { m_interceptors = std::move(make); }

    // Listens on the addresses ("HOST:PORT", port 0: any free one) and checks itself once on
    // the first; false when it cannot listen on every one.
    bool start(const std::vector<std::string>& listen);
    // The port of the first address, and of each.
    int port() const { return m_ports.front(); }
    const std::vector<int>& ports() const { return m_ports; }
    // What the standard health service (grpc.health.v1) answers, for the whole server and for
    // quotes.v1.QuotesAdmin; a rebuilt server answers the same. From the check's observer (the
    // guard's thread) or while no guard runs.
    void setServing(bool serving);
    // Checks every limits.selfCheckMs from now on, until endGuard().
    void guard(CheckObserver observer = CheckObserver());
    void endGuard();
    // Ends the checks, then the server: calls still running after grace are cancelled.
    void stop(std::chrono::milliseconds grace);

    // Whether this process can open a file now (a rebuild needs several).
    static bool canOpenFiles();

private:
    // A server on the addresses; *ports the ones it listens on (empty when it does not).
    std::unique_ptr<grpc::Server> build(const std::vector<std::string>& addresses,
                                        std::vector<int>* ports);
    void applyServing(grpc::Server& server) const;
    void run(const CheckObserver& observer);
    // Whether the check passes, asking twice before it says no.
    bool checkTwice(std::string* why) const;
    void rebuild();
    // Waits for the next check; false once the guard ends.
    bool waitInterval();
    // Where a rebuilt server listens: each address with the port it got at the start.
    std::vector<std::string> addresses() const;

    grpc::Service& m_service;
    CServedCertificate& m_certificate;
    const CServerLimits m_limits;
    const Log m_log;
    Interceptors m_interceptors;
    std::vector<std::string> m_listen;
    std::vector<int> m_ports{0};
    std::atomic<bool> m_serving{true};
    std::unique_ptr<CSelfCheck> m_check;
    // A check that never passed proves nothing about the listener (a certificate the loopback
    // call cannot verify, say): rebuilding on it would only cut the clients off again and again.
    bool m_armed = false;
    // Replaced by the guard's thread only; stop() ends that thread first.
    std::unique_ptr<grpc::Server> m_server;
    std::mutex m_mutex;
    std::condition_variable m_stopping;
    bool m_stop = false;
    std::thread m_thread;
};
