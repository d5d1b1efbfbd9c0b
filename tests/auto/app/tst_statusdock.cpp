// The dock 行情源状态: every source of the sub-system with the state of its address, the connect
// time and since when (probed against loopback listeners this test opens; documentation
// addresses are never contacted); the filter for 不可达/超时; the chart of the selected
// address's connect time; and, in the console, a reload on each probe event.

#include <QAction>
#include <QCheckBox>
#include <QComboBox>
#include <QHeaderView>
#include <QLabel>
#include <QTableView>
#include <QTemporaryDir>
#include <QThreadPool>
#include <QtTest>

#include "CCaller.h"
#include "CConsoleProber.h"
#include "CConsoleWindow.h"
#include "CProbeAllowList.h"
#include "CQuotesService.h"
#include "CSourceProber.h"
#include "CStatusChart.h"
#include "CStatusDock.h"
#include "CStatusModel.h"
#include "CTcpProber.h"
#include "EmbeddedService.h"
#include "LoopbackListeners.h"
#include "SourceAdds.h"
#include "rkservice/DataTypeIds.h"

namespace {

Hlx::CProbeResult scripted(const char* address, int port, const char* state, long long connectUs,
                           std::vector<int> sources) {
    Hlx::CProbeResult result;
    result.address = address;
    result.port = port;
    result.state = state;
    result.connectUs = connectUs;
    result.sinceMs = 1700000000000LL;
    result.sourceIds = std::move(sources);
    return result;
}

QString cell(const CStatusModel& model, int row, int column) {
    return model.index(row, column).data().toString();
}

// The shown row of the port; -1 when none.
int rowOfPort(const CStatusModel& model, int port) {
    for (int row = 0; row < model.rowCount(); ++row) {
        if (cell(model, row, CStatusModel::kColPort) == QString::number(port))
            return row;
    }
    return -1;
}

}  // namespace

class TestStatusDock : public QObject {
    Q_OBJECT

    std::unique_ptr<EmbeddedService> m_embedded;
    LoopbackListeners m_listeners;
    QTemporaryDir m_dir;

    void add(const char* address, int port) {
        QVERIFY(addStockSource(m_embedded->administrator(), address, port).isSuccess());
    }

    void probeAll(const char* session) {
        std::vector<Hlx::CProbeResult> results;
        QVERIFY(m_embedded->service()
                    ->probeSources(CCaller::owner().inSession(session), {}, true, &results)
                    .isSuccess());
    }

    CTcpProber& tcp() { return m_embedded->service()->prober().tcp(); }

private slots:
    void init() {
        m_embedded.reset(new EmbeddedService);
        QVERIFY2(m_embedded->isOpen(), qPrintable(m_embedded->error()));
        QVERIFY(m_embedded->loginAs("admin"));
        // Only the listeners this test opens may be contacted.
        tcp().setAllowList(CProbeAllowList::only({QStringLiteral("127.0.0.1")}));
    }

    void cleanup() {
        QThreadPool::globalInstance()->waitForDone();
        QCoreApplication::processEvents();
        m_embedded.reset();
    }

    void listsEverySourceWithStateConnectTimeAndSince() {
        const int open = m_listeners.open();
        const int closed = m_listeners.closed();
        add("127.0.0.1", open);
        add("127.0.0.1", closed);
        add("192.0.2.11", 9999);
        probeAll("a");
        CStatusDock dock(m_embedded->admin());
        dock.setSubsystem(QStringLiteral("sys1"));
        dock.show();
        QTRY_COMPARE(dock.readsAnswered(), 1);
        const CStatusModel& model = *dock.model();
        QCOMPARE(model.rowCount(), 3);
        const int reachable = rowOfPort(model, open);
        QCOMPARE(cell(model, reachable, CStatusModel::kColState), QStringLiteral("可达"));
        QVERIFY(cell(model, reachable, CStatusModel::kColConnect).endsWith(QStringLiteral(" ms")));
        QVERIFY(!cell(model, reachable, CStatusModel::kColSince).isEmpty());
        const int refused = rowOfPort(model, closed);
        QCOMPARE(cell(model, refused, CStatusModel::kColState), QStringLiteral("拒绝连接"));
        QVERIFY(cell(model, refused, CStatusModel::kColConnect).isEmpty());
        const int documentation = rowOfPort(model, 9999);
        QCOMPARE(cell(model, documentation, CStatusModel::kColState), QStringLiteral("未探测"));
        // Why it was not probed, on the row; and no connect went there.
        QVERIFY(!model.index(documentation, CStatusModel::kColState)
                     .data(Qt::ToolTipRole)
                     .toString()
                     .isEmpty());
        QCOMPARE(tcp().connectsTo(QStringLiteral("192.0.2.11")), 0LL);
        QCOMPARE(dock.note()->text(), QStringLiteral("共 3 行"));
    }

