// Eight threads of mixed requests at once through the client centre: no lost write, no error,
// and exactly the expected content at the end.

#include <QSqlQuery>
#include <QThread>
#include <atomic>
#include <map>
#include <mutex>
#include <thread>

#include "FaultVfs.h"
#include "ServiceResults.h"
#include "ServiceTestUtil.h"
#include "SourceChecks.h"

using namespace svctest;

class TestConcurrency : public QObject {
    Q_OBJECT

    // A service on a database of its own that holds one stock source, id 1.
    struct OneSource {
        QTemporaryDir dir;
        boost::shared_ptr<CQuotesService> service;
        boost::shared_ptr<CEmbeddedAdmin> admin;

        bool open(int busyTimeoutMs = 5000) {
            CServiceOptions options;
            options.dataDir = dir.path();
            options.busyTimeoutMs = busyTimeoutMs;
            QString error;
            service = CQuotesService::open(options, &error);
            if (!service)
                return false;
            admin = CEmbeddedAdmin::asOwner(service);
            rkservice::COperateDataReq add;
            add.dataType = rkservice::kDataQuoteSources;
            add.operateType = rkservice::kOperateAdd;
            add.datas.push_back(stockSource(10000, 2, "10.0.0.1", 1, "before"));
            return admin->operate(Hlx::CRequestTarget::centre(), add, nullptr).isSuccess();
        }

        // The source as stored now (all fields 0 or empty when there is not exactly one).
        rkservice::COrinQuoterSourceInfo stored() const {
            std::vector<rkservice::IDataPtr> datas;
            rkservice::COrinQueryDataReq query;
            query.dataType = rkservice::kDataQuoteSources;
            admin->query(Hlx::CRequestTarget::centre(), query, &datas);
            return datas.size() == 1
                       ? static_cast<const rkservice::COrinQuoterSourceInfo&>(*datas.front())
                       : rkservice::COrinQuoterSourceInfo();
        }
    };

private slots:
    void initTestCase() { FaultVfs::install(); }

    // quotesctl's modify reads and writes in one transaction: the patch waits for a console's
    // change of another field that is being written, then applies itself to the row as that
    // change left it; a patch that read first would write the old user name back.
    void patchKeepsAConcurrentChange() {
        OneSource db;
        QVERIFY(db.open(30000));
        // The console: another connection, in the middle of writing its change.
        {
            QSqlDatabase console =
                QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), QStringLiteral("console"));
            console.setDatabaseName(db.service->databaseFile());
            QVERIFY(console.open());
            QSqlQuery change(console);
            QVERIFY(change.exec(QStringLiteral("BEGIN IMMEDIATE")));
            QVERIFY(change.exec(QStringLiteral(
                "UPDATE kx_orin_quoter_source SET user_name = 'console' WHERE id = 1")));

