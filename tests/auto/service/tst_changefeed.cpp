// The change feed: every change committed to the database, by this process, by another service
// on the same database or by quotesctl, is announced once to the subscribers; refusals are not;
// a PostgreSQL listener that lost its connection reconnects and asks for a reload of everything.

#include <QTemporaryDir>
#include <QtTest>
#include <boost/make_shared.hpp>

#include "CCaller.h"
#include "CChangeFeed.h"
#include "CEmbeddedAdmin.h"
#include "CQuotesService.h"
#include "ChangeLog.h"
#include "PostgresCluster.h"
#include "QuotesctlRun.h"
#include "RecordBuilders.h"
#include "ServiceResults.h"
#include "TestDatabases.h"
#include "rkservice/DataTypeIds.h"

namespace {

utils::RKError addSources(Hlx::IQuotesAdmin& admin, int count, int firstPort = 9000) {
    rkservice::COperateDataReq request;
    request.dataType = rkservice::kDataQuoteSources;
    request.operateType = rkservice::kOperateAdd;
    for (int i = 0; i < count; ++i)
        request.datas.push_back(RecordBuilders::source(0, 10000, 2, "10.0.0.1", firstPort + i));
    return admin.operate(Hlx::CRequestTarget::subsystem("sys1"), request, nullptr);
}

boost::shared_ptr<CEmbeddedAdmin> adminFor(const boost::shared_ptr<CQuotesService>& service,
                                           const std::string& name, const std::string& session) {
    for (const auto& user : storedUsers(*service)) {
        if (user->m_strName == name) {
            const CCaller caller = CCaller::user(*user).locally("os").inSession(session);
            return boost::make_shared<CEmbeddedAdmin>(service, [caller] { return caller; });
        }
    }
    return nullptr;
}

}  // namespace

class TestChangeFeed : public QObject {
    Q_OBJECT

public:
    explicit TestChangeFeed(PostgresCluster* postgres = nullptr, QString down = QString())
        : m_postgres(postgres), m_databases(QStringLiteral("feed"), postgres, std::move(down)) {}

private:
    PostgresCluster* m_postgres;
    TestDatabases m_databases;
    CServiceOptions m_options;
    // The observer and the changer: two services on one database, as two processes would be.
    boost::shared_ptr<CQuotesService> m_observer;
    boost::shared_ptr<CQuotesService> m_changer;

    boost::shared_ptr<CQuotesService> open() {
        QString error;
        auto service = CQuotesService::open(m_options, &error);
        if (!service)
            qWarning("%s", qPrintable(error));
        return service;
    }

private slots:
    void initTestCase() {
        if (m_databases.unavailable())
            return;
    }

    void init() {
        m_options = m_databases.fresh();
        m_observer = open();
        QVERIFY(m_observer);
        m_changer = open();
        QVERIFY(m_changer);
    }

    void cleanup() {
        m_observer.reset();
        m_changer.reset();
        m_databases.release();
    }

    void changeThroughAnotherServiceIsAnnounced() {
        ChangeLog log;
        const auto handle = m_observer->changes().subscribe(log.handler());
        auto changer = CEmbeddedAdmin::asOwner(m_changer);
        QVERIFY(addSources(*changer, 2).isSuccess());
        QTRY_COMPARE(log.size(), 1);
        const Hlx::CChangeEvent event = log.at(0);
        QCOMPARE(event.dataType, std::string("quote_source"));
        QCOMPARE(event.action, std::string("add"));
        QCOMPARE(event.subsystem, std::string("sys1"));
        QCOMPARE(int(event.ids.size()), 2);
        QVERIFY(!event.allIds);
        QVERIFY(!event.resync);
        QCOMPARE(event.account, CCaller::operatingSystemUser());
    }

    void changeInTheSameServiceIsAnnounced() {
        ChangeLog log;
        const auto handle = m_observer->changes().subscribe(log.handler());
        QVERIFY(addSources(*CEmbeddedAdmin::asOwner(m_observer), 1).isSuccess());
        QTRY_COMPARE(log.size(), 1);
        QCOMPARE(log.at(0).action, std::string("add"));
    }

    void refusedChangeIsNotAnnounced() {
        ChangeLog log;
        const auto handle = m_observer->changes().subscribe(log.handler());
        auto viewer = adminFor(m_changer, "viewer", "viewer-session");
        QVERIFY(viewer);
        QVERIFY(!addSources(*viewer, 1).isSuccess());
        // A change after the refusal: once it is heard, the refusal would have been heard too.
        QVERIFY(addSources(*CEmbeddedAdmin::asOwner(m_changer), 1, 9100).isSuccess());
        QTRY_COMPARE(log.size(), 1);
        QCOMPARE(log.at(0).account, CCaller::operatingSystemUser());
        QVERIFY(log.at(0).ids.size() == 1);
    }

