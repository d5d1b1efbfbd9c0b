#pragma once

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QList>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>
#include <cstring>

// A stand-in for systemd's notification socket: the datagrams a service sends with sd_notify
// (NOTIFY_SOCKET), each kept with the milliseconds since the socket was made.
class NotifySocket {
public:
    struct Message {
        qint64 atMs;
        QString text;
    };

    NotifySocket() {
        // The server may run as nobody: the directory and socket must let it send.
        ::chmod(QFile::encodeName(m_dir.path()).constData(), 0755);
        m_path = QDir(m_dir.path()).filePath(QStringLiteral("notify"));
        m_fd = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strncpy(address.sun_path, QFile::encodeName(m_path).constData(),
                     sizeof(address.sun_path) - 1);
        ::bind(m_fd, reinterpret_cast<sockaddr*>(&address), sizeof(address));
        ::chmod(QFile::encodeName(m_path).constData(), 0777);
        m_clock.start();
    }
    ~NotifySocket() { ::close(m_fd); }
    NotifySocket(const NotifySocket&) = delete;
    NotifySocket& operator=(const NotifySocket&) = delete;

    // NOTIFY_SOCKET=..., and WATCHDOG_USEC=... when a watchdog interval is given.
    QStringList environment(qint64 watchdogMs = 0) const {
        QStringList variables{QStringLiteral("NOTIFY_SOCKET=") + m_path};
        if (watchdogMs > 0)
            variables << QStringLiteral("WATCHDOG_USEC=%1").arg(watchdogMs * 1000);
        return variables;
    }

    // Every message so far, after reading what arrived.
    const QList<Message>& messages() {
        char buffer[4096];
        for (;;) {
            const ssize_t got = ::recv(m_fd, buffer, sizeof(buffer), 0);
            if (got <= 0)
                break;
            m_messages.append({m_clock.elapsed(), QString::fromUtf8(buffer, int(got))});
        }
        return m_messages;
    }
    // How many messages hold the line (as "READY=1").
    int count(const QString& line) {
        int n = 0;
        for (const Message& message : messages())
            n += message.text.split(QLatin1Char('\n')).contains(line) ? 1 : 0;
        return n;
    }
    // When the last message holding the line came, -1 for never.
    qint64 lastAt(const QString& line) {
        qint64 at = -1;
        for (const Message& message : messages()) {
            if (message.text.split(QLatin1Char('\n')).contains(line))
                at = message.atMs;
        }
        return at;
    }
    qint64 now() const { return m_clock.elapsed(); }

private:
    QTemporaryDir m_dir;
    QString m_path;
    int m_fd = -1;
    QElapsedTimer m_clock;
    QList<Message> m_messages;
};
