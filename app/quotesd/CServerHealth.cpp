#include "CServerHealth.h"

#include "CDatabaseProbe.h"
#include "CGuardedServer.h"
#include "CSystemdNotifier.h"

CServerHealth::CServerHealth(CGuardedServer& server, const CDatabaseProbe& database,
                             const CSystemdNotifier& systemd, QString servingStatus, Log log)
    : m_server(server),
      m_database(database),
      m_systemd(systemd),
      m_servingStatus(std::move(servingStatus)),
      m_log(std::move(log)) {}

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
    if (healthy == m_healthy)
        return;
    m_healthy = healthy;
    if (healthy) {
        m_log(QStringLiteral("healthy again: serving"));
        m_systemd.status(m_servingStatus);
        return;
    }
    m_log(QStringLiteral("not serving (health NOT_SERVING, no watchdog pings): %1").arg(why));
    m_systemd.status(QStringLiteral("not serving: %1").arg(why));
}
