#include <QCheckBox>
#include <QSignalSpy>
#include <QtTest>
#include <map>

#include "Hlx/CLogCenter.h"
#include "Hlx/COrinClientCenter.h"
#include "Hlx/CSafeLineEdit.h"
#include "Hlx/CWholeQuoteSettingDialog.h"
#include "ModalDriver.h"
#include "PanelEvents.h"
#include "RecordBuilders.h"
#include "ScriptedBackend.h"
#include "ServerMessages.h"
#include "TestIds.h"
#include "TestUsers.h"
#include "Zu/CLoadingMaskWidget.h"
#include "Zu/COddEvenRowTable.h"
#include "dialogs/CSetFutureQuotesDialog.h"
#include "dialogs/CSetStockQuotesDialog.h"
#include "panels/QuotesManagePanel.h"
#include "rkservice/COrinQuoterSourceInfo.h"

using namespace Hlx;
using namespace RecordBuilders;
using namespace TestIds;
using Panel = CQuotesManagePanel;

namespace {

rkservice::COrinQuoterSourceInfoPtr sentSource(const ScriptedBackend::Request& request,
                                               int index = 0) {
    return boost::dynamic_pointer_cast<rkservice::COrinQuoterSourceInfo>(
        request.datas.at(size_t(index)));
}

// What a modal dialog looked like when it opened; closes it.
struct SeenDialog {
    QPointer<QWidget> widget;
    QString title;
    bool isAdd = false;
    int tradeType = 0;
    bool futureOnly = false;
    QString address;
    QString serverName;
};

void closeNextDialog(SeenDialog* seen) {
    ModalDriver::onNext([seen](QWidget* modal) {
        seen->widget = modal;
        if (auto* stock = qobject_cast<CSetStockQuotesDialog*>(modal)) {
            seen->title = stock->title();
            seen->isAdd = stock->isAdd();
            seen->tradeType = stock->tradeType();
            seen->futureOnly = stock->isFutureOnly();
            seen->address = stock->addressEdit()->text();
            seen->serverName = stock->serverName();
        } else if (auto* future = qobject_cast<CSetFutureQuotesDialog*>(modal)) {
            seen->title = future->title();
            seen->tradeType = future->tradeType();
            seen->serverName = future->systemName();
        } else if (auto* common = qobject_cast<Zu::CCommonDialog*>(modal)) {
            seen->title = common->title();
        }
        modal->close();
        if (auto* dialog = qobject_cast<QDialog*>(modal))
            dialog->reject();
    });
}

}  // namespace

class TestQuotesPanelActions : public QObject {
    Q_OBJECT

    // A delete the service takes: the panel reloads once, its one refresh used up.
    static void deleteFirstRowAndSeeItReload(CQuotesManagePanel* panel, QSignalSpy* finished) {
        panel->table()->selectRow(0);
        ModalDriver::answerNextBox(QMessageBox::Ok);
        PanelEvents::pressDeleteInRow(*panel, 0);
        QTRY_COMPARE(finished->count(), 1);
        QTRY_COMPARE(panel->table()->rowCount(), 2);
    }

    // Quote-source queries sent since the requests were last cleared.
    int queryCount() const {
        int count = 0;
        for (const auto& request : m_backend->requestsOf(kDataQuoteSources))
            count += request.isQuery ? 1 : 0;
        return count;
    }

private slots:
    void init() {
        m_backend = ScriptedBackend::install();
        m_backend->setLoginTypeAuth(true);
        TestUsers::setCurrent(TestUsers::allRights());
        m_backend->setQueryAnswer(kDataQuoteSources,
                                  {source(11, kKxStocks, kStocks, "10.0.0.11"),
                                   source(12, kKxStocks, kStocks, "10.0.0.12"),
                                   source(13, kKxFutures, kStocks, "10.0.0.13")});
        m_messages.reset(
            new QSignalSpy(COrinClientCenter::instance(), &COrinClientCenter::serverMessageShown));
    }
    void cleanup() {
        m_backend->setHolding(false);
        m_backend->releaseAll();
        m_backend->settle();
    }

    // -- the event table --------------------------------------------------------------------

    void addOnAStockPanelShowsTheStockDialog() {
        CStockQuotesManagePanel panel(nullptr);
        SeenDialog seen;
        closeNextDialog(&seen);
        QVERIFY(PanelEvents::press(panel, CQuotesManagePanel::kBtnAdd));
        QCOMPARE(seen.title, QString("添加证券行情源"));
        QVERIFY(seen.isAdd);
        QCOMPARE(seen.tradeType, 2);
        QVERIFY(!seen.futureOnly);
        QVERIFY(panel.stockDialog());
        QCOMPARE(seen.widget.data(), static_cast<QWidget*>(panel.stockDialog()));
        QCOMPARE(panel.stockDialog()->parent(), &panel);
    }

    void addOnFuturesPanelsShowsTheFutureDialog_data() {
        QTest::addColumn<int>("tradeType");
        QTest::addColumn<QString>("title");
        QTest::newRow("futures") << 1 << "添加期货行情源";
        QTest::newRow("futures options") << 5 << "添加期货期权行情源";
    }

