#include <QClipboard>
#include <QInputDialog>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QSignalSpy>
#include <QTableView>
#include <QtTest>

#include "Hlx/COrinClientCenter.h"
#include "Hlx/CSafeLineEdit.h"
#include "ModalDriver.h"
#include "PanelEvents.h"
#include "RecordBuilders.h"
#include "ScriptedBackend.h"
#include "TestIds.h"
#include "TestUsers.h"
#include "Zu/CBaseTableColumnMultiButtonsDelegate.h"
#include "Zu/COddEvenRowTable.h"
#include "Zu/CSmallNormalButton.h"
#include "dialogs/CSetStockQuotesDialog.h"
#include "model/CPlatformTable.h"
#include "panels/CFindBar.h"
#include "panels/QuotesManagePanel.h"

using namespace Hlx;
using namespace RecordBuilders;
using namespace TestIds;
using Panel = CQuotesManagePanel;

namespace {

rkservice::COrinQuoterSourceInfoPtr sentSource(const ScriptedBackend::Request& request) {
    return boost::dynamic_pointer_cast<rkservice::COrinQuoterSourceInfo>(request.datas.at(0));
}

// The id of the source a view row shows.
int idShownAt(Panel& panel, int viewRow) {
    const auto record = panel.rowRecord(panel.table()->storedRowOf(viewRow));
    return record ? record->m_nId : -1;
}

}  // namespace

class TestQuotesPanelFind : public QObject {
    Q_OBJECT

    // A stock panel with its rows loaded and arranged.
    std::unique_ptr<Panel> loadedPanel() {
        std::unique_ptr<Panel> panel(createQuotesPanel(kStocks, nullptr));
        panel->resize(900, 500);
        panel->refresh();
        waitForRows(*panel, 4);
        return panel;
    }

    static void waitForRows(Panel& panel, int rows) {
        QTRY_COMPARE(panel.table()->rowCount(), rows);
        QTRY_VERIFY(!panel.isLoading());
        panel.table()->finishArranging();
    }

    static void find(Panel& panel, const QString& text) {
        panel.openFind();
        panel.findBar()->edit()->setText(text);
        panel.table()->finishArranging();
    }

    // The changes sent since the requests were last cleared.
    std::vector<ScriptedBackend::Request> changes() const {
        std::vector<ScriptedBackend::Request> sent;
        for (const auto& request : m_backend->requestsOf(kDataQuoteSources)) {
            if (!request.isQuery)
                sent.push_back(request);
        }
        return sent;
    }

    int queryCount() const {
        int count = 0;
        for (const auto& request : m_backend->requestsOf(kDataQuoteSources))
            count += request.isQuery ? 1 : 0;
        return count;
    }

private slots:
    void init() {
        m_backend = ScriptedBackend::install();
        TestUsers::setCurrent(TestUsers::allRights());
        // Ports and addresses whose text order differs from their value order.
        m_backend->setQueryAnswer(kDataQuoteSources,
                                  {source(21, kKxStocks, kStocks, "10.0.0.9", 8000),
                                   source(22, kKxStocks, kStocks, "10.0.0.10", 900),
                                   source(23, kKxStocks, kStocks, "192.0.2.7", 10000),
                                   source(24, kKxStocks, kStocks, "192.0.2.77", 443)});
    }
    void cleanup() {
        m_backend->setHolding(false);
        m_backend->releaseAll();
        m_backend->settle();
    }

    void findBarIsHiddenUntilCtrlFAndEscHidesItAgain() {
        auto panel = loadedPanel();
        panel->show();
        QApplication::setActiveWindow(panel.get());
        QVERIFY(QTest::qWaitForWindowActive(panel.get()));
        QVERIFY(!panel->findBar()->isVisible());
        panel->table()->view()->setFocus();
        QTest::keyClick(panel->table()->view(), Qt::Key_F, Qt::ControlModifier);
        QVERIFY(panel->findBar()->isVisible());
        QTRY_COMPARE(QApplication::focusWidget(), panel->findBar()->edit());
        QTest::keyClicks(panel->findBar()->edit(), QStringLiteral("192.0.2."));
        panel->table()->finishArranging();
        QCOMPARE(panel->table()->shownRowCount(), 2);
        QTest::keyClick(panel->findBar()->edit(), Qt::Key_Escape);
        QVERIFY(!panel->findBar()->isVisible());
        panel->table()->finishArranging();
        QCOMPARE(panel->table()->shownRowCount(), 4);
    }

