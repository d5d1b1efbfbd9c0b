#include <QAction>
#include <QComboBox>
#include <QElapsedTimer>
#include <QLabel>
#include <QLineEdit>
#include <QPointer>
#include <QPushButton>
#include <QStatusBar>
#include <QtTest>
#include <atomic>
#include <boost/make_shared.hpp>

#include "CConsoleWindow.h"
#include "CLoginDialog.h"
#include "CRemoteAdmin.h"
#include "CRemoteSession.h"
#include "ConsolePanels.h"
#include "Hlx/CAdminBackend.h"
#include "Hlx/COrinClientCenter.h"
#include "Hlx/CUserManager.h"
#include "ModalDriver.h"
#include "QuotesdProcess.h"
#include "RecordBuilders.h"
#include "TestIds.h"
#include "TestPasswords.h"
#include "Zu/COddEvenRowTable.h"
#include "panels/QuotesManagePanel.h"

using namespace TestIds;

namespace {

// The right to add stock sources.
const int kRightStocksAdd = 10937;

// Logs in through the next login dialog: first with a wrong password (the dialog must show the
// server's error and stay open), then with the right one.
void loginThroughTheDialog(const QString& name, const QString& password, QString* firstError,
                           int* dialogs) {
    ModalDriver::onNext([=](QWidget* modal) {
        auto* dialog = qobject_cast<CLoginDialog*>(modal);
        if (!dialog) {
            modal->close();
            return;
        }
        ++*dialogs;
        dialog->nameEdit()->setText(name);
        dialog->passwordEdit()->setText(QStringLiteral("wrong-password-1"));
        dialog->loginButton()->click();
        QTRY_VERIFY(dialog->loginButton()->isEnabled());
        *firstError = dialog->errorLabel()->text();
        QVERIFY(dialog->isVisible());
        dialog->passwordEdit()->setText(password);
        dialog->loginButton()->click();
    });
}

}  // namespace

// The console on quotesd: the login dialog, the server's rights, expiry and quitting.
class TestConsoleRemote : public QObject {
    Q_OBJECT

    QuotesdProcess m_server;
    QTemporaryDir m_settings;
    boost::shared_ptr<CRemoteAdmin> m_remote;

    boost::shared_ptr<CRemoteAdmin> client() {
        return boost::make_shared<CRemoteAdmin>(
            std::vector<std::string>{m_server.address().toStdString()},
            m_server.certificatePem().toStdString());
    }

private slots:
    void initTestCase() {
        QString output;
        QVERIFY2(m_server.init(kAdminPassword, &output), qPrintable(output));
        QVERIFY(m_server.setPassword(QStringLiteral("viewer"), kViewerPassword));
        QVERIFY2(m_server.start(), qPrintable(m_server.log()));
        // One source to list, added by the administrator.
        auto admin = client();
        QVERIFY(admin->login("admin", kAdminPassword.toStdString()).isSuccess());
        rkservice::COperateDataReq add;
        add.dataType = kDataQuoteSources;
        add.operateType = rkservice::kOperateAdd;
        auto source = RecordBuilders::source(0, kKxStocks, kStocks, "192.0.2.70", 9000);
        source->setSystemTag(std::string());
        add.datas.push_back(source);
        bson::BSONObj result;
        QVERIFY(admin->operate(Hlx::CRequestTarget::centre(), add, &result).isSuccess());
    }

    void cleanupTestCase() {
        Hlx::COrinClientCenter::instance()->waitForIdle();
        Hlx::COrinClientCenter::instance()->setBackend({});
        Hlx::CUserManager::instance()->setCurrentUser(nullptr);
        if (m_server.isRunning())
            QCOMPARE(m_server.stop(), 0);
    }

    void loginShowsTheErrorThenTakesTheAccount() {
        m_remote = client();
        const CConsoleSession session = CRemoteSession::make(m_remote, m_server.address());
        QString firstError;
        int dialogs = 0;
        loginThroughTheDialog(QStringLiteral("viewer"), kViewerPassword, &firstError, &dialogs);
        QVERIFY(session.login(nullptr));
        QCOMPARE(dialogs, 1);
        QCOMPARE(firstError, QString("用户名或密码错误"));
        const auto user = Hlx::CUserManager::instance()->getUserInfoPtr();
        QVERIFY(user);
        QCOMPARE(user->m_strName, std::string("viewer"));
        QVERIFY(user->m_rights.empty());
    }

