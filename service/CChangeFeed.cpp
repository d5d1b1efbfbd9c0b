#include "CChangeFeed.h"

#include <QEventLoop>
#include <QSqlDriver>
#include <QSqlQuery>
#include <QStringList>
#include <QThread>
#include <QTimer>
#include <QVariant>
#include <set>

#include "CAuditTrail.h"
#include "CDatabase.h"
#include "CProbeStore.h"
#include "CServiceError.h"
#include "model/CProbeVocabulary.h"

struct CChangeFeed::Subscriber {
    Handler handler;
    // Held while handler runs; recursive, so that a handler may end its own subscription.
    std::recursive_mutex running;
    bool active = true;
};

// Lives on the feed's thread: finds the new entries and publishes them.
class CChangeFeed::Watcher {
public:
    Watcher(CChangeFeed& feed, long long lastId, long long lastProbeId)
        : m_feed(feed), m_lastId(lastId), m_lastProbeId(lastProbeId) {}

    void start() {
        m_postgres = m_feed.m_database.engine() == CDatabase::PostgreSQL;
        connect(false);
    }

    // Every kPollMs.
    void tick() {
        if (!m_connected) {
            if (++m_idleTicks * kPollMs >= kCheckMs)
                connect(true);
            return;
        }
        try {
            if (m_postgres)
                proveConnection();
            else
                pollSqlite();
        } catch (const std::exception& e) {
            lose(e.what());
        }
    }

    void stop() {
        m_feed.m_database.dropConnection();
        m_connected = false;
    }

private:
    // Connects (and listens), then catches up with what was committed meanwhile. A listener
    // that lost its connection cannot know what it missed: its subscribers reload everything.
    void connect(bool again) {
        m_idleTicks = 0;
        try {
            QSqlDatabase db = m_feed.m_database.connection();
            if (m_postgres)
                listen(db);
            else
                m_dataVersion = dataVersion(db);
            m_connected = true;
            if (again && m_postgres) {
                m_lastId = m_feed.m_trail.lastId(db);
                m_lastProbeId = CProbeStore(m_feed.m_database).lastChangeId(db);
                m_feed.publish(resyncEvent());
                return;
            }
            const std::vector<Hlx::CAuditEntry> missed = m_feed.m_trail.changesAfter(db, m_lastId);
            // Committed between listening and this read, a change is also notified: once is
            // enough.
            for (const Hlx::CAuditEntry& entry : missed)
                m_caughtUp.insert(entry.id);
            publishEntries(missed);
            publishProbes(db);
        } catch (const std::exception& e) {
            lose(e.what());
        }
    }

    void lose(const char* why) {
        if (m_connected)
            qWarning("change feed: connection lost, reconnecting: %s", why);
        m_feed.m_database.dropConnection();
        m_connected = false;
        m_idleTicks = 0;
    }

    void listen(QSqlDatabase& db) {
        QSqlDriver* driver = db.driver();
        const QString probes = QString::fromLatin1(CProbeStore::kChangeChannel);
        if (!driver->subscribeToNotification(QString::fromLatin1(CAuditTrail::kChangeChannel)) ||
            !driver->subscribeToNotification(probes))
            throw CServiceError::unavailable("无法订阅数据变更通知");
        m_listening = db.connectionName();
        QObject::connect(
            driver,
            QOverload<const QString&, QSqlDriver::NotificationSource, const QVariant&>::of(
                &QSqlDriver::notification),
            driver,
            [this, probes](const QString& channel, QSqlDriver::NotificationSource,
                           const QVariant& payload) {
                if (channel == probes)
                    probesNotified();
                else
                    notified(payload.toLongLong());
            });
    }

    void probesNotified() {
        try {
            QSqlDatabase db = m_feed.m_database.connection();
            publishProbes(db);
        } catch (const std::exception& e) {
            lose(e.what());
        }
    }

    void publishProbes(QSqlDatabase& db) {
        for (const auto& [id, probe] :
             CProbeStore(m_feed.m_database).changesAfter(db, m_lastProbeId)) {
            m_lastProbeId = std::max(m_lastProbeId, id);
            m_feed.publish(eventOf(probe));
        }
    }

    void notified(long long entryId) {
        if (m_caughtUp.erase(entryId) > 0)
            return;
        try {
            QSqlDatabase db = m_feed.m_database.connection();
            publishEntries(m_feed.m_trail.changes(db, {entryId}));
        } catch (const std::exception& e) {
            lose(e.what());
        }
    }

    void proveConnection() {
        if (++m_idleTicks * kPollMs < kCheckMs)
            return;
        m_idleTicks = 0;
        QSqlDatabase db = m_feed.m_database.connection();
        // A connection found closed is replaced by a new one, which does not listen yet.
        if (db.connectionName() != m_listening) {
            connect(true);
            return;
        }
        m_feed.m_database.exec(db, QStringLiteral("SELECT 1"));
    }

