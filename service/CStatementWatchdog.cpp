#include "CStatementWatchdog.h"

#include <libpq-fe.h>
#include <sys/socket.h>

#include <vector>

CStatementWatchdog::CStatementWatchdog(std::chrono::milliseconds limit,
                                       std::chrono::milliseconds grace)
    : m_limit(limit), m_grace(grace), m_thread([this] { run(); }) {}

CStatementWatchdog::~CStatementWatchdog() {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_stopping = true;
    }
    m_changed.notify_all();
    m_thread.join();
}

CStatementWatchdog::Watch::Watch(CStatementWatchdog* watchdog, pg_conn* connection)
    : m_watchdog(connection ? watchdog : nullptr) {
    if (m_watchdog)
        m_id = m_watchdog->add(connection);
}

CStatementWatchdog::Watch::~Watch() {
    if (m_watchdog)
        m_watchdog->remove(m_id);
}

bool CStatementWatchdog::Watch::expired() const {
    if (!m_watchdog)
        return false;
    std::lock_guard<std::mutex> lock(m_watchdog->m_mutex);
    const auto it = m_watchdog->m_entries.find(m_id);
    return it != m_watchdog->m_entries.end() && it->second.expired;
}

unsigned long long CStatementWatchdog::add(pg_conn* connection) {
    Entry entry;
    // Taken on the statement's own thread, before the statement runs.
    entry.cancel = std::shared_ptr<pg_cancel>(PQgetCancel(connection), PQfreeCancel);
    entry.socket = PQsocket(connection);
    entry.deadline = std::chrono::steady_clock::now() + m_limit;
    std::lock_guard<std::mutex> lock(m_mutex);
    const unsigned long long id = m_nextId++;
    m_entries.emplace(id, std::move(entry));
    m_changed.notify_all();
    return id;
}

void CStatementWatchdog::remove(unsigned long long id) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_entries.erase(id);
}

std::chrono::steady_clock::time_point CStatementWatchdog::step() {
    const auto now = std::chrono::steady_clock::now();
    auto next = now + m_limit;
    std::vector<std::shared_ptr<pg_cancel>> cancels;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        for (auto& item : m_entries) {
            Entry& entry = item.second;
            if (now >= entry.deadline && !entry.cancelled) {
                entry.cancelled = true;
                entry.expired = true;
                entry.deadline = now + m_grace;
                cancels.push_back(entry.cancel);
            } else if (now >= entry.deadline && entry.socket >= 0) {
                // Under the lock: the statement is still running, so the socket is still its.
                ::shutdown(entry.socket, SHUT_RDWR);
                entry.socket = -1;
            }
            if (entry.socket >= 0 && entry.deadline < next)
                next = entry.deadline;
        }
    }
    for (const auto& cancel : cancels) {
        char message[256];
        if (cancel)
            PQcancel(cancel.get(), message, int(sizeof(message)));
    }
    return next;
}

void CStatementWatchdog::run() {
    std::unique_lock<std::mutex> lock(m_mutex);
    auto next = std::chrono::steady_clock::now() + m_limit;
    while (!m_stopping) {
        m_changed.wait_until(lock, next);
        if (m_stopping)
            break;
        // A statement added while the lock is released is due no sooner than the next look.
        lock.unlock();
        next = step();
        lock.lock();
    }
}
