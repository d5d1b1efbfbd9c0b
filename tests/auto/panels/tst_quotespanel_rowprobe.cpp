// The row context menu's 测试连接 and 查看历史 on the embedded service: 测试连接 probes where the
// row's source connects, on a worker, and shows each address's state and error (loopback
// listeners this test opens; a documentation address is never contacted); 查看历史 opens the
// source's history.

#include <QApplication>
#include <QElapsedTimer>
#include <QMenu>
#include <QMessageBox>
#include <QTableWidget>
#include <QThreadPool>
#include <QtTest>

#include "CProbeAllowList.h"
#include "CQuotesService.h"
#include "CSourceProber.h"
#include "CTcpProber.h"
#include "EmbeddedService.h"
#include "LoopbackListeners.h"
#include "SourceAdds.h"
#include "Zu/COddEvenRowTable.h"
#include "dialogs/CSourceHistoryDialog.h"
#include "panels/CConnectionTest.h"
#include "panels/QuotesManagePanel.h"
#include "rkservice/DataTypeIds.h"

using namespace Hlx;
using Panel = CQuotesManagePanel;

class TestQuotesPanelRowProbe : public QObject {
    Q_OBJECT

    std::unique_ptr<EmbeddedService> m_embedded;
    LoopbackListeners m_listeners;

    void add(const char* address, int port) {
        QVERIFY(addStockSource(m_embedded->administrator(), address, port).isSuccess());
    }

    static void waitUntilIdle() {
        for (int i = 0; i < 4; ++i) {
            COrinClientCenter::instance()->waitForIdle();
            QCoreApplication::processEvents();
        }
    }

    std::unique_ptr<Panel> loadedPanel(int rows) {
        std::unique_ptr<Panel> panel(new CStockQuotesManagePanel(nullptr));
        panel->switchSystem(0, "sys1");
        waitUntilIdle();
        [&] { QTRY_COMPARE(panel->table()->rowCount(), rows); }();
        return panel;
    }

    static int rowOf(Panel& panel, int port) {
        for (int row = 0; row < panel.table()->rowCount(); ++row) {
            if (panel.table()->itemText(row, Panel::kColPort) == QString::number(port))
                return row;
        }
        return -1;
    }

    static QAction* entry(QMenu* menu, const char* name) {
        return menu->findChild<QAction*>(QString::fromLatin1(name));
    }

    // Triggers 测试连接 on the row with the port and answers the box's text.
    static QString testConnection(Panel& panel, int port) {
        std::unique_ptr<QMenu> menu(
            panel.table()->createContextMenu(rowOf(panel, port), Panel::kColPort, nullptr));
        QAction* test = entry(menu.get(), "testConnection");
        if (!test || test->text() != QStringLiteral("测试连接"))
            return QStringLiteral("no 测试连接 entry");
        test->trigger();
        QMessageBox* box = nullptr;
        const bool shown = QTest::qWaitFor([&] {
            box = panel.findChild<QMessageBox*>(QString::fromLatin1(CConnectionTest::kBoxName));
            return box != nullptr;
        });
        if (!shown)
            return QStringLiteral("no box");
        const QString text = box->text();
        delete box;
        return text;
    }

private slots:
    void init() {
        m_embedded.reset(new EmbeddedService);
        QVERIFY2(m_embedded->isOpen(), qPrintable(m_embedded->error()));
        QVERIFY(m_embedded->loginAs("admin"));
        // Only the listeners this test opens may be contacted.
        m_embedded->service()->prober().tcp().setAllowList(
            CProbeAllowList::parse(QStringLiteral("127.0.0.1/32")));
    }

    void cleanup() {
        QThreadPool::globalInstance()->waitForDone();
        QCoreApplication::processEvents();
        m_embedded.reset();
    }

