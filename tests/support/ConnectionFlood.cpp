#include "ConnectionFlood.h"

#include <arpa/inet.h>
#include <errno.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

int ConnectionFlood::open(int port, int count) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(uint16_t(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    int opened = 0;
    for (int i = 0; i < count; ++i) {
        const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        if (fd < 0)
            break;
        // The kernel completes a loopback connection into the listener's queue at once, accepted
        // or not.
        if (::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
            ::close(fd);
            break;
        }
        m_sockets.push_back(fd);
        ++opened;
    }
    return opened;
}

void ConnectionFlood::close() {
    for (const int fd : m_sockets)
        ::close(fd);
    m_sockets.clear();
}

int ConnectionFlood::closedByServer() const {
    int closed = 0;
    for (const int fd : m_sockets) {
        char byte = 0;
        // End of stream, or a reset: the server is done with it.
        const ssize_t read = ::recv(fd, &byte, 1, MSG_DONTWAIT | MSG_PEEK);
        if (read == 0 || (read < 0 && errno != EAGAIN && errno != EWOULDBLOCK))
            ++closed;
    }
    return closed;
}