    void panelsLoadWithTheServersRightsAndExpiryAsksOnce() {
        QVERIFY(m_remote && m_remote->isLoggedIn());
        const CConsoleSession session = CRemoteSession::make(m_remote, m_server.address());
        Hlx::COrinClientCenter::instance()->setBackend(
            boost::shared_ptr<Hlx::IDataServiceBackend>(new Hlx::CAdminBackend(m_remote)));
        CConsoleWindow window(m_remote, m_settings.filePath(QStringLiteral("console.ini")),
                              QString(), nullptr, session);
        std::atomic<int> expiries{0};
        const std::function<void()> notify = window.loginExpiredNotifier();
        m_remote->setLoginExpiredHandler([notify, &expiries] {
            ++expiries;
            notify();
        });
        // The account comes from the server: no user chooser, an account's tools instead.
        QVERIFY(!window.findChild<QComboBox*>(QStringLiteral("userChooser")));
        QVERIFY(window.findChild<QAction*>(QStringLiteral("logout")));
        QCOMPARE(window.currentUser(), QString("viewer"));
        auto* panel =
            qobject_cast<Hlx::CQuotesManagePanel*>(window.openPanel(ConsolePanels::stocks()));
        QVERIFY(panel);
        panel->refresh();
        QTRY_COMPARE(panel->table()->rowCount(), 1);
        // Without the right, the viewer's row shows no password.
        QCOMPARE(panel->table()->itemText(0, Hlx::CQuotesManagePanel::kColPassword), QString());

        // The administrator disables and enables the viewer: its login ends at once.
        auto admin = client();
        QVERIFY(admin->login("admin", kAdminPassword.toStdString()).isSuccess());
        QVERIFY(admin->setAccountEnabled("viewer", false).isSuccess());
        QVERIFY(admin->setAccountEnabled("viewer", true).isSuccess());
        QString firstError;
        int dialogs = 0;
        loginThroughTheDialog(QStringLiteral("viewer"), kViewerPassword, &firstError, &dialogs);
        window.panel(ConsolePanels::stocks())->onActive();
        panel->refresh();
        QTRY_COMPARE(dialogs, 1);
        QTRY_VERIFY(m_remote->isLoggedIn());
        Hlx::COrinClientCenter::instance()->waitForIdle();
        QCoreApplication::processEvents();
        QCOMPARE(expiries.load(), 1);
        QCOMPARE(dialogs, 1);
        auto* rebuilt =
            qobject_cast<Hlx::CQuotesManagePanel*>(window.panel(ConsolePanels::stocks()));
        QVERIFY(rebuilt);
        rebuilt->refresh();
        QTRY_COMPARE(rebuilt->table()->rowCount(), 1);
        m_remote->setLoginExpiredHandler({});
    }

    // Another login's change reaches the console through the server's stream: the open panel
    // shows it without a click, and the note names the account.
    void changeThroughTheServerShowsWithoutAClick() {
        QVERIFY(m_remote && m_remote->isLoggedIn());
        const CConsoleSession session = CRemoteSession::make(m_remote, m_server.address());
        Hlx::COrinClientCenter::instance()->setBackend(
            boost::shared_ptr<Hlx::IDataServiceBackend>(new Hlx::CAdminBackend(m_remote)));
        CConsoleWindow window(m_remote, m_settings.filePath(QStringLiteral("live.ini")), QString(),
                              nullptr, session);
        auto* panel =
            qobject_cast<Hlx::CQuotesManagePanel*>(window.openPanel(ConsolePanels::stocks()));
        QVERIFY(panel);
        panel->refresh();
        QTRY_VERIFY(!panel->isLoading());
        const int before = panel->table()->rowCount();
        QSignalSpy messages(window.statusBar(), &QStatusBar::messageChanged);
        auto admin = client();
        const utils::RKError login = admin->login("admin", kAdminPassword.toStdString());
        QVERIFY2(login.isSuccess(), login.errorMsg().c_str());
        // Only once the console listens can it hear; the first change may come before that.
        int port = 9001;
        QTRY_VERIFY_WITH_TIMEOUT(
            [&] {
                rkservice::COperateDataReq add;
                add.dataType = kDataQuoteSources;
                add.operateType = rkservice::kOperateAdd;
                auto source = RecordBuilders::source(0, kKxStocks, kStocks, "192.0.2.71", port++);
                source->setSystemTag(std::string());
                add.datas.push_back(source);
                if (!admin->operate(Hlx::CRequestTarget::centre(), add, nullptr).isSuccess())
                    return false;
                return QTest::qWaitFor([&] { return panel->table()->rowCount() > before; }, 1000);
            }(),
            20000);
        QTRY_VERIFY(!messages.isEmpty() &&
                    messages.last().at(0).toString() == QStringLiteral("数据已由 admin 更新"));
    }

