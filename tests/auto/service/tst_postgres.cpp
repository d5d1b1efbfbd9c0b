// The same service on PostgreSQL: a throw-away cluster in a temporary directory, bound to a
// Unix socket only, started as an unprivileged account (the server refuses to run as root).

#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <thread>

#include <QJsonArray>
#include <QProcess>
#include <QSqlQuery>
#include <QThread>
#include <atomic>

#include "CDatabase.h"
#include "CEmbeddedAdmin.h"
#include "CSchema.h"
#include "HeldTransaction.h"
#include "PostgresCluster.h"
#include "SampleData.h"
#include "ServiceResults.h"
#include "ServiceTestUtil.h"

using namespace svctest;

class TestPostgres : public QObject {
    Q_OBJECT

private:
    PostgresCluster m_cluster;
    QTemporaryDir m_keys;
    boost::shared_ptr<CQuotesService> m_service;
    // The process's data directory, where imports keep their backups.
    QTemporaryDir m_data;

    CServiceOptions options(const QString& database = QStringLiteral("quotes")) {
        CServiceOptions o = SampleData::with(CServiceOptions());
        o.dbUrl = m_cluster.url(database);
        o.dataDir = m_data.path();
        // Each database its own key, kept with the test rather than in the home directory.
        o.secretsKeyFile = m_keys.filePath(database + QStringLiteral(".key"));
        o.busyTimeoutMs = 5000;
        return o;
    }

    std::vector<rkservice::COrinQuoterSourceInfoPtr> sources(const std::string& condition = "") {
        return as<rkservice::COrinQuoterSourceInfo>(
            query(rkservice::kDataQuoteSources, condition).datas);
    }

    // Locks that requests wait for now, of those the condition selects.
    int waitingLocks(const char* condition = "true") {
        return backendValue(
                   qPrintable(
                       QStringLiteral("SELECT count(*) FROM pg_locks WHERE NOT granted AND (%1)")
                           .arg(QLatin1String(condition))))
            .toInt();
    }

    // One value read on the service's own connection of this thread.
    QString backendValue(const char* sql) {
        QString value;
        m_service->database().transact(false, [&](QSqlDatabase& db) {
            QSqlQuery q(db);
            if (q.exec(QLatin1String(sql)) && q.next())
                value = q.value(0).toString();
        });
        return value;
    }

private slots:
    void initTestCase() {
        const bool ci = qEnvironmentVariable("CI") == QLatin1String("true");
        auto unavailable = [&](const char* why) {
            if (ci)
                QFAIL(why);
            QSKIP(why);
        };
        const QString why = m_cluster.start();
        if (!why.isEmpty())
            return unavailable(qPrintable(why));
        QVERIFY(m_cluster.createDatabase(QStringLiteral("quotes")));
        QString error;
        m_service = CQuotesService::open(options(), &error);
        QVERIFY2(m_service, qPrintable(error));
        Hlx::COrinClientCenter::instance()->setBackend(
            CEmbeddedBackends::backendAsOwner(m_service));
    }

    void cleanupTestCase() {
        Hlx::COrinClientCenter::instance()->waitForIdle();
        Hlx::COrinClientCenter::instance()->setBackend(nullptr);
        m_service.reset();
    }

    void seededAndDescribed() {
        QVERIFY(m_service->databaseDescription().startsWith(QStringLiteral("PostgreSQL quotes@")));
        QVERIFY(!m_service->databaseDescription().contains(QStringLiteral("password")));
        QCOMPARE(int(m_service->subsystems().size()), 2);
        QVERIFY(storedUsers(*m_service).size() >= 3);
        QVERIFY(!query(rkservice::kDataBrokers, "1").datas.empty());
        QCOMPARE(int(queryAt(rkservice::kDataGlobalPermission, "", "sys2").datas.size()), 1);
    }

