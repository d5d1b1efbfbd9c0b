#include <QApplication>
#include <QMessageBox>
#include <QSignalSpy>
#include <QtTest>

#include "Hlx/COrinClientCenter.h"
#include "Hlx/CUserManager.h"
#include "RecordBuilders.h"
#include "ScriptedBackend.h"
#include "TestIds.h"
#include "TestUsers.h"
#include "Zu/CBaseTableColumnMultiButtonsDelegate.h"
#include "Zu/CLoadingMaskWidget.h"
#include "Zu/COddEvenRowTable.h"
#include "Zu/CSmallNormalButton.h"
#include "panels/QuotesManagePanel.h"
#include "rkservice/DataTypeIds.h"

using namespace Hlx;
using namespace RecordBuilders;
using namespace TestIds;
using Panel = CQuotesManagePanel;

namespace {

// A request as these tests write it: "dataType:condition", and "@target" (the sub-system or
// "centre") where the target matters.
QString requestKey(int dataType, const QString& condition, const QString& target = QString()) {
    const QString key = QString("%1:%2").arg(dataType).arg(condition);
    return target.isEmpty() ? key : key + "@" + target;
}

QStringList buttonTexts(Panel* panel, int row) {
    QStringList texts;
    for (const Zu::ButtonData& button :
         panel->buttonsDelegate()->itemButtons(QString::number(row).toStdString()))
        texts << QString::number(button.id) + ":" + button.text;
    return texts;
}

}  // namespace

class TestQuotesPanelLoad : public QObject {
    Q_OBJECT
private slots:
    void init() {
        m_backend = ScriptedBackend::install();
        m_backend->setLoginTypeAuth(true);
        TestUsers::setCurrent(TestUsers::allRights());
        m_messages.reset(
            new QSignalSpy(COrinClientCenter::instance(), &COrinClientCenter::serverMessageShown));
    }
    void cleanup() {
        m_backend->releaseAll();
        COrinClientCenter::instance()->waitForIdle();
        QCoreApplication::processEvents();
    }

    void stockPanelQueriesItsTradeType() {
        CStockQuotesManagePanel panel(nullptr);
        QCOMPARE(m_backend->requestCount(), 0);
        panel.onActive();
        QTRY_COMPARE(m_backend->requestCount(), 1);
        const auto request = m_backend->requests().front();
        QCOMPARE(request.dataType, kDataQuoteSources);
        QCOMPARE(request.condition, std::string("2"));
        QVERIFY(request.toCentre);
    }

    void requestsPerPanel_data() {
        QTest::addColumn<int>("tradeType");
        QTest::addColumn<QStringList>("requests");
        QTest::newRow("futures") << 1
                                 << QStringList{requestKey(kDataBrokers, "1"),
                                                requestKey(kDataQuoteSources, "1"),
                                                requestKey(kDataQuoteSources, "2")};
        QTest::newRow("futures options")
            << 5
            << QStringList{requestKey(kDataBrokers, "5"), requestKey(kDataQuoteSources, "5"),
                           requestKey(kDataQuoteSources, "2")};
        QTest::newRow("stocks") << 2 << QStringList{requestKey(kDataQuoteSources, "2")};
        QTest::newRow("stock options") << 6 << QStringList{requestKey(kDataQuoteSources, "6")};
        QTest::newRow("hgt") << 7 << QStringList{requestKey(kDataQuoteSources, "7")};
        QTest::newRow("neeq") << 10 << QStringList{requestKey(kDataQuoteSources, "10")};
        QTest::newRow("gold") << 4 << QStringList{requestKey(kDataQuoteSources, "4")};
        QTest::newRow("outer futures") << 16 << QStringList{requestKey(kDataQuoteSources, "16")};
        QTest::newRow("ib") << 1002 << QStringList{requestKey(kDataQuoteSources, "1002")};
        QTest::newRow("swap") << 8 << QStringList{requestKey(kDataQuoteSources, "8")};
        QTest::newRow("sgt") << 11 << QStringList{requestKey(kDataQuoteSources, "11")};
        QTest::newRow("all") << -1
                             << QStringList{requestKey(kDataQuoteSources, ""),
                                            requestKey(kDataGlobalPermission, "")};
    }

