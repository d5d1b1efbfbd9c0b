#include <QApplication>
#include <QElapsedTimer>
#include <QPointer>
#include <QtTest>
#include <boost/make_shared.hpp>
#include <climits>

#include "Hlx/COrinClientCenter.h"
#include "Hlx/CSafeLineEdit.h"
#include "ScriptedBackend.h"
#include "ServerMessages.h"
#include "TestIds.h"
#include "TestUsers.h"
#include "Zu/CBaseWidget.h"
#include "Zu/CComboBox.h"
#include "Zu/CLoadingMaskWidget.h"
#include "Zu/CMessageTip.h"
#include "Zu/CSimpleTextWidget.h"
#include "Zu/CSmallNormalButton.h"
#include "dialogs/CSetFutureQuotesDialog.h"
#include "rkservice/COrinBrokerInfo.h"
#include "rkservice/COrinPlatformInfo.h"
#include "rkservice/COrinQuoterSourceInfo.h"

using namespace Hlx;
using namespace TestIds;
using rkservice::COrinQuoterSourceInfo;

namespace {

class EventSink : public Zu::CBaseWidget {
public:
    bool handleEvent(int type, int id, int arg, QString text, void* extra) override {
        Q_UNUSED(id);
        Q_UNUSED(arg);
        Q_UNUSED(text);
        Q_UNUSED(extra);
        types.append(type);
        return type == Zu::EventQuoteSourcesChanged;
    }
    QVector<int> types;
};

class CloseCounter : public QObject {
public:
    bool eventFilter(QObject* watched, QEvent* event) override {
        if (event->type() == QEvent::Close)
            ++closes;
        return QObject::eventFilter(watched, event);
    }
    int closes = 0;
};

rkservice::IDataPtr platform(int id, const std::string& name) {
    auto record = boost::make_shared<rkservice::COrinPlatformInfo>();
    record->platformId = id;
    record->platformName = name;
    return record;
}

rkservice::COrinServerGroupPtr group(int id, const std::string& name) {
    auto record = boost::make_shared<rkservice::COrinServerGroup>();
    record->serverGroupId = id;
    record->serverGroupName = name;
    record->serverAddresses = {"10.0.0." + std::to_string(id) + ":41205"};
    return record;
}

rkservice::IDataPtr broker(int platformId, const std::string& key, const std::string& name,
                           std::vector<rkservice::COrinServerGroupPtr> groups) {
    auto record = boost::make_shared<rkservice::COrinBrokerInfo>();
    record->platformId = platformId;
    record->brokerKey = key;
    record->brokerName = name;
    record->serverGroups = std::move(groups);
    return record;
}

QStringList itemTexts(Zu::CComboBox* combo) {
    QStringList texts;
    for (int i = 0; i < combo->count(); ++i)
        texts << combo->itemText(i);
    return texts;
}

const QString kChoose = QStringLiteral("--请选择--");

}  // namespace

class TestFutureDialog : public QObject {
    Q_OBJECT

private:
    boost::shared_ptr<ScriptedBackend> m_backend;
    ServerMessages m_messages;

    void scriptStandardLists() {
        m_backend->setQueryAnswer(
            kDataPlatforms, {platform(kKxFutures, "上期所行情"), platform(20001, "中金所行情")});
        m_backend->setQueryAnswer(
            kDataBrokers,
            {broker(kKxFutures, "1234_abc", "甲期货", {group(1, "电信"), group(2, "联通")}),
             broker(kKxFutures, "77", "乙期货", {group(3, "主站")}),
             broker(20001, "abc_1", "丙期货", {group(4, "备用")})});
    }

    // Loads the lists and waits until both answers have been taken in.
    void load(CSetFutureQuotesDialog* dialog, const QString& systemName = QString()) {
        dialog->setBasicInfo(systemName);
        QTRY_VERIFY(!dialog->platformsPending() && !dialog->brokersPending());
    }