    // The administrator grants and then revokes a right of the console's account: the server
    // tells the console, which reads its account again and builds the panels anew, so that the
    // button appears and goes, without a new login.
    void rightsOfTheAccountRebuildThePanels() {
        QVERIFY(m_remote && m_remote->isLoggedIn());
        const CConsoleSession session = CRemoteSession::make(m_remote, m_server.address());
        Hlx::COrinClientCenter::instance()->setBackend(
            boost::shared_ptr<Hlx::IDataServiceBackend>(new Hlx::CAdminBackend(m_remote)));
        CConsoleWindow window(m_remote, m_settings.filePath(QStringLiteral("rights.ini")),
                              QString(), nullptr, session);
        std::atomic<int> expiries{0};
        m_remote->setLoginExpiredHandler([&expiries] { ++expiries; });
        QPointer<Hlx::CQuotesManagePanel> before =
            qobject_cast<Hlx::CQuotesManagePanel*>(window.openPanel(ConsolePanels::stocks()));
        QVERIFY(before);
        QVERIFY(!before->addButton());
        auto admin = client();
        QVERIFY(admin->login("admin", kAdminPassword.toStdString()).isSuccess());
        const auto stockPanel = [&window] {
            return qobject_cast<Hlx::CQuotesManagePanel*>(window.panel(ConsolePanels::stocks()));
        };
        // Only once the console listens can it hear; a grant may come before that.
        QElapsedTimer clock;
        clock.start();
        bool shown = false;
        while (!shown && clock.elapsed() < 20000) {
            QVERIFY(admin->setRights("viewer", {kRightStocksAdd}).isSuccess());
            shown =
                QTest::qWaitFor([&] { return stockPanel() && stockPanel()->addButton(); }, 1000);
        }
        QVERIFY2(shown, "the granted button did not appear");
        QVERIFY(before.isNull());
        QVERIFY(Hlx::CUserManager::instance()->checkUserAuth(kRightStocksAdd));

        QVERIFY(admin->setRights("viewer", {}).isSuccess());
        QTRY_VERIFY(stockPanel() && !stockPanel()->addButton());
        QVERIFY(!Hlx::CUserManager::instance()->checkUserAuth(kRightStocksAdd));
        QCOMPARE(window.currentUser(), QString("viewer"));
        QVERIFY(m_remote->isLoggedIn());
        QCOMPARE(expiries.load(), 0);
        m_remote->setLoginExpiredHandler({});
    }

    // A stopped server must not hold the console: shutting the client down answers every call
    // still waiting.
    void quitsPromptlyWithCallsInFlight() {
        QVERIFY(m_remote && m_remote->isLoggedIn());
        QVERIFY(m_server.suspend());
        auto* panel = new Hlx::CStockQuotesManagePanel(nullptr);
        panel->refresh();
        panel->refresh();
        QTRY_VERIFY(m_remote->callsInFlight() >= 1);
        QElapsedTimer timer;
        timer.start();
        m_remote->shutdown();
        QVERIFY(Hlx::COrinClientCenter::instance()->waitForIdle(2000));
        QVERIFY2(timer.elapsed() < 2000, qPrintable(QString::number(timer.elapsed())));
        delete panel;
        m_server.resume();
    }
};

QTEST_MAIN(TestConsoleRemote)
#include "tst_console_remote.moc"