    void requestsPerPanel() {
        QFETCH(int, tradeType);
        QFETCH(QStringList, requests);
        std::unique_ptr<Panel> panel(createQuotesPanel(tradeType, nullptr));
        panel->show();
        panel->onActive();
        QTRY_COMPARE(m_backend->requestCount(), requests.size());
        QTRY_VERIFY(!panel->loadingMask()->isVisible());
        COrinClientCenter::instance()->waitForIdle();
        QCoreApplication::processEvents();
        QStringList sent;
        for (const auto& request : m_backend->requests())
            sent << requestKey(request.dataType, QString::fromStdString(request.condition));
        std::sort(sent.begin(), sent.end());
        std::sort(requests.begin(), requests.end());
        QCOMPARE(sent, requests);
        for (const auto& request : m_backend->requests())
            QCOMPARE(request.toCentre, request.dataType != kDataGlobalPermission);
    }

    void routing_data() {
        QTest::addColumn<int>("tradeType");
        QTest::addColumn<bool>("routed");
        QTest::addColumn<QString>("systemName");
        QTest::addColumn<QStringList>("targets");
        // dataType:condition@target, in sending order (target "centre" or the sub-system).
        QTest::newRow("stock routed named")
            << 2 << true << "sys2" << QStringList{requestKey(kDataQuoteSources, "2", "sys2")};
        QTest::newRow("stock routed unnamed")
            << 2 << true << "" << QStringList{requestKey(kDataQuoteSources, "2", "centre")};
        QTest::newRow("stock not routed named")
            << 2 << false << "sys2" << QStringList{requestKey(kDataQuoteSources, "2", "centre")};
        QTest::newRow("futures routed named")
            << 1 << true << "sys2"
            << QStringList{requestKey(kDataBrokers, "1", "sys2"),
                           requestKey(kDataQuoteSources, "1", "sys2"),
                           requestKey(kDataQuoteSources, "2", "centre")};
        QTest::newRow("futures not routed named")
            << 1 << false << "sys2"
            << QStringList{requestKey(kDataBrokers, "1", "sys2"),
                           requestKey(kDataQuoteSources, "1", "centre"),
                           requestKey(kDataQuoteSources, "2", "centre")};
        QTest::newRow("futures routed unnamed")
            << 1 << true << ""
            << QStringList{requestKey(kDataBrokers, "1", "centre"),
                           requestKey(kDataQuoteSources, "1", "centre"),
                           requestKey(kDataQuoteSources, "2", "centre")};
    }

    void routing() {
        QFETCH(int, tradeType);
        QFETCH(bool, routed);
        QFETCH(QString, systemName);
        QFETCH(QStringList, targets);
        m_backend->setSubsystems({{"sys1", "上海"}, {"sys2", "深圳"}});
        TestUsers::setCurrent(TestUsers::allRights(), routed);
        std::unique_ptr<Panel> panel(createQuotesPanel(tradeType, nullptr));
        if (systemName.isEmpty())
            panel->refresh();
        else
            panel->switchSystem(0, systemName);
        QCOMPARE(panel->systemName(), systemName);
        QTRY_COMPARE(m_backend->requestCount(), targets.size());
        QStringList sent;
        for (const auto& request : m_backend->requests())
            sent << requestKey(
                request.dataType, QString::fromStdString(request.condition),
                request.toCentre ? QString("centre") : QString::fromStdString(request.subsystem));
        QCOMPARE(sent, targets);
    }

    void futuresAddButtonWaitsForASubsystem() {
        m_backend->setSubsystems({{"sys1", "上海"}, {"sys2", "深圳"}});
        TestUsers::setCurrent(TestUsers::allRights(), true);
        CFutureQuotesManagePanel panel(nullptr);
        panel.refresh();
        QCOMPARE(panel.addButton()->text(), QString("选择分系统后添加行情源"));
        QVERIFY(!panel.addButton()->isEnabled());
        panel.switchSystem(0, "sys1");
        QCOMPARE(panel.addButton()->text(), QString("+添加期货行情源"));
        QVERIFY(panel.addButton()->isEnabled());
    }

