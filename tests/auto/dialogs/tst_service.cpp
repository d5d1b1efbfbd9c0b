#include <QApplication>
#include <QtTest>
#include <boost/make_shared.hpp>
#include <climits>

#include "CQuotesService.h"
#include "EmbeddedService.h"
#include "Hlx/COrinClientCenter.h"
#include "Hlx/CSafeLineEdit.h"
#include "ServerMessages.h"
#include "TestIds.h"
#include "TestUsers.h"
#include "Zu/CBaseWidget.h"
#include "Zu/CComboBox.h"
#include "Zu/CSmallNormalButton.h"
#include "dialogs/CSetFutureQuotesDialog.h"
#include "dialogs/CSetStockQuotesDialog.h"
#include "rkservice/COrinBrokerInfo.h"
#include "rkservice/COrinQuoterSourceInfo.h"

using namespace Hlx;
using namespace TestIds;
using rkservice::COrinQuoterSourceInfo;
using SourcePtr = boost::shared_ptr<COrinQuoterSourceInfo>;

namespace {

class EventSink : public Zu::CBaseWidget {
public:
    bool handleEvent(int type, int, int, QString, void*) override {
        if (type == Zu::EventQuoteSourcesChanged)
            ++reloads;
        return type == Zu::EventQuoteSourcesChanged;
    }
    int reloads = 0;
};

}  // namespace

// The dialogs against the embedded data service.
class TestDialogsService : public QObject {
    Q_OBJECT

    std::unique_ptr<EmbeddedService> m_embedded;
    boost::shared_ptr<CQuotesService> m_service;
    ServerMessages m_messages;

    std::vector<SourcePtr> storedSources() {
        auto request = boost::make_shared<rkservice::COrinQueryDataReq>();
        request->dataType = kDataQuoteSources;
        std::vector<rkservice::IDataPtr> datas;
        const utils::RKError error =
            m_service->querySync(CCaller::owner(), CRequestTarget::centre(), *request, &datas);
        std::vector<SourcePtr> sources;
        if (!error.isSuccess())
            return sources;
        for (const auto& data : datas) {
            if (auto source = boost::dynamic_pointer_cast<COrinQuoterSourceInfo>(data))
                sources.push_back(source);
        }
        return sources;
    }

    SourcePtr storedAt(const std::string& address, int port) {
        for (const SourcePtr& source : storedSources()) {
            if (source->m_strAddress == address && source->m_nPort == port)
                return source;
        }
        return SourcePtr();
    }

    void fill(CSetStockQuotesDialog* dialog, const QString& address, const QString& port,
              const QString& user, const QString& password) {
        dialog->addressEdit()->setText(address);
        dialog->portEdit()->setText(port);
        dialog->userEdit()->setText(user);
        dialog->passwordEdit()->setText(password);
    }

private slots:
    void initTestCase() { COrinClientCenter::instance()->setShowMessageBoxes(false); }

    void init() {
        m_embedded.reset(new EmbeddedService);
        QVERIFY2(m_embedded->isOpen(), qPrintable(m_embedded->error()));
        m_service = m_embedded->service();
        TestUsers::setCurrent(TestUsers::allRights(), false);
        m_messages.clear();
    }

    void cleanup() {
        m_service.reset();
        m_embedded.reset();
    }

    void stockSourceIsStoredAsSent() {
        const size_t before = storedSources().size();
        EventSink panel;
        auto* dialog = new CSetStockQuotesDialog(6, &panel, false);
        dialog->setIsAdd(true);
        dialog->platformCombo()->setCurrentIndex(1);
        fill(dialog, "172.16.5.9", "00820", "期权用户", "p w");
        dialog->show();
        QTest::mouseClick(kitButton(dialog, 0), Qt::LeftButton);
        QTRY_COMPARE(m_messages.size(), 1);
        QCOMPARE(m_messages[0].type, 0);
        QCOMPARE(m_messages[0].title, QString("添加行情源"));
        QCOMPARE(m_messages[0].text, QString("操作成功"));
        QCOMPARE(panel.reloads, 1);

        QCOMPARE(storedSources().size(), before + 1);
        SourcePtr stored = storedAt("172.16.5.9", 820);
        QVERIFY(stored);
        QVERIFY(stored->m_nId != 0);
        QCOMPARE(stored->m_nPlatformId, 25011);
        QCOMPARE(stored->m_nTradeType, 6);
        QCOMPARE(stored->m_strUserName, std::string("期权用户"));
        QCOMPARE(stored->m_strPassword, std::string("p w"));
        QCOMPARE(stored->m_nBrokerId, INT_MAX);
        QCOMPARE(stored->m_nServerGroupId, 0);
        QVERIFY(stored->m_strMarkets.empty());
    }

