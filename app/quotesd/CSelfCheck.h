#pragma once

#include <QString>
#include <chrono>
#include <functional>
#include <string>

class CServedCertificate;

// One call to the server's own port over loopback, made as a client makes it: a new TLS
// connection (a pooled one would pass while the listener no longer accepts) and a Ping. The
// server's rebuild uses it, and a supervisor's watchdog can: a server that passes it accepts
// connections and answers calls.
class CSelfCheck {
public:
    using Log = std::function<void(const QString&)>;

    // listen: the address the server was asked to listen on; port: the one it listens on. The
    // check trusts what the served certificate's files name, read again before every check (a
    // renewed certificate is served without a restart); log hears what changed in them.
    CSelfCheck(const std::string& listen, int port, CServedCertificate& certificate, Log log,
               std::chrono::milliseconds deadline);

    // True when the server answered (busy counts: it accepted the connection); else *why says
    // what failed.
    bool passes(std::string* why) const;

    // The loopback address of the listening one ("0.0.0.0:7461" -> "127.0.0.1:7461").
    static std::string loopbackTarget(const std::string& listen, int port);

private:
    std::string m_target;
    CServedCertificate& m_certificate;
    Log m_log;
    std::chrono::milliseconds m_deadline;
};