    void stockPanelSkipsFuturesPlatforms() {
        m_backend->setQueryAnswer(
            kDataQuoteSources,
            {source(1, kKxStocks, kStocks, "10.0.0.1", 7001), source(2, kKxFutures, kStocks),
             source(3, kKxFuturesOptions, kStocks), source(4, kKxStocks, kStocks, "::1", 7004)});
        CStockQuotesManagePanel panel(nullptr);
        panel.show();
        panel.refresh();
        QTRY_COMPARE(panel.table()->rowCount(), 2);
        QCOMPARE(panel.table()->itemText(0, Panel::kColId), QString("1"));
        QCOMPARE(panel.table()->itemText(0, Panel::kColPlatform), QString("高级行情"));
        QCOMPARE(panel.table()->itemText(0, Panel::kColAddress), QString("10.0.0.1"));
        QCOMPARE(panel.table()->itemText(0, Panel::kColPort), QString("7001"));
        QCOMPARE(panel.table()->itemText(0, Panel::kColUser), QString("user1"));
        QCOMPARE(panel.table()->itemText(0, Panel::kColPassword), QString("pw1"));
        QCOMPARE(panel.table()->itemText(1, Panel::kColId), QString("4"));
        QCOMPARE(panel.table()->itemText(1, Panel::kColAddress), QString("::1"));
        QCOMPARE(panel.table()->totalCount(), 4);
        QCOMPARE(panel.rowRecordCount(), 2);
        QCOMPARE(panel.rowRecord(1)->m_nId, 4);
        QCOMPARE(buttonTexts(&panel, 0), (QStringList{"5:编辑", "6:删除"}));
        QVERIFY(!panel.loadingMask()->isVisible());
    }

    void rowTextsPerTradeType_data() {
        QTest::addColumn<int>("tradeType");
        QTest::addColumn<int>("platformId");
        QTest::addColumn<QString>("typeText");
        QTest::addColumn<QString>("platformText");
        QTest::newRow("stocks") << 2 << 10000 << "证券"
                                << "高级行情";
        QTest::newRow("futures via stock dialog") << 2 << 20000 << "期货"
                                                  << "高级行情-期货";
        QTest::newRow("futures options via stock dialog") << 2 << 70000 << "期货期权"
                                                          << "高级行情-期货期权";
        QTest::newRow("stock options ctp") << 6 << 25011 << "股票期权"
                                           << "CTP个股期权实盘";
        QTest::newRow("hgt") << 7 << 10003 << "沪港通"
                             << "高级行情";
        QTest::newRow("sgt") << 11 << 10004 << "深港通"
                             << "高级行情";
        QTest::newRow("neeq") << 10 << 10002 << "新三板"
                              << "高级行情";
        QTest::newRow("gold") << 4 << 31003 << "贵金属"
                              << "高级行情";
        QTest::newRow("ib") << 1002 << 32000 << "IB外盘"
                            << "";
        QTest::newRow("swap") << 8 << 32000 << "收益互换"
                              << "";
        QTest::newRow("outer futures") << 16 << 15000 << "外盘期货"
                                       << "高级行情";
        QTest::newRow("all types record") << -1 << 10000 << "全部"
                                          << "高级行情";
    }

    void rowTextsPerTradeType() {
        QFETCH(int, tradeType);
        QFETCH(int, platformId);
        QFETCH(QString, typeText);
        QFETCH(QString, platformText);
        m_backend->setQueryAnswer(kDataQuoteSources, {source(9, platformId, tradeType)});
        CAllTypeQuotesManagePanel panel(nullptr);
        panel.refresh();
        QTRY_COMPARE(panel.table()->rowCount(), 1);
        QCOMPARE(panel.table()->itemText(0, Panel::kColTradeType), typeText);
        QCOMPARE(panel.table()->itemText(0, Panel::kColPlatform), platformText);
        // The server name goes to the server-group column, which this panel removed.
        QVERIFY(!panel.table()->hasColumn(Panel::kColServerGroup));
        QCOMPARE(panel.table()->itemText(0, Panel::kColSubsystem), QString());
    }

    void allTypesListsOnlySourcesWithoutBroker() {
        auto withBroker = source(2, kKxFutures, kFutures);
        withBroker->m_nBrokerId = 17;
        m_backend->setQueryAnswer(kDataQuoteSources, {source(1, kKxFutures, kStocks), withBroker,
                                                      source(3, kKxStocks, kStocks)});
        TestUsers::setCurrent({});
        CAllTypeQuotesManagePanel panel(nullptr);
        panel.refresh();
        QTRY_COMPARE(panel.table()->rowCount(), 2);
        QCOMPARE(panel.table()->itemText(0, Panel::kColId), QString("1"));
        QCOMPARE(panel.table()->itemText(0, Panel::kColTradeType), QString("期货"));
        QCOMPARE(panel.table()->itemText(1, Panel::kColId), QString("3"));
        // The all-types panel shows both buttons whatever the rights.
        QCOMPARE(buttonTexts(&panel, 0), (QStringList{"5:编辑", "6:删除"}));
    }

