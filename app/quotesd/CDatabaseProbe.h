#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

class CDatabase;

// Whether the database answers: a statement on a thread and connection of its own, once every
// interval. A statement that has not come back within the deadline counts as no answer at once,
// so a hung database is seen while its statement still waits (PostgreSQL's own statement limit,
// SQLite's busy timeout end it later).
class CDatabaseProbe {
public:
    using Clock = std::chrono::steady_clock;

    CDatabaseProbe(CDatabase& database, std::chrono::milliseconds interval,
                   std::chrono::milliseconds deadline);
    ~CDatabaseProbe();
    CDatabaseProbe(const CDatabaseProbe&) = delete;
    CDatabaseProbe& operator=(const CDatabaseProbe&) = delete;

    // True while the last statement succeeded and none has been waiting past the deadline;
    // else *why says what failed.
    bool answers(std::string* why) const;

private:
    void run();
    bool probeOnce(std::string* why);
    bool waitInterval();

    CDatabase& m_database;
    const std::chrono::milliseconds m_interval;
    const std::chrono::milliseconds m_deadline;
    mutable std::mutex m_mutex;
    std::condition_variable m_wake;
    bool m_stop = false;
    bool m_answered = false;
    std::string m_failure = "no statement has answered yet";
    bool m_waiting = false;
    Clock::time_point m_started;
    std::thread m_thread;
};
