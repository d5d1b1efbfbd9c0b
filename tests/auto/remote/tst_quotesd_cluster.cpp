#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSqlQuery>
#include <QtTest>
#include <boost/make_shared.hpp>
#include <future>

#include "CQuotesService.h"
#include "CRemoteAdmin.h"
#include "ChangeLog.h"
#include "HeldTransaction.h"
#include "Hlx/CAdminBackend.h"
#include "Hlx/COrinClientCenter.h"
#include "PostgresCluster.h"
#include "QuotesctlOnServer.h"
#include "QuotesdProcess.h"
#include "RecordBuilders.h"
#include "TestPasswords.h"
#include "rkservice/DataTypeIds.h"

// Two quotesd on one PostgreSQL database: either serves every login, and a console moves on to
// the other when one dies.
class TestQuotesdCluster : public QObject {
    Q_OBJECT

    PostgresCluster m_database;
    QuotesdProcess m_first;
    QuotesdProcess m_second;

    std::vector<rkservice::IDataPtr> sourcesVia(Hlx::IQuotesAdmin& admin, utils::RKError* error) {
        rkservice::COrinQueryDataReq request;
        request.dataType = rkservice::kDataQuoteSources;
        std::vector<rkservice::IDataPtr> datas;
        *error = admin.query(Hlx::CRequestTarget::centre(), request, &datas);
        return datas;
    }

private slots:
    void initTestCase() {
        if (!m_database.startOrSkip())
            return;
        QVERIFY(m_database.createDatabase(QStringLiteral("quotes")));
        m_first.setDatabaseUrl(m_database.url(QStringLiteral("quotes")));
        m_second.setDatabaseUrl(m_database.url(QStringLiteral("quotes")));
        QString output;
        QVERIFY2(!m_second.join(&output), "a server joined a database nobody set up");
        QVERIFY2(output.contains(QStringLiteral("quotesd init")), qPrintable(output));
        QVERIFY2(m_first.init(kAdminPassword, &output), qPrintable(output));
        // The stored passwords are sealed under the first server's key: joining needs it.
        QVERIFY2(!m_second.join(&output), "a server joined without the secrets key");
        QVERIFY2(output.contains(QStringLiteral("缺少密钥文件")), qPrintable(output));
        QVERIFY2(m_second.join(&output, m_first.secretsKeyFile()), qPrintable(output));
        QVERIFY2(m_first.start(), qPrintable(m_first.log()));
        QVERIFY2(m_second.start(), qPrintable(m_second.log()));
    }

    void cleanupTestCase() {
        Hlx::COrinClientCenter::instance()->waitForIdle();
        Hlx::COrinClientCenter::instance()->setBackend({});
    }

    // A change through one server reaches the consoles of the other (NOTIFY on the shared
    // database); a restarted database makes every server tell its consoles to reload all.
    void changesReachTheClientsOfEveryServer() {
        auto onFirst = std::make_unique<CRemoteAdmin>(
            std::vector<std::string>{m_first.address().toStdString()},
            m_first.certificatePem().toStdString());
        auto onSecond = std::make_unique<CRemoteAdmin>(
            std::vector<std::string>{m_second.address().toStdString()},
            m_second.certificatePem().toStdString());
        QVERIFY(onFirst->login("admin", kAdminPassword.toStdString()).isSuccess());
        QVERIFY(onSecond->login("admin", kAdminPassword.toStdString()).isSuccess());
        ChangeLog log;
        const auto handle = onFirst->watchChanges(log.handler());
        QTRY_COMPARE(log.size(), 1);
        QVERIFY(log.at(0).listening);

        rkservice::COperateDataReq add;
        add.dataType = rkservice::kDataQuoteSources;
        add.operateType = rkservice::kOperateAdd;
        add.datas.push_back(RecordBuilders::source(0, 10000, 2, "192.0.2.80", 9080));
        QVERIFY(
            onSecond->operate(Hlx::CRequestTarget::subsystem("sys1"), add, nullptr).isSuccess());
        QTRY_COMPARE(log.size(), 2);
        QCOMPARE(log.at(1).action, std::string("add"));
        QCOMPARE(log.at(1).account, std::string("admin"));
        QVERIFY(!log.at(1).own);

        QVERIFY(m_database.stop());
        QVERIFY(m_database.restart());
        QTRY_VERIFY_WITH_TIMEOUT(
            log.count([](const Hlx::CChangeEvent& e) { return e.resync && !e.listening; }) >= 1,
            30000);

        // The next test counts the sources from an empty database.
        rkservice::COperateDataReq remove = add;
        remove.operateType = rkservice::kOperateDelete;
        auto added =
            RecordBuilders::source(std::stoi(log.at(1).ids.at(0)), 10000, 2, "192.0.2.80", 9080);
        added->setRevision(1);  // as added
        remove.datas = {added};
        // A delete whose answer the restart cut off may have been made: the list tells.
        utils::RKError listed;
        const bool gone = QTest::qWaitFor(
            [&] {
                onSecond->operate(Hlx::CRequestTarget::subsystem("sys1"), remove, nullptr);
                return sourcesVia(*onSecond, &listed).empty() && listed.isSuccess();
            },
            20000);
        QVERIFY2(gone, listed.errorMsg().c_str());
    }

