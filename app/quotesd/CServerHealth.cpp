#include "CServerHealth.h"

#include "CDatabaseProbe.h"
#include "CGuardedServer.h"
#include "CSystemdNotifier.h"

CServerHealth::CServerHealth(CGuardedServer& server, const CDatabaseProbe& database,
                             const CSystemdNotifier& systemd, QString servingStatus, Log log,
                             Note note)
    : m_server(server),
      m_database(database),
      m_systemd(systemd),
      m_servingStatus(std::move(servingStatus)),
      m_log(std::move(log)),
      m_note(std::move(note)),
      m_shownStatus(m_servingStatus) {}  // what READY=1 shows

bool CServerHealth::update() {
    std::string why;
    const bool answers = m_database.answers(&why);
    apply(answers, QString::fromStdString(why));
    return answers;
}

void CServerHealth::checked(bool selfCheckPassed) {
    std::string why;
    const bool answers = m_database.answers(&why);
    // The guard logs its own check's failures; the text here is for the status line.
    apply(selfCheckPassed && answers,
          answers ? QStringLiteral("the server does not answer its own call")
                  : QString::fromStdString(why));
}

void CServerHealth::apply(bool healthy, const QString& why) {
    m_server.setServing(healthy);
    if (healthy)
        m_systemd.watchdog();
    if (healthy != m_healthy) {
        m_healthy = healthy;
        m_log(healthy ? QStringLiteral("healthy again: serving")
                      : QStringLiteral("not serving (health NOT_SERVING, no watchdog pings): %1")
                            .arg(why));
    }
    if (!healthy) {
        showStatus(QStringLiteral("not serving: %1").arg(why));
        return;
    }
    const QString note = m_note ? m_note() : QString();
    showStatus(note.isEmpty() ? m_servingStatus : m_servingStatus + QStringLiteral("; ") + note);
}

// systemd's status line changes only when its text does, not on every check.
void CServerHealth::showStatus(const QString& status) {
    if (status == m_shownStatus)
        return;
    m_shownStatus = status;
    m_systemd.status(status);
}