    void choose(CSetFutureQuotesDialog* dialog, const QString& platformName,
                const QString& brokerName, const QString& groupName) {
        dialog->platformCombo()->setCurrentText(platformName);
        QCOMPARE(dialog->platformCombo()->currentText(), platformName);
        dialog->brokerCombo()->setCurrentText(brokerName);
        QCOMPARE(dialog->brokerCombo()->currentText(), brokerName);
        dialog->serverGroupCombo()->setCurrentText(groupName);
        QCOMPARE(dialog->serverGroupCombo()->currentText(), groupName);
    }

    std::vector<ScriptedBackend::Request> operations() const {
        std::vector<ScriptedBackend::Request> result;
        for (const auto& request : m_backend->requests()) {
            if (!request.isQuery)
                result.push_back(request);
        }
        return result;
    }

    void press(QWidget* dialog, int id) {
        QTest::mouseClick(kitButton(dialog, id), Qt::LeftButton);
        COrinClientCenter::instance()->waitForIdle();
    }

private slots:
    void initTestCase() { COrinClientCenter::instance()->setShowMessageBoxes(false); }

    void init() {
        m_backend = ScriptedBackend::install();
        TestUsers::setCurrent(TestUsers::allRights(), false);
        m_messages.clear();
        Zu::CMessageTip::resetLastTip();
    }

    void cleanup() {
        m_backend->setHolding(false);
        m_backend->releaseAll();
        COrinClientCenter::instance()->waitForIdle();
    }

    // ---- layout ----

    void layout_data() {
        QTest::addColumn<int>("tradeType");
        QTest::addColumn<QString>("title");
        QTest::addColumn<QString>("markets");
        QTest::newRow("futures") << 1 << "添加期货行情源"
                                 << "DF,IF,SF,ZF,INE";
        QTest::newRow("futures options") << 5 << "添加期货期权行情源"
                                         << "DFO,IFO,SFO,ZFO";
    }

    void layout() {
        QFETCH(int, tradeType);
        QFETCH(QString, title);
        QFETCH(QString, markets);
        CSetFutureQuotesDialog dialog(tradeType, nullptr);
        QCOMPARE(dialog.title(), title);
        QCOMPARE(dialog.size(), QSize(450, 280));
        QCOMPARE(dialog.minimumSize(), dialog.maximumSize());
        QCOMPARE(dialog.tradeType(), tradeType);
        QVERIFY(dialog.platformsPending());
        QVERIFY(dialog.brokersPending());
        QVERIFY(dialog.systemName().isEmpty());

        QStringList labels;
        QList<int> labelIds;
        for (auto* label : dialog.findChildren<Zu::CSimpleTextWidget*>()) {
            labels << label->text();
            labelIds << label->id();
            QCOMPARE(label->size(), QSize(70, 24));
            QCOMPARE(label->textFlags(), 386);
        }
        QCOMPARE(labels, QStringList({"平台名称:", "期货公司:", "服务器组:", "市场:"}));
        QCOMPARE(labelIds, QList<int>({0, 1, 2, 2}));

        QCOMPARE(dialog.platformCombo()->id(), 0);
        QCOMPARE(dialog.brokerCombo()->id(), 1);
        QCOMPARE(dialog.serverGroupCombo()->id(), 2);
        QCOMPARE(dialog.marketEdit()->id(), 0);
        QCOMPARE(itemTexts(dialog.platformCombo()), QStringList{kChoose});
        QVERIFY(!dialog.platformCombo()->itemData(0).isValid());
        QCOMPARE(dialog.brokerCombo()->count(), 0);
        QCOMPARE(dialog.serverGroupCombo()->count(), 0);
        QCOMPARE(dialog.marketEdit()->text(), markets);
        for (QWidget* input : QList<QWidget*>{dialog.platformCombo(), dialog.brokerCombo(),
                                              dialog.serverGroupCombo(), dialog.marketEdit()})
            QCOMPARE(input->size(), QSize(200, 24));

        QCOMPARE(kitButton(&dialog, 0)->text(), QString("提交"));
        QCOMPARE(kitButton(&dialog, 1)->text(), QString("关闭"));
        QCOMPARE(kitButton(&dialog, 0)->buttonType(), 1);
        QCOMPARE(kitButton(&dialog, 1)->buttonType(), 1);
        QCOMPARE(kitButton(&dialog, 0)->size(), QSize(57, 24));
        QCOMPARE(dialog.loadingMask()->text(), QString("正在加载数据"));
        QVERIFY(dialog.loadingMask()->isHidden());

        // It loads nothing until it is given a sub-system.
        m_backend->settle();
        QCOMPARE(m_backend->requestCount(), 0);
    }

