#include <QAction>
#include <QCheckBox>
#include <QComboBox>
#include <QDockWidget>
#include <QSettings>
#include <QTableView>
#include <QtTest>

#include "CConsoleWindow.h"
#include "CPanelCatalogue.h"
#include "CQuotesService.h"
#include "CScreenshotter.h"
#include "ConsolePanels.h"
#include "EmbeddedService.h"
#include "Hlx/COrinClientCenter.h"
#include "Hlx/CSafeLineEdit.h"
#include "Hlx/CUserManager.h"
#include "Hlx/CWholeQuoteSettingDialog.h"
#include "ModalDriver.h"
#include "PanelEvents.h"
#include "ServerMessages.h"
#include "Zu/COddEvenRowTable.h"
#include "Zu/CSmallNormalButton.h"
#include "dialogs/CSetStockQuotesDialog.h"
#include "model/CPlatformTable.h"
#include "panels/CLevel2QuotesManagePanel.h"
#include "panels/CQuotesManagePanel.h"
#include "rkservice/DataTypeIds.h"

using namespace Hlx;

class TestConsole : public QObject {
    Q_OBJECT
private slots:
    void init() {
        m_embedded.reset(new EmbeddedService);
        QVERIFY2(m_embedded->isOpen(), qPrintable(m_embedded->error()));
        m_admin = m_embedded->admin();
    }

    void cleanup() {
        CScreenshotter::waitUntilSettled();
        m_admin.reset();
        m_embedded.reset();
    }

    void firstStartShowsTheDefaultLayout() {
        CConsoleWindow window(m_admin, settingsFile());
        QVERIFY(!window.restoreSettings());
        QVERIFY(showsTheDefaultPanels(window));
        QCOMPARE(window.currentUser(), QString("admin"));
        QCOMPARE(window.currentSystem(), QString("sys1"));
        auto* stocks = qobject_cast<CQuotesManagePanel*>(window.panel(ConsolePanels::stocks()));
        QVERIFY(stocks);
        QCOMPARE(stocks->systemName(), QString("sys1"));
    }

    void opensEveryPanel() {
        CConsoleWindow window(m_admin, settingsFile());
        window.show();
        for (const CPanelEntry& entry : CPanelCatalogue::entries()) {
            IorinDockableWidget* panel = window.openPanel(entry.objectName);
            QVERIFY2(panel, qPrintable(entry.objectName));
            QCOMPARE(panel->objectName(), entry.objectName);
            QVERIFY(panel->isVisible());
            CScreenshotter::waitUntilSettled();
        }
        QCOMPARE(window.openPanels().size(), int(CPanelCatalogue::entries().size()));
        // Opening again raises the same panel.
        IorinDockableWidget* again = window.openPanel(ConsolePanels::stocks());
        QCOMPARE(again, window.panel(ConsolePanels::stocks()));
        QCOMPARE(window.openPanels().size(), int(CPanelCatalogue::entries().size()));
    }

    void stateIsSavedAndRestored() {
        QString savedParam;
        {
            CConsoleWindow window(m_admin, settingsFile());
            window.restoreSettings();
            window.openPanel(ConsolePanels::gold());
            auto* stocks = qobject_cast<CQuotesManagePanel*>(window.panel(ConsolePanels::stocks()));
            stocks->table()->view()->setColumnWidth(2, 231);
            savedParam = stocks->param();
            QVERIFY(!savedParam.isEmpty());
            window.switchSystem("sys2");
            window.saveSettings();
        }
        CConsoleWindow window(m_admin, settingsFile());
        QVERIFY(window.restoreSettings());
        QVERIFY(window.openPanels().contains(ConsolePanels::gold()));
        QCOMPARE(window.currentSystem(), QString("sys2"));
        auto* stocks = qobject_cast<CQuotesManagePanel*>(window.panel(ConsolePanels::stocks()));
        QCOMPARE(stocks->param(), savedParam);
        QCOMPARE(stocks->systemName(), QString("sys2"));
    }

    void damagedSettingsFallBackToTheDefaultLayout() {
        {
            QSettings settings(settingsFile(), QSettings::IniFormat);
            settings.setValue("version", 1);
            settings.setValue("panels", QStringList{"nonsense", ConsolePanels::stocks()});
            settings.setValue("windowState", QByteArray("not a state"));
            settings.setValue("geometry", QByteArray("\x01\x02"));
            settings.setValue("param/stq", "zt1|garbage");
        }
        CConsoleWindow window(m_admin, settingsFile());
        QVERIFY(!window.restoreSettings());
        QVERIFY(showsTheDefaultPanels(window));
    }