    void futuresSourceThroughStockDialogIsStoredAsType2() {
        EventSink panel;
        auto* dialog = new CSetStockQuotesDialog(1, &panel, false);
        fill(dialog, "::1", "7001", "fut", "pw");
        dialog->show();
        QTest::mouseClick(kitButton(dialog, 0), Qt::LeftButton);
        QTRY_COMPARE(m_messages.size(), 1);
        QCOMPARE(m_messages[0].type, 0);
        SourcePtr stored = storedAt("::1", 7001);
        QVERIFY(stored);
        QCOMPARE(stored->m_nTradeType, 2);
        QCOMPARE(stored->m_nPlatformId, 20000);
    }

    void editIsStored() {
        EventSink panel;
        auto* dialog = new CSetStockQuotesDialog(2, &panel, false);
        fill(dialog, "10.9.8.7", "9000", "before", "pw1");
        dialog->show();
        QTest::mouseClick(kitButton(dialog, 0), Qt::LeftButton);
        QTRY_COMPARE(m_messages.size(), 1);
        SourcePtr stored = storedAt("10.9.8.7", 9000);
        QVERIFY(stored);
        const size_t count = storedSources().size();

        dialog->setIsAdd(false);
        dialog->setBasicInfo(stored);
        dialog->userEdit()->setText("after");
        dialog->portEdit()->setText("9001");
        dialog->show();
        QTest::mouseClick(kitButton(dialog, 0), Qt::LeftButton);
        QTRY_COMPARE(m_messages.size(), 2);
        QCOMPARE(m_messages[1].type, 0);
        QCOMPARE(m_messages[1].title, QString("修改行情源"));
        QCOMPARE(storedSources().size(), count);
        SourcePtr edited = storedAt("10.9.8.7", 9001);
        QVERIFY(edited);
        QCOMPARE(edited->m_nId, stored->m_nId);
        QCOMPARE(edited->m_strUserName, std::string("after"));
        QCOMPARE(panel.reloads, 2);
    }

    void fanOutIsStored() {
        TestUsers::setCurrent({10385, 12147}, false);
        const size_t before = storedSources().size();
        EventSink panel;
        auto* dialog = new CSetStockQuotesDialog(-1, &panel, false);
        fill(dialog, "10.1.1.1", "5555", "all", "pw");
        dialog->show();
        QTest::mouseClick(kitButton(dialog, 0), Qt::LeftButton);
        QTRY_COMPARE(m_messages.size(), 1);
        QCOMPARE(m_messages[0].type, 0);
        QCOMPARE(storedSources().size(), before + 2);
        QSet<QPair<int, int>> kinds;
        for (const SourcePtr& source : storedSources()) {
            if (source->m_strAddress == "10.1.1.1")
                kinds.insert(qMakePair(source->m_nPlatformId, source->m_nTradeType));
        }
        QCOMPARE(kinds, (QSet<QPair<int, int>>{{20000, 2}, {31003, 4}}));
    }

    void refusedSourceShowsTheServiceMessage() {
        const size_t before = storedSources().size();
        // A user without the add right: the service refuses what the form accepts.
        TestUsers::setCurrent({}, false);
        EventSink panel;
        auto* dialog = new CSetStockQuotesDialog(2, &panel, false);
        fill(dialog, "10.2.2.2", "7000", "user", "pw");
        dialog->show();
        QTest::mouseClick(kitButton(dialog, 0), Qt::LeftButton);
        QTRY_COMPARE(m_messages.size(), 1);
        QCOMPARE(m_messages[0].type, 1);
        QVERIFY(!m_messages[0].success);
        QCOMPARE(m_messages[0].title, QString("添加行情源"));
        QVERIFY(!m_messages[0].text.isEmpty());
        QVERIFY(m_messages[0].text != QString("操作失败"));
        QCOMPARE(panel.reloads, 1);
        QCOMPARE(storedSources().size(), before);
        QVERIFY(!storedAt("10.2.2.2", 7000));
        // Refused: the dialog stays open with everything typed.
        QVERIFY(dialog->isVisible());
        QCOMPARE(dialog->portEdit()->text(), QString("7000"));
        QCOMPARE(dialog->addressEdit()->text(), QString("10.2.2.2"));
    }