            const int waitingBefore = FaultVfs::busyWriteLocks();
            Hlx::CSourcePatch patch;
            patch.port = 2;
            utils::RKError patched = utils::RKError::fail("not run");
            std::thread quotesctl([&] { patched = db.admin->modifySource(1, patch); });
            QTRY_VERIFY(FaultVfs::busyWriteLocks() > waitingBefore);
            QVERIFY(change.exec(QStringLiteral("COMMIT")));
            quotesctl.join();
            QVERIFY2(patched.isSuccess(), patched.errorMsg().c_str());
            change.finish();
            console.close();
        }
        QSqlDatabase::removeDatabase(QStringLiteral("console"));

        const rkservice::COrinQuoterSourceInfo source = db.stored();
        QCOMPARE(source.m_nPort, 2);
        QCOMPARE(source.m_strUserName, std::string("console"));
        QCOMPARE(source.m_strAddress, std::string("10.0.0.1"));
    }

    // A patch changes exactly the fields it names; one of a source that does not exist, or one
    // that names no field, is refused.
    void patchChangesOnlyItsFields() {
        OneSource db;
        QVERIFY(db.open());
        const rkservice::COrinQuoterSourceInfo before = db.stored();
        QCOMPARE(before.m_nId, 1);

        Hlx::CSourcePatch patch;
        patch.address = "10.0.0.2";
        patch.password = "新密码";
        QVERIFY(db.admin->modifySource(1, patch).isSuccess());
        rkservice::COrinQuoterSourceInfo expected = before;
        expected.m_strAddress = "10.0.0.2";
        expected.m_strPassword = "新密码";
        compareSources(db.stored(), expected);

        QVERIFY(!db.admin->modifySource(99, patch).isSuccess());
        const utils::RKError empty = db.admin->modifySource(1, Hlx::CSourcePatch());
        QCOMPARE(QString::fromStdString(empty.errorMsg()), QStringLiteral("没有要修改的字段"));
        // The patch is checked like any modify.
        Hlx::CSourcePatch badPort;
        badPort.port = 70000;
        QVERIFY(!db.admin->modifySource(1, badPort).isSuccess());
        QCOMPARE(db.stored().m_nPort, before.m_nPort);
    }

    void mixedOperationsFromEightThreads() {
        QTemporaryDir dir;
        CServiceOptions options;
        options.dataDir = dir.path();
        options.busyTimeoutMs = 30000;
        QString error;
        auto service = CQuotesService::open(options, &error);
        QVERIFY2(service, qPrintable(error));
        Hlx::COrinClientCenter::instance()->setBackend(CEmbeddedBackends::backendAsOwner(service));

        const int kThreads = 8;
        const int kOperations = 240;
        std::atomic<int> failures{0};
        std::atomic<int> contendedWins{0};
        std::mutex messageMutex;
        QStringList messages;
        // What each thread believes it stored: id -> address and port.
        std::vector<std::map<int, std::pair<std::string, int>>> expected(kThreads);

        auto fail = [&](const std::string& what) {
            ++failures;
            std::lock_guard<std::mutex> lock(messageMutex);
            messages << QString::fromStdString(what);
        };

        std::vector<QThread*> threads;
        for (int t = 0; t < kThreads; ++t) {
            threads.push_back(QThread::create([&, t] {
                auto& mine = expected[t];
                // The revision of each of its rows, as the answers of its changes give them.
                std::map<int, long long> revisions;
                const std::string subsystem = t % 2 ? "sys2" : "";
                int serial = 0;
                for (int i = 0; i < kOperations; ++i) {
                    const int kind = i % 6;
                    if (kind <= 2 || mine.empty()) {
                        std::vector<rkservice::IDataPtr> batch;
                        const int count = kind == 2 ? 3 : 1;
                        std::vector<std::pair<std::string, int>> endpoints;
                        for (int k = 0; k < count; ++k) {
                            ++serial;
                            const std::string address = "10." + std::to_string(t) + "." +
                                                        std::to_string(serial / 250) + "." +
                                                        std::to_string(serial % 250);
                            endpoints.push_back({address, 1000 + t});
                            batch.push_back(stockSource(10000, 2, address, 1000 + t));
                        }
                        const OperateResult r =
                            operate(rkservice::kDataQuoteSources, 2, batch, subsystem);
                        if (!r.error.isSuccess()) {
                            fail("add: " + r.error.errorMsg());
                            continue;
                        }
                        const QStringList ids =
                            QString::fromStdString(r.result.getStringField("ids")).split(',');
                        if (ids.size() != count) {
                            fail("add returned ids " + r.result.getStringField("ids"));
                            continue;
                        }
                        for (int k = 0; k < count; ++k) {
                            mine[ids[k].toInt()] = endpoints[k];
                            revisions[ids[k].toInt()] = 1;
                        }
                    } else if (kind == 3) {
                        const auto it = std::next(mine.begin(), i % mine.size());
                        const std::string address =
                            "10." + std::to_string(t) + ".200." + std::to_string(i % 250);
                        auto change = stockSource(10000, 2, address, 2000 + i);
                        change->m_nId = it->first;
                        change->setRevision(revisions[it->first]);
                        const OperateResult r =
                            operate(rkservice::kDataQuoteSources, 0, list({change}));
                        if (!r.error.isSuccess()) {
                            fail("modify: " + r.error.errorMsg());
                        } else {
                            it->second = {address, 2000 + i};
                            revisions[it->first] = std::stoll(r.result.getStringField("revisions"));
                        }
                    } else if (kind == 4) {
                        const auto it = std::next(mine.begin(), (i * 7) % mine.size());
                        auto record = deleteRecord(it->first);
                        record->setRevision(revisions[it->first]);
                        const OperateResult r =
                            operate(rkservice::kDataQuoteSources, 3, list({record}));
                        if (!r.error.isSuccess())
                            fail("delete: " + r.error.errorMsg());
                        else
                            mine.erase(it);
                    } else {
                        const QueryResult r = query(rkservice::kDataQuoteSources, "2");
                        if (!r.error.isSuccess())
                            fail("query: " + r.error.errorMsg());
                        if (i == 5) {
                            // Every thread races for the same endpoint once: one wins.
                            const OperateResult race =
                                operate(rkservice::kDataQuoteSources, 2,
                                        list({stockSource(10001, 6, "10.255.0.1", 1)}));
                            if (race.error.isSuccess())
                                ++contendedWins;
                            else if (race.error.errorMsg().find("行情源已存在") ==
                                     std::string::npos)
                                fail("race: " + race.error.errorMsg());
                        }
                    }
                }
            }));
            threads.back()->start();
        }
        for (QThread* thread : threads) {
            QVERIFY(thread->wait(170000));
            delete thread;
        }
        QVERIFY2(failures == 0, qPrintable(messages.join('\n')));
        QCOMPARE(contendedWins.load(), 1);

        std::map<int, std::pair<std::string, int>> all;
        for (const auto& mine : expected)
            all.insert(mine.begin(), mine.end());
        const auto stored =
            as<rkservice::COrinQuoterSourceInfo>(query(rkservice::kDataQuoteSources, "2").datas);
        QCOMPARE(stored.size(), all.size());
        for (const auto& source : stored) {
            const auto it = all.find(source->m_nId);
            QVERIFY(it != all.end());
            QCOMPARE(source->m_strAddress, it->second.first);
            QCOMPARE(source->m_nPort, it->second.second);
            const int thread =
                QString::fromStdString(source->m_strAddress).section('.', 1, 1).toInt();
            QCOMPARE(source->getSystemTag(), std::string(thread % 2 ? "sys2" : "sys1"));
        }
        QCOMPARE(int(query(rkservice::kDataQuoteSources, "6").datas.size()), 1);
        QVERIFY(service->checkIntegrity(CCaller::owner()).isSuccess());

        QVERIFY(Hlx::COrinClientCenter::instance()->waitForIdle());
        Hlx::COrinClientCenter::instance()->setBackend(nullptr);
    }
};

QTEST_GUILESS_MAIN(TestConcurrency)
#include "tst_concurrency.moc"