    void testConnectionShowsEachStateWithItsError() {
        const int open = m_listeners.open();
        const int closed = m_listeners.closed();
        add("127.0.0.1", open);
        add("127.0.0.1", closed);
        add("192.0.2.11", 9999);
        auto panel = loadedPanel(3);
        const QString reachable = testConnection(*panel, open);
        QVERIFY2(reachable.startsWith(QStringLiteral("127.0.0.1:%1 可达，连接 ").arg(open)),
                 qPrintable(reachable));
        const QString refused = testConnection(*panel, closed);
        QCOMPARE(refused, QStringLiteral("127.0.0.1:%1 拒绝连接").arg(closed));
        const QString documentation = testConnection(*panel, 9999);
        QVERIFY2(documentation.startsWith(QStringLiteral("192.0.2.11:9999 未探测（")),
                 qPrintable(documentation));
        // The documentation address was answered without a connect.
        CTcpProber& tcp = m_embedded->service()->prober().tcp();
        QCOMPARE(tcp.connectsTo(QStringLiteral("192.0.2.11")), 0LL);
        QCOMPARE(tcp.connectsStarted(), 2LL);
    }

    void testConnectionProbesOffTheUserInterfaceThread() {
        // A listener whose backlog is full: its connect waits for the prober's timeout, which
        // the user-interface thread must not.
        CTcpProber& tcp = m_embedded->service()->prober().tcp();
        CTcpProber::Options options = tcp.options();
        options.timeoutMs = 1500;
        tcp.setOptions(options);
        const int full = m_listeners.full();
        add("127.0.0.1", full);
        auto panel = loadedPanel(1);
        std::unique_ptr<QMenu> menu(panel->table()->createContextMenu(0, Panel::kColPort, nullptr));
        QElapsedTimer clock;
        clock.start();
        QAction* test = entry(menu.get(), "testConnection");
        QVERIFY(test);
        test->trigger();
        QVERIFY2(clock.elapsed() < 1000, "测试连接 waited for the probe");
        QTRY_VERIFY(panel->findChild<QMessageBox*>(QString::fromLatin1(CConnectionTest::kBoxName)));
        QVERIFY(panel->findChild<QMessageBox*>()->text().contains(QStringLiteral("超时")));
    }

    void testConnectionAnswerAfterThePanelWentIsDropped() {
        const int open = m_listeners.open();
        add("127.0.0.1", open);
        auto panel = loadedPanel(1);
        std::unique_ptr<QMenu> menu(panel->table()->createContextMenu(0, Panel::kColPort, nullptr));
        QAction* test = entry(menu.get(), "testConnection");
        QVERIFY(test);
        test->trigger();
        menu.reset();
        panel.reset();
        QThreadPool::globalInstance()->waitForDone();
        QCoreApplication::processEvents();
        for (QWidget* widget : QApplication::topLevelWidgets())
            QVERIFY(widget->objectName() != QString::fromLatin1(CConnectionTest::kBoxName));
    }

    void viewHistoryOpensTheRowsSourceHistory() {
        add("192.0.2.1", 9000);
        add("192.0.2.2", 9001);
        auto panel = loadedPanel(2);
        const int row = rowOf(*panel, 9001);
        const int id = panel->rowRecord(row)->m_nId;
        std::unique_ptr<QMenu> menu(
            panel->table()->createContextMenu(row, Panel::kColPort, nullptr));
        QAction* history = entry(menu.get(), "viewHistory");
        QVERIFY(history);
        QCOMPARE(history->text(), QStringLiteral("查看历史"));
        QVERIFY(history->isEnabled());
        history->trigger();
        CSourceHistoryDialog* dialog = nullptr;
        QTRY_VERIFY((dialog = panel->findChild<CSourceHistoryDialog*>()) != nullptr);
        QTRY_VERIFY(!dialog->isLoading());
        QCOMPARE(dialog->history().sourceId, id);
        QCOMPARE(dialog->entryTable()->rowCount(), 1);
        dialog->close();
    }
};

QTEST_MAIN(TestQuotesPanelRowProbe)
#include "tst_quotespanel_rowprobe.moc"