    void sourcesEndToEnd() {
        const OperateResult added =
            operate(rkservice::kDataQuoteSources, 2,
                    list({stockSource(10000, 2, "10.0.0.1", 9000, "用户", "密码"),
                          futureSource(20000, 1, 8060, 1)}));
        QVERIFY2(added.error.isSuccess(), added.error.errorMsg().c_str());
        const QStringList ids =
            QString::fromStdString(added.result.getStringField("ids")).split(',');
        QCOMPARE(ids.size(), 2);
        auto all = sources();
        QCOMPARE(int(all.size()), 2);
        QCOMPARE(all[0]->m_nId, ids[0].toInt());
        QCOMPARE(all[0]->m_strUserName, std::string("用户"));
        QCOMPARE(all[0]->getSystemTag(), std::string("sys1"));
        QCOMPARE(int(sources("1").size()), 1);

        // Refusals, and a refused batch changes nothing.
        const OperateResult dup = operate(rkservice::kDataQuoteSources, 2,
                                          list({stockSource(10000, 2, "10.0.0.2", 9000),
                                                stockSource(10000, 2, "10.0.0.1", 9000)}));
        QVERIFY(errorText(dup.error).contains(QStringLiteral("行情源已存在")));
        QVERIFY(
            errorText(operate(rkservice::kDataQuoteSources, 2, list({futureSource(20000, 1, 1, 1)}))
                          .error)
                .contains(QStringLiteral("期货公司不存在")));
        QCOMPARE(int(sources().size()), 2);

        auto change = stockSource(10000, 2, "10.0.0.3", 9001);
        change->m_nId = ids[0].toInt();
        change->setRevision(1);  // as added
        QVERIFY(operate(rkservice::kDataQuoteSources, 0, list({change})).error.isSuccess());
        QCOMPARE(sources().front()->m_strAddress, std::string("10.0.0.3"));
        QVERIFY(!operate(rkservice::kDataQuoteSources, 3,
                         list({deleteRecord(ids[1].toInt()), deleteRecord(424242)}))
                     .error.isSuccess());
        QCOMPARE(int(sources().size()), 2);
        auto second = deleteRecord(ids[1].toInt());
        second->setRevision(1);  // as added
        QVERIFY(operate(rkservice::kDataQuoteSources, 3, list({second}), "sys1").error.isSuccess());
        QCOMPARE(int(sources().size()), 1);

        auto token = boost::make_shared<rkservice::CLevel2Token>();
        token->token = "pgToken1";
        QVERIFY(operate(rkservice::kDataLevel2Tokens, 2, list({token})).error.isSuccess());
        QVERIFY(!operate(rkservice::kDataLevel2Tokens, 2, list({token})).error.isSuccess());
    }

    void concurrentWriters() {
        const int before = int(sources().size());
        std::atomic<int> failures{0};
        std::vector<QThread*> threads;
        for (int t = 0; t < 8; ++t) {
            threads.push_back(QThread::create([t, &failures] {
                for (int i = 0; i < 40; ++i) {
                    const std::string address =
                        "10.20." + std::to_string(t) + "." + std::to_string(i);
                    const OperateResult r =
                        operate(rkservice::kDataQuoteSources, 2,
                                list({stockSource(10000, 2, address, 1)}), t % 2 ? "sys2" : "sys1");
                    if (!r.error.isSuccess())
                        ++failures;
                    if (i % 4 == 3) {
                        const int id =
                            QString::fromStdString(r.result.getStringField("ids")).toInt();
                        auto added = deleteRecord(id);
                        added->setRevision(1);
                        if (!operate(rkservice::kDataQuoteSources, 3, list({added}))
                                 .error.isSuccess())
                            ++failures;
                    }
                }
            }));
            threads.back()->start();
        }
        for (QThread* thread : threads) {
            QVERIFY(thread->wait(120000));
            delete thread;
        }
        QCOMPARE(failures.load(), 0);
        QCOMPARE(int(sources().size()), before + 8 * 30);
    }