    void addOnFuturesPanelsShowsTheFutureDialog() {
        QFETCH(int, tradeType);
        QFETCH(QString, title);
        std::unique_ptr<Panel> panel(createQuotesPanel(tradeType, nullptr));
        panel->switchSystem(0, "sys1");
        SeenDialog seen;
        closeNextDialog(&seen);
        PanelEvents::press(*panel, CQuotesManagePanel::kBtnAdd);
        QCOMPARE(seen.title, title);
        QCOMPARE(seen.tradeType, tradeType);
        QCOMPARE(seen.serverName, QString("sys1"));
        CSetFutureQuotesDialog* first = panel->futureDialog();
        QVERIFY(first);
        QVERIFY(!panel->stockDialog());
        closeNextDialog(&seen);
        PanelEvents::press(*panel, CQuotesManagePanel::kBtnAdd);
        QCOMPARE(panel->futureDialog(), first);
    }

    void kxAddShowsAFuturesOnlyStockDialog_data() {
        QTest::addColumn<int>("tradeType");
        QTest::addColumn<QString>("title");
        QTest::newRow("futures") << 1 << "添加期货行情源";
        QTest::newRow("futures options") << 5 << "添加期货期权行情源";
        QTest::newRow("all") << -1 << "添加全部行情源";
    }

    void kxAddShowsAFuturesOnlyStockDialog() {
        QFETCH(int, tradeType);
        QFETCH(QString, title);
        std::unique_ptr<Panel> panel(createQuotesPanel(tradeType, nullptr));
        SeenDialog seen;
        closeNextDialog(&seen);
        QVERIFY(PanelEvents::press(*panel, CQuotesManagePanel::kBtnKxAdd));
        QCOMPARE(seen.title, title);
        QVERIFY(seen.futureOnly);
        QVERIFY(seen.isAdd);
        QCOMPARE(seen.tradeType, tradeType);
    }

    void kxAddOnOtherPanelsDoesNothing_data() {
        QTest::addColumn<int>("tradeType");
        for (int type : {2, 4, 6, 7, 8, 10, 11, 16, 1002})
            QTest::newRow(qPrintable(QString::number(type))) << type;
    }

    void kxAddOnOtherPanelsDoesNothing() {
        QFETCH(int, tradeType);
        std::unique_ptr<Panel> panel(createQuotesPanel(tradeType, nullptr));
        QVERIFY(PanelEvents::press(*panel, CQuotesManagePanel::kBtnKxAdd));
        QVERIFY(!panel->stockDialog());
        QVERIFY(!QApplication::activeModalWidget());
    }

    void theFirstActionFixesTheStockDialog() {
        // Kx add first: the dialog stays futures-only for the later add.
        CFutureQuotesManagePanel panel(nullptr);
        SeenDialog seen;
        closeNextDialog(&seen);
        PanelEvents::press(panel, CQuotesManagePanel::kBtnKxAdd);
        CSetStockQuotesDialog* dialog = panel.stockDialog();
        QVERIFY(dialog && dialog->isFutureOnly());
        CAllTypeQuotesManagePanel all(nullptr);
        closeNextDialog(&seen);
        PanelEvents::press(all, CQuotesManagePanel::kBtnKxAdd);
        closeNextDialog(&seen);
        PanelEvents::press(all, CQuotesManagePanel::kBtnAdd);
        QVERIFY(seen.futureOnly);
        QCOMPARE(seen.title, QString("添加全部行情源"));
    }

    void refreshAndSourcesChangedReload() {
        CStockQuotesManagePanel panel(nullptr);
        QVERIFY(PanelEvents::press(panel, CQuotesManagePanel::kBtnRefresh));
        QTRY_COMPARE(m_backend->requestCount(), 1);
        QVERIFY(PanelEvents::sourcesChanged(panel));
        QTRY_COMPARE(m_backend->requestCount(), 2);
        QVERIFY(panel.deliverEvent(Zu::EventQuoteSourcesChanged, 7, 9, "x", nullptr));
        QTRY_COMPARE(m_backend->requestCount(), 3);
        QTRY_COMPARE(panel.table()->rowCount(), 2);
    }

    void otherIdsDoNothingAndOtherEventsAreForwarded() {
        CStockQuotesManagePanel panel(nullptr);
        QVERIFY(PanelEvents::press(panel, 9));
        QVERIFY(PanelEvents::press(panel, -1));
        QVERIFY(!panel.deliverEvent(Zu::EventComboIndexChanged, 0, 0, QString(), nullptr));
        QVERIFY(!panel.deliverEvent(Zu::EventFieldLeft, 1, 0, QString(), nullptr));
        m_backend->settle();
        QCOMPARE(m_backend->requestCount(), 0);
        QVERIFY(!panel.stockDialog());
    }

    // -- edit -------------------------------------------------------------------------------

    void editReusesTheDialogWithAnEmptyName() {
        CStockQuotesManagePanel panel(nullptr);
        panel.refresh();
        QTRY_COMPARE(panel.table()->rowCount(), 2);
        panel.table()->selectRow(1);
        SeenDialog seen;
        closeNextDialog(&seen);
        QVERIFY(PanelEvents::pressEditInRow(panel, 1));
        QCOMPARE(seen.title, QString("编辑行情源"));
        QVERIFY(!seen.isAdd);
        QCOMPARE(seen.address, QString("10.0.0.12"));
        QCOMPARE(panel.stockDialog()->editId(), 12);
        CSetStockQuotesDialog* first = panel.stockDialog();
        panel.table()->selectRow(0);
        closeNextDialog(&seen);
        PanelEvents::pressEditInRow(panel, 0);
        QCOMPARE(panel.stockDialog(), first);
        QCOMPARE(seen.address, QString("10.0.0.11"));
    }