    void listsOnlyTheSubsystemsSources() {
        add("192.0.2.11", 9999);
        CStatusDock dock(m_embedded->admin());
        dock.setSubsystem(QStringLiteral("no-such-subsystem"));
        dock.show();
        QTRY_COMPARE(dock.readsAnswered(), 1);
        QCOMPARE(dock.model()->rowCount(), 0);
        dock.setSubsystem(QStringLiteral("sys1"));
        QTRY_COMPARE(dock.readsAnswered(), 2);
        QCOMPARE(dock.model()->rowCount(), 1);
    }

    void filterShowsOnlyUnreachableAndTimedOut() {
        CStatusDock dock(m_embedded->admin());
        dock.showResults({scripted("10.1.0.1", 9001, "reachable", 1200, {1}),
                          scripted("10.1.0.2", 9002, "refused", 0, {2}),
                          scripted("10.1.0.3", 9003, "timeout", 0, {3}),
                          scripted("10.1.0.4", 9004, "unreachable", 0, {4}),
                          scripted("192.0.2.5", 9005, "not_probed", 0, {5})});
        QCOMPARE(dock.model()->rowCount(), 5);
        QCOMPARE(dock.failingOnly()->text(), QStringLiteral("只看不可达/超时"));
        dock.failingOnly()->setChecked(true);
        const CStatusModel& model = *dock.model();
        QCOMPARE(model.rowCount(), 2);
        QCOMPARE(cell(model, 0, CStatusModel::kColState), QStringLiteral("超时"));
        QCOMPARE(cell(model, 1, CStatusModel::kColState), QStringLiteral("不可达"));
        dock.failingOnly()->setChecked(false);
        QCOMPARE(model.rowCount(), 5);
    }

    void aSharedAddressShowsOnEverySourceRow() {
        CStatusDock dock(m_embedded->admin());
        dock.showResults({scripted("10.1.0.1", 9001, "timeout", 0, {7, 3})});
        const CStatusModel& model = *dock.model();
        QCOMPARE(model.rowCount(), 2);
        QCOMPARE(cell(model, 0, CStatusModel::kColSource), QStringLiteral("3"));
        QCOMPARE(cell(model, 1, CStatusModel::kColSource), QStringLiteral("7"));
    }

    void chartDrawsTheSelectedAddressesConnectTimes() {
        const int open = m_listeners.open();
        add("127.0.0.1", open);
        probeAll("a");
        probeAll("b");
        CStatusDock dock(m_embedded->admin());
        dock.setSubsystem(QStringLiteral("sys1"));
        dock.show();
        QTRY_COMPARE(dock.readsAnswered(), 1);
        QCOMPARE(dock.chart()->pointCount(), 0);
        QVERIFY(!dock.chart()->axisEnabled(QwtPlot::xBottom));
        QVERIFY(dock.selectEndpoint("127.0.0.1", open));
        QTRY_COMPARE(dock.chart()->pointCount(), 2);
        QCOMPARE(dock.chart()->title().text(), QStringLiteral("127.0.0.1:%1").arg(open));
        QVERIFY(dock.chart()->axisEnabled(QwtPlot::xBottom));
        QCOMPARE(dock.span()->currentText(), QStringLiteral("最近一小时"));
        dock.span()->setCurrentIndex(1);
        QCOMPARE(dock.spanMs(), CStatusDock::kDayMs);
        QTRY_COMPARE(dock.chart()->pointCount(), 2);
    }

