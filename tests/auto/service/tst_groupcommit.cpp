// Writers of one process commit in groups: they are served in the order they arrive, a writer
// whose work fails leaves the others of its group committed, and a group whose commit fails
// fails every writer in it.

#include <QSqlQuery>
#include <QTemporaryDir>
#include <QtTest>
#include <algorithm>
#include <atomic>
#include <future>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <vector>

#include "CDatabase.h"
#include "CGroupCommit.h"
#include "IServiceObserver.h"

namespace {

// A writer on its own thread whose work may be held until the test lets it go.
class HeldWriter {
public:
    explicit HeldWriter(std::function<void(const CGroupCommit::Work&)> submit,
                        CGroupCommit::Work work, bool held = false)
        : m_work(std::move(work)) {
        std::shared_future<void> gate = m_gate.get_future().share();
        if (!held)
            m_gate.set_value();
        m_thread = std::thread([this, submit, gate] {
            const CGroupCommit::Work guarded = [&](QSqlDatabase& db) {
                m_ranOn = std::this_thread::get_id();
                gate.wait();
                m_work(db);
            };
            try {
                submit(guarded);
            } catch (const std::exception& e) {
                m_error = e.what();
            }
        });
    }
    ~HeldWriter() { join(); }

    void release() { m_gate.set_value(); }
    void join() {
        if (m_thread.joinable())
            m_thread.join();
    }
    std::string error() const { return m_error; }
    std::thread::id ranOn() const { return m_ranOn; }

private:
    CGroupCommit::Work m_work;
    std::promise<void> m_gate;
    std::thread m_thread;
    std::thread::id m_ranOn;
    std::string m_error;
};

// A database in the directory with one table t of integers (column type as given).
std::unique_ptr<CDatabase> databaseWithTable(const QTemporaryDir& dir, const char* type) {
    CServiceOptions options;
    options.dbUrl = QStringLiteral("sqlite://") + dir.filePath(QStringLiteral("t.db"));
    QString error;
    std::unique_ptr<CDatabase> database = CDatabase::create(options, &error);
    if (!database) {
        qWarning("%s", qPrintable(error));
        return nullptr;
    }
    database->transact(true, [&](QSqlDatabase& db) {
        database->exec(db, QStringLiteral("CREATE TABLE t (v %1)").arg(QLatin1String(type)));
    });
    return database;
}

// The values of t, in ascending order.
std::vector<int> storedValues(CDatabase& database) {
    std::vector<int> values;
    database.transact(false, [&](QSqlDatabase& db) {
        QSqlQuery query(db);
        query.prepare(QStringLiteral("SELECT v FROM t ORDER BY v"));
        database.exec(query);
        while (query.next())
            values.push_back(query.value(0).toInt());
    });
    return values;
}

// What the database tells its observer.
class RecordingObserver final : public IServiceObserver {
public:
    void statementRan(std::chrono::nanoseconds) override { ++statements; }
    void groupCommitted(std::size_t writers) override {
        std::lock_guard<std::mutex> lock(mutex);
        groups.push_back(int(writers));
    }
    void recorded(const Hlx::CAuditEntry&, bool) override {}

    std::atomic<int> statements{0};
    std::mutex mutex;
    std::vector<int> groups;
};

}  // namespace

class GroupCommitTest : public QObject {
    Q_OBJECT

private slots:
    void writersBehindABusyOneFormOneGroupInArrivalOrder() {
        CGroupCommit commit;
        std::mutex mutex;
        std::vector<std::vector<int>> groups;
        std::vector<int> order;
        auto submit = [&](const CGroupCommit::Work& work) {
            commit.run(work, [&](const std::vector<CGroupCommit::Job*>& batch) {
                {
                    std::lock_guard<std::mutex> lock(mutex);
                    groups.emplace_back();
                }
                QSqlDatabase none;
                for (CGroupCommit::Job* job : batch)
                    (*job->work)(none);
            });
        };
        auto note = [&](int id) {
            return [&, id](QSqlDatabase&) {
                std::lock_guard<std::mutex> lock(mutex);
                order.push_back(id);
                groups.back().push_back(id);
            };
        };
        HeldWriter first(submit, note(1), true);
        QTRY_COMPARE(commit.queued(), std::size_t(1));
        HeldWriter second(submit, note(2));
        QTRY_COMPARE(commit.queued(), std::size_t(2));
        HeldWriter third(submit, note(3));
        QTRY_COMPARE(commit.queued(), std::size_t(3));
        HeldWriter fourth(submit, note(4));
        QTRY_COMPARE(commit.queued(), std::size_t(4));
        first.release();
        first.join();
        second.join();
        third.join();
        fourth.join();
        QCOMPARE(order, (std::vector<int>{1, 2, 3, 4}));
        QCOMPARE(groups, (std::vector<std::vector<int>>{{1}, {2, 3, 4}}));
        QCOMPARE(commit.queued(), std::size_t(0));
    }