    void findFiltersAnyShownColumnAndCountsMatches_data() {
        QTest::addColumn<QString>("text");
        QTest::addColumn<int>("shown");
        QTest::newRow("address prefix") << "192.0.2." << 2;
        QTest::newRow("port") << "443" << 1;
        QTest::newRow("user, any case") << "USER22" << 1;
        QTest::newRow("chinese platform name") << getPlatformName(kKxStocks).right(2) << 4;
        QTest::newRow("hidden password is not searched") << "pw21" << 0;
        QTest::newRow("nothing") << "no such text" << 0;
    }

    void findFiltersAnyShownColumnAndCountsMatches() {
        QFETCH(QString, text);
        QFETCH(int, shown);
        auto panel = loadedPanel();
        find(*panel, text);
        QCOMPARE(panel->table()->shownRowCount(), shown);
        QCOMPARE(panel->findBar()->matchesText(), QStringLiteral("匹配 %1 / 4").arg(shown));
        // The total line counts what the service answered, whatever is shown.
        QCOMPARE(panel->table()->totalText(), QStringLiteral("共 4 条"));
    }

    void findKeepsFilteringAcrossReloads() {
        auto panel = loadedPanel();
        find(*panel, QStringLiteral("192.0.2."));
        QCOMPARE(panel->table()->shownRowCount(), 2);
        m_backend->setQueryAnswer(kDataQuoteSources,
                                  {source(21, kKxStocks, kStocks, "10.0.0.9", 8000),
                                   source(23, kKxStocks, kStocks, "192.0.2.7", 10000),
                                   source(25, kKxStocks, kStocks, "192.0.2.99", 10001)});
        QVERIFY(PanelEvents::press(*panel, Panel::kBtnRefresh));
        waitForRows(*panel, 3);
        QTRY_COMPARE(panel->findBar()->matchesText(), QStringLiteral("匹配 2 / 3"));
        QCOMPARE(panel->table()->shownRowCount(), 2);
        QCOMPARE(panel->findBar()->text(), QStringLiteral("192.0.2."));
    }

    void deleteAllIsDisabledWhileAFindHidesRows() {
        auto panel = loadedPanel();
        Zu::CSmallNormalButton* deleteAll = panel->deleteAllButton();
        QVERIFY(deleteAll->isEnabled());
        find(*panel, QStringLiteral("192.0.2."));
        QVERIFY(!deleteAll->isEnabled());
        QCOMPARE(deleteAll->toolTip(), QStringLiteral("清除筛选后可全部删除"));
        // Even delivered, it deletes nothing while rows are hidden.
        m_backend->clearRequests();
        PanelEvents::press(*panel, Panel::kBtnDeleteAll);
        m_backend->settle();
        QVERIFY(changes().empty());
        find(*panel, QString());
        QVERIFY(deleteAll->isEnabled());
        QVERIFY(deleteAll->toolTip().isEmpty());
        // With the find cleared, every row of the panel goes.
        ModalDriver::answerNextBox(QMessageBox::Yes);
        PanelEvents::press(*panel, Panel::kBtnDeleteAll);
        QTRY_COMPARE(changes().size(), size_t(1));
        QCOMPARE(changes().front().datas.size(), size_t(4));
    }

    void headersSortPortsAsNumbersAndAddressesByValue() {
        auto panel = loadedPanel();
        Zu::COddEvenRowTable* table = panel->table();
        table->sortByColumnId(Panel::kColPort, Qt::AscendingOrder);
        table->finishArranging();
        QCOMPARE(idShownAt(*panel, 0), 24);  // 443
        QCOMPARE(idShownAt(*panel, 1), 22);  // 900
        QCOMPARE(idShownAt(*panel, 2), 21);  // 8000
        QCOMPARE(idShownAt(*panel, 3), 23);  // 10000
        table->sortByColumnId(Panel::kColAddress, Qt::DescendingOrder);
        table->finishArranging();
        QCOMPARE(idShownAt(*panel, 0), 24);  // 192.0.2.77
        QCOMPARE(idShownAt(*panel, 1), 23);  // 192.0.2.7
        QCOMPARE(idShownAt(*panel, 2), 22);  // 10.0.0.10
        QCOMPARE(idShownAt(*panel, 3), 21);  // 10.0.0.9
    }

