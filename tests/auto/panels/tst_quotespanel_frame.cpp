#include <QHeaderView>
#include <QTableView>
#include <QtTest>
#include <memory>

#include "Hlx/COrinClientCenter.h"
#include "ScriptedBackend.h"
#include "TestUsers.h"
#include "Zu/COddEvenRowTable.h"
#include "Zu/CPushButton.h"
#include "Zu/CSmallNormalButton.h"
#include "panels/QuotesManagePanel.h"

using namespace Hlx;
using Panel = CQuotesManagePanel;

namespace {

// The tool-bar buttons of a panel: id → text.
QMap<int, QString> toolBarButtons(Panel* panel) {
    QMap<int, QString> buttons;
    for (auto* button : panel->findChildren<Zu::CSmallNormalButton*>())
        buttons.insert(button->id(), button->text());
    for (auto* button : panel->findChildren<Zu::CPushButton*>())
        buttons.insert(button->id(), button->text());
    return buttons;
}

QList<int> visibleColumns(Panel* panel) {
    QList<int> columns;
    for (int id = 0; id < Panel::kColumnCount; ++id) {
        if (panel->table()->hasColumn(id) && !panel->table()->isColumnHidden(id))
            columns << id;
    }
    return columns;
}

}  // namespace

class TestQuotesPanelFrame : public QObject {
    Q_OBJECT
private slots:
    void init() {
        m_backend = ScriptedBackend::install();
        m_backend->setLoginTypeAuth(false);
    }
    void cleanup() { COrinClientCenter::instance()->waitForIdle(); }

    void panels_data() {
        QTest::addColumn<int>("tradeType");
        QTest::addColumn<QString>("objectName");
        QTest::addColumn<int>("layoutId");
        QTest::addColumn<QString>("addText");
        QTest::addColumn<QString>("kxText");
        QTest::addColumn<QList<int>>("columns");
        const QList<int> plain{2, 5, 6, 7, 9};
        const QList<int> futures{2, 3, 4, 5, 6, 9};
        QTest::newRow("ftq") << 1 << "ftq" << 1253 << "+添加期货行情源"
                             << "+添加Kx期货行情源" << futures;
        QTest::newRow("stq") << 2 << "stq" << 1254 << "+添加证券行情源"
                             << "" << plain;
        QTest::newRow("foq") << 5 << "foq" << 1255 << "+添加期货期权行情源"
                             << "+添加Kx期货期权行情源" << futures;
        QTest::newRow("soq") << 6 << "soq" << 1256 << "+添加股票期权行情源"
                             << "" << plain;
        QTest::newRow("hgq") << 7 << "hgq" << 1258 << "+添加沪港通行情源"
                             << "" << plain;
        QTest::newRow("nwq") << 10 << "nwq" << 1257 << "+添加新三板行情源"
                             << "" << plain;
        QTest::newRow("god") << 4 << "god" << 1259 << "+添加贵金属行情源"
                             << "" << plain;
        QTest::newRow("ofq") << 16 << "ofq" << 1260 << "+添加外盘期货行情源"
                             << "" << plain;
        QTest::newRow("oiq") << 1002 << "oiq" << 0 << "+添加IB外盘行情源"
                             << "" << plain;
        QTest::newRow("osq") << 8 << "osq" << 1262 << "+添加收益互换行情源"
                             << "" << plain;
        QTest::newRow("allq") << -1 << "allq" << 1263 << ""
                              << "+添加Kx全部行情源" << QList<int>{1, 2, 5, 6, 7, 9};
        QTest::newRow("sgq") << 11 << "sgq" << 0 << "+添加深港通行情源"
                             << "" << plain;
    }

