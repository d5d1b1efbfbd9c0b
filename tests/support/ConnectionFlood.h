#pragma once

#include <vector>

// Idle TCP connections to a loopback port, as a client opens them that never says a word: each
// takes one of the server's open files once accepted.
class ConnectionFlood {
public:
    ConnectionFlood() = default;
    ~ConnectionFlood() { close(); }
    ConnectionFlood(const ConnectionFlood&) = delete;
    ConnectionFlood& operator=(const ConnectionFlood&) = delete;

    // Opens count connections to 127.0.0.1:port; how many it could open.
    int open(int port, int count);
    void close();
    // How many of them the server has closed.
    int closedByServer() const;

private:
    std::vector<int> m_sockets;
};
