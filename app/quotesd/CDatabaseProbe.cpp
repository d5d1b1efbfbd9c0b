#include "CDatabaseProbe.h"

#include "CDatabase.h"
#include "CServiceError.h"

CDatabaseProbe::CDatabaseProbe(CDatabase& database, std::chrono::milliseconds interval,
                               std::chrono::milliseconds deadline)
    : m_database(database), m_interval(interval), m_deadline(deadline) {
    std::string why;
    const bool answered = probeOnce(&why);
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_answered = answered;
        m_failure = why;
    }
    m_thread = std::thread([this] { run(); });
}

CDatabaseProbe::~CDatabaseProbe() {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_stop = true;
    }
    m_wake.notify_all();
    m_thread.join();
}

bool CDatabaseProbe::answers(std::string* why) const {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_waiting && Clock::now() - m_started > m_deadline) {
        *why = "the database has not answered for " +
               std::to_string(
                   std::chrono::duration_cast<std::chrono::seconds>(Clock::now() - m_started)
                       .count()) +
               " s";
        return false;
    }
    if (!m_answered)
        *why = m_failure;
    return m_answered;
}

bool CDatabaseProbe::probeOnce(std::string* why) {
    try {
        // A statement that reads the database itself, not only the connection.
        m_database.transact(false, [this](QSqlDatabase& db) {
            m_database.exec(db, QStringLiteral("SELECT count(*) FROM meta"));
        });
        return true;
    } catch (const CServiceError& e) {
        *why = e.what();
    } catch (const std::exception& e) {
        *why = e.what();
    }
    // A connection that failed may be broken for good: the next statement opens a new one.
    m_database.dropConnection();
    return false;
}

bool CDatabaseProbe::waitInterval() {
    std::unique_lock<std::mutex> lock(m_mutex);
    return !m_wake.wait_for(lock, m_interval, [this] { return m_stop; });
}

void CDatabaseProbe::run() {
    while (waitInterval()) {
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            m_waiting = true;
            m_started = Clock::now();
        }
        std::string why;
        const bool answered = probeOnce(&why);
        std::lock_guard<std::mutex> lock(m_mutex);
        m_waiting = false;
        m_answered = answered;
        m_failure = why;
    }
    m_database.dropConnection();
}