    void panels() {
        QFETCH(int, tradeType);
        QFETCH(QString, objectName);
        QFETCH(int, layoutId);
        QFETCH(QString, addText);
        QFETCH(QString, kxText);
        QFETCH(QList<int>, columns);

        TestUsers::setCurrent(TestUsers::allRights());
        std::unique_ptr<Panel> panel(createQuotesPanel(tradeType, nullptr));
        QVERIFY(panel);
        QCOMPARE(panel->objectName(), objectName);
        QCOMPARE(panel->tradeType(), tradeType);
        QCOMPARE(panel->table()->layoutId(), layoutId);
        QCOMPARE(visibleColumns(panel.get()), columns);
        QVERIFY(panel->table()->hasColumn(Panel::kColId));
        QVERIFY(panel->table()->isColumnHidden(Panel::kColId));

        QMap<int, QString> buttons = toolBarButtons(panel.get());
        QCOMPARE(buttons.value(Panel::kBtnRefresh), QString("刷新"));
        QCOMPARE(buttons.value(Panel::kBtnDeleteAll), QString("全部删除"));
        QCOMPARE(buttons.value(Panel::kBtnAdd), addText);
        QCOMPARE(buttons.contains(Panel::kBtnAdd), !addText.isEmpty());
        QCOMPARE(buttons.value(Panel::kBtnKxAdd), kxText);
        QCOMPARE(buttons.contains(Panel::kBtnWholeQuote), tradeType == -1);
        if (tradeType == -1)
            QCOMPARE(buttons.value(Panel::kBtnWholeQuote), QString("行情全推设置"));
        if (panel->addButton())
            QCOMPARE(panel->addButton()->size(), QSize(135, 26));
        for (auto* button : panel->findChildren<Zu::CSmallNormalButton*>()) {
            if (button->id() == Panel::kBtnRefresh || button->id() == Panel::kBtnDeleteAll)
                QCOMPARE(button->size(), QSize(70, 26));
        }

        // Without rights: only refresh and delete-all (and the all-types panel's own buttons).
        TestUsers::setCurrent({});
        std::unique_ptr<Panel> bare(createQuotesPanel(tradeType, nullptr));
        buttons = toolBarButtons(bare.get());
        QVERIFY(!bare->addButton());
        QVERIFY(!buttons.contains(Panel::kBtnAdd));
        QCOMPARE(buttons.contains(Panel::kBtnKxAdd), tradeType == -1);
        QCOMPARE(buttons.contains(Panel::kBtnWholeQuote), tradeType == -1);
        QVERIFY(buttons.contains(Panel::kBtnRefresh));
        QVERIFY(buttons.contains(Panel::kBtnDeleteAll));
        QCOMPARE(visibleColumns(bare.get()), columns);
    }

    void futuresPanelWithoutRightShowsNoAddButton() {
        TestUsers::setCurrent({10387, 11231});
        CFutureQuotesManagePanel panel(nullptr);
        const QMap<int, QString> buttons = toolBarButtons(&panel);
        QVERIFY(!buttons.contains(Panel::kBtnAdd));
        QVERIFY(!buttons.contains(Panel::kBtnKxAdd));
        QVERIFY(buttons.contains(Panel::kBtnRefresh));
        QVERIFY(buttons.contains(Panel::kBtnDeleteAll));
    }

    void allTypesPanelButtons() {
        TestUsers::setCurrent(TestUsers::allRights());
        CAllTypeQuotesManagePanel panel(nullptr);
        const QMap<int, QString> buttons = toolBarButtons(&panel);
        QVERIFY(!panel.addButton());
        QVERIFY(!buttons.contains(Panel::kBtnAdd));
        QVERIFY(buttons.contains(Panel::kBtnKxAdd));
        QCOMPARE(buttons.value(Panel::kBtnWholeQuote), QString("行情全推设置"));
        auto* wholeQuote = panel.findChildren<Zu::CPushButton*>().value(0);
        QVERIFY(wholeQuote);
        QCOMPARE(wholeQuote->height(), 15);
    }

    void kxPrefixFollowsLoginType() {
        TestUsers::setCurrent(TestUsers::allRights());
        m_backend->setLoginTypeAuth(true);
        CFutureQuotesManagePanel panel(nullptr);
        QCOMPARE(toolBarButtons(&panel).value(Panel::kBtnKxAdd), QString("+添加期货行情源"));
    }

    void subsystemColumnNeedsRoutingAndSeveralServers_data() {
        QTest::addColumn<bool>("routed");
        QTest::addColumn<bool>("multi");
        QTest::addColumn<bool>("visible");
        QTest::newRow("routed, multi") << true << true << true;
        QTest::newRow("routed, single") << true << false << false;
        QTest::newRow("not routed, multi") << false << true << false;
    }

    void subsystemColumnNeedsRoutingAndSeveralServers() {
        QFETCH(bool, routed);
        QFETCH(bool, multi);
        QFETCH(bool, visible);
        if (multi)
            m_backend->setSubsystems({{"sys1", "上海"}, {"sys2", "深圳"}});
        TestUsers::setCurrent(TestUsers::allRights(), routed);
        CFutureQuotesManagePanel panel(nullptr);
        QCOMPARE(panel.routesBySystem(), routed);
        QCOMPARE(!panel.table()->isColumnHidden(Panel::kColSubsystem), visible);
        CStockQuotesManagePanel stock(nullptr);
        QCOMPARE(!stock.table()->isColumnHidden(Panel::kColSubsystem), visible);
    }