    // ---- loading ----

    void queriesAndCondition_data() {
        QTest::addColumn<int>("tradeType");
        QTest::newRow("1") << 1;
        QTest::newRow("5") << 5;
    }

    void queriesAndCondition() {
        QFETCH(int, tradeType);
        CSetFutureQuotesDialog dialog(tradeType, nullptr);
        dialog.setBasicInfo(QString());
        COrinClientCenter::instance()->waitForIdle();
        const auto requests = m_backend->requests();
        QCOMPARE(int(requests.size()), 2);
        QSet<int> types;
        for (const auto& request : requests) {
            QVERIFY(request.isQuery);
            QVERIFY(request.toCentre);
            QCOMPARE(request.condition, std::to_string(tradeType));
            types.insert(request.dataType);
        }
        QCOMPARE(types, QSet<int>({kDataPlatforms, kDataBrokers}));
    }

    void routing_data() {
        QTest::addColumn<bool>("routed");
        QTest::addColumn<bool>("multi");
        QTest::addColumn<QString>("name");
        QTest::addColumn<int>("expected");  // 0 nothing, 1 centre, 2 named client
        QTest::newRow("routed, multi, named") << true << true << "sys2" << 2;
        QTest::newRow("routed, multi, no name") << true << true << "" << 0;
        QTest::newRow("routed, single, named") << true << false << "sys1" << 1;
        QTest::newRow("not routed, multi, named") << false << true << "sys2" << 1;
        QTest::newRow("not routed, multi, no name") << false << true << "" << 1;
    }

    void routing() {
        QFETCH(bool, routed);
        QFETCH(bool, multi);
        QFETCH(QString, name);
        QFETCH(int, expected);
        TestUsers::setCurrent(TestUsers::allRights(), routed);
        if (multi)
            m_backend->setSubsystems({{"sys1", "上海"}, {"sys2", "深圳"}});
        scriptStandardLists();
        CSetFutureQuotesDialog dialog(1, nullptr);
        QCOMPARE(dialog.routeBySystem(), routed);
        dialog.setBasicInfo(name);
        QCOMPARE(dialog.systemName(), name);
        COrinClientCenter::instance()->waitForIdle();
        QCoreApplication::processEvents();
        auto requests = m_backend->requests();
        if (expected == 0) {
            QCOMPARE(int(requests.size()), 0);
            QVERIFY(dialog.platformsPending());
            QCOMPARE(itemTexts(dialog.platformCombo()), QStringList{kChoose});
        } else {
            QCOMPARE(int(requests.size()), 2);
            for (const auto& request : requests) {
                QCOMPARE(request.toCentre, expected == 1);
                if (expected == 2)
                    QCOMPARE(request.subsystem, name.toStdString());
            }
            QTRY_VERIFY(!dialog.platformsPending() && !dialog.brokersPending());
            choose(&dialog, "上期所行情", "乙期货", "主站");
            m_backend->clearRequests();
            press(&dialog, 0);
            const auto sent = operations();
            QCOMPARE(int(sent.size()), 1);
            QCOMPARE(sent[0].toCentre, expected == 1);
            if (expected == 2)
                QCOMPARE(sent[0].subsystem, name.toStdString());
        }
    }

    void routedMultiServerWithoutNameSendsNoAdd() {
        // The lists are fed in by hand, as if an earlier sub-system had answered.
        TestUsers::setCurrent(TestUsers::allRights(), true);
        m_backend->setSubsystems({{"sys1", "上海"}, {"sys2", "深圳"}});
        CSetFutureQuotesDialog dialog(1, nullptr);
        dialog.setBasicInfo(QString());
        dialog.slotInitPlatform(
            {platform(kKxFutures, "P"), broker(kKxFutures, "5_x", "B", {group(9, "G")})});
        choose(&dialog, "P", "B", "G");
        press(&dialog, 0);
        QCOMPARE(m_backend->requestCount(), 0);
        // The mask still goes up, and stays.
        QCOMPARE(dialog.loadingMask()->text(), QString("正在提交数据"));
        QVERIFY(!dialog.loadingMask()->isHidden());
        m_backend->settle();
        QVERIFY(m_messages.isEmpty());
    }