    void clickingAHeaderSorts() {
        auto panel = loadedPanel();
        panel->show();
        QTableView* view = panel->table()->view();
        QAbstractItemModel* model = view->model();
        int portColumn = -1;
        for (int c = 0; c < model->columnCount(); ++c)
            portColumn =
                model->headerData(c, Qt::Horizontal) == QStringLiteral("端口") ? c : portColumn;
        QHeaderView* header = view->horizontalHeader();
        QTest::mouseClick(header->viewport(), Qt::LeftButton, {},
                          QPoint(header->sectionViewportPosition(portColumn) + 5, 5));
        panel->table()->finishArranging();
        QCOMPARE(panel->table()->sortColumnId(), int(Panel::kColPort));
        QCOMPARE(model->index(0, portColumn).data().toString(), QStringLiteral("443"));
    }

    void rowActionsOfASortedAndFilteredTableFindTheShownRecord() {
        auto panel = loadedPanel();
        Zu::COddEvenRowTable* table = panel->table();
        table->sortByColumnId(Panel::kColPort, Qt::DescendingOrder);
        find(*panel, QStringLiteral("192.0.2."));
        QCOMPARE(table->shownRowCount(), 2);
        QCOMPARE(idShownAt(*panel, 0), 23);
        QCOMPARE(idShownAt(*panel, 1), 24);

        // 编辑 on the second shown row edits its source.
        table->view()->selectRow(1);
        QString address;
        ModalDriver::onNext([&address](QWidget* modal) {
            if (auto* stock = qobject_cast<CSetStockQuotesDialog*>(modal))
                address = stock->addressEdit()->text();
            qobject_cast<QDialog*>(modal)->reject();
        });
        const int stored = table->selectedRow();
        QVERIFY(PanelEvents::pressEditInRow(*panel, stored));
        QCOMPARE(address, QStringLiteral("192.0.2.77"));

        // 删除 on the first shown row deletes its source, with its revision.
        m_backend->clearRequests();
        table->view()->selectRow(0);
        ModalDriver::answerNextBox(QMessageBox::Ok);
        QVERIFY(PanelEvents::pressDeleteInRow(*panel, table->selectedRow()));
        QTRY_COMPARE(changes().size(), size_t(1));
        QCOMPARE(sentSource(changes().front())->m_nId, 23);
    }

    void rowButtonsClickedInTheViewActOnTheirRow() {
        auto panel = loadedPanel();
        panel->show();
        Zu::COddEvenRowTable* table = panel->table();
        table->sortByColumnId(Panel::kColPort, Qt::AscendingOrder);
        table->finishArranging();
        // The view's first row is the stored row of id 24: its button says so.
        const int stored = table->storedRowOf(0);
        QCOMPARE(panel->rowRecord(stored)->m_nId, 24);
        m_backend->clearRequests();
        ModalDriver::answerNextBox(QMessageBox::Ok);
        QVERIFY(panel->buttonsDelegate()->clickButton(stored, Panel::kBtnDeleteRow));
        QTRY_COMPARE(changes().size(), size_t(1));
        QCOMPARE(sentSource(changes().front())->m_nId, 24);
        QVERIFY(!panel->buttonsDelegate()->buttonRect(stored, Panel::kBtnDeleteRow).isEmpty());
    }

    void sortAndFindAreKeptInTheSavedState() {
        auto panel = loadedPanel();
        panel->table()->sortByColumnId(Panel::kColAddress, Qt::DescendingOrder);
        find(*panel, QStringLiteral("192.0.2.;中文|x"));
        const QString state = panel->param();
        std::unique_ptr<Panel> other(createQuotesPanel(kStocks, nullptr));
        other->setParam(state);
        QCOMPARE(other->table()->sortColumnId(), int(Panel::kColAddress));
        QCOMPARE(other->table()->sortOrder(), Qt::DescendingOrder);
        QCOMPARE(other->findBar()->text(), QStringLiteral("192.0.2.;中文|x"));
        QVERIFY(!other->findBar()->isHidden());
        QCOMPARE(other->param(), state);
    }