    void editOnAllTypesBuildsANewDialogEachTime() {
        m_backend->setQueryAnswer(kDataQuoteSources,
                                  {source(1, kKxStocks, kStockOptions), source(2, kKxGold, kGold)});
        CAllTypeQuotesManagePanel panel(nullptr);
        panel.refresh();
        QTRY_COMPARE(panel.table()->rowCount(), 2);
        SeenDialog seen;
        panel.table()->selectRow(0);
        closeNextDialog(&seen);
        PanelEvents::pressEditInRow(panel, 0);
        QCOMPARE(seen.tradeType, 6);
        CSetStockQuotesDialog* first = panel.stockDialog();
        panel.table()->selectRow(1);
        closeNextDialog(&seen);
        PanelEvents::pressEditInRow(panel, 1);
        QCOMPARE(seen.tradeType, 4);
        QVERIFY(panel.stockDialog() != first);
        QCOMPARE(first->parent(), &panel);  // the previous one stays with its parent
        QCOMPARE(seen.title, QString("编辑行情源"));
    }

    void editNeedsTheEditRight_data() {
        QTest::addColumn<int>("tradeType");
        QTest::addColumn<int>("right");
        QTest::newRow("1") << 1 << 10385;
        QTest::newRow("2") << 2 << 10389;
        QTest::newRow("4") << 4 << 12149;
        QTest::newRow("5") << 5 << 11231;
        QTest::newRow("6") << 6 << 10711;
        QTest::newRow("7") << 7 << 11031;
        QTest::newRow("8") << 8 << 12370;
        QTest::newRow("10") << 10 << 11021;
        QTest::newRow("11") << 11 << 11223;
        QTest::newRow("16") << 16 << 12355;
        QTest::newRow("1002") << 1002 << 12363;
    }

    void editNeedsTheEditRight() {
        QFETCH(int, tradeType);
        QFETCH(int, right);
        m_backend->setQueryAnswer(kDataQuoteSources, {source(1, kKxOuterFutures, tradeType)});
        // Futures panels list the Kx sources of their platform.
        if (tradeType != 2)
            m_backend->setQueryAnswer(
                kDataQuoteSources, "2",
                {source(1, kKxFutures, kStocks), source(2, kKxFuturesOptions, kStocks)});
        std::set<int> rights = TestUsers::allRights();
        rights.erase(right);
        TestUsers::setCurrent(rights);
        std::unique_ptr<Panel> panel(createQuotesPanel(tradeType, nullptr));
        panel->refresh();
        QTRY_COMPARE(panel->table()->rowCount(), 1);
        panel->table()->selectRow(0);
        QVERIFY(PanelEvents::pressEditInRow(*panel, 0));
        QVERIFY(!panel->stockDialog());
        // With the right, the same event opens the editor.
        TestUsers::setCurrent(TestUsers::allRights());
        SeenDialog seen;
        closeNextDialog(&seen);
        PanelEvents::pressEditInRow(*panel, 0);
        QVERIFY(panel->stockDialog());
        QCOMPARE(seen.title, QString("编辑行情源"));
    }

    void editWithoutSelectionDoesNothing() {
        CStockQuotesManagePanel panel(nullptr);
        panel.refresh();
        QTRY_COMPARE(panel.table()->rowCount(), 2);
        QCOMPARE(panel.table()->selectedRow(), -1);
        QVERIFY(PanelEvents::pressEditInRow(panel, 0));
        QVERIFY(!panel.stockDialog());
    }

    // -- delete one -------------------------------------------------------------------------

    void deleteAsksThenSendsTheSelectedRowsId() {
        CStockQuotesManagePanel panel(nullptr);
        panel.refresh();
        QTRY_COMPARE(panel.table()->rowCount(), 2);
        m_backend->clearRequests();
        // The button of row 0 is pressed while row 1 is selected.
        panel.table()->selectRow(1);
        QString title, text;
        int buttons = 0;
        ModalDriver::answerNextBox(QMessageBox::Ok, &title, &text, &buttons);
        QVERIFY(PanelEvents::pressDeleteInRow(panel, 0));
        QCOMPARE(title, QString("操作提示"));
        QCOMPARE(text, QString("确定删除证券行情源吗? "));
        QCOMPARE(buttons, int(QMessageBox::Ok | QMessageBox::Cancel));
        QTRY_COMPARE(m_backend->requestsOf(kDataQuoteSources).size(),
                     size_t(2));  // the delete, then the reload
        const auto request = m_backend->requests().front();
        QCOMPARE(request.isQuery, false);
        QCOMPARE(request.operateType, 3);
        QCOMPARE(int(request.datas.size()), 1);
        QCOMPARE(sentSource(request)->m_nId, 12);
        QCOMPARE(sentSource(request)->m_nTradeType, 2);
        QCOMPARE(sentSource(request)->m_nPlatformId, 10000);
        QVERIFY(sentSource(request)->m_strAddress.empty());
        QVERIFY(request.toCentre);
    }