    void platformsAndBrokersFilled() {
        scriptStandardLists();
        CSetFutureQuotesDialog dialog(1, nullptr);
        load(&dialog);
        QCOMPARE(itemTexts(dialog.platformCombo()),
                 QStringList({kChoose, "上期所行情", "中金所行情"}));
        for (int i = 0; i < dialog.platformCombo()->count(); ++i)
            QVERIFY(!dialog.platformCombo()->itemData(i).isValid());
        QCOMPARE(dialog.platformIds().value("上期所行情"), 20000);
        QCOMPARE(dialog.platformCombo()->currentIndex(), 0);
        QCOMPARE(itemTexts(dialog.brokerCombo()), QStringList{kChoose});
        QCOMPARE(itemTexts(dialog.serverGroupCombo()), QStringList{kChoose});

        dialog.platformCombo()->setCurrentIndex(1);
        QCOMPARE(itemTexts(dialog.brokerCombo()), QStringList({kChoose, "甲期货", "乙期货"}));
        QCOMPARE(dialog.brokerNames(), QStringList({kChoose, "甲期货", "乙期货"}));
        QCOMPARE(itemTexts(dialog.serverGroupCombo()), QStringList{kChoose});

        dialog.brokerCombo()->setCurrentIndex(1);
        QCOMPARE(itemTexts(dialog.serverGroupCombo()), QStringList({kChoose, "电信", "联通"}));
        QCOMPARE(dialog.serverGroupNameList(), QStringList({kChoose, "电信", "联通"}));

        dialog.platformCombo()->setCurrentIndex(2);
        QCOMPARE(itemTexts(dialog.brokerCombo()), QStringList({kChoose, "丙期货"}));
        QCOMPARE(itemTexts(dialog.serverGroupCombo()), QStringList{kChoose});
    }

    void duplicatePlatformNames() {
        m_backend->setQueryAnswer(kDataPlatforms,
                                  {platform(1, "同名"), platform(2, "其他"), platform(3, "同名")});
        m_backend->setQueryAnswer(kDataBrokers, {broker(3, "8_a", "后者", {group(1, "g")}),
                                                 broker(1, "9_a", "前者", {group(2, "h")})});
        CSetFutureQuotesDialog dialog(1, nullptr);
        load(&dialog);
        QCOMPARE(itemTexts(dialog.platformCombo()), QStringList({kChoose, "同名", "其他"}));
        // The later id wins.
        QCOMPARE(dialog.platformIds().value("同名"), 3);
        dialog.platformCombo()->setCurrentIndex(1);
        QCOMPARE(itemTexts(dialog.brokerCombo()), QStringList({kChoose, "后者"}));
    }

    void chooseItemOfBrokerEmptiesGroups() {
        scriptStandardLists();
        CSetFutureQuotesDialog dialog(1, nullptr);
        load(&dialog);
        choose(&dialog, "上期所行情", "甲期货", "联通");
        dialog.brokerCombo()->setCurrentIndex(0);
        QCOMPARE(itemTexts(dialog.serverGroupCombo()), QStringList{kChoose});
        QCOMPARE(dialog.serverGroupNameList(), QStringList{kChoose});
        dialog.platformCombo()->setCurrentIndex(0);
        QCOMPARE(itemTexts(dialog.brokerCombo()), QStringList{kChoose});
        QCOMPARE(itemTexts(dialog.serverGroupCombo()), QStringList{kChoose});
    }

