// The console kept current: a change made by another process on the same database shows in the
// open panels without a click, with a note naming who made it (none for the console's own); a
// reload waits for a panel's open question, which still deletes the source it asked about; reloads
// of a panel are at least 500 ms apart and never start while its load runs; a change of the
// console user's rights builds the panels anew.

#include <QDockWidget>
#include <QPointer>
#include <QSignalSpy>
#include <QStatusBar>
#include <QtTest>

#include "CAuditDock.h"
#include "CConsoleWindow.h"
#include "CLiveUpdates.h"
#include "CQuotesService.h"
#include "ConsolePanels.h"
#include "EmbeddedService.h"
#include "ModalDriver.h"
#include "PanelEvents.h"
#include "QuotesctlRun.h"
#include "RecordBuilders.h"
#include "TestIds.h"
#include "Zu/COddEvenRowTable.h"
#include "panels/CLevel2QuotesManagePanel.h"
#include "panels/CQuotesManagePanel.h"
#include "rkservice/CGlobalFeaturePermissionInfo.h"
#include "rkservice/DataTypeIds.h"

using namespace Hlx;
using namespace TestIds;

namespace {

bool shows(CQuotesManagePanel* panel, int id) {
    for (int row = 0; row < panel->rowRecordCount(); ++row) {
        const auto record = panel->rowRecord(row);
        if (record && record->m_nId == id)
            return true;
    }
    return false;
}

int rowOf(CQuotesManagePanel* panel, int id) {
    for (int row = 0; row < panel->table()->rowCount(); ++row) {
        const auto record = panel->rowRecord(row);
        if (record && record->m_nId == id)
            return row;
    }
    return -1;
}

}  // namespace

class TestConsoleLive : public QObject {
    Q_OBJECT

    std::unique_ptr<EmbeddedService> m_embedded;

    QString settingsFile() const { return m_embedded->path() + "/console.ini"; }

    // quotesctl on the console's database, as another process.
    QuotesctlRun quotesctl(const QStringList& arguments) {
        return QuotesctlRun::start(
            qEnvironmentVariable("QUOTES_BINARY_DIR") + QStringLiteral("/bin/quotesctl"),
            QStringList{QStringLiteral("--data"), m_embedded->path()} + arguments);
    }

    // A stock source added by quotesctl; its id, 0 when the command failed.
    int addStockSource(int port) {
        const QuotesctlRun run =
            quotesctl({"sources", "add", "--platform", "10000", "--trade-type", "2", "--address",
                       "10.0.0.9", "--port", QString::number(port)});
        if (run.code != 0)
            qWarning("%s", run.err.constData());
        return run.code == 0 ? run.out.trimmed().toInt() : 0;
    }

    // The console on the embedded service, shown with its default panels.
    std::unique_ptr<CConsoleWindow> openConsole(const QString& user = QString()) {
        auto window = std::make_unique<CConsoleWindow>(m_embedded->admin(), settingsFile(), user);
        window->restoreSettings();
        window->show();
        return window;
    }

    static CQuotesManagePanel* loadedStocks(CConsoleWindow& window) {
        auto* stocks = qobject_cast<CQuotesManagePanel*>(window.panel(ConsolePanels::stocks()));
        if (stocks && !QTest::qWaitFor([stocks] { return !stocks->isLoading(); }))
            return nullptr;
        return stocks;
    }

    static QStringList notes(const QSignalSpy& messages) {
        QStringList found;
        for (const QList<QVariant>& message : messages) {
            if (message.at(0).toString().startsWith(QStringLiteral("数据已由")))
                found << message.at(0).toString();
        }
        return found;
    }

private slots:
    void init() {
        m_embedded.reset(new EmbeddedService);
        QVERIFY2(m_embedded->isOpen(), qPrintable(m_embedded->error()));
    }

    void cleanup() { m_embedded.reset(); }

    void changeByAnotherProcessShowsWithoutAClick() {
        const auto console = openConsole();
        CConsoleWindow& window = *console;
        CQuotesManagePanel* stocks = loadedStocks(window);
        QVERIFY(stocks);
        QSignalSpy messages(window.statusBar(), &QStatusBar::messageChanged);
        const int id = addStockSource(9401);
        QVERIFY(id > 0);
        QTRY_VERIFY(shows(stocks, id));
        QTRY_COMPARE(notes(messages),
                     QStringList{QStringLiteral("数据已由 %1 更新")
                                     .arg(QString::fromStdString(CCaller::operatingSystemUser()))});
    }

    void ownChangesAreNotNoted() {
        const auto console = openConsole();
        CConsoleWindow& window = *console;
        CQuotesManagePanel* stocks = loadedStocks(window);
        QVERIFY(stocks);
        QSignalSpy messages(window.statusBar(), &QStatusBar::messageChanged);
        rkservice::COperateDataReq request;
        request.dataType = rkservice::kDataQuoteSources;
        request.operateType = rkservice::kOperateAdd;
        request.datas.push_back(RecordBuilders::source(0, kKxStocks, kStocks, "10.0.0.8", 9402));
        QVERIFY(
            m_embedded->admin()->operate(CRequestTarget::centre(), request, nullptr).isSuccess());
        // Changes are announced in order: once the later one is noted, the own one was heard.
        const int theirs = addStockSource(9403);
        QTRY_VERIFY(shows(stocks, theirs));
        QTRY_COMPARE(notes(messages).size(), 1);
        QCOMPARE(stocks->rowRecordCount() >= 2, true);
    }