    void pollSqlite() {
        QSqlDatabase db = m_feed.m_database.connection();
        const long long version = dataVersion(db);
        if (version == m_dataVersion)
            return;
        m_dataVersion = version;
        publishEntries(m_feed.m_trail.changesAfter(db, m_lastId));
        publishProbes(db);
    }

    long long dataVersion(QSqlDatabase& db) const {
        QSqlQuery query(db);
        query.prepare(QStringLiteral("PRAGMA data_version"));
        m_feed.m_database.exec(query);
        return query.next() ? query.value(0).toLongLong() : 0;
    }

    void publishEntries(const std::vector<Hlx::CAuditEntry>& entries) {
        for (const Hlx::CAuditEntry& entry : entries) {
            m_lastId = std::max(m_lastId, entry.id);
            m_feed.publish(eventOf(entry));
        }
    }

    CChangeFeed& m_feed;
    bool m_postgres = false;
    bool m_connected = false;
    int m_idleTicks = 0;
    long long m_lastId;
    long long m_lastProbeId;
    long long m_dataVersion = -1;
    std::set<long long> m_caughtUp;
    QString m_listening;  // the connection that listens (names are never reused)
};

CChangeFeed::CChangeFeed(CDatabase& database, const CAuditTrail& trail)
    : m_database(database), m_trail(trail) {
    // Read here, so that no change committed after the first subscription goes unannounced.
    long long lastId = 0;
    long long lastProbeId = 0;
    m_database.transact(false, [&](QSqlDatabase& db) {
        lastId = m_trail.lastId(db);
        lastProbeId = CProbeStore(m_database).lastChangeId(db);
    });
    m_thread.reset(QThread::create([this, lastId, lastProbeId] { run(lastId, lastProbeId); }));
    m_thread->setObjectName(QStringLiteral("quotes-change-feed"));
    m_thread->start();
}

CChangeFeed::~CChangeFeed() {
    m_thread->quit();
    m_thread->wait();
}

void CChangeFeed::run(long long lastId, long long lastProbeId) {
    Watcher watcher(*this, lastId, lastProbeId);
    QEventLoop loop;
    QTimer poll;
    poll.setInterval(kPollMs);
    QObject::connect(&poll, &QTimer::timeout, [&watcher] { watcher.tick(); });
    watcher.start();
    poll.start();
    loop.exec();
    watcher.stop();
}

std::shared_ptr<void> CChangeFeed::subscribe(Handler handler) {
    auto subscriber = std::make_shared<Subscriber>();
    subscriber->handler = std::move(handler);
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_subscribers.push_back(subscriber);
    }
    // The handle ends the delivery; the feed keeps only a weak reference.
    return std::shared_ptr<void>(subscriber.get(), [subscriber](void*) {
        std::lock_guard<std::recursive_mutex> lock(subscriber->running);
        subscriber->active = false;
    });
}

void CChangeFeed::publish(const Hlx::CChangeEvent& event) {
    std::vector<std::shared_ptr<Subscriber>> live;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        auto kept = m_subscribers.begin();
        for (auto& weak : m_subscribers) {
            std::shared_ptr<Subscriber> subscriber = weak.lock();
            if (!subscriber || !subscriber->active)
                continue;
            live.push_back(subscriber);
            *kept++ = weak;
        }
        m_subscribers.erase(kept, m_subscribers.end());
    }
    for (const std::shared_ptr<Subscriber>& subscriber : live) {
        std::lock_guard<std::recursive_mutex> lock(subscriber->running);
        if (subscriber->active)
            subscriber->handler(event);
    }
}

Hlx::CChangeEvent CChangeFeed::eventOf(const Hlx::CAuditEntry& entry) {
    Hlx::CChangeEvent event;
    event.entryId = entry.id;
    event.dataType = entry.dataType;
    event.action = entry.action;
    event.subsystem = entry.subsystem;
    event.account = entry.account.empty() ? entry.osUser : entry.account;
    event.session = entry.session;
    const QStringList ids =
        QString::fromStdString(entry.ids).split(QLatin1Char(','), Qt::SkipEmptyParts);
    if (std::size_t(ids.size()) > Hlx::CChangeEvent::kMaxIds) {
        event.allIds = true;
    } else {
        for (const QString& id : ids)
            event.ids.push_back(id.toStdString());
    }
    return event;
}

Hlx::CChangeEvent CChangeFeed::eventOf(const Hlx::CProbeResult& probe) {
    Hlx::CChangeEvent event;
    event.dataType = CProbeVocabulary::kProbeStatus;
    event.action = probe.state;
    event.probeChange = true;
    event.probe = probe;
    return event;
}

Hlx::CChangeEvent CChangeFeed::resyncEvent() {
    Hlx::CChangeEvent event;
    event.resync = true;
    event.allIds = true;
    return event;
}
