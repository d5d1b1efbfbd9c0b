#pragma once

#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <arpa/inet.h>
#include <set>
#include <vector>

// Ports on 127.0.0.1 a test opens itself for a prober to find: one that accepts connections,
// one that refuses them (bound, then closed), and one whose backlog is full, so that a connect
// to it times out (the kernel drops the SYN of a listener whose accept queue is full). Closed
// when the object goes.
class LoopbackListeners {
public:
    ~LoopbackListeners() {
        for (int fd : m_fds)
            ::close(fd);
    }

    // Listening; connects complete in the kernel without an accept. Nobody accepts them, so
    // each probe stays in the queue: the largest backlog keeps it from filling in a test's time.
    // Each on 127.0.0.1 unless another address of 127.0.0.0/8 is given (host order).
    int open(uint32_t address = INADDR_LOOPBACK) { return listenOn(SOMAXCONN, address); }

    // Nothing listens there any more.
    int closed(uint32_t address = INADDR_LOOPBACK) {
        const int fd = bound(address);
        const int port = portOf(fd);
        ::close(fd);
        return port;
    }

    // Listening with a backlog of 0, filled by connections nobody accepts.
    int full(uint32_t address = INADDR_LOOPBACK) {
        const int port = listenOn(0, address);
        for (int i = 0; i < 3; ++i) {
            const int client = ::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
            const sockaddr_in server = loopback(port, address);
            ::connect(client, reinterpret_cast<const sockaddr*>(&server), sizeof(server));
            // The first ones complete (the queue takes them); a later one hangs.
            pollfd wait = {client, POLLOUT, 0};
            ::poll(&wait, 1, 200);
            m_fds.push_back(client);
        }
        return port;
    }

    // The connects to a port opened here that completed since the last call: each is taken from
    // the accept queue and closed, so a test counts how often something connected.
    int accepted(int port) {
        const int fd = listening(port);
        int count = 0;
        // The listener blocks: poll first, so an empty queue ends the count.
        pollfd pending = {fd, POLLIN, 0};
        while (fd >= 0 && ::poll(&pending, 1, 0) == 1) {
            const int connection = ::accept4(fd, nullptr, nullptr, SOCK_CLOEXEC);
            if (connection < 0)
                break;
            ::close(connection);
            ++count;
        }
        return count;
    }

    // Stops listening on a port opened here (its connects are refused from now on).
    void shut(int port) {
        for (auto it = m_fds.begin(); it != m_fds.end(); ++it) {
            if (m_listening.count(*it) && portOf(*it) == port) {
                ::close(*it);
                m_listening.erase(*it);
                m_fds.erase(it);
                return;
            }
        }
    }

private:
    static sockaddr_in loopback(int port, uint32_t host) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(static_cast<uint16_t>(port));
        address.sin_addr.s_addr = htonl(host);
        return address;
    }

    static int bound(uint32_t host) {
        const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        const sockaddr_in address = loopback(0, host);
        ::bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address));
        return fd;
    }

    static int portOf(int fd) {
        sockaddr_in address{};
        socklen_t length = sizeof(address);
        ::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length);
        return ntohs(address.sin_port);
    }

    int listening(int port) const {
        for (int fd : m_listening) {
            if (portOf(fd) == port)
                return fd;
        }
        return -1;
    }

    int listenOn(int backlog, uint32_t host) {
        const int fd = bound(host);
        ::listen(fd, backlog);
        m_fds.push_back(fd);
        m_listening.insert(fd);
        return portOf(fd);
    }

    std::vector<int> m_fds;
    std::set<int> m_listening;
};