    void exportToSqliteAndBack() {
        QJsonObject document;
        QString error;
        QVERIFY_OK(m_service->exportDocument(CCaller::owner(), &document));
        QTemporaryDir dir;
        CServiceOptions sqlite;
        sqlite.dataDir = dir.path();
        sqlite.seed = false;
        auto local = CQuotesService::open(sqlite, &error);
        QVERIFY2(local, qPrintable(error));
        QVERIFY_OK(local->importDocument(CCaller::owner(), document, {}, nullptr));
        QJsonObject copy;
        QVERIFY(local->exportDocument(CCaller::owner(), &copy).isSuccess());
        QCOMPARE(copy, document);

        // And into a second PostgreSQL database, which continues the ids after the imported ones.
        QVERIFY(m_cluster.createDatabase(QStringLiteral("quotes2")));
        auto second = CQuotesService::open(options(QStringLiteral("quotes2")), &error);
        QVERIFY2(second, qPrintable(error));
        QVERIFY_OK(second->importDocument(CCaller::owner(), copy, {}, nullptr));
        QJsonObject third;
        QVERIFY(second->exportDocument(CCaller::owner(), &third).isSuccess());
        QCOMPARE(third, document);
        int highest = 0;
        for (const QJsonValue& s : document.value(QStringLiteral("sources")).toArray())
            highest = std::max(highest, s.toObject().value(QStringLiteral("id")).toInt());
        rkservice::COperateDataReq add;
        add.dataType = rkservice::kDataQuoteSources;
        add.operateType = rkservice::kOperateAdd;
        add.datas = list({stockSource(10000, 2, "10.99.0.1", 1)});
        bson::BSONObj result;
        QVERIFY(second->operateSync(CCaller::owner(), Hlx::CRequestTarget::centre(), add, &result)
                    .isSuccess());
        QVERIFY(QString::fromStdString(result.getStringField("ids")).toInt() > highest);
    }

    void reopenKeepsDataAndRefusesNewerSchema() {
        QString error;
        const size_t count = sources().size();
        {
            auto again = CQuotesService::open(options(), &error);
            QVERIFY2(again, qPrintable(error));
            rkservice::COrinQueryDataReq request;
            request.dataType = rkservice::kDataQuoteSources;
            std::vector<rkservice::IDataPtr> datas;
            QVERIFY(
                again->querySync(CCaller::owner(), Hlx::CRequestTarget::centre(), request, &datas)
                    .isSuccess());
            QCOMPARE(datas.size(), count);
        }
        QVERIFY(
            m_cluster.sql(QStringLiteral("quotes2"),
                          QStringLiteral("UPDATE meta SET val = '%1' WHERE name = 'schema_version'")
                              .arg(CSchema::currentVersion() + 1)));
        QVERIFY(!CQuotesService::open(options(QStringLiteral("quotes2")), &error));
        QVERIFY2(error.contains(QStringLiteral("拒绝打开")), qPrintable(error));
    }

    void connectionsKeepAliveAndAreNamed() {
        const QString given = m_service->database().connectOptions();
        for (const char* option :
             {"keepalives=1", "keepalives_idle=", "keepalives_count=", "tcp_user_timeout="})
            QVERIFY2(given.contains(QLatin1String(option)), qPrintable(given));
        // They reach libpq: the server sees the name given beside them.
        QCOMPARE(backendValue("SELECT current_setting('application_name')"),
                 QStringLiteral("quotes-service"));
    }

    void modifyOrDeleteOfNoRowRefused() {
        auto missing = stockSource(10000, 2, "10.40.0.1", 1);
        missing->m_nId = 987654;
        QVERIFY(!operate(rkservice::kDataQuoteSources, 0, list({missing})).error.isSuccess());
        QVERIFY(!operate(rkservice::kDataQuoteSources, 3, list({deleteRecord(987654)}))
                     .error.isSuccess());
    }

