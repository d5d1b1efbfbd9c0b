// Changes streamed by quotesd: a change through one login reaches every other login's console,
// marked as its own only for the login that made it; a restarted server is reached again with
// a reload of everything; the stream ends with its login.

#include <QtTest>

#include "CRemoteAdmin.h"
#include "ChangeLog.h"
#include "QuotesdLogin.h"
#include "SourceAdds.h"
#include "TestPasswords.h"
#include "rkservice/DataTypeIds.h"

namespace {

utils::RKError addSource(Hlx::IQuotesAdmin& admin, int port) {
    return addStockSource(admin, "10.0.0.1", port);
}

bool isAdd(const Hlx::CChangeEvent& event) {
    return event.action == "add" && event.dataType == "quote_source";
}

}  // namespace

class TestEventsRemote : public QObject {
    Q_OBJECT

    QuotesdProcess m_server;

    std::unique_ptr<CRemoteAdmin> loggedIn(const std::string& name, const QString& password) {
        return loggedInTo(m_server, name, password);
    }

private slots:
    void initTestCase() {
        QString output;
        QVERIFY2(startWithViewer(m_server, kAdminPassword, kViewerPassword, &output),
                 qPrintable(output + m_server.log()));
    }

    void cleanupTestCase() {
        if (m_server.isRunning())
            QCOMPARE(m_server.stop(), 0);
    }

    void changesOfEveryLoginAreStreamed() {
        auto watcher = loggedIn("admin", kAdminPassword);
        auto other = loggedIn("admin", kAdminPassword);
        ChangeLog log;
        const auto handle = watcher->watchChanges(log.handler());
        QVERIFY(handle);
        QTRY_COMPARE(log.size(), 1);
        QVERIFY(log.at(0).listening);
        QVERIFY(!log.at(0).resync);

        QVERIFY(addSource(*other, 9001).isSuccess());
        QTRY_COMPARE(log.count(isAdd), 1);
        const Hlx::CChangeEvent theirs = log.last();
        QCOMPARE(theirs.account, std::string("admin"));
        QCOMPARE(theirs.subsystem, std::string("sys1"));
        QCOMPARE(int(theirs.ids.size()), 1);
        QVERIFY(!theirs.own);

        QVERIFY(addSource(*watcher, 9002).isSuccess());
        QTRY_COMPARE(log.count(isAdd), 2);
        QVERIFY(log.last().own);
    }

    void aRestartedServerIsReachedAgainWithAReload() {
        auto watcher = loggedIn("admin", kAdminPassword);
        ChangeLog log;
        const auto handle = watcher->watchChanges(log.handler());
        QTRY_COMPARE(log.size(), 1);
        const int port = m_server.port();
        QCOMPARE(m_server.stop(), 0);
        QVERIFY2(
            m_server.start({QStringLiteral("--listen"), QStringLiteral("127.0.0.1:%1").arg(port)}),
            qPrintable(m_server.log()));
        QCOMPARE(m_server.port(), port);
        QTRY_VERIFY_WITH_TIMEOUT(
            log.count([](const Hlx::CChangeEvent& e) { return e.resync; }) == 1, 30000);
        QVERIFY(log.last().listening);
        QVERIFY(log.last().allIds);
        auto other = loggedIn("admin", kAdminPassword);
        QVERIFY(addSource(*other, 9003).isSuccess());
        QTRY_COMPARE(log.count(isAdd), 1);
    }

    void theStreamEndsWithItsLogin() {
        auto viewer = loggedIn("viewer", kViewerPassword);
        std::atomic<int> ended{0};
        viewer->setLoginExpiredHandler([&ended] { ++ended; });
        ChangeLog log;
        const auto handle = viewer->watchChanges(log.handler());
        QTRY_COMPARE(log.size(), 1);
        auto admin = loggedIn("admin", kAdminPassword);
        QVERIFY(admin->setAccountEnabled("viewer", false).isSuccess());
        QTRY_COMPARE_WITH_TIMEOUT(ended.load(), 1, 15000);
        QVERIFY(admin->setAccountEnabled("viewer", true).isSuccess());
    }
};

QTEST_GUILESS_MAIN(TestEventsRemote)
#include "tst_events_remote.moc"