    void brokersOfTheSameNamePoolTheirGroups() {
        m_backend->setQueryAnswer(kDataPlatforms, {platform(kKxFutures, "P")});
        m_backend->setQueryAnswer(
            kDataBrokers,
            {broker(kKxFutures, "11_first", "同名期货", {group(1, "A"), group(2, "共同")}),
             broker(kKxFutures, "22_second", "同名期货", {group(3, "共同"), group(4, "B")})});
        CSetFutureQuotesDialog dialog(1, nullptr);
        load(&dialog);
        dialog.platformCombo()->setCurrentIndex(1);
        QCOMPARE(itemTexts(dialog.brokerCombo()), QStringList({kChoose, "同名期货", "同名期货"}));
        dialog.brokerCombo()->setCurrentIndex(2);
        QCOMPARE(itemTexts(dialog.serverGroupCombo()),
                 QStringList({kChoose, "A", "共同", "共同", "B"}));

        // The first matching group over all brokers of that name is sent.
        dialog.serverGroupCombo()->setCurrentIndex(3);
        press(&dialog, 0);
        auto sent = operations();
        QCOMPARE(int(sent.size()), 1);
        auto record = boost::dynamic_pointer_cast<COrinQuoterSourceInfo>(sent[0].datas[0]);
        QCOMPARE(record->m_nBrokerId, 11);
        QCOMPARE(record->m_nServerGroupId, 2);

        m_backend->clearRequests();
        dialog.serverGroupCombo()->setCurrentIndex(4);
        press(&dialog, 0);
        sent = operations();
        QCOMPARE(int(sent.size()), 1);
        record = boost::dynamic_pointer_cast<COrinQuoterSourceInfo>(sent[0].datas[0]);
        QCOMPARE(record->m_nBrokerId, 22);
        QCOMPARE(record->m_nServerGroupId, 4);
    }

    void laterAnswersOfAKindAreIgnored() {
        CSetFutureQuotesDialog dialog(1, nullptr);
        dialog.slotInitPlatform({platform(1, "一"), broker(1, "1", "B1", {group(1, "G1")})});
        QVERIFY(!dialog.platformsPending());
        QVERIFY(!dialog.brokersPending());
        dialog.slotInitPlatform({platform(2, "二"), broker(2, "2", "B2", {group(2, "G2")})});
        QCOMPARE(itemTexts(dialog.platformCombo()), QStringList({kChoose, "一"}));
        dialog.platformCombo()->setCurrentIndex(1);
        QCOMPARE(itemTexts(dialog.brokerCombo()), QStringList({kChoose, "B1"}));
    }

    void foreignOrFailedAnswersLeaveListsPending() {
        m_backend->setQueryAnswer(kDataPlatforms, {}, utils::RKError::fail("no platforms"));
        m_backend->setQueryAnswer(kDataBrokers, {}, utils::RKError::fail("no brokers"));
        CSetFutureQuotesDialog dialog(1, nullptr);
        dialog.setBasicInfo(QString());
        // Both failed answers have come back and their slots have run.
        m_backend->settle();
        QVERIFY(dialog.platformsPending());
        QVERIFY(dialog.brokersPending());
        dialog.slotInitPlatform({boost::make_shared<COrinQuoterSourceInfo>()});
        QVERIFY(dialog.platformsPending());
        QVERIFY(dialog.brokersPending());
        QCOMPARE(itemTexts(dialog.platformCombo()), QStringList{kChoose});
        QCOMPARE(itemTexts(dialog.brokerCombo()), QStringList{kChoose});
        QCOMPARE(itemTexts(dialog.serverGroupCombo()), QStringList{kChoose});
        QVERIFY(m_messages.isEmpty());
    }

    void setBasicInfoReloads() {
        scriptStandardLists();
        CSetFutureQuotesDialog dialog(1, nullptr);
        load(&dialog);
        choose(&dialog, "上期所行情", "甲期货", "电信");
        m_backend->setQueryAnswer(kDataPlatforms, {platform(30000, "新平台")});
        m_backend->setQueryAnswer(kDataBrokers, {broker(30000, "5", "新期货", {group(5, "新组")})});
        load(&dialog, "sys1");
        QCOMPARE(itemTexts(dialog.platformCombo()), QStringList({kChoose, "新平台"}));
        QCOMPARE(itemTexts(dialog.brokerCombo()), QStringList{kChoose});
        QCOMPARE(itemTexts(dialog.serverGroupCombo()), QStringList{kChoose});
        QVERIFY(!dialog.platformIds().contains("上期所行情"));
    }