    // The revision goes with the id: both are the selected row's, so that a row someone changed
    // since it was read is refused instead of deleted. 全部删除 sends each row's own.
    void deletesSendTheRevisionsOfTheirRows() {
        auto first = source(31, kKxStocks, kStocks);
        first->setRevision(5);
        auto second = source(32, kKxStocks, kStocks);
        second->setRevision(7);
        m_backend->setQueryAnswer(kDataQuoteSources, {first, second});
        CStockQuotesManagePanel panel(nullptr);
        panel.refresh();
        QTRY_COMPARE(panel.table()->rowCount(), 2);
        m_backend->clearRequests();
        panel.table()->selectRow(1);
        ModalDriver::answerNextBox(QMessageBox::Ok);
        QVERIFY(PanelEvents::pressDeleteInRow(panel, 0));
        QTRY_VERIFY(m_backend->requestCount() >= 1);
        QCOMPARE(sentSource(m_backend->requests().front())->m_nId, 32);
        QCOMPARE(sentSource(m_backend->requests().front())->getRevision(), 7LL);

        QTRY_COMPARE(panel.table()->rowCount(), 2);
        m_backend->settle();
        m_backend->clearRequests();
        ModalDriver::answerNextBox(QMessageBox::Yes);
        PanelEvents::press(panel, CQuotesManagePanel::kBtnDeleteAll);
        QTRY_VERIFY(m_backend->requestCount() >= 1);
        const auto all = m_backend->requests().front();
        QCOMPARE(int(all.datas.size()), 2);
        std::map<int, long long> revisions;
        for (const auto& data : all.datas)
            revisions[boost::dynamic_pointer_cast<rkservice::COrinQuoterSourceInfo>(data)->m_nId] =
                data->getRevision();
        QCOMPARE(revisions, (std::map<int, long long>{{31, 5}, {32, 7}}));
    }

    void deleteOfAFuturesPlatformSendsTradeTypeTwo() {
        auto kx = source(21, kKxFutures, kFutures);
        m_backend->setQueryAnswer(kDataQuoteSources, "2", {kx});
        CFutureQuotesManagePanel panel(nullptr);
        panel.refresh();
        QTRY_COMPARE(panel.table()->rowCount(), 1);
        panel.table()->selectRow(0);
        m_backend->clearRequests();
        ModalDriver::answerNextBox(QMessageBox::Ok);
        PanelEvents::pressDeleteInRow(panel, 0);
        QTRY_VERIFY(m_backend->requestCount() >= 1);
        const auto request = m_backend->requests().front();
        QCOMPARE(sentSource(request)->m_nId, 21);
        QCOMPARE(sentSource(request)->m_nTradeType, 2);
        QCOMPARE(sentSource(request)->m_nPlatformId, 20000);
    }

    void deleteOnAllTypesNamesNoTradeType() {
        CAllTypeQuotesManagePanel panel(nullptr);
        panel.refresh();
        QTRY_COMPARE(panel.table()->rowCount(), 3);
        panel.table()->selectRow(0);
        QString text;
        ModalDriver::answerNextBox(QMessageBox::Cancel, nullptr, &text);
        PanelEvents::pressDeleteInRow(panel, 0);
        QCOMPARE(text, QString("确定删除行情源吗? "));
    }

    void deleteAnsweredOtherwiseSendsNothing() {
        CStockQuotesManagePanel panel(nullptr);
        panel.refresh();
        QTRY_COMPARE(panel.table()->rowCount(), 2);
        panel.table()->selectRow(0);
        m_backend->clearRequests();
        ModalDriver::answerNextBox(QMessageBox::Cancel);
        PanelEvents::pressDeleteInRow(panel, 0);
        m_backend->settle();
        QCOMPARE(m_backend->requestCount(), 0);
    }

    void deleteOfARowBeyondTheTableDoesNothing() {
        m_backend->setQueryAnswer(kDataQuoteSources,
                                  {source(1, kKxStocks, kStocks), source(2, kKxStocks, kStocks),
                                   source(3, kKxStocks, kStocks), source(4, kKxStocks, kStocks),
                                   source(5, kKxStocks, kStocks), source(6, kKxStocks, kStocks),
                                   source(7, kKxStocks, kStocks)});
        CStockQuotesManagePanel panel(nullptr);
        panel.refresh();
        QTRY_COMPARE(panel.table()->rowCount(), 7);
        panel.table()->selectRow(0);
        m_backend->clearRequests();
        QString text;
        ModalDriver::answerNextBox(QMessageBox::Ok, nullptr, &text);
        QVERIFY(PanelEvents::pressDeleteInRow(panel, 7));
        QVERIFY(!text.isEmpty());  // the question was asked
        m_backend->settle();
        QCOMPARE(m_backend->requestCount(), 0);
    }

    void multiServerUserWithoutSubsystemSendsNoDelete() {
        m_backend->setSubsystems({{"sys1", "上海"}, {"sys2", "深圳"}});
        TestUsers::setCurrent(TestUsers::allRights(), true);
        CStockQuotesManagePanel panel(nullptr);
        panel.refresh();
        QTRY_COMPARE(panel.table()->rowCount(), 2);
        panel.table()->selectRow(0);
        m_backend->clearRequests();
        ModalDriver::answerNextBox(QMessageBox::Ok);
        QVERIFY(PanelEvents::pressDeleteInRow(panel, 0));
        m_backend->settle();
        QCOMPARE(m_backend->requestCount(), 0);
        QCOMPARE(m_messages->count(), 0);
        // With a sub-system chosen, the delete goes to its client.
        panel.switchSystem(1, "sys2");
        QTRY_COMPARE(panel.table()->rowCount(), 2);
        panel.table()->selectRow(0);
        m_backend->clearRequests();
        ModalDriver::answerNextBox(QMessageBox::Ok);
        PanelEvents::pressDeleteInRow(panel, 0);
        QTRY_VERIFY(m_backend->requestCount() >= 1);
        QCOMPARE(m_backend->requests().front().toCentre, false);
        QCOMPARE(m_backend->requests().front().subsystem, std::string("sys2"));
    }