    // Writers queue on the database, so none can interleave its checks with another's write.
    void writersQueue() {
        HeldTransaction holder(m_service->database(), [](QSqlDatabase&) {});
        QVERIFY(holder.isHolding());
        std::atomic<bool> done{false};
        utils::RKError added;
        std::thread writer([&] {
            rkservice::COperateDataReq add;
            add.dataType = rkservice::kDataQuoteSources;
            add.operateType = rkservice::kOperateAdd;
            add.datas = list({stockSource(10000, 2, "10.41.0.1", 1)});
            added = m_service->operateSync(CCaller::owner(), Hlx::CRequestTarget::centre(), add);
            done = true;
        });
        QTRY_COMPARE(waitingLocks("locktype = 'advisory'"), 1);
        QVERIFY(!done);
        QVERIFY(holder.release());
        writer.join();
        QVERIFY2(added.isSuccess(), added.errorMsg().c_str());
    }

    // quotesctl's modify reads the source in its own write transaction: it waits for a change
    // of another field being written and keeps it, where a read before the write would put the
    // old user name back.
    void patchKeepsAConcurrentChange() {
        rkservice::COperateDataReq add;
        add.dataType = rkservice::kDataQuoteSources;
        add.operateType = rkservice::kOperateAdd;
        add.datas = list({stockSource(10000, 2, "10.42.0.1", 1, "before")});
        bson::BSONObj result;
        QVERIFY(
            m_service->operateSync(CCaller::owner(), Hlx::CRequestTarget::centre(), add, &result)
                .isSuccess());
        const int id = QString::fromStdString(result.getStringField("ids")).toInt();
        HeldTransaction console(
            m_service->database(),
            [&](QSqlDatabase& db) {
                m_service->database().exec(
                    db, QStringLiteral(
                            "UPDATE kx_orin_quoter_source SET user_name = 'console' WHERE id = %1")
                            .arg(id));
            },
            HeldTransaction::Queue::Alone);
        QVERIFY(console.isHolding());
        Hlx::CSourcePatch patch;
        patch.port = 2;
        utils::RKError patched = utils::RKError::fail("not run");
        std::thread quotesctl(
            [&] { patched = CEmbeddedAdmin::asOwner(m_service)->modifySource(id, patch); });
        QTRY_COMPARE(waitingLocks("locktype = 'transactionid'"), 1);
        QVERIFY(console.release());
        quotesctl.join();
        QVERIFY2(patched.isSuccess(), patched.errorMsg().c_str());
        const auto stored = sources();
        const auto found = std::find_if(stored.begin(), stored.end(),
                                        [id](const auto& source) { return source->m_nId == id; });
        QVERIFY(found != stored.end());
        QCOMPARE((*found)->m_nPort, 2);
        QCOMPARE((*found)->m_strUserName, std::string("console"));
    }

    // An export is one snapshot: changes committed while it runs, to a table it has read and to
    // the one it still has to read, show in neither.
    void exportIsOneSnapshot() {
        QJsonObject before;
        QString error;
        QVERIFY_OK(m_service->exportDocument(CCaller::owner(), &before));
        const auto change = [&](const char* subsystems, const char* users) {
            return [this, subsystems, users](QSqlDatabase& db) {
                // users is read last: an export that meets this lock has read the others.
                m_service->database().exec(
                    db, QStringLiteral("LOCK TABLE users IN ACCESS EXCLUSIVE MODE"));
                m_service->database().exec(db, QLatin1String(subsystems));
                m_service->database().exec(db, QLatin1String(users));
            };
        };
        QJsonObject during;
        bool exported = false;
        {
            HeldTransaction console(
                m_service->database(),
                change("UPDATE subsystems SET display_name = display_name || '+'",
                       "UPDATE users SET system_id = system_id + 1000"));
            QVERIFY(console.isHolding());
            std::thread exporter([&] {
                error = failureOf(m_service->exportDocument(CCaller::owner(), &during));
                exported = error.isEmpty();
            });
            QTRY_COMPARE(waitingLocks("relation = 'users'::regclass"), 1);
            QVERIFY(console.release());
            exporter.join();
        }
        QVERIFY2(exported, qPrintable(error));
        QJsonObject after;
        error = failureOf(m_service->exportDocument(CCaller::owner(), &after));
        QVERIFY2(error.isEmpty(), qPrintable(error));
        HeldTransaction(m_service->database(),
                        change("UPDATE subsystems SET display_name = left(display_name, -1)",
                               "UPDATE users SET system_id = system_id - 1000"))
            .release();
        QCOMPARE(during, before);
        // The changes were committed before the export ended.
        QVERIFY(after.value(QStringLiteral("subsystems")) !=
                before.value(QStringLiteral("subsystems")));
        QVERIFY(after.value(QStringLiteral("users")) != before.value(QStringLiteral("users")));
        QJsonObject restored;
        error = failureOf(m_service->exportDocument(CCaller::owner(), &restored));
        QVERIFY2(error.isEmpty(), qPrintable(error));
        QCOMPARE(restored, before);
    }