    void aPendingDeleteQuestionKeepsItsSource() {
        const int asked = addStockSource(9404);
        QVERIFY(asked > 0);
        const auto console = openConsole();
        CConsoleWindow& window = *console;
        CQuotesManagePanel* stocks = loadedStocks(window);
        QVERIFY(stocks);
        const int row = rowOf(stocks, asked);
        QVERIFY(row >= 0);
        stocks->table()->selectRow(row);
        int added = 0;
        bool deferred = false;
        bool unchanged = false;
        ModalDriver::onNext([&](QWidget* modal) {
            auto* box = qobject_cast<QMessageBox*>(modal);
            QVERIFY(box);
            added = addStockSource(9405);
            // Heard while the question is open: the reload waits for it.
            deferred = QTest::qWaitFor([&] { return window.liveUpdates()->isPending(); });
            unchanged = !shows(stocks, added) && rowOf(stocks, asked) == row;
            box->button(QMessageBox::Ok)->click();
        });
        QVERIFY(PanelEvents::pressDeleteInRow(*stocks, row));
        QVERIFY(added > 0);
        QVERIFY(deferred);
        QVERIFY(unchanged);
        // The question's source is the one deleted; the new one stays and shows.
        QTRY_VERIFY(shows(stocks, added));
        QTRY_VERIFY(!shows(stocks, asked));
        const QuotesctlRun listed = quotesctl({"sources", "list"});
        QVERIFY(listed.out.contains("9405"));
        QVERIFY(!listed.out.contains("9404"));
    }

    void reloadsAreSpacedAndNeverDuringALoad() {
        const auto console = openConsole();
        CConsoleWindow& window = *console;
        CQuotesManagePanel* stocks = loadedStocks(window);
        QVERIFY(stocks);
        QElapsedTimer clock;
        clock.start();
        QList<qint64> starts;
        bool duringLoad = false;
        connect(window.liveUpdates(), &CLiveUpdates::reloading, this, [&](const QString& name) {
            if (name != ConsolePanels::stocks())
                return;
            starts << clock.elapsed();
            duringLoad = duringLoad || stocks->isLoading();
        });
        int last = 0;
        for (int port = 9410; port < 9415; ++port)
            last = addStockSource(port);
        QTRY_VERIFY(shows(stocks, last));
        QVERIFY(!starts.isEmpty());
        QVERIFY(!duringLoad);
        for (int i = 1; i < starts.size(); ++i)
            QVERIFY2(starts[i] - starts[i - 1] >= CLiveUpdates::kMinReloadMs,
                     qPrintable(QStringLiteral("%1 ms apart").arg(starts[i] - starts[i - 1])));
    }

    void shownAuditTrailFollows() {
        const auto console = openConsole();
        CConsoleWindow& window = *console;
        CAuditDock* audit = window.openAuditTrail();
        QVERIFY(audit);
        QTRY_VERIFY(!audit->isLoading());
        const int before = audit->table()->rowCount();
        QVERIFY(addStockSource(9420) > 0);
        QTRY_COMPARE(audit->table()->rowCount(), before + 1);
    }

    // Whole-quote settings are read again by the all-types panel alone (its onActive()).
    void wholeQuoteSettingsAreReadByTheAllTypesPanel() {
        const auto console = openConsole();
        CConsoleWindow& window = *console;
        QVERIFY(loadedStocks(window));
        QSignalSpy reloads(window.liveUpdates(), &CLiveUpdates::reloading);
        auto permission = boost::make_shared<rkservice::CGlobalFeaturePermissionInfo>();
        permission->m_wholeQuote = boost::make_shared<rkservice::CWholeQuotedivision>();
        permission->m_wholeQuote->setEnabled("SH", true);
        permission->setRevision(1);  // never saved before
        rkservice::COperateDataReq request;
        request.dataType = rkservice::kDataGlobalPermission;
        request.operateType = rkservice::kOperateSaveWholeQuote;
        request.datas = {permission};
        QVERIFY(m_embedded->administrator()
                    .operate(CRequestTarget::subsystem("sys1"), request, nullptr)
                    .isSuccess());
        QTRY_VERIFY(!reloads.isEmpty() &&
                    reloads.last().at(0).toString() == ConsolePanels::allTypes());
        QTRY_VERIFY(!window.liveUpdates()->isPending());
        for (const QList<QVariant>& reload : reloads)
            QVERIFY2(reload.at(0).toString() == ConsolePanels::allTypes(),
                     qPrintable(reload.at(0).toString()));
    }

    void level2PanelFollowsEvenWhenHidden() {
        const auto console = openConsole();
        CConsoleWindow& window = *console;
        auto* level2 =
            qobject_cast<CLevel2QuotesManagePanel*>(window.openPanel(ConsolePanels::level2()));
        QVERIFY(level2);
        QTRY_COMPARE(level2->table()->rowCount(), 0);
        window.findChild<QDockWidget*>(QStringLiteral("dock_") + ConsolePanels::level2())->hide();
        QVERIFY(!level2->isVisible());
        QCOMPARE(quotesctl({"token", "set", "LiveToken77"}).code, 0);
        QTRY_COMPARE(level2->table()->rowCount(), 1);
    }

    void rightsOfTheConsoleUserRebuildThePanels() {
        const auto console = openConsole(QStringLiteral("viewer"));
        CConsoleWindow& window = *console;
        QCOMPARE(window.currentUser(), QStringLiteral("viewer"));
        QPointer<QWidget> before = window.panel(ConsolePanels::stocks());
        QVERIFY(before);
        QCOMPARE(quotesctl({"accounts", "rights", "viewer", "--rights", "10385"}).code, 0);
        QTRY_VERIFY(before.isNull());
        QVERIFY(window.panel(ConsolePanels::stocks()));
        QCOMPARE(window.currentUser(), QStringLiteral("viewer"));
    }
};

QTEST_MAIN(TestConsoleLive)
#include "tst_console_live.moc"