    // A delete the service refuses is shown with the service's text (an empty text reads
    // "删除失败") and reloads the panel once.
    void refusedDeleteIsShownAndReloads_data() {
        QTest::addColumn<QString>("refusal");
        QTest::addColumn<QString>("shown");
        QTest::newRow("service text") << "没有权限：删除证券行情源"
                                      << "没有权限：删除证券行情源";
        QTest::newRow("empty text") << ""
                                    << "删除失败";
    }

    void refusedDeleteIsShownAndReloads() {
        QFETCH(QString, refusal);
        QFETCH(QString, shown);
        m_backend->setOperateAnswer(kDataQuoteSources, utils::RKError::fail(refusal.toStdString()));
        CStockQuotesManagePanel panel(nullptr);
        panel.refresh();
        QTRY_COMPARE(panel.table()->rowCount(), 2);
        panel.table()->selectRow(0);
        m_backend->clearRequests();
        ServerMessages messages;
        QSignalSpy finished(&panel, &Panel::sigOnDataFinished);
        ModalDriver::answerNextBox(QMessageBox::Ok);
        PanelEvents::pressDeleteInRow(panel, 0);
        QTRY_COMPARE(messages.size(), 1);
        QCOMPARE(messages[0].type, 1);
        QCOMPARE(messages[0].success, false);
        QCOMPARE(messages[0].parent, static_cast<QWidget*>(&panel));
        QCOMPARE(messages[0].title, QString("证券行情源"));
        QCOMPARE(messages[0].text, shown);
        m_backend->settle();
        QCOMPARE(finished.count(), 0);
        QCOMPARE(queryCount(), 1);
        QCOMPARE(panel.table()->rowCount(), 2);
    }

    // Delete all empties the table at once; a refusal brings every row back, even after an
    // earlier delete has used up the panel's one refresh.
    void refusedDeleteAllReloadsWhateverTheRefreshFlag() {
        CStockQuotesManagePanel panel(nullptr);
        panel.refresh();
        QTRY_COMPARE(panel.table()->rowCount(), 2);
        QSignalSpy finished(&panel, &Panel::sigOnDataFinished);
        deleteFirstRowAndSeeItReload(&panel, &finished);
        m_backend->settle();
        m_backend->setOperateAnswer(kDataQuoteSources,
                                    utils::RKError::fail("没有权限：删除证券行情源"));
        m_backend->clearRequests();
        ServerMessages messages;
        ModalDriver::answerNextBox(QMessageBox::Yes);
        PanelEvents::press(panel, CQuotesManagePanel::kBtnDeleteAll);
        QCOMPARE(panel.table()->rowCount(), 0);
        QTRY_COMPARE(messages.size(), 1);
        QCOMPARE(messages[0].text, QString("没有权限：删除证券行情源"));
        QTRY_COMPARE(panel.table()->rowCount(), 2);
        m_backend->settle();
        QCOMPARE(queryCount(), 1);
        QCOMPARE(finished.count(), 1);
    }

    // -- delete all -------------------------------------------------------------------------

    void deleteAllSendsOneRequestAndClearsAtOnce() {
        m_backend->setQueryAnswer(kDataQuoteSources, "2", {source(31, kKxFutures, kStocks)});
        m_backend->setQueryAnswer(
            kDataBrokers, {broker(kKxFutures, "9_z", "公司", {group(1, "g", {"1.1.1.1:1"})})});
        m_backend->setQueryAnswer(kDataQuoteSources, "1", {brokerSource(30, kKxFutures, 9, 1, 1)});
        CFutureQuotesManagePanel panel(nullptr);
        panel.refresh();
        QTRY_COMPARE(panel.table()->rowCount(), 2);
        m_backend->setHolding(true);
        m_backend->clearRequests();
        QString title, text;
        int buttons = 0;
        ModalDriver::answerNextBox(QMessageBox::Yes, &title, &text, &buttons);
        QVERIFY(PanelEvents::press(panel, CQuotesManagePanel::kBtnDeleteAll));
        QCOMPARE(title, QString("提示"));
        QCOMPARE(text, QString("确定要删除全部行情源吗?"));
        QCOMPARE(buttons, 0x14000);
        // Cleared without waiting for the answer.
        QCOMPARE(panel.table()->rowCount(), 0);
        QCOMPARE(panel.rowRecordCount(), 0);
        QTRY_COMPARE(m_backend->heldCount(), 1);
        const auto request = m_backend->requests().front();
        QCOMPARE(request.operateType, 3);
        QCOMPARE(int(request.datas.size()), 2);
        QCOMPARE(sentSource(request, 0)->m_nId, 30);
        QCOMPARE(sentSource(request, 1)->m_nId, 31);
        QCOMPARE(sentSource(request, 0)->m_nTradeType, 2);  // platform 20000 goes as type 2
        QCOMPARE(sentSource(request, 1)->m_nTradeType, 2);
    }