    void aFailedCommitFailsEveryWriterOfItsGroup() {
        CGroupCommit commit;
        auto submit = [&](const CGroupCommit::Work& work) {
            commit.run(work, [&](const std::vector<CGroupCommit::Job*>& batch) {
                QSqlDatabase none;
                for (CGroupCommit::Job* job : batch) {
                    try {
                        (*job->work)(none);
                    } catch (...) {
                        job->error = std::current_exception();
                    }
                }
                if (batch.size() > 1)
                    throw std::runtime_error("commit failed");
            });
        };
        HeldWriter first(
            submit, [](QSqlDatabase&) {}, true);
        QTRY_COMPARE(commit.queued(), std::size_t(1));
        HeldWriter own(submit, [](QSqlDatabase&) { throw std::runtime_error("own error"); });
        QTRY_COMPARE(commit.queued(), std::size_t(2));
        HeldWriter plain(submit, [](QSqlDatabase&) {});
        QTRY_COMPARE(commit.queued(), std::size_t(3));
        first.release();
        first.join();
        own.join();
        plain.join();
        QCOMPARE(first.error(), std::string());
        QCOMPARE(own.error(), std::string("own error"));
        QCOMPARE(plain.error(), std::string("commit failed"));
    }

    void aFailedWriterLeavesTheOthersOfItsGroupCommitted() {
        QTemporaryDir dir;
        const auto database = databaseWithTable(dir, "INTEGER");
        QVERIFY(database);
        auto submit = [&](const CGroupCommit::Work& work) { database->transact(true, work); };
        auto insert = [&](int value) {
            return [&, value](QSqlDatabase& db) {
                database->exec(db, QStringLiteral("INSERT INTO t (v) VALUES (%1)").arg(value));
            };
        };
        HeldWriter first(submit, insert(1), true);
        QTRY_COMPARE(database->queuedWriters(), std::size_t(1));
        HeldWriter failing(submit, [&](QSqlDatabase& db) {
            insert(2)(db);
            throw std::runtime_error("refused");
        });
        QTRY_COMPARE(database->queuedWriters(), std::size_t(2));
        HeldWriter third(submit, insert(3));
        QTRY_COMPARE(database->queuedWriters(), std::size_t(3));
        first.release();
        first.join();
        failing.join();
        third.join();
        QCOMPARE(failing.error(), std::string("refused"));
        QCOMPARE(third.error(), std::string());
        // The group of the failing writer ran on one thread: the third writer's work too.
        QCOMPARE(third.ranOn(), failing.ranOn());

        QCOMPARE(storedValues(*database), (std::vector<int>{1, 3}));
    }

    // What a writer asks to be done after its commit happens for the writers that committed
    // alone, on whichever thread committed them; the observer hears of each group and statement.
    void notesRunOnlyForWritersThatCommitted() {
        QTemporaryDir dir;
        const auto database = databaseWithTable(dir, "INTEGER");
        QVERIFY(database);
        RecordingObserver observer;
        database->setObserver(&observer);
        std::mutex mutex;
        std::vector<int> noted;
        auto submit = [&](const CGroupCommit::Work& work) { database->transact(true, work); };
        auto insert = [&](int value, bool fail) {
            return [&, value, fail](QSqlDatabase& db) {
                database->exec(db, QStringLiteral("INSERT INTO t (v) VALUES (%1)").arg(value));
                CDatabase::afterCommit([&, value] {
                    std::lock_guard<std::mutex> lock(mutex);
                    noted.push_back(value);
                });
                if (fail)
                    throw std::runtime_error("refused");
            };
        };
        HeldWriter first(submit, insert(1, false), true);
        QTRY_COMPARE(database->queuedWriters(), std::size_t(1));
        HeldWriter failing(submit, insert(2, true));
        QTRY_COMPARE(database->queuedWriters(), std::size_t(2));
        HeldWriter third(submit, insert(3, false));
        QTRY_COMPARE(database->queuedWriters(), std::size_t(3));
        first.release();
        first.join();
        failing.join();
        third.join();
        QCOMPARE(failing.error(), std::string("refused"));
        std::sort(noted.begin(), noted.end());
        QCOMPARE(noted, (std::vector<int>{1, 3}));
        QCOMPARE(observer.groups, (std::vector<int>{1, 2}));
        QVERIFY(observer.statements > 0);

        // A transaction that rolls back leaves nothing to do.
        try {
            database->transact(false, [&](QSqlDatabase&) {
                CDatabase::afterCommit([&] { noted.push_back(4); });
                throw std::runtime_error("rolled back");
            });
        } catch (const std::runtime_error&) {
        }
        database->transact(false, [](QSqlDatabase&) {});
        QCOMPARE(noted.size(), std::size_t(2));
        database->setObserver(nullptr);
    }

    void manyWritersAllCommit() {
        QTemporaryDir dir;
        const auto database = databaseWithTable(dir, "INTEGER UNIQUE");
        QVERIFY(database);
        std::vector<std::thread> writers;
        std::atomic<int> failures{0};
        for (int w = 0; w < 16; ++w) {
            writers.emplace_back([&, w] {
                for (int i = 0; i < 40; ++i) {
                    try {
                        database->transact(true, [&](QSqlDatabase& db) {
                            database->exec(
                                db,
                                QStringLiteral("INSERT INTO t (v) VALUES (%1)").arg(w * 100 + i));
                        });
                    } catch (...) {
                        ++failures;
                    }
                }
                database->dropConnection();
            });
        }
        for (std::thread& writer : writers)
            writer.join();
        QCOMPARE(failures.load(), 0);
        QCOMPARE(int(storedValues(*database).size()), 16 * 40);
    }
};

QTEST_MAIN(GroupCommitTest)
#include "tst_groupcommit.moc"