    // ---- submitting ----

    void incompleteChoiceIsRefused() {
        scriptStandardLists();
        CSetFutureQuotesDialog dialog(1, nullptr);
        load(&dialog);
        m_backend->clearRequests();

        press(&dialog, 0);
        QCOMPARE(Zu::CMessageTip::lastTipText(), QString("请选择 "));
        QCOMPARE(Zu::CMessageTip::lastTipTarget(), static_cast<QWidget*>(dialog.platformCombo()));

        dialog.platformCombo()->setCurrentIndex(1);
        press(&dialog, 0);
        QCOMPARE(Zu::CMessageTip::lastTipTarget(), static_cast<QWidget*>(dialog.brokerCombo()));

        dialog.brokerCombo()->setCurrentIndex(1);
        press(&dialog, 0);
        QCOMPARE(Zu::CMessageTip::lastTipTarget(),
                 static_cast<QWidget*>(dialog.serverGroupCombo()));
        QCOMPARE(Zu::CMessageTip::tipCount(), 3);
        QCOMPARE(m_backend->requestCount(), 0);
        QVERIFY(dialog.loadingMask()->isHidden());
    }

    // The tip stays until the combo's choice is made, and at least three seconds, as the stock
    // dialog's tips do.
    void choiceTipStaysThreeSecondsAndUntilChosen() {
        scriptStandardLists();
        CSetFutureQuotesDialog dialog(1, nullptr);
        load(&dialog);
        dialog.show();
        QVERIFY(QTest::qWaitForWindowExposed(&dialog));
        press(&dialog, 0);
        QPointer<QWidget> tip = Zu::CMessageTip::currentTip();
        QVERIFY(tip && tip->isVisible());
        QCOMPARE(Zu::CMessageTip::lastTipText(), QString("请选择 "));
        QElapsedTimer clock;
        clock.start();
        QTRY_VERIFY_WITH_TIMEOUT(tip.isNull() || clock.elapsed() > 3600, 8000);
        QVERIFY2(tip, qPrintable(QString("the tip went after %1 ms").arg(clock.elapsed())));
        // Choosing in the combo the tip points at takes it away.
        dialog.platformCombo()->setCurrentIndex(1);
        emit dialog.platformCombo()->activated(1);
        QTRY_VERIFY(tip.isNull());
    }

    void emptyComboTextIsRefused() {
        // A broker named "" sits at index 1 but reads as no choice.
        CSetFutureQuotesDialog dialog(1, nullptr);
        dialog.slotInitPlatform({platform(1, "P"), broker(1, "1", "", {group(1, "G")})});
        dialog.platformCombo()->setCurrentIndex(1);
        dialog.brokerCombo()->setCurrentIndex(1);
        press(&dialog, 0);
        QCOMPARE(Zu::CMessageTip::lastTipTarget(), static_cast<QWidget*>(dialog.brokerCombo()));
        QCOMPARE(m_backend->requestCount(), 0);
    }

    void brokerIdFromKey_data() {
        QTest::addColumn<QString>("key");
        QTest::addColumn<int>("brokerId");
        QTest::newRow("id and text") << "1234_abc" << 1234;
        QTest::newRow("no underscore") << "5678" << 5678;
        QTest::newRow("text first") << "abc_1" << 0;
        QTest::newRow("leading underscore") << "_12" << 0;
        QTest::newRow("two underscores") << "42_a_b" << 42;
        QTest::newRow("not a number") << "x" << 0;
    }

