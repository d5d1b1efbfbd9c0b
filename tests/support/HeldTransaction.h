#pragma once

#include <QSqlDatabase>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

#include "CDatabase.h"

// A write transaction of the service's database held open on a thread of its own: it runs its
// work, then waits to be released before it commits, so that a test can let other requests meet
// its locks and then let them go on.
class HeldTransaction {
public:
    // WithTheWriters: a write transaction of the service, queued with its writers (on PostgreSQL
    // it holds their lock). Alone: a plain transaction that holds only the locks its work takes,
    // as another program's would.
    enum class Queue { WithTheWriters, Alone };

    HeldTransaction(CDatabase& database, std::function<void(QSqlDatabase&)> work,
                    Queue queue = Queue::WithTheWriters)
        : m_database(database),
          m_work(std::move(work)),
          m_write(queue == Queue::WithTheWriters),
          m_thread([this] { hold(); }) {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_changed.wait(lock, [this] { return m_holding || m_ended; });
    }
    ~HeldTransaction() { release(); }
    HeldTransaction(const HeldTransaction&) = delete;
    HeldTransaction& operator=(const HeldTransaction&) = delete;

    // Whether the work ran and the transaction is open now.
    bool isHolding() const {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_holding && !m_ended;
    }
    // Lets the transaction commit; true once it has.
    bool release() {
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            m_released = true;
        }
        m_changed.notify_all();
        if (m_thread.joinable())
            m_thread.join();
        return m_committed;
    }

private:
    void hold() {
        try {
            m_database.transact(m_write, [this](QSqlDatabase& db) {
                m_work(db);
                std::unique_lock<std::mutex> lock(m_mutex);
                m_holding = true;
                m_changed.notify_all();
                m_changed.wait(lock, [this] { return m_released; });
            });
            m_committed = true;
        } catch (...) {
        }
        std::lock_guard<std::mutex> lock(m_mutex);
        m_ended = true;
        m_changed.notify_all();
    }

    CDatabase& m_database;
    const std::function<void(QSqlDatabase&)> m_work;
    const bool m_write;
    mutable std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_holding = false;
    bool m_released = false;
    bool m_ended = false;
    bool m_committed = false;
    // Last: it starts when every other member is ready.
    std::thread m_thread;
};