    void deleteAllOnAnEmptyTableAsksAndDoesNothing() {
        m_backend->setQueryAnswer(kDataQuoteSources, {});
        CStockQuotesManagePanel panel(nullptr);
        panel.refresh();
        m_backend->settle();
        m_backend->clearRequests();
        QString text;
        ModalDriver::answerNextBox(QMessageBox::Yes, nullptr, &text);
        PanelEvents::press(panel, CQuotesManagePanel::kBtnDeleteAll);
        QCOMPARE(text, QString("确定要删除全部行情源吗?"));
        m_backend->settle();
        QCOMPARE(m_backend->requestCount(), 0);
    }

    void deleteAllAnsweredNoSendsNothing() {
        CStockQuotesManagePanel panel(nullptr);
        panel.refresh();
        QTRY_COMPARE(panel.table()->rowCount(), 2);
        m_backend->clearRequests();
        ModalDriver::answerNextBox(QMessageBox::No);
        PanelEvents::press(panel, CQuotesManagePanel::kBtnDeleteAll);
        m_backend->settle();
        QCOMPARE(m_backend->requestCount(), 0);
        QCOMPARE(panel.table()->rowCount(), 2);
    }

    // The question has no default button: Enter and Space, typed where the operator's keys go
    // (the box's window), answer nothing; the box stays until a button is chosen.
    void deleteAllQuestionIgnoresEnterAndSpace() {
        CStockQuotesManagePanel panel(nullptr);
        panel.refresh();
        QTRY_COMPARE(panel.table()->rowCount(), 2);
        m_backend->clearRequests();
        bool stayedOpen = false;
        QString focused;
        ModalDriver::onNext([&](QWidget* modal) {
            auto* box = qobject_cast<QMessageBox*>(modal);
            QVERIFY(box);
            QVERIFY(QTest::qWaitForWindowExposed(box));
            if (QWidget* focus = box->focusWidget())
                focused = focus->metaObject()->className();
            for (Qt::Key key : {Qt::Key_Return, Qt::Key_Enter, Qt::Key_Space}) {
                QTest::keyClick(box->windowHandle(), key);
                QCoreApplication::processEvents();
            }
            stayedOpen = box->isVisible() && QApplication::activeModalWidget() == box;
            // Only a box still open is answered: a click on an answered one would change what
            // exec() reports.
            if (box->isVisible())
                box->button(QMessageBox::No)->click();
        });
        PanelEvents::press(panel, CQuotesManagePanel::kBtnDeleteAll);
        QVERIFY2(stayedOpen, qPrintable(focused));
        m_backend->settle();
        QCOMPARE(m_backend->requestCount(), 0);
        QCOMPARE(panel.table()->rowCount(), 2);
    }

    void deleteRefreshedFlagAcrossDeletes() {
        CStockQuotesManagePanel panel(nullptr);
        panel.refresh();
        QTRY_COMPARE(panel.table()->rowCount(), 2);
        QSignalSpy finished(&panel, &Panel::sigOnDataFinished);
        deleteFirstRowAndSeeItReload(&panel, &finished);
        // Delete-all does not reset the flag, so its success refreshes nothing more.
        ModalDriver::answerNextBox(QMessageBox::Yes);
        PanelEvents::press(panel, CQuotesManagePanel::kBtnDeleteAll);
        m_backend->settle();
        QCOMPARE(finished.count(), 1);
        QCOMPARE(panel.table()->rowCount(), 0);
    }

    // -- whole-quote settings ---------------------------------------------------------------

    void wholeQuoteWithoutPermissionShowsNothing() {
        CAllTypeQuotesManagePanel panel(nullptr);
        QVERIFY(PanelEvents::press(panel, CQuotesManagePanel::kBtnWholeQuote));
        QVERIFY(panel.wholeQuoteDialog());  // created before the record is looked at
        QVERIFY(!QApplication::activeModalWidget());
        m_backend->settle();
        QVERIFY(m_backend->requestsOf(kDataGlobalPermission).empty());
    }

    void wholeQuoteSavesTheEditedDivision() {
        auto info = boost::make_shared<rkservice::CGlobalFeaturePermissionInfo>();
        info->m_wholeQuote->setEnabled("SH", true);
        m_backend->setQueryAnswer(kDataGlobalPermission, {info});
        CAllTypeQuotesManagePanel panel(nullptr);
        // Shown, so that the mask's visibility means something.
        panel.show();
        panel.switchSystem(0, "sys1");
        panel.onActive();
        QTRY_VERIFY(panel.permissionInfo());
        m_backend->clearRequests();
        QString title;
        ModalDriver::onNext([&](QWidget* modal) {
            auto* dialog = qobject_cast<CWholeQuoteSettingDialog*>(modal);
            QVERIFY(dialog);
            title = dialog->title();
            QVERIFY(dialog->marketCheckBox("SH")->isChecked());
            dialog->marketCheckBox("SZ")->setChecked(true);
            dialog->marketCheckBox("SH")->setChecked(false);
            dialog->accept();
        });
        PanelEvents::press(panel, CQuotesManagePanel::kBtnWholeQuote);
        QCOMPARE(title, QString("行情全推设置"));
        QTRY_COMPARE(m_messages->count(), 1);
        QCOMPARE(m_messages->at(0).at(0).toInt(), 0);
        QCOMPARE(m_messages->at(0).at(3).toString(), QString("提示"));
        QCOMPARE(m_messages->at(0).at(4).toString(), QString("保存成功"));
        const auto saves = m_backend->requestsOf(kDataGlobalPermission);
        QCOMPARE(int(saves.size()), 1);
        QCOMPARE(saves.front().operateType, 1);
        QCOMPARE(saves.front().toCentre, false);
        QCOMPARE(saves.front().subsystem, std::string("sys1"));
        auto sent = boost::dynamic_pointer_cast<rkservice::CGlobalFeaturePermissionInfo>(
            saves.front().datas.at(0));
        QVERIFY(sent);
        QVERIFY(sent->m_wholeQuote->isEnabled("SZ"));
        QVERIFY(!sent->m_wholeQuote->isEnabled("SH"));
        QVERIFY(panel.permissionInfo()->m_wholeQuote->isEnabled("SZ"));
        QVERIFY(!panel.loadingMask()->isVisible());
    }

