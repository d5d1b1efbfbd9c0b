#pragma once

#include <QString>
#include <functional>

class CDatabaseProbe;
class CGuardedServer;
class CSystemdNotifier;

// What quotesd says of its own health, after every self-check: the standard health service
// answers SERVING, and systemd's watchdog is pinged, only while the loopback TLS call passes and
// the database answers. A change is logged and shown in systemd's status line once.
class CServerHealth {
public:
    using Log = std::function<void(const QString&)>;

    CServerHealth(CGuardedServer& server, const CDatabaseProbe& database,
                  const CSystemdNotifier& systemd, QString servingStatus, Log log);

    // Without a self-check (at the start, before the guard's first): the database alone.
    bool update();
    // The guard's observer: the outcome of one self-check.
    void checked(bool selfCheckPassed);

private:
    void apply(bool healthy, const QString& why);

    CGuardedServer& m_server;
    const CDatabaseProbe& m_database;
    const CSystemdNotifier& m_systemd;
    const QString m_servingStatus;
    const Log m_log;
    bool m_healthy = true;
};
