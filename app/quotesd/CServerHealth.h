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

    // note: what the status line adds while serving (the certificate's coming end), or "".
    using Note = std::function<QString()>;

    CServerHealth(CGuardedServer& server, const CDatabaseProbe& database,
                  const CSystemdNotifier& systemd, QString servingStatus, Log log,
                  Note note = Note());

    // Without a self-check (at the start, before the guard's first): the database alone.
    bool update();
    // The guard's observer: the outcome of one self-check.
    void checked(bool selfCheckPassed);

private:
    void apply(bool healthy, const QString& why);
    void showStatus(const QString& status);

    CGuardedServer& m_server;
    const CDatabaseProbe& m_database;
    const CSystemdNotifier& m_systemd;
    const QString m_servingStatus;
    const Log m_log;
    const Note m_note;
    bool m_healthy = true;
    QString m_shownStatus;
};