    void rowButtonsFollowRights_data() {
        QTest::addColumn<int>("tradeType");
        QTest::addColumn<int>("editRight");
        QTest::addColumn<int>("deleteRight");
        QTest::addColumn<int>("platformId");
        QTest::newRow("2") << 2 << 10389 << 10563 << 10000;
        QTest::newRow("6") << 6 << 10711 << 10713 << 10001;
        QTest::newRow("7") << 7 << 11031 << 11033 << 10003;
        QTest::newRow("10") << 10 << 11021 << 11023 << 10002;
        QTest::newRow("4") << 4 << 12149 << 12151 << 31003;
        QTest::newRow("1002") << 1002 << 12363 << 12365 << 32000;
        QTest::newRow("16") << 16 << 12355 << 12357 << 15000;
        QTest::newRow("11") << 11 << 11223 << 11224 << 10004;
        QTest::newRow("8") << 8 << 12370 << 12372 << 32000;
    }

    void rowButtonsFollowRights() {
        QFETCH(int, tradeType);
        QFETCH(int, editRight);
        QFETCH(int, deleteRight);
        QFETCH(int, platformId);
        m_backend->setQueryAnswer(kDataQuoteSources, {source(1, platformId, tradeType)});
        const QList<std::set<int>> rightSets{
            {}, {editRight}, {deleteRight}, {editRight, deleteRight}};
        const QList<QStringList> expected{{}, {"5:编辑"}, {"6:删除"}, {"5:编辑", "6:删除"}};
        for (int i = 0; i < rightSets.size(); ++i) {
            TestUsers::setCurrent(rightSets[i]);
            std::unique_ptr<Panel> panel(createQuotesPanel(tradeType, nullptr));
            panel->refresh();
            QTRY_COMPARE(panel->table()->rowCount(), 1);
            QCOMPARE(buttonTexts(panel.get(), 0), expected[i]);
            QVERIFY(panel->rowRecord(0));
        }
    }

    void failedQueryShowsDefaultMessage() {
        m_backend->setQueryAnswer(kDataQuoteSources, {}, utils::RKError::fail(""));
        CStockQuotesManagePanel panel(nullptr);
        panel.show();
        panel.refresh();
        QTRY_COMPARE(m_messages->count(), 1);
        const QList<QVariant> message = m_messages->takeFirst();
        QCOMPARE(message.at(0).toInt(), 1);
        QCOMPARE(message.at(1).toBool(), false);
        QCOMPARE(message.at(2).value<QWidget*>(), &panel);
        QCOMPARE(message.at(3).toString(), QString("证券行情源"));
        QCOMPARE(message.at(4).toString(), QString("请求数据失败"));
        QCOMPARE(panel.table()->rowCount(), 0);
        QTRY_VERIFY(!panel.loadingMask()->isVisible());
    }

    void failedQueryShowsServerMessageAndCount() {
        m_backend->setQueryAnswer(kDataQuoteSources, {source(1, kKxStocks, kStockOptions)},
                                  utils::RKError::fail("服务器忙"));
        COptionQuotesManagePanel panel(nullptr);
        panel.refresh();
        QTRY_COMPARE(m_messages->count(), 1);
        QCOMPARE(m_messages->at(0).at(3).toString(), QString("股票期权行情源"));
        QCOMPARE(m_messages->at(0).at(4).toString(), QString("服务器忙"));
        QCOMPARE(panel.table()->rowCount(), 0);
        QCOMPARE(panel.table()->totalCount(), 1);
    }

    void maskShowsWhileBrokersLoad() {
        m_backend->setHolding(true);
        CFutureQuotesManagePanel panel(nullptr);
        panel.show();
        panel.refresh();
        QVERIFY(panel.loadingMask()->isVisible());
        QTRY_COMPARE(m_backend->heldCount(), 1);
        m_backend->releaseAll();
        QTRY_VERIFY(!panel.loadingMask()->isVisible());
    }