    void f5ReloadsAndTheSelectionStaysOnItsSource() {
        auto panel = loadedPanel();
        panel->show();
        QApplication::setActiveWindow(panel.get());
        QVERIFY(QTest::qWaitForWindowActive(panel.get()));
        panel->table()->selectRow(2);
        QCOMPARE(panel->rowRecord(panel->table()->selectedRow())->m_nId, 23);
        // The source comes back in another row.
        m_backend->setQueryAnswer(kDataQuoteSources,
                                  {source(23, kKxStocks, kStocks, "192.0.2.7", 10000),
                                   source(21, kKxStocks, kStocks, "10.0.0.9", 8000)});
        const int queries = queryCount();
        panel->table()->view()->setFocus();
        QTest::keyClick(panel->table()->view(), Qt::Key_F5);
        QTRY_COMPARE(queryCount(), queries + 1);
        waitForRows(*panel, 2);
        QCOMPARE(panel->table()->selectedRow(), 0);
        QCOMPARE(panel->rowRecord(panel->table()->selectedRow())->m_nId, 23);
    }

    void refreshButtonKeepsTheSelectionInASortedTable() {
        auto panel = loadedPanel();
        panel->table()->sortByColumnId(Panel::kColPort, Qt::AscendingOrder);
        panel->table()->finishArranging();
        panel->table()->view()->selectRow(2);  // port 8000: id 21
        QCOMPARE(panel->rowRecord(panel->table()->selectedRow())->m_nId, 21);
        QVERIFY(PanelEvents::press(*panel, Panel::kBtnRefresh));
        QTRY_VERIFY(panel->isLoading());
        waitForRows(*panel, 4);
        QTRY_VERIFY(!panel->table()->isArranging());
        QCOMPARE(panel->rowRecord(panel->table()->selectedRow())->m_nId, 21);
        QCOMPARE(panel->table()->viewRowOf(panel->table()->selectedRow()), 2);
    }

    void deleteKeyAsksTheRowsQuestionAndEnterEdits() {
        auto panel = loadedPanel();
        panel->show();
        QApplication::setActiveWindow(panel.get());
        QVERIFY(QTest::qWaitForWindowActive(panel.get()));
        panel->table()->selectRow(1);
        panel->table()->view()->setFocus();
        QString title;
        QString text;
        ModalDriver::answerNextBox(QMessageBox::Cancel, &title, &text);
        QTest::keyClick(panel->table()->view(), Qt::Key_Delete);
        QCOMPARE(title, QStringLiteral("操作提示"));
        QCOMPARE(text, QStringLiteral("确定删除证券行情源吗? "));

        QString address;
        ModalDriver::onNext([&address](QWidget* modal) {
            if (auto* stock = qobject_cast<CSetStockQuotesDialog*>(modal))
                address = stock->addressEdit()->text();
            qobject_cast<QDialog*>(modal)->reject();
        });
        QApplication::setActiveWindow(panel.get());
        QVERIFY(QTest::qWaitForWindowActive(panel.get()));
        panel->table()->view()->setFocus();
        QTest::keyClick(panel->table()->view(), Qt::Key_Return);
        QCOMPARE(address, QStringLiteral("10.0.0.10"));
    }

    void rowKeysDoNothingWhereTheRowHasNoSuchButton() {
        TestUsers::setCurrent({});  // no right: rows without buttons
        auto panel = loadedPanel();
        panel->show();
        QApplication::setActiveWindow(panel.get());
        QVERIFY(QTest::qWaitForWindowActive(panel.get()));
        panel->table()->selectRow(1);
        panel->table()->view()->setFocus();
        // Anything modal that opens is closed and counted, by a watcher that ends with the test.
        int opened = 0;
        int looks = 0;
        QTimer watcher;
        connect(&watcher, &QTimer::timeout, [&opened, &looks] {
            ++looks;
            if (QWidget* modal = QApplication::activeModalWidget()) {
                ++opened;
                modal->close();
            }
        });
        watcher.start(10);
        QTest::keyClick(panel->table()->view(), Qt::Key_Delete);
        QTest::keyClick(panel->table()->view(), Qt::Key_Return);
        // Nothing to wait for but the watcher having looked a few times after the keys.
        QTRY_VERIFY(looks >= 5);
        QCOMPARE(opened, 0);
    }

