#pragma once

#include <QString>
#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

#include "Hlx/CAuditEntry.h"
#include "Hlx/CChangeEvent.h"
#include "Hlx/CProbeResult.h"

class CAuditTrail;
class CDatabase;
class QThread;

// Announces every change committed to the database, by this process or by any other on it.
// A thread of its own, with a connection of its own, reads each new entry of the audit trail
// once (a change and its entry commit together) and hands it to every subscriber. A second
// source of events is the probes' table of state changes (CProbeStore), read the same way.
// SQLite: polls PRAGMA data_version, which moves when another connection commits (every writer
// is another connection). PostgreSQL: LISTENs to the NOTIFY each change issues in its own
// transaction; after a lost connection it connects and listens again, and tells its
// subscribers to reload everything, since changes may have gone unheard meanwhile.
class CChangeFeed {
public:
    using Handler = std::function<void(const Hlx::CChangeEvent&)>;

    static constexpr int kPollMs = 100;
    // PostgreSQL: how often the listener proves its connection, and retries a lost one.
    static constexpr int kCheckMs = 1000;

    CChangeFeed(CDatabase& database, const CAuditTrail& trail);
    ~CChangeFeed();

    CChangeFeed(const CChangeFeed&) = delete;
    CChangeFeed& operator=(const CChangeFeed&) = delete;

    // handler runs on the feed's thread for each change committed after this call. Delivery
    // stops when the handle is destroyed; the destruction waits for a delivery in progress.
    std::shared_ptr<void> subscribe(Handler handler);

    // The event that tells of an entry.
    static Hlx::CChangeEvent eventOf(const Hlx::CAuditEntry& entry);
    // The event that tells of a probe's new state.
    static Hlx::CChangeEvent eventOf(const Hlx::CProbeResult& probe);
    // Changes that may have been missed (the listener's connection was lost).
    static Hlx::CChangeEvent resyncEvent();

private:
    class Watcher;
    struct Subscriber;

    void run(long long lastId, long long lastProbeId);
    void publish(const Hlx::CChangeEvent& event);

    CDatabase& m_database;
    const CAuditTrail& m_trail;
    std::mutex m_mutex;
    std::vector<std::weak_ptr<Subscriber>> m_subscribers;
    std::unique_ptr<QThread> m_thread;
};