    // quotesctl's modify through a server is one transaction there: it waits for a change of
    // another field that a console is writing and keeps it. (Read first and written back, the
    // source would get its old user name again.)
    void quotesctlModifyKeepsAConcurrentChange() {
        QTemporaryDir data;
        CServiceOptions options;
        options.dbUrl = m_database.url(QStringLiteral("quotes"));
        options.dataDir = data.path();
        options.secretsKeyFile = m_first.secretsKeyFile();
        options.createMissing = false;
        QString error;
        const auto console = CQuotesService::open(options, &error);
        QVERIFY2(console, qPrintable(error));
        rkservice::COperateDataReq add;
        add.dataType = rkservice::kDataQuoteSources;
        add.operateType = rkservice::kOperateAdd;
        add.datas.push_back(RecordBuilders::source(0, 10000, 2, "192.0.2.81", 9000));
        bson::BSONObj result;
        QVERIFY(console
                    ->operateSync(CCaller::owner(), Hlx::CRequestTarget::subsystem("sys1"), add,
                                  &result)
                    .isSuccess());
        const int id = QString::fromStdString(result.getStringField("ids")).toInt();
        const auto waitingLocks = [&] {
            int count = 0;
            console->database().transact(false, [&](QSqlDatabase& db) {
                QSqlQuery query(db);
                // A wait for a row that another transaction changes (the login and the read
                // quotesctl makes before its change wait for no row).
                if (query.exec(QStringLiteral("SELECT count(*) FROM pg_locks WHERE NOT granted "
                                              "AND locktype = 'transactionid'")) &&
                    query.next())
                    count = query.value(0).toInt();
            });
            return count;
        };

        const QuotesctlOnServer quotesctl(m_first, QStringLiteral("admin"), kAdminPassword);
        {
            HeldTransaction change(
                console->database(),
                [&](QSqlDatabase& db) {
                    console->database().exec(
                        db, QStringLiteral("UPDATE kx_orin_quoter_source SET user_name = 'console' "
                                           "WHERE id = %1")
                                .arg(id));
                },
                HeldTransaction::Queue::Alone);
            QVERIFY(change.isHolding());
            QProcess modify;
            modify.start(QuotesctlOnServer::program(),
                         quotesctl.arguments({QStringLiteral("sources"), QStringLiteral("modify"),
                                              QString::number(id), QStringLiteral("--port"),
                                              QStringLiteral("9001")}));
            QTRY_VERIFY_WITH_TIMEOUT(waitingLocks() > 0, 20000);
            QVERIFY(change.release());
            QVERIFY(modify.waitForFinished(60000));
            QCOMPARE(modify.exitCode(), 0);
        }
        const QuotesctlRun listed = quotesctl.run({"sources", "list", "--json"});
        QCOMPARE(listed.code, 0);
        bool found = false;
        for (const QJsonValue& value : QJsonDocument::fromJson(listed.out).array()) {
            const QJsonObject source = value.toObject();
            if (source.value(QStringLiteral("id")).toInt() != id)
                continue;
            found = true;
            QCOMPARE(source.value(QStringLiteral("port")).toInt(), 9001);
            QCOMPARE(source.value(QStringLiteral("userName")).toString(),
                     QStringLiteral("console"));
        }
        QVERIFY2(found, listed.out.constData());
        QCOMPARE(quotesctl.run({"sources", "delete", QString::number(id)}).code, 0);
    }

    void aLoginHoldsOnEveryServerAndTheOtherServesWhenOneDies() {
        const std::string trusted =
            (m_first.certificatePem() + m_second.certificatePem()).toStdString();
        auto remote = boost::make_shared<CRemoteAdmin>(
            std::vector<std::string>{m_first.address().toStdString(),
                                     m_second.address().toStdString()},
            trusted);
        QVERIFY(remote->login("admin", kAdminPassword.toStdString()).isSuccess());
        QCOMPARE(QString::fromStdString(remote->currentServer()), m_first.address());

        rkservice::COperateDataReq add;
        add.dataType = rkservice::kDataQuoteSources;
        add.operateType = rkservice::kOperateAdd;
        auto source = RecordBuilders::source(0, 10000, 2, "192.0.2.80", 9000);
        source->setSystemTag(std::string());
        add.datas.push_back(source);
        bson::BSONObj result;
        const utils::RKError added = remote->operate(Hlx::CRequestTarget::centre(), add, &result);
        QVERIFY2(added.isSuccess(), added.errorMsg().c_str());

        // The console's path: the client centre asks the remote client on a worker.
        Hlx::COrinClientCenter::instance()->setBackend(
            boost::shared_ptr<Hlx::IDataServiceBackend>(new Hlx::CAdminBackend(remote)));
        m_first.kill();
        auto request = boost::make_shared<rkservice::COrinQueryDataReq>();
        request->dataType = rkservice::kDataQuoteSources;
        std::promise<std::pair<bool, size_t>> answered;
        Hlx::COrinClientCenter::instance()->queryData_async(
            request,
            [&answered](const utils::RKError& error, const std::vector<rkservice::IDataPtr>& datas,
                        int, bson::BSONObj) {
                answered.set_value({error.isSuccess(), datas.size()});
            },
            false);
        const auto [ok, count] = answered.get_future().get();
        QVERIFY(ok);
        QCOMPARE(int(count), 1);
        QCOMPARE(QString::fromStdString(remote->currentServer()), m_second.address());

        // The same login, without logging in again, on the server that is left.
        utils::RKError error;
        const auto left = sourcesVia(*remote, &error);
        QCOMPARE(int(left.size()), 1);
        QVERIFY(error.isSuccess());
        // The second server opens what the first one sealed.
        QVERIFY(!source->m_strPassword.empty());
        QCOMPARE(static_cast<const rkservice::COrinQuoterSourceInfo&>(*left.front()).m_strPassword,
                 source->m_strPassword);
        QCOMPARE(m_second.stop(), 0);
    }
};

QTEST_GUILESS_MAIN(TestQuotesdCluster)
#include "tst_quotesd_cluster.moc"
