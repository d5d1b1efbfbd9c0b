#pragma once

#include <QLockFile>
#include <QSqlDatabase>
#include <memory>

class CDatabase;

// The one prober of a database. PostgreSQL: a session advisory lock on the prober thread's
// connection, released when that connection or its process ends. SQLite: a lock file beside the
// database, which a dead process's successor finds stale.
class CProberLock {
public:
    // The advisory lock's key (one bigint; no other lock of the platform uses it).
    static constexpr long long kAdvisoryKey = 0x51554f5445530008LL;

    explicit CProberLock(CDatabase& database);
    ~CProberLock();

    // Takes the lock, or proves it is still held, on this thread's connection; false when
    // another prober holds it. Throws CServiceError when the database does not answer.
    bool hold();
    // Lets it go (the connection lost it, or the prober stops).
    void release();

private:
    bool holdAdvisory();

    CDatabase& m_database;
    std::unique_ptr<QLockFile> m_file;
    bool m_held = false;
};