    void switchingTheSubsystemBindsEveryPanel() {
        CConsoleWindow window(m_admin, settingsFile());
        window.restoreSettings();
        CScreenshotter::waitUntilSettled();
        window.switchSystem("sys2");
        for (const QString& name : window.openPanels())
            QCOMPARE(window.panel(name)->systemName(), QString("sys2"));
        auto* all = qobject_cast<CQuotesManagePanel*>(window.panel(ConsolePanels::allTypes()));
        QTRY_VERIFY(all->permissionInfo());
        QCOMPARE(all->permissionInfo()->getSystemTag(), std::string("sys2"));
    }

    // A user without the routing flag adds through the client centre: the source goes to the
    // sub-system chosen in the tool bar. The default client and unknown names stay as they were.
    void stockOperatorAddsToTheChosenSubsystem() {
        CConsoleWindow window(m_admin, settingsFile(), QStringLiteral("stock_op"));
        window.restoreSettings();
        QCOMPARE(window.currentUser(), QString("stock_op"));
        QVERIFY(!CUserManager::instance()->getUserInfoPtr()->routesBySystem());
        auto* chooser = window.findChild<QComboBox*>(QStringLiteral("systemChooser"));
        QVERIFY(chooser);
        chooser->setCurrentIndex(chooser->findText(QStringLiteral("深圳备站")));
        QCOMPARE(window.currentSystem(), QString("sys2"));
        auto* stocks = qobject_cast<CQuotesManagePanel*>(window.openPanel(ConsolePanels::stocks()));
        QVERIFY(stocks && stocks->addButton());
        QCOMPARE(stocks->systemName(), QString("sys2"));
        QVERIFY(!stocks->routesBySystem());

        ServerMessages messages;
        ModalDriver::onNext([](QWidget* modal) {
            auto* dialog = qobject_cast<CSetStockQuotesDialog*>(modal);
            QVERIFY(dialog);
            dialog->addressEdit()->setText(QStringLiteral("192.0.2.62"));
            dialog->portEdit()->setText(QStringLiteral("6262"));
            dialog->userEdit()->setText(QStringLiteral("u"));
            dialog->passwordEdit()->setText(QStringLiteral("p"));
            dialog->handleEvent(Zu::EventButtonClicked, CSetStockQuotesDialog::SubmitButton, 0,
                                QString(), nullptr);
        });
        PanelEvents::press(*stocks, CQuotesManagePanel::kBtnAdd);
        QTRY_COMPARE(messages.size(), 1);
        QCOMPARE(messages.last().text, QString("操作成功"));

        rkservice::COrinQueryDataReq query;
        query.dataType = rkservice::kDataQuoteSources;
        std::vector<rkservice::IDataPtr> stored;
        QVERIFY(m_embedded->administrator()
                    .query(CRequestTarget::centre(), query, &stored)
                    .isSuccess());
        std::string storedIn;
        for (const rkservice::IDataPtr& data : stored) {
            auto source = boost::dynamic_pointer_cast<rkservice::COrinQuoterSourceInfo>(data);
            if (source && source->m_strAddress == "192.0.2.62")
                storedIn = source->getSystemTag();
        }
        QCOMPARE(storedIn, std::string("sys2"));

        // The default client is still the first sub-system's; an unknown name is refused.
        COrinClientCenter* centre = COrinClientCenter::instance();
        QCOMPARE(centre->getClientByName(std::string())->name(), std::string("sys1"));
        utils::RKError refused;
        bool answered = false;
        auto add = boost::make_shared<rkservice::COperateDataReq>();
        add->dataType = rkservice::kDataQuoteSources;
        add->operateType = rkservice::kOperateAdd;
        add->datas.push_back(stored.front()->clone());
        centre->getClientByName("sys9")->operateData_async(
            add,
            [&](const utils::RKError& error, bson::BSONObj) {
                refused = error;
                answered = true;
            },
            false);
        centre->waitForIdle();
        QVERIFY(answered);
        QCOMPARE(refused.errorMsg(), std::string("分系统不存在: sys9"));
    }