    void stockPanelHidesTheMaskOnceItsQueryIsSent() {
        // Its broker step runs at once, and that step hides the mask.
        m_backend->setHolding(true);
        CStockQuotesManagePanel panel(nullptr);
        panel.show();
        panel.refresh();
        QVERIFY(!panel.loadingMask()->isVisible());
        QTRY_COMPARE(m_backend->heldCount(), 1);
    }

    void brokerRowsMatchPlatformBrokerTagAndGroup() {
        m_backend->setSubsystems({{"sys1", "上海"}, {"sys2", "深圳"}});
        TestUsers::setCurrent(TestUsers::allRights(), true);
        m_backend->setQueryAnswer(
            kDataBrokers, {broker(kKxFutures, "88_guotai", "国泰君安期货",
                                  {group(1, "电信", {"10.1.1.1:41205", "10.1.1.2:41206"}),
                                   group(2, "联通", {"10.2.2.2"})},
                                  "高级行情-期货", "sys1"),
                           broker(kKxFutures, "88_copy", "同号他系统",
                                  {group(1, "电信", {"9.9.9.9:1"})}, "高级行情-期货", "sys2"),
                           broker(30000, "88_other", "他平台", {group(1, "电信", {"8.8.8.8:1"})})});
        m_backend->setQueryAnswer(kDataQuoteSources, "1",
                                  {brokerSource(11, kKxFutures, 88, 1, 1, "sys1"),
                                   brokerSource(12, kKxFutures, 88, 2, 1, "sys1"),
                                   brokerSource(13, kKxFutures, 89, 1, 1, "sys1"),
                                   brokerSource(14, kKxFutures, 88, 3, 1, "sys1")});
        m_backend->setQueryAnswer(kDataQuoteSources, "2", {});
        CFutureQuotesManagePanel panel(nullptr);
        panel.switchSystem(0, "sys1");
        QTRY_COMPARE(panel.table()->rowCount(), 2);
        COrinClientCenter::instance()->waitForIdle();
        QCoreApplication::processEvents();
        QCOMPARE(panel.table()->rowCount(), 2);
        Zu::COddEvenRowTable* table = panel.table();
        QCOMPARE(table->itemText(0, Panel::kColId), QString("11"));
        QCOMPARE(table->itemText(0, Panel::kColPlatform), QString("高级行情-期货"));
        QCOMPARE(table->itemText(0, Panel::kColName), QString("国泰君安期货"));
        QCOMPARE(table->itemText(0, Panel::kColServerGroup), QString("电信"));
        QCOMPARE(table->itemText(0, Panel::kColAddress), QString("10.1.1.1,10.1.1.2"));
        QCOMPARE(table->itemText(0, Panel::kColPort), QString("41205,41206"));
        QCOMPARE(table->itemText(0, Panel::kColSubsystem), QString("上海"));
        QCOMPARE(table->itemText(1, Panel::kColId), QString("12"));
        QCOMPARE(table->itemText(1, Panel::kColServerGroup), QString("联通"));
        QCOMPARE(table->itemText(1, Panel::kColAddress), QString("10.2.2.2"));
        QCOMPARE(table->itemText(1, Panel::kColPort), QString());
        QCOMPARE(buttonTexts(&panel, 0), QStringList{"6:删除"});
        QCOMPARE(panel.rowRecord(1)->m_nId, 12);
    }

    void brokerRowDeleteNeedsRight() {
        TestUsers::setCurrent({10385});
        m_backend->setQueryAnswer(
            kDataBrokers, {broker(kKxFutures, "5", "无下划线", {group(1, "电信", {"1.1.1.1:1"})})});
        m_backend->setQueryAnswer(kDataQuoteSources, "1", {brokerSource(1, kKxFutures, 5, 1, 1)});
        CFutureQuotesManagePanel panel(nullptr);
        panel.refresh();
        QTRY_COMPARE(panel.table()->rowCount(), 1);
        QCOMPARE(buttonTexts(&panel, 0), QStringList{});
    }