    void routingFlagReadsTheUserField() {
        auto user = TestUsers::setCurrent({});
        user->m_nSystemId = 2147483647;
        CStockQuotesManagePanel maxed(nullptr);
        QVERIFY(maxed.routesBySystem());
        user->m_nSystemId = 5;
        CStockQuotesManagePanel plain(nullptr);
        QVERIFY(!plain.routesBySystem());
    }

    void headers() {
        TestUsers::setCurrent({});
        CFutureQuotesManagePanel panel(nullptr);
        QCOMPARE(panel.table()->columnHeader(Panel::kColPlatform), QString("平台名称"));
        QCOMPARE(panel.table()->columnHeader(Panel::kColName), QString("名称"));
        QCOMPARE(panel.table()->columnHeader(Panel::kColServerGroup), QString("服务器组"));
        QCOMPARE(panel.table()->columnHeader(Panel::kColOperation), QString("操作"));
        QCOMPARE(panel.table()->columnHeader(Panel::kColSubsystem), QString("分系统"));
        QVERIFY(panel.table()->isColumnHidden(Panel::kColUser));
        QVERIFY(!panel.table()->hasColumn(Panel::kColPassword));
        QVERIFY(!panel.table()->hasColumn(Panel::kColTradeType));
        CStockQuotesManagePanel stock(nullptr);
        QVERIFY(stock.table()->hasColumn(Panel::kColPassword));
        QVERIFY(stock.table()->isColumnHidden(Panel::kColPassword));
        QCOMPARE(stock.table()->columnHeader(Panel::kColAddress), QString("地址"));
        QCOMPARE(stock.table()->columnHeader(Panel::kColPort), QString("端口"));
        QCOMPARE(stock.table()->columnHeader(Panel::kColUser), QString("用户名"));
    }

    void paramRoundTrip() {
        TestUsers::setCurrent({});
        CStockQuotesManagePanel panel(nullptr);
        const QString defaults = panel.param();
        customise(&panel);
        const QString state = panel.param();
        QVERIFY(!state.isEmpty());
        QVERIFY(!state.contains(';'));
        QVERIFY(state != defaults);
        CStockQuotesManagePanel other(nullptr);
        QCOMPARE(other.param(), defaults);
        other.setParam(state + ";ignored;parts");
        QCOMPARE(other.param(), state);
        QVERIFY(other.table()->isColumnUserHidden(Panel::kColPort));
        QCOMPARE(other.table()->view()->horizontalHeader()->visualIndex(
                     modelColumn(&other, Panel::kColAddress)),
                 0);
    }

    void emptyParamChangesNothing() {
        TestUsers::setCurrent({});
        CStockQuotesManagePanel panel(nullptr);
        customise(&panel);
        const QString before = panel.param();
        panel.setParam(QString());
        QCOMPARE(panel.param(), before);
        panel.setParam(QStringLiteral("garbage that is not a configuration"));
        QCOMPARE(panel.param(), before);
        // A damaged copy of a real configuration changes nothing either.
        CStockQuotesManagePanel fresh(nullptr);
        QString damaged = fresh.param();
        damaged[damaged.size() - 1] = damaged.endsWith(QLatin1Char('0')) ? '1' : '0';
        panel.setParam(damaged);
        QCOMPARE(panel.param(), before);
    }

private:
    // The model column of a column id, found by its header text.
    static int modelColumn(Panel* panel, int columnId) {
        const QString header = panel->table()->columnHeader(columnId);
        QAbstractItemModel* model = panel->table()->view()->model();
        for (int column = 0; column < model->columnCount(); ++column) {
            if (model->headerData(column, Qt::Horizontal).toString() == header)
                return column;
        }
        return -1;
    }
    // A table layout that differs from the defaults: the address first, the port hidden.
    static void customise(Panel* panel) {
        QHeaderView* header = panel->table()->view()->horizontalHeader();
        header->moveSection(header->visualIndex(modelColumn(panel, Panel::kColAddress)), 0);
        QVERIFY(panel->table()->setColumnUserHidden(Panel::kColPort, true));
    }

    boost::shared_ptr<ScriptedBackend> m_backend;
};

QTEST_MAIN(TestQuotesPanelFrame)
#include "tst_quotespanel_frame.moc"