    void ownChangesAreMarkedByTheSession() {
        auto mine = adminFor(m_observer, "admin", "session-a");
        auto theirs = adminFor(m_changer, "admin", "session-b");
        QVERIFY(mine && theirs);
        ChangeLog log;
        const auto handle = mine->watchChanges(log.handler());
        QVERIFY(handle);
        QVERIFY(addSources(*mine, 1).isSuccess());
        QTRY_COMPARE(log.size(), 1);
        QVERIFY(addSources(*theirs, 1, 9100).isSuccess());
        QTRY_COMPARE(log.size(), 2);
        QVERIFY(log.at(0).own);
        QVERIFY(!log.at(1).own);
        QCOMPARE(log.at(1).account, std::string("admin"));
    }

    void moreThanAThousandIdsMeanEveryRecord() {
        ChangeLog log;
        const auto handle = m_observer->changes().subscribe(log.handler());
        auto changer = CEmbeddedAdmin::asOwner(m_changer);
        QVERIFY(addSources(*changer, int(Hlx::CChangeEvent::kMaxIds)).isSuccess());
        QVERIFY(addSources(*changer, int(Hlx::CChangeEvent::kMaxIds) + 1, 20000).isSuccess());
        QTRY_COMPARE(log.size(), 2);
        QCOMPARE(log.at(0).ids.size(), Hlx::CChangeEvent::kMaxIds);
        QVERIFY(!log.at(0).allIds);
        QVERIFY(log.at(1).ids.empty());
        QVERIFY(log.at(1).allIds);
    }

    void anEndedSubscriptionHearsNothing() {
        ChangeLog ended;
        ChangeLog kept;
        auto handle = m_observer->changes().subscribe(ended.handler());
        const auto keptHandle = m_observer->changes().subscribe(kept.handler());
        auto changer = CEmbeddedAdmin::asOwner(m_changer);
        QVERIFY(addSources(*changer, 1).isSuccess());
        QTRY_COMPARE(kept.size(), 1);
        QCOMPARE(ended.size(), 1);
        handle.reset();
        QVERIFY(addSources(*changer, 1, 9100).isSuccess());
        QTRY_COMPARE(kept.size(), 2);
        QCOMPARE(ended.size(), 1);
    }

    void quotesctlInAnotherProcessIsAnnounced() {
        if (m_postgres)
            QSKIP("quotesctl runs on the SQLite file here");
        const QString program =
            qEnvironmentVariable("QUOTES_BINARY_DIR") + QStringLiteral("/bin/quotesctl");
        ChangeLog log;
        const auto handle = m_observer->changes().subscribe(log.handler());
        const QuotesctlRun added = QuotesctlRun::start(
            program, {"--data", m_options.dataDir, "sources", "add", "--platform", "10000",
                      "--trade-type", "2", "--address", "10.0.0.2", "--port", "9300"});
        QCOMPARE(added.code, 0);
        QTRY_COMPARE(log.size(), 1);
        QCOMPARE(log.at(0).ids, std::vector<std::string>{added.out.trimmed().toStdString()});
    }

    void listenerReconnectsAndAsksForAReload() {
        if (!m_postgres)
            QSKIP("a SQLite file has no connection to lose");
        ChangeLog log;
        const auto handle = m_observer->changes().subscribe(log.handler());
        auto changer = CEmbeddedAdmin::asOwner(m_changer);
        // Heard: the listener is connected before the server goes.
        QVERIFY(addSources(*changer, 1).isSuccess());
        QTRY_COMPARE(log.size(), 1);
        QVERIFY(!log.at(0).resync);
        QVERIFY(m_postgres->stop());
        QVERIFY(m_postgres->restart());
        QTRY_VERIFY_WITH_TIMEOUT(log.size() >= 2, 20000);
        QVERIFY(log.at(1).resync);
        QVERIFY(log.at(1).allIds);
        // Listening again: a later change is heard as before.
        const utils::RKError added = addSources(*changer, 1, 9100);
        QVERIFY2(added.isSuccess(), added.errorMsg().c_str());
        QTRY_VERIFY(log.size() >= 3 && log.at(log.size() - 1).action == "add");
    }
};

class TestChangeFeedPostgres : public TestChangeFeed {
    Q_OBJECT

public:
    TestChangeFeedPostgres(PostgresCluster* postgres, const QString& down)
        : TestChangeFeed(postgres, down) {}
};

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    return TestDatabases::runBoth<TestChangeFeed, TestChangeFeedPostgres>(argc, argv);
}
#include "tst_changefeed.moc"