    void brokerFailureStopsTheLoad() {
        m_backend->setQueryAnswer(kDataBrokers, {}, utils::RKError::fail("经纪商查询失败"));
        CFtOptionQuotesManagePanel panel(nullptr);
        panel.show();
        panel.refresh();
        QTRY_COMPARE(m_messages->count(), 1);
        QCOMPARE(m_messages->at(0).at(3).toString(), QString("期货期权行情源"));
        QCOMPARE(m_messages->at(0).at(4).toString(), QString("经纪商查询失败"));
        QTRY_VERIFY(!panel.loadingMask()->isVisible());
        COrinClientCenter::instance()->waitForIdle();
        QCoreApplication::processEvents();
        QCOMPARE(m_backend->requestCount(), 1);
    }

    void brokerMessageWithoutFailureStillLoads() {
        m_backend->setQueryAnswer(kDataBrokers, {}, utils::RKError(true, "部分经纪商不可用"));
        CFutureQuotesManagePanel panel(nullptr);
        panel.refresh();
        QTRY_COMPARE(m_backend->requestsOf(kDataQuoteSources).size(), size_t(2));
        QCOMPARE(m_messages->count(), 1);
    }

    void kxRowsFollowThePanelsPlatform_data() {
        QTest::addColumn<int>("tradeType");
        QTest::addColumn<int>("keptId");
        QTest::addColumn<QString>("nameText");
        QTest::newRow("futures") << 1 << 1 << "Kx期货";
        QTest::newRow("futures options") << 5 << 2 << "Kx期货期权";
    }

    void kxRowsFollowThePanelsPlatform() {
        QFETCH(int, tradeType);
        QFETCH(int, keptId);
        QFETCH(QString, nameText);
        m_backend->setLoginTypeAuth(false);
        m_backend->setQueryAnswer(kDataQuoteSources, "2",
                                  {source(1, kKxFutures, kStocks, "1.1.1.1", 11),
                                   source(2, kKxFuturesOptions, kStocks, "2.2.2.2", 22)});
        std::unique_ptr<Panel> panel(createQuotesPanel(tradeType, nullptr));
        panel->refresh();
        QTRY_COMPARE(panel->table()->rowCount(), 1);
        Zu::COddEvenRowTable* table = panel->table();
        QCOMPARE(table->itemText(0, Panel::kColId), QString::number(keptId));
        QCOMPARE(table->itemText(0, Panel::kColName), nameText);
        QCOMPARE(table->itemText(0, Panel::kColPlatform),
                 keptId == 1 ? QString("Kx高级行情-期货") : QString("Kx高级行情-期货期权"));
        QCOMPARE(table->itemText(0, Panel::kColServerGroup), QString("一号系统"));
        QCOMPARE(buttonTexts(panel.get(), 0), QStringList{"6:删除"});
        QCOMPARE(panel->rowRecord(0)->m_nId, keptId);
    }

    void kxRowWithoutRightsHasNoButton() {
        TestUsers::setCurrent({10385});
        m_backend->setQueryAnswer(kDataQuoteSources, "2", {source(1, kKxFutures, kStocks)});
        CFutureQuotesManagePanel panel(nullptr);
        panel.refresh();
        QTRY_COMPARE(panel.table()->rowCount(), 1);
        QCOMPARE(buttonTexts(&panel, 0), QStringList{});
        TestUsers::setCurrent({11230});
        panel.refresh();
        QTRY_COMPARE(buttonTexts(&panel, 0), QStringList{"6:删除"});
    }

    void kxRowsFollowOrdinaryRows() {
        m_backend->setQueryAnswer(
            kDataBrokers, {broker(kKxFutures, "7_x", "期货公司", {group(3, "主", {"1.1.1.1:1"})})});
        m_backend->setQueryAnswer(kDataQuoteSources, "1", {brokerSource(5, kKxFutures, 7, 3, 1)});
        m_backend->setQueryAnswer(kDataQuoteSources, "2", {source(6, kKxFutures, kStocks)});
        CFutureQuotesManagePanel panel(nullptr);
        panel.refresh();
        QTRY_COMPARE(panel.table()->rowCount(), 2);
        QCOMPARE(panel.table()->itemText(0, Panel::kColId), QString("5"));
        QCOMPARE(panel.table()->itemText(1, Panel::kColId), QString("6"));
        QCOMPARE(panel.rowRecord(1)->m_nId, 6);
    }

