#pragma once

#include <chrono>
#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <thread>

struct pg_conn;
struct pg_cancel;

// Bounds every statement on a PostgreSQL connection. A server that stops answering (a hung
// backend, a lost network) would otherwise hold the worker thread, and with it the operator,
// for ever: past the limit the statement is cancelled, and if the cancel is not answered within
// the grace the connection's socket is shut, which makes the statement fail at once.
class CStatementWatchdog {
public:
    CStatementWatchdog(std::chrono::milliseconds limit, std::chrono::milliseconds grace);
    ~CStatementWatchdog();
    CStatementWatchdog(const CStatementWatchdog&) = delete;
    CStatementWatchdog& operator=(const CStatementWatchdog&) = delete;

    // One statement under watch, from its start to its end on the calling thread.
    class Watch {
    public:
        Watch(CStatementWatchdog* watchdog, pg_conn* connection);
        ~Watch();
        Watch(const Watch&) = delete;
        Watch& operator=(const Watch&) = delete;
        // Whether the watchdog had to step in: the statement's outcome is then its doing.
        bool expired() const;

    private:
        CStatementWatchdog* m_watchdog;
        unsigned long long m_id = 0;
    };

private:
    struct Entry {
        std::shared_ptr<pg_cancel> cancel;
        int socket = -1;
        std::chrono::steady_clock::time_point deadline;
        bool cancelled = false;
        bool expired = false;
    };

    unsigned long long add(pg_conn* connection);
    void remove(unsigned long long id);
    void run();
    // Cancels or shuts what is due; returns when to look again.
    std::chrono::steady_clock::time_point step();

    const std::chrono::milliseconds m_limit;
    const std::chrono::milliseconds m_grace;
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::map<unsigned long long, Entry> m_entries;
    unsigned long long m_nextId = 1;
    bool m_stopping = false;
    std::thread m_thread;
};
