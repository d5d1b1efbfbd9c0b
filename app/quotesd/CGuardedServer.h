#pragma once

#include <grpcpp/grpcpp.h>

#include <QString>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

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

    // Listens on the address ("HOST:PORT", port 0: any free one) and checks itself once;
    // false when it cannot listen.
    bool start(const std::string& listen);
    int port() const { return m_port; }
    // Checks every limits.selfCheckMs from now on, until endGuard().
    void guard(CheckObserver observer = CheckObserver());
    void endGuard();
    // Ends the checks, then the server: calls still running after grace are cancelled.
    void stop(std::chrono::milliseconds grace);

    // Whether this process can open a file now (a rebuild needs several).
    static bool canOpenFiles();

private:
    std::unique_ptr<grpc::Server> build(const std::string& address, int* port);
    void run(const CheckObserver& observer);
    // Whether the check passes, asking twice before it says no.
    bool checkTwice(std::string* why) const;
    void rebuild();
    // Waits for the next check; false once the guard ends.
    bool waitInterval();
    std::string address() const;

    grpc::Service& m_service;
    CServedCertificate& m_certificate;
    const CServerLimits m_limits;
    const Log m_log;
    std::string m_listen;
    int m_port = 0;
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