    void kxMessageIsShownTwice() {
        m_backend->setQueryAnswer(kDataQuoteSources, "2", {source(1, kKxFutures, kStocks)},
                                  utils::RKError::fail("Kx源不可用"));
        CFutureQuotesManagePanel panel(nullptr);
        QString warningText;
        QString warningTitle;
        QTimer watcher;
        connect(&watcher, &QTimer::timeout, [&] {
            if (auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget())) {
                warningText = box->text();
                warningTitle = box->windowTitle();
                box->button(QMessageBox::Ok)->click();
            }
        });
        watcher.start(20);
        panel.refresh();
        QTRY_VERIFY(!warningText.isEmpty());
        QCOMPARE(warningText, QString("Kx源不可用"));
        QCOMPARE(warningTitle, QString("期货行情源"));
        QTRY_COMPARE(m_messages->count(), 1);
        QCOMPARE(m_messages->at(0).at(3).toString(), QString("期货行情源"));
        QCOMPARE(m_messages->at(0).at(4).toString(), QString("Kx源不可用"));
        QCOMPARE(panel.table()->rowCount(), 0);
    }

    void multiServerUserWithoutSubsystemStillQueries() {
        m_backend->setSubsystems({{"sys1", "上海"}, {"sys2", "深圳"}});
        TestUsers::setCurrent(TestUsers::allRights(), true);
        CGoldQuotesManagePanel panel(nullptr);
        panel.refresh();
        QTRY_COMPARE(m_backend->requestCount(), 1);
        QVERIFY(m_backend->requests().front().toCentre);
        QCOMPARE(m_backend->requests().front().condition, std::string("4"));
    }

    void permissionRecordIsKeptAndHandedOn() {
        auto info = boost::make_shared<rkservice::CGlobalFeaturePermissionInfo>();
        info->m_wholeQuote->setEnabled("SH", true);
        m_backend->setQueryAnswer(kDataGlobalPermission, {info});
        CAllTypeQuotesManagePanel panel(nullptr);
        panel.switchSystem(0, "sys1");
        m_backend->clearRequests();
        panel.onActive();
        QTRY_VERIFY(panel.permissionInfo());
        QVERIFY(panel.permissionInfo()->m_wholeQuote->isEnabled("SH"));
        QCOMPARE(CUserManager::instance()->getGlobalPermissionInfo().get(),
                 panel.permissionInfo().get());
        const auto requests = m_backend->requestsOf(kDataGlobalPermission);
        QCOMPARE(int(requests.size()), 1);
        QCOMPARE(requests.front().toCentre, false);
        QCOMPARE(requests.front().subsystem, std::string("sys1"));
        QCOMPARE(requests.front().condition, std::string());
    }

    void foreignPermissionRecordClearsIt() {
        m_backend->setQueryAnswer(kDataGlobalPermission,
                                  {boost::make_shared<rkservice::CGlobalFeaturePermissionInfo>()});
        CAllTypeQuotesManagePanel panel(nullptr);
        panel.onActive();
        QTRY_VERIFY(panel.permissionInfo());
        m_backend->setQueryAnswer(kDataGlobalPermission, {source(1, kKxStocks, kStocks)});
        panel.onActive();
        QTRY_VERIFY(!panel.permissionInfo());
        // An empty answer keeps what is there.
        m_backend->setQueryAnswer(kDataGlobalPermission,
                                  {boost::make_shared<rkservice::CGlobalFeaturePermissionInfo>()});
        panel.onActive();
        QTRY_VERIFY(panel.permissionInfo());
        m_backend->setQueryAnswer(kDataGlobalPermission, {}, utils::RKError::fail("无权限"));
        panel.onActive();
        COrinClientCenter::instance()->waitForIdle();
        QVERIFY(panel.permissionInfo());
        QCOMPARE(m_messages->count(), 0);
    }

    void onlyAllTypesPanelAsksForPermission() {
        CStockQuotesManagePanel panel(nullptr);
        panel.onActive();
        QTRY_COMPARE(m_backend->requestCount(), 1);
        COrinClientCenter::instance()->waitForIdle();
        QVERIFY(m_backend->requestsOf(kDataGlobalPermission).empty());
    }

private:
    boost::shared_ptr<ScriptedBackend> m_backend;
    std::unique_ptr<QSignalSpy> m_messages;
};

QTEST_MAIN(TestQuotesPanelLoad)
#include "tst_quotespanel_load.moc"
