#include <QApplication>
#include <QElapsedTimer>
#include <QPointer>
#include <QStatusBar>
#include <QtTest>
#include <atomic>
#include <boost/make_shared.hpp>

#include "CConsoleWindow.h"
#include "CLiveUpdates.h"
#include "CRemoteAdmin.h"
#include "CRemoteSession.h"
#include "ConsolePanels.h"
#include "Hlx/CAdminBackend.h"
#include "Hlx/COrinClientCenter.h"
#include "Hlx/CUserManager.h"
#include "PostgresCluster.h"
#include "QuotesdProcess.h"
#include "RecordBuilders.h"
#include "ServerMessages.h"
#include "TestIds.h"
#include "TestPasswords.h"
#include "Zu/COddEvenRowTable.h"
#include "panels/QuotesManagePanel.h"

using namespace TestIds;

namespace {

const QString kNoResponse = QStringLiteral("数据库无响应");

}  // namespace

// The console on a quotesd whose PostgreSQL database stops and starts again: an outage is not
// an expired login.
class TestConsoleOutage : public QObject {
    Q_OBJECT

    PostgresCluster m_database;
    QuotesdProcess m_server;
    QTemporaryDir m_settings;
    int m_port = 9100;

    boost::shared_ptr<CRemoteAdmin> client() {
        return boost::make_shared<CRemoteAdmin>(
            std::vector<std::string>{m_server.address().toStdString()},
            m_server.certificatePem().toStdString());
    }

    // A stock source added by the administrator; false when the server refused it.
    bool addSource(CRemoteAdmin& admin) {
        rkservice::COperateDataReq add;
        add.dataType = kDataQuoteSources;
        add.operateType = rkservice::kOperateAdd;
        auto source = RecordBuilders::source(0, kKxStocks, kStocks, "192.0.2.90", m_port++);
        source->setSystemTag(std::string());
        add.datas.push_back(source);
        return admin.operate(Hlx::CRequestTarget::centre(), add, nullptr).isSuccess();
    }

private slots:
    void initTestCase() {
        if (!m_database.startOrSkip())
            return;
        QVERIFY(m_database.createDatabase(QStringLiteral("quotes")));
        m_server.setDatabaseUrl(m_database.url(QStringLiteral("quotes")));
        QString output;
        QVERIFY2(m_server.init(kAdminPassword, &output), qPrintable(output));
        QVERIFY2(m_server.start(), qPrintable(m_server.log()));
        Hlx::COrinClientCenter::instance()->setShowMessageBoxes(false);
    }

    void cleanupTestCase() {
        Hlx::COrinClientCenter::instance()->waitForIdle();
        Hlx::COrinClientCenter::instance()->setBackend({});
        Hlx::CUserManager::instance()->setCurrentUser(nullptr);
        if (m_server.isRunning())
            QCOMPARE(m_server.stop(), 0);
    }

    // While the database is down the server answers "数据库无响应" of the kind "unavailable",
    // also where it checks the login's token: the console keeps its login and its rows and
    // says why; once the database is back it reads everything again.
    void outageKeepsTheLoginAndTheRowsAndReloadsAfterwards() {
        const auto remote = client();
        QVERIFY(remote->login("admin", kAdminPassword.toStdString()).isSuccess());
        Hlx::CUserManager::instance()->setCurrentUser(remote->account());
        Hlx::COrinClientCenter::instance()->setBackend(
            boost::shared_ptr<Hlx::IDataServiceBackend>(new Hlx::CAdminBackend(remote)));
        const CConsoleSession session = CRemoteSession::make(remote, m_server.address());
        CConsoleWindow window(remote, m_settings.filePath(QStringLiteral("console.ini")), QString(),
                              nullptr, session);
        // Shown: a panel brought to the front loads, as the operator sees it.
        window.show();
        QVERIFY(QTest::qWaitForWindowExposed(&window));
        std::atomic<int> expiries{0};
        remote->setLoginExpiredHandler([&expiries] { ++expiries; });
        QPointer<Hlx::CQuotesManagePanel> panel =
            qobject_cast<Hlx::CQuotesManagePanel*>(window.openPanel(ConsolePanels::stocks()));
        QVERIFY(panel);
        panel->refresh();
        QTRY_VERIFY(!panel->isLoading());

        // Once the console listens, the administrator's change shows without a click.
        const auto admin = client();
        QVERIFY(admin->login("admin", kAdminPassword.toStdString()).isSuccess());
        QElapsedTimer clock;
        clock.start();
        int shown = 0;
        while (shown == 0 && clock.elapsed() < 20000) {
            QVERIFY(addSource(*admin));
            if (QTest::qWaitFor([&] { return panel && panel->table()->rowCount() > 0; }, 1000))
                shown = panel->table()->rowCount();
        }
        QVERIFY2(shown > 0, "the console did not hear the change");
        QTRY_VERIFY(!panel->isLoading() && panel->table()->rowCount() == m_port - 9100);
        const int rows = panel->table()->rowCount();

        QVERIFY(m_database.stop());
        // A stream of changes opened now cannot have its token checked either.
        window.liveUpdates()->restart();
        ServerMessages messages;
        panel->refresh();
        QTRY_VERIFY_WITH_TIMEOUT(!messages.isEmpty(), 15000);
        QCOMPARE(messages.last().text, kNoResponse);
        QCOMPARE(messages.last().success, false);
        QTRY_VERIFY(!panel->isLoading());
        QCOMPARE(panel->table()->rowCount(), rows);
        QCOMPARE(panel->rowRecordCount(), rows);
        QVERIFY(window.statusBar()->currentMessage().contains(kNoResponse));
        // A call of its own answers the same, and the login and the connection stay.
        rkservice::COrinQueryDataReq query;
        query.dataType = kDataQuoteSources;
        std::vector<rkservice::IDataPtr> datas;
        const utils::RKError refused = remote->query(Hlx::CRequestTarget::centre(), query, &datas);
        QCOMPARE(int(refused.kind()), int(utils::ErrorKind::Unavailable));
        QCOMPARE(QString::fromStdString(refused.errorMsg()), kNoResponse);
        QVERIFY(remote->isLoggedIn());
        QCoreApplication::processEvents();
        QCOMPARE(expiries.load(), 0);
        QVERIFY(!QApplication::activeModalWidget());
        // A new login says the same, and is neither counted nor taken for a wrong password.
        const utils::RKError login = client()->login("admin", kAdminPassword.toStdString());
        QCOMPARE(int(login.kind()), int(utils::ErrorKind::Unavailable));
        QCOMPARE(QString::fromStdString(login.errorMsg()), kNoResponse);

        // Back: the console reads everything again by itself (its panels are built anew).
        QVERIFY(m_database.restart());
        QTRY_VERIFY_WITH_TIMEOUT(panel.isNull(), 30000);
        auto* reloaded =
            qobject_cast<Hlx::CQuotesManagePanel*>(window.panel(ConsolePanels::stocks()));
        QVERIFY(reloaded);
        QTRY_VERIFY(!reloaded->isLoading() && reloaded->table()->rowCount() == rows);
        QVERIFY(remote->isLoggedIn());
        QCOMPARE(expiries.load(), 0);
        remote->setLoginExpiredHandler({});
    }
};

QTEST_MAIN(TestConsoleOutage)
#include "tst_console_outage.moc"