    void switchingTheUserRebuildsThePanels() {
        CConsoleWindow window(m_admin, settingsFile());
        window.restoreSettings();
        auto* before = qobject_cast<CQuotesManagePanel*>(window.panel(ConsolePanels::stocks()));
        QVERIFY(before->addButton());
        window.switchUser("viewer");
        QCOMPARE(window.currentUser(), QString("viewer"));
        QCOMPARE(QString::fromStdString(CUserManager::instance()->getUserInfoPtr()->m_strName),
                 QString("viewer"));
        auto* after = qobject_cast<CQuotesManagePanel*>(window.panel(ConsolePanels::stocks()));
        QVERIFY(after);
        QVERIFY(!after->addButton());
        QVERIFY(window.openPanels().contains(ConsolePanels::level2()));
        window.switchUser("admin");
    }

    void brandedNamesCanBeChosen() {
        CConsoleWindow window(m_admin, settingsFile());
        window.restoreSettings();
        auto* brand = window.findChild<QAction*>("brandedNames");
        QVERIFY(brand);
        brand->setChecked(false);
        QCOMPARE(getPlatformName(20000), QString("高级行情-期货"));
        brand->setChecked(true);
        QCOMPARE(getPlatformName(20000), QString("Kx高级行情-期货"));
        auto* futures = qobject_cast<CQuotesManagePanel*>(window.panel(ConsolePanels::futures()));
        QVERIFY(futures);
        bool brandedButton = false;
        for (auto* button : futures->findChildren<Zu::CSmallNormalButton*>())
            brandedButton = brandedButton || button->text() == "+添加Kx期货行情源";
        QVERIFY(brandedButton);
        COrinClientCenter::instance()->setLoginTypeAuthOverride(-1);
    }

    void wholeQuoteSettingsSurviveARestartOfTheConsole() {
        {
            CConsoleWindow window(m_admin, settingsFile());
            window.restoreSettings();
            window.switchSystem("sys2");
            auto* all = qobject_cast<CQuotesManagePanel*>(window.panel(ConsolePanels::allTypes()));
            QTRY_VERIFY(all->permissionInfo());
            ModalDriver::onNext([](QWidget* modal) {
                auto* dialog = qobject_cast<CWholeQuoteSettingDialog*>(modal);
                QVERIFY(dialog);
                dialog->marketCheckBox("NEEQ")->setChecked(true);
                dialog->accept();
            });
            ServerMessages messages;
            PanelEvents::press(*all, CQuotesManagePanel::kBtnWholeQuote);
            QTRY_COMPARE(messages.size(), 1);
            QCOMPARE(messages.last().text, QString("保存成功"));
            window.saveSettings();
        }
        m_admin.reset();
        m_embedded->reopen();
        m_admin = m_embedded->admin();
        CConsoleWindow window(m_admin, settingsFile());
        QVERIFY(window.restoreSettings());
        QCOMPARE(window.currentSystem(), QString("sys2"));
        auto* all = qobject_cast<CQuotesManagePanel*>(window.panel(ConsolePanels::allTypes()));
        all->onActive();
        QTRY_VERIFY(all->permissionInfo() &&
                    all->permissionInfo()->m_wholeQuote->isEnabled("NEEQ"));
    }

    void screenshotsOfEveryPanelAndDialog() {
        CConsoleWindow window(m_admin, settingsFile());
        window.restoreSettings();
        const QString shots = m_embedded->path() + "/shots";
        CScreenshotter screenshotter(&window, shots);
        QString error;
        QVERIFY2(screenshotter.run(&error), qPrintable(error));
        for (const CPanelEntry& entry : CPanelCatalogue::entries())
            QVERIFY2(QFile::exists(QDir(shots).filePath(entry.objectName + ".png")),
                     qPrintable(entry.objectName));
        for (const char* name :
             {"console", "stq_dialog_add", "stq_dialog_edit", "allq_dialog_add", "allq_dialog_edit",
              "ftq_dialog_add", "foq_dialog_add", "allq_wholequote", "level2quote_dialog"})
            QVERIFY2(QFile::exists(QDir(shots).filePath(QString(name) + ".png")), name);
        QImage stocks(QDir(shots).filePath("stq.png"));
        QVERIFY(!stocks.isNull());
        QVERIFY(stocks.width() >= 1000);
    }

private:
    static bool showsTheDefaultPanels(const CConsoleWindow& window) {
        QStringList open = window.openPanels();
        QStringList expected = CPanelCatalogue::defaultPanels();
        open.sort();
        expected.sort();
        return open == expected;
    }

    QString settingsFile() const { return m_embedded->path() + "/console.ini"; }

    std::unique_ptr<EmbeddedService> m_embedded;
    boost::shared_ptr<CEmbeddedAdmin> m_admin;
};

QTEST_MAIN(TestConsole)
#include "tst_console.moc"