    void futureSourceIsStored_data() {
        QTest::addColumn<int>("tradeType");
        QTest::newRow("futures") << 1;
        QTest::newRow("futures options") << 5;
    }

    void futureSourceIsStored() {
        QFETCH(int, tradeType);
        const size_t before = storedSources().size();
        EventSink panel;
        auto* dialog = new CSetFutureQuotesDialog(tradeType, &panel);
        dialog->setBasicInfo(QString());
        QTRY_VERIFY(!dialog->platformsPending() && !dialog->brokersPending());

        // The first platform that has a broker with a server group.
        bool chosen = false;
        for (int p = 1; p < dialog->platformCombo()->count() && !chosen; ++p) {
            dialog->platformCombo()->setCurrentIndex(p);
            for (int b = 1; b < dialog->brokerCombo()->count() && !chosen; ++b) {
                dialog->brokerCombo()->setCurrentIndex(b);
                if (dialog->serverGroupCombo()->count() > 1) {
                    dialog->serverGroupCombo()->setCurrentIndex(1);
                    chosen = true;
                }
            }
        }
        QVERIFY2(chosen, "the seeded reference data offers no server group");
        const int platformId = dialog->platformIds().value(dialog->platformCombo()->currentText());
        const std::string brokerName = dialog->brokerCombo()->currentText().toStdString();
        const std::string groupName = dialog->serverGroupCombo()->currentText().toStdString();

        // What the dialog must have matched, read from the service itself.
        auto brokersRequest = boost::make_shared<rkservice::COrinQueryDataReq>();
        brokersRequest->dataType = kDataBrokers;
        brokersRequest->condition = std::to_string(tradeType);
        std::vector<rkservice::IDataPtr> brokers;
        QVERIFY(
            m_service
                ->querySync(CCaller::owner(), CRequestTarget::centre(), *brokersRequest, &brokers)
                .isSuccess());
        int expectedBroker = -1;
        int expectedGroup = -1;
        for (const auto& data : brokers) {
            auto broker = boost::dynamic_pointer_cast<rkservice::COrinBrokerInfo>(data);
            if (!broker || broker->platformId != platformId || broker->brokerName != brokerName ||
                expectedBroker >= 0)
                continue;
            for (const auto& group : broker->serverGroups) {
                if (group && group->serverGroupName == groupName) {
                    expectedBroker = QString::fromStdString(broker->brokerKey)
                                         .section(QLatin1Char('_'), 0, 0)
                                         .toInt();
                    expectedGroup = group->serverGroupId;
                    break;
                }
            }
        }
        QVERIFY(expectedBroker > 0);

        dialog->show();
        QTest::mouseClick(kitButton(dialog, 0), Qt::LeftButton);
        QTRY_COMPARE(m_messages.size(), 1);
        QCOMPARE(m_messages[0].type, 0);
        QCOMPARE(m_messages[0].text, QString("操作成功"));
        QCOMPARE(panel.reloads, 1);
        QVERIFY(!dialog->isVisible());

        const auto sources = storedSources();
        QCOMPARE(sources.size(), before + 1);
        SourcePtr added;
        for (const SourcePtr& source : sources) {
            if (source->m_nBrokerId != INT_MAX && source->m_nTradeType == tradeType)
                added = source;
        }
        QVERIFY(added);
        QCOMPARE(added->m_nPlatformId, platformId);
        QCOMPARE(added->m_nBrokerId, expectedBroker);
        QCOMPARE(added->m_nServerGroupId, expectedGroup);
    }
};

QTEST_MAIN(TestDialogsService)
#include "tst_service.moc"
