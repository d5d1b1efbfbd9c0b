#pragma once

#include <chrono>
#include <string>

class CTlsIdentity;

// One call to the server's own port over loopback, made as a client makes it: a new TLS
// connection (a pooled one would pass while the listener no longer accepts) and a Ping. The
// server's rebuild uses it, and a supervisor's watchdog can: a server that passes it accepts
// connections and answers calls.
class CSelfCheck {
public:
    // listen: the address the server was asked to listen on; port: the one it listens on.
    CSelfCheck(const std::string& listen, int port, const CTlsIdentity& identity,
               std::chrono::milliseconds deadline);

    // True when the server answered (busy counts: it accepted the connection); else *why says
    // what failed.
    bool passes(std::string* why) const;

    // The loopback address of the listening one ("0.0.0.0:7461" -> "127.0.0.1:7461").
    static std::string loopbackTarget(const std::string& listen, int port);

private:
    std::string m_target;
    std::string m_certificatePem;
    std::string m_serverName;
    std::chrono::milliseconds m_deadline;
};