    void brokerIdFromKey() {
        QFETCH(QString, key);
        QFETCH(int, brokerId);
        m_backend->setQueryAnswer(kDataPlatforms, {platform(kKxFuturesOptions, "期权平台")});
        m_backend->setQueryAnswer(kDataBrokers, {broker(kKxFuturesOptions, key.toStdString(),
                                                        "期货公司", {group(17, "组")})});
        CSetFutureQuotesDialog dialog(5, nullptr);
        load(&dialog);
        choose(&dialog, "期权平台", "期货公司", "组");
        m_backend->clearRequests();
        press(&dialog, 0);
        const auto sent = operations();
        QCOMPARE(int(sent.size()), 1);
        QCOMPARE(sent[0].dataType, kDataQuoteSources);
        QCOMPARE(sent[0].operateType, 2);
        QCOMPARE(int(sent[0].datas.size()), 1);
        auto record = boost::dynamic_pointer_cast<COrinQuoterSourceInfo>(sent[0].datas[0]);
        QVERIFY(record);
        QCOMPARE(record->m_nPlatformId, 70000);
        QCOMPARE(record->m_nBrokerId, brokerId);
        QCOMPARE(record->m_nServerGroupId, 17);
        QCOMPARE(record->m_nTradeType, 5);
        // Everything else keeps the record's defaults.
        QCOMPARE(record->m_nId, 0);
        QVERIFY(record->m_strAddress.empty());
        QCOMPARE(record->m_nPort, 0);
        QVERIFY(record->m_strUserName.empty());
        QVERIFY(record->m_strPassword.empty());
        QVERIFY(record->m_strMarkets.empty());
    }

    void marketEditDoesNotMatter() {
        scriptStandardLists();
        CSetFutureQuotesDialog dialog(1, nullptr);
        load(&dialog);
        choose(&dialog, "上期所行情", "甲期货", "联通");
        QVERIFY(dialog.marketEdit()->isEnabled());
        QVERIFY(!dialog.marketEdit()->isReadOnly());
        dialog.marketEdit()->setText("SHFE,CZCE");
        m_backend->clearRequests();
        press(&dialog, 0);
        auto sent = operations();
        QCOMPARE(int(sent.size()), 1);
        auto record = boost::dynamic_pointer_cast<COrinQuoterSourceInfo>(sent[0].datas[0]);
        QVERIFY(record->m_strMarkets.empty());
        QCOMPARE(record->m_nPlatformId, 20000);
        QCOMPARE(record->m_nBrokerId, 1234);
        QCOMPARE(record->m_nServerGroupId, 2);
        QCOMPARE(record->m_nTradeType, 1);
    }

    void noMatchSendsNothing() {
        // A group name that matches no group of the chosen broker (edited item text).
        scriptStandardLists();
        CSetFutureQuotesDialog dialog(1, nullptr);
        load(&dialog);
        choose(&dialog, "上期所行情", "甲期货", "电信");
        dialog.serverGroupCombo()->setItemText(1, "已删除");
        m_backend->clearRequests();
        press(&dialog, 0);
        QCOMPARE(m_backend->requestCount(), 0);
        QVERIFY(dialog.loadingMask()->isHidden());
        QCOMPARE(Zu::CMessageTip::tipCount(), 0);
        QVERIFY(m_messages.isEmpty());
    }

    void closeEndsWithOne() {
        EventSink sink;
        auto* dialog = new CSetFutureQuotesDialog(1, &sink);
        CloseCounter closes;
        dialog->installEventFilter(&closes);
        QTimer::singleShot(0, this, [dialog, this] {
            QCOMPARE(QApplication::activeModalWidget(), static_cast<QWidget*>(dialog));
            QTest::mouseClick(kitButton(dialog, 1), Qt::LeftButton);
        });
        QCOMPARE(dialog->exec(), 1);
        QCOMPARE(closes.closes, 1);
        QCOMPARE(m_backend->requestCount(), 0);
        QVERIFY(!sink.types.contains(Zu::EventQuoteSourcesChanged));
    }

    void completion_data() {
        QTest::addColumn<bool>("success");
        QTest::addColumn<QString>("serverText");
        QTest::addColumn<QString>("text");
        QTest::newRow("ok") << true << ""
                            << "操作成功";
        QTest::newRow("failed with message") << false << "重复的行情源"
                                             << "重复的行情源";
        QTest::newRow("failed without message") << false << ""
                                                << "操作失败";
    }

