#include "CProberLock.h"

#include <QSqlQuery>
#include <QVariant>

#include "CDatabase.h"

CProberLock::CProberLock(CDatabase& database) : m_database(database) {}

CProberLock::~CProberLock() {
    release();
}

bool CProberLock::hold() {
    if (m_database.engine() == CDatabase::PostgreSQL)
        return m_held = holdAdvisory();
    if (!m_file) {
        m_file = std::make_unique<QLockFile>(m_database.filePath() + QStringLiteral(".prober"));
        // Stale only when its process is gone, however long a prober runs.
        m_file->setStaleLockTime(0);
    }
    if (!m_held)
        m_held = m_file->tryLock(0);
    return m_held;
}

bool CProberLock::holdAdvisory() {
    QSqlDatabase db = m_database.connection();
    QSqlQuery query(db);
    // A session's lock is taken again at no cost; a connection opened anew (the old one lost)
    // holds nothing until this succeeds.
    query.prepare(m_held ? QStringLiteral("SELECT count(*) > 0 FROM pg_locks WHERE locktype = "
                                          "'advisory' AND pid = pg_backend_pid() AND granted "
                                          "AND ((classid::bigint << 32) | objid::bigint) = ?")
                         : QStringLiteral("SELECT pg_try_advisory_lock(?)"));
    query.addBindValue(kAdvisoryKey);
    m_database.exec(query);
    return query.next() && query.value(0).toBool();
}

void CProberLock::release() {
    if (!m_held)
        return;
    m_held = false;
    if (m_file) {
        m_file->unlock();
        return;
    }
    try {
        QSqlDatabase db = m_database.connection();
        QSqlQuery query(db);
        query.prepare(QStringLiteral("SELECT pg_advisory_unlock(?)"));
        query.addBindValue(kAdvisoryKey);
        m_database.exec(query);
    } catch (const std::exception&) {
        // A connection that is gone holds no lock any more.
    }
}