    void wholeQuoteCancelledSendsNothing() {
        m_backend->setQueryAnswer(kDataGlobalPermission,
                                  {boost::make_shared<rkservice::CGlobalFeaturePermissionInfo>()});
        CAllTypeQuotesManagePanel panel(nullptr);
        panel.onActive();
        QTRY_VERIFY(panel.permissionInfo());
        m_backend->clearRequests();
        ModalDriver::onNext([](QWidget* modal) { static_cast<QDialog*>(modal)->reject(); });
        PanelEvents::press(panel, CQuotesManagePanel::kBtnWholeQuote);
        m_backend->settle();
        QVERIFY(m_backend->requestsOf(kDataGlobalPermission).empty());
    }

    void failedSaveIsLoggedAndShown() {
        m_backend->setQueryAnswer(kDataGlobalPermission,
                                  {boost::make_shared<rkservice::CGlobalFeaturePermissionInfo>()});
        m_backend->setOperateAnswer(kDataGlobalPermission, utils::RKError::fail("保存被拒绝"));
        CLogCenter::instance()->clearRecentLines();
        CAllTypeQuotesManagePanel panel(nullptr);
        panel.show();
        panel.onActive();
        QTRY_VERIFY(panel.permissionInfo());
        m_backend->setHolding(true);
        ModalDriver::onNext([](QWidget* modal) { static_cast<QDialog*>(modal)->accept(); });
        PanelEvents::press(panel, CQuotesManagePanel::kBtnWholeQuote);
        QVERIFY(panel.loadingMask()->isVisible());
        QCOMPARE(panel.loadingMask()->attachedTo(), static_cast<QWidget*>(&panel));
        QTRY_COMPARE(m_backend->heldCount(), 1);
        m_backend->releaseAll();
        QTRY_COMPARE(m_messages->count(), 1);
        QCOMPARE(m_messages->at(0).at(0).toInt(), 1);
        QCOMPARE(m_messages->at(0).at(1).toBool(), false);
        QCOMPARE(m_messages->at(0).at(3).toString(), QString("提示"));
        QCOMPARE(m_messages->at(0).at(4).toString(), QString("保存被拒绝"));
        QVERIFY(!panel.loadingMask()->isVisible());
        QVERIFY(CLogCenter::instance()->recentLines().contains(
            "[CQuotesManagePanel] saveData error:保存被拒绝"));
        // The refused save reads the stored settings again.
        QTRY_COMPARE(m_backend->heldCount(), 1);
        QVERIFY(m_backend->requests().back().isQuery);
        QCOMPARE(m_backend->requests().back().dataType, int(kDataGlobalPermission));
        m_backend->releaseAll();
        // With logging off, nothing is logged.
        CLogCenter::instance()->clearRecentLines();
        CLogCenter::instance()->setLogEnabled(false);
        ModalDriver::onNext([](QWidget* modal) { static_cast<QDialog*>(modal)->accept(); });
        PanelEvents::press(panel, CQuotesManagePanel::kBtnWholeQuote);
        QTRY_COMPARE(m_backend->heldCount(), 1);
        m_backend->releaseAll();
        QTRY_COMPARE(m_messages->count(), 2);
        QVERIFY(CLogCenter::instance()->recentLines().isEmpty());
        CLogCenter::instance()->setLogEnabled(true);
    }

    void foreignPermissionMakesWholeQuoteDoNothing() {
        m_backend->setQueryAnswer(kDataGlobalPermission, {source(1, kKxStocks, kStocks)});
        CAllTypeQuotesManagePanel panel(nullptr);
        panel.onActive();
        m_backend->settle();
        QVERIFY(!panel.permissionInfo());
        PanelEvents::press(panel, CQuotesManagePanel::kBtnWholeQuote);
        QVERIFY(!QApplication::activeModalWidget());
    }

    // -- re-entrancy --------------------------------------------------------------------------