    void chartBreaksAndMarksWhereTheAddressWasDown() {
        CStatusDock dock(m_embedded->admin());
        dock.showResults({scripted("10.1.0.1", 9001, "reachable", 1200, {1})});
        QVERIFY(dock.selectEndpoint("10.1.0.1", 9001));
        Hlx::CProbeSample up;
        up.state = "reachable";
        up.connectUs = 1500;
        Hlx::CProbeSample down;
        down.state = "timeout";
        std::vector<Hlx::CProbeSample> samples;
        for (int i = 0; i < 4; ++i) {
            Hlx::CProbeSample sample = i == 2 ? down : up;
            sample.timeMs = 1700000000000LL + i * 60000;
            samples.push_back(sample);
        }
        dock.showHistory(samples, 1700000000000LL + 3600000);
        QCOMPARE(dock.chart()->pointCount(), 3);
        // The timeout breaks the line in two and is marked on its own.
        QCOMPARE(dock.chart()->lineCount(), 2);
        QCOMPARE(dock.chart()->failureCount(), 1);
    }

    // Under the panels the dock is wide and low: the chart goes beside the table; floating tall,
    // below it. Either way the table shows several rows whole.
    void layoutFollowsTheDocksShape() {
        CStatusDock dock(m_embedded->admin());
        dock.resize(1200, 300);
        dock.show();
        QTRY_COMPARE(dock.layoutOrientation(), Qt::Horizontal);
        dock.resize(700, 700);
        QTRY_COMPARE(dock.layoutOrientation(), Qt::Vertical);
        const int rowHeight = dock.table()->verticalHeader()->defaultSectionSize();
        QVERIFY(dock.table()->minimumHeight() >= CStatusDock::kShownRows * rowHeight);
    }

    void theConsoleOffersItUnderShowAndReloadsOnProbeEvents() {
        const int open = m_listeners.open();
        add("127.0.0.1", open);
        CConsoleWindow window(m_embedded->admin(), m_dir.filePath(QStringLiteral("console.ini")));
        window.switchSystem(QStringLiteral("sys1"));
        QAction* action = window.findChild<QAction*>(QStringLiteral("open_sourceStatus"));
        QVERIFY(action);
        QCOMPARE(action->text(), QStringLiteral("行情源状态"));
        window.show();
        action->trigger();
        CStatusDock* dock = window.sourceStatus();
        QTRY_VERIFY(dock->isVisible());
        QTRY_COMPARE(dock->model()->rowCount(), 1);
        QTRY_VERIFY(!dock->isLoading());
        QCOMPARE(cell(*dock->model(), 0, CStatusModel::kColState), QStringLiteral("未探测"));
        // A probe's finding reaches the dock through the change feed alone.
        probeAll("a");
        QTRY_COMPARE(cell(*dock->model(), 0, CStatusModel::kColState), QStringLiteral("可达"));
        m_listeners.shut(open);
        probeAll("b");
        QTRY_COMPARE(cell(*dock->model(), 0, CStatusModel::kColState), QStringLiteral("拒绝连接"));
    }

    void theEmbeddedConsoleProbesWhileTheDockIsOpen() {
        const int open = m_listeners.open();
        add("127.0.0.1", open);
        CConsoleProber prober(m_embedded->service(), std::chrono::milliseconds(200));
        {
            CConsoleWindow window(m_embedded->admin(),
                                  m_dir.filePath(QStringLiteral("console.ini")));
            window.switchSystem(QStringLiteral("sys1"));
            window.runWhileStatusOpen(&prober);
            window.show();
            QVERIFY(!prober.isRunning());
            CStatusDock* dock = window.openSourceStatus();
            QTRY_VERIFY(prober.isRunning());
            // Found by the console's own rounds, nobody asking for a probe.
            QTRY_COMPARE(cell(*dock->model(), 0, CStatusModel::kColState), QStringLiteral("可达"));
            QVERIFY(prober.rounds() >= 1);
            dock->close();
            QTRY_VERIFY(!prober.isRunning());
            window.openSourceStatus();
            QTRY_VERIFY(prober.isRunning());
        }
        // The window went with the dock open: the prober runs on until its owner stops it.
        prober.setRunning(false);
        QVERIFY(!prober.isRunning());
    }
};

QTEST_MAIN(TestStatusDock)
#include "tst_statusdock.moc"