    void rowMenuCopiesTheAddress() {
        auto panel = loadedPanel();
        std::unique_ptr<QMenu> menu(panel->table()->createContextMenu(2, Panel::kColPort, nullptr));
        QAction* copy = menu->findChild<QAction*>(QStringLiteral("copyAddress"));
        QVERIFY(copy);
        QCOMPARE(copy->text(), QStringLiteral("复制地址"));
        copy->trigger();
        QCOMPARE(QApplication::clipboard()->text(), QStringLiteral("192.0.2.7"));
        // The table's own entries are still there, before the panel's.
        QVERIFY(menu->findChild<QAction*>(QStringLiteral("copyRow")));
    }

    void rowMenuCopiesASourceIntoAnotherSubsystemThroughTheStockDialog() {
        m_backend->setSubsystems({{"sys1", "分系统一"}, {"sys2", "分系统二"}});
        auto panel = loadedPanel();
        std::unique_ptr<QMenu> menu(panel->table()->createContextMenu(3, Panel::kColPort, nullptr));
        QAction* copy = menu->findChild<QAction*>(QStringLiteral("copyToSubsystem"));
        QVERIFY(copy);
        QCOMPARE(copy->text(), QStringLiteral("复制到分系统…"));
        QVERIFY(copy->isEnabled());
        QStringList offered;
        QString address;
        QString port;
        QString serverName;
        bool wasAdd = false;
        m_backend->clearRequests();
        ModalDriver::onNext([&](QWidget* modal) {
            auto* input = qobject_cast<QInputDialog*>(modal);
            QVERIFY(input);
            offered = input->comboBoxItems();
            input->setTextValue(QStringLiteral("分系统二"));
            // The stock dialog opens pre-filled; the operator confirms with 提交.
            ModalDriver::onNext([&](QWidget* next) {
                auto* stock = qobject_cast<CSetStockQuotesDialog*>(next);
                QVERIFY(stock);
                address = stock->addressEdit()->text();
                port = stock->portEdit()->text();
                serverName = stock->serverName();
                wasAdd = stock->isAdd();
                stock->deliverEvent(Zu::EventButtonClicked, CSetStockQuotesDialog::SubmitButton, 0,
                                    QString(), nullptr);
            });
            input->accept();
        });
        copy->trigger();
        QCOMPARE(offered, QStringList{QStringLiteral("分系统二")});
        QCOMPARE(address, QStringLiteral("192.0.2.77"));
        QCOMPARE(port, QStringLiteral("443"));
        QCOMPARE(serverName, QStringLiteral("sys2"));
        QVERIFY(wasAdd);
        QTRY_COMPARE(changes().size(), size_t(1));
        const ScriptedBackend::Request sent = changes().front();
        QCOMPARE(sent.operateType, int(rkservice::kOperateAdd));
        QCOMPARE(sent.subsystem, std::string("sys2"));
        QCOMPARE(sentSource(sent)->m_strAddress, std::string("192.0.2.77"));
        QCOMPARE(sentSource(sent)->m_nPort, 443);
    }

    void copyToSubsystemIsDisabledWithoutAnotherSubsystem() {
        auto panel = loadedPanel();
        std::unique_ptr<QMenu> menu(panel->table()->createContextMenu(0, Panel::kColPort, nullptr));
        QAction* copy = menu->findChild<QAction*>(QStringLiteral("copyToSubsystem"));
        QVERIFY(copy);
        QVERIFY(!copy->isEnabled());
    }

private:
    boost::shared_ptr<ScriptedBackend> m_backend;
};

QTEST_MAIN(TestQuotesPanelFind)
#include "tst_quotespanel_find.moc"