    void completion() {
        QFETCH(bool, success);
        QFETCH(QString, serverText);
        QFETCH(QString, text);
        scriptStandardLists();
        m_backend->setOperateAnswer(kDataQuoteSources,
                                    utils::RKError(success, serverText.toStdString()));
        EventSink sink;
        auto* dialog = new CSetFutureQuotesDialog(1, &sink);
        CloseCounter closes;
        dialog->installEventFilter(&closes);
        load(dialog);
        choose(dialog, "上期所行情", "乙期货", "主站");
        dialog->show();
        m_backend->setHolding(true);
        QTest::mouseClick(kitButton(dialog, 0), Qt::LeftButton);
        // Submitting leaves the dialog open under its mask.
        QVERIFY(dialog->isVisible());
        QCOMPARE(dialog->loadingMask()->text(), QString("正在提交数据"));
        QCOMPARE(dialog->loadingMask()->attachedTo(), static_cast<QWidget*>(dialog));
        QVERIFY(!dialog->loadingMask()->isHidden());
        QTRY_COMPARE(m_backend->heldCount(), 1);
        m_backend->releaseAll();
        QTRY_COMPARE(m_messages.size(), 1);
        QCOMPARE(m_messages[0].type, success ? 0 : 1);
        QCOMPARE(m_messages[0].success, success);
        QCOMPARE(m_messages[0].parent, static_cast<QWidget*>(dialog));
        QCOMPARE(m_messages[0].title, QString("添加行情源"));
        QCOMPARE(m_messages[0].text, text);
        QVERIFY(dialog->loadingMask()->isHidden());
        // Only a successful add reloads the panel and closes the dialog.
        QCOMPARE(sink.types.count(Zu::EventQuoteSourcesChanged), success ? 1 : 0);
        QCOMPARE(closes.closes, success ? 1 : 0);
        QCOMPARE(dialog->isVisible(), !success);
        // A failed add keeps the choices.
        QCOMPARE(dialog->platformCombo()->currentText(), QString("上期所行情"));
        QCOMPARE(dialog->brokerCombo()->currentText(), QString("乙期货"));
        QCOMPARE(dialog->serverGroupCombo()->currentText(), QString("主站"));
    }

    void eventsReturnValues() {
        CSetFutureQuotesDialog dialog(1, nullptr);
        QVERIFY(dialog.handleEvent(Zu::EventComboIndexChanged,
                                   CSetFutureQuotesDialog::ServerGroupCombo, 0, QString(),
                                   nullptr));
        QVERIFY(dialog.handleEvent(Zu::EventComboIndexChanged, 9, 0, QString(), nullptr));
        QVERIFY(!dialog.handleEvent(Zu::EventFieldLeft, 0, 0, QString(), nullptr));
        QVERIFY(!dialog.handleEvent(Zu::EventQuoteSourcesChanged, 0, 0, QString(), nullptr));
    }

    // ---- lifetime ----

    void destroyedWhileQueriesHeld() {
        scriptStandardLists();
        m_backend->setHolding(true);
        auto* panel = new EventSink;
        auto* dialog = new CSetFutureQuotesDialog(1, panel);
        dialog->setBasicInfo(QString());
        QTRY_COMPARE(m_backend->heldCount(), 2);
        delete panel;
        m_backend->releaseAll();
        COrinClientCenter::instance()->waitForIdle();
        QCoreApplication::processEvents();
    }

    void destroyedWhileAddHeld() {
        scriptStandardLists();
        auto* panel = new EventSink;
        auto* dialog = new CSetFutureQuotesDialog(1, panel);
        load(dialog);
        choose(dialog, "上期所行情", "乙期货", "主站");
        m_backend->setHolding(true);
        QTest::mouseClick(kitButton(dialog, 0), Qt::LeftButton);
        QTRY_COMPARE(m_backend->heldCount(), 1);
        delete panel;
        m_backend->releaseAll();
        COrinClientCenter::instance()->waitForIdle();
        QCoreApplication::processEvents();
        QVERIFY(m_messages.isEmpty());
    }
};

QTEST_MAIN(TestFutureDialog)
#include "tst_futuredialog.moc"