    // A backend that stops answering: the statement is cancelled, then its connection cut, and
    // the request answered "数据库无响应" instead of hanging; the next request works again.
    void hungBackendIsAnswered() {
        CServiceOptions quick = options();
        quick.statementTimeoutMs = 1000;
        quick.cancelGraceMs = 500;
        QString error;
        auto service = CQuotesService::open(quick, &error);
        QVERIFY2(service, qPrintable(error));
        qint64 pid = 0;
        service->database().transact(false, [&](QSqlDatabase& db) {
            QSqlQuery q(db);
            if (q.exec(QStringLiteral("SELECT pg_backend_pid()")) && q.next())
                pid = q.value(0).toLongLong();
        });
        QVERIFY(pid > 0);
        QCOMPARE(::kill(pid_t(pid), SIGSTOP), 0);
        struct Resume {
            pid_t pid;
            ~Resume() { ::kill(pid, SIGCONT); }
        } resume{pid_t(pid)};
        rkservice::COrinQueryDataReq request;
        request.dataType = rkservice::kDataQuoteSources;
        std::vector<rkservice::IDataPtr> datas;
        QElapsedTimer timer;
        timer.start();
        const utils::RKError hung =
            service->querySync(CCaller::owner(), Hlx::CRequestTarget::centre(), request, &datas);
        QVERIFY(!hung.isSuccess());
        QCOMPARE(hung.errorMsg(), std::string("数据库无响应"));
        QVERIFY2(timer.elapsed() >= 1000 && timer.elapsed() < 10000,
                 qPrintable(QString::number(timer.elapsed())));
        QVERIFY(service->querySync(CCaller::owner(), Hlx::CRequestTarget::centre(), request, &datas)
                    .isSuccess());
    }

    void serverGoneAndBack() {
        QVERIFY(m_cluster.stop());
        QElapsedTimer timer;
        timer.start();
        const QueryResult r = query(rkservice::kDataQuoteSources, "");
        QVERIFY(!r.error.isSuccess());
        QVERIFY2(errorText(r.error).contains(QStringLiteral("无法连接数据库服务器")),
                 r.error.errorMsg().c_str());
        const OperateResult o =
            operate(rkservice::kDataQuoteSources, 2, list({stockSource(10000, 2, "10.30.0.1", 1)}));
        QVERIFY(!o.error.isSuccess());
        QVERIFY(timer.elapsed() < 20000);
        QVERIFY(m_cluster.restart());
        // Every worker thread reconnects on its next request.
        for (int i = 0; i < 16; ++i) {
            const QueryResult again = query(rkservice::kDataLevel2Tokens, "");
            QVERIFY2(again.error.isSuccess(), again.error.errorMsg().c_str());
        }
        QVERIFY(
            operate(rkservice::kDataQuoteSources, 2, list({stockSource(10000, 2, "10.30.0.1", 1)}))
                .error.isSuccess());
    }
};

QTEST_GUILESS_MAIN(TestPostgres)
#include "tst_postgres.moc"