    void loadAnswerDueWhileTheEditDialogIsOpen() {
        CStockQuotesManagePanel panel(nullptr);
        panel.refresh();
        QTRY_COMPARE(panel.table()->rowCount(), 2);
        panel.table()->selectRow(0);
        bool inside = false;
        ModalDriver::onNext([&](QWidget* modal) {
            inside = true;
            QVERIFY(panel.dataMutex().isHeldByCurrentThread());
            m_backend->setQueryAnswer(kDataQuoteSources, {source(41, kKxStocks, kStocks)});
            PanelEvents::sourcesChanged(panel);  // a refresh inside the dialog
            m_backend->settle();
            QCOMPARE(panel.table()->rowCount(), 2);  // nothing rebuilt under the open dialog
            static_cast<QDialog*>(modal)->reject();
        });
        PanelEvents::pressEditInRow(panel, 0);
        QVERIFY(inside);
        QTRY_COMPARE(panel.table()->rowCount(), 1);
        QCOMPARE(panel.table()->itemText(0, Panel::kColId), QString("41"));
    }

    void editSubmittedWhileAnEarlierAnswerIsHeld() {
        CStockQuotesManagePanel panel(nullptr);
        panel.refresh();
        QTRY_COMPARE(panel.table()->rowCount(), 2);
        m_backend->setHolding(true);
        for (int round = 0; round < 2; ++round) {
            panel.table()->selectRow(round);
            ModalDriver::onNext([](QWidget* modal) {
                auto* dialog = qobject_cast<CSetStockQuotesDialog*>(modal);
                QVERIFY(dialog);
                dialog->userEdit()->setText("edited");
                dialog->handleEvent(Zu::EventButtonClicked, CSetStockQuotesDialog::SubmitButton, 0,
                                    QString(), nullptr);
                // Open under its mask until the answer; the operator leaves it with Esc.
                QVERIFY(dialog->isVisible());
                QTest::keyClick(dialog, Qt::Key_Escape);
            });
            PanelEvents::pressEditInRow(panel, round);
        }
        QTRY_COMPARE(m_backend->heldCount(), 2);
        const auto edits = m_backend->requestsOf(kDataQuoteSources);
        QCOMPARE(edits.at(edits.size() - 2).operateType, 0);
        QCOMPARE(sentSource(edits.back())->m_nId, 12);
        QCOMPARE(sentSource(edits.back())->m_strUserName, std::string("edited"));
        m_backend->setHolding(false);
        m_backend->releaseAll();
        QTRY_COMPARE(m_messages->count(), 2);
        QTRY_COMPARE(panel.table()->rowCount(), 2);
        m_backend->settle();
        QCOMPARE(m_messages->at(0).at(4).toString(), QString("操作成功"));
    }

    void permissionAnswerWhileTheWholeQuoteDialogIsOpen() {
        auto first = boost::make_shared<rkservice::CGlobalFeaturePermissionInfo>();
        m_backend->setQueryAnswer(kDataGlobalPermission, {first});
        CAllTypeQuotesManagePanel panel(nullptr);
        panel.onActive();
        QTRY_VERIFY(panel.permissionInfo());
        auto second = boost::make_shared<rkservice::CGlobalFeaturePermissionInfo>();
        second->m_wholeQuote->setEnabled("GOLD", true);
        m_backend->setQueryAnswer(kDataGlobalPermission, {second});
        ModalDriver::onNext([&](QWidget* modal) {
            panel.onActive();  // its permission answer waits for the dialog
            QTRY_COMPARE(panel.permissionMutex().waitingCount(), 1);
            static_cast<QDialog*>(modal)->reject();
        });
        PanelEvents::press(panel, CQuotesManagePanel::kBtnWholeQuote);
        QTRY_VERIFY(panel.permissionInfo() &&
                    panel.permissionInfo()->m_wholeQuote->isEnabled("GOLD"));
    }

    // -- lifetime ---------------------------------------------------------------------------

    void destroyedWhileADeleteOrSaveIsHeld() {
        m_backend->setQueryAnswer(kDataGlobalPermission,
                                  {boost::make_shared<rkservice::CGlobalFeaturePermissionInfo>()});
        auto* panel = new CAllTypeQuotesManagePanel(nullptr);
        panel->onActive();
        QTRY_VERIFY(panel->permissionInfo());
        QTRY_COMPARE(panel->table()->rowCount(), 3);
        m_backend->setHolding(true);
        panel->table()->selectRow(0);
        ModalDriver::answerNextBox(QMessageBox::Ok);
        PanelEvents::pressDeleteInRow(*panel, 0);
        ModalDriver::onNext([](QWidget* modal) { static_cast<QDialog*>(modal)->accept(); });
        PanelEvents::press(*panel, CQuotesManagePanel::kBtnWholeQuote);
        ModalDriver::answerNextBox(QMessageBox::Yes);
        PanelEvents::press(*panel, CQuotesManagePanel::kBtnDeleteAll);
        QTRY_COMPARE(m_backend->heldCount(), 3);
        delete panel;
        m_backend->releaseAll();
        m_backend->settle();
    }

    void destroyedWhileTheFutureDialogsRequestsAreHeld() {
        auto* panel = new CFutureQuotesManagePanel(nullptr);
        m_backend->setHolding(true);
        ModalDriver::onNext([](QWidget* modal) { static_cast<QDialog*>(modal)->reject(); });
        PanelEvents::press(*panel, CQuotesManagePanel::kBtnAdd);
        QTRY_COMPARE(m_backend->heldCount(), 2);
        delete panel;
        m_backend->releaseAll();
        m_backend->settle();
    }

private:
    boost::shared_ptr<ScriptedBackend> m_backend;
    std::unique_ptr<QSignalSpy> m_messages;
};

QTEST_MAIN(TestQuotesPanelActions)
#include "tst_quotespanel_actions.moc"
