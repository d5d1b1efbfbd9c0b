// The panel's remaining races: slots called directly, accessors called inside the panel's own
// modal dialogs, permission answers overtaking each other, and a panel destroyed while one of its
// dialogs runs (run under AddressSanitizer to see freed memory touched).

#include <QAbstractButton>
#include <QApplication>
#include <QMessageBox>
#include <QPointer>
#include <QtTest>
#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "Hlx/COrinClientCenter.h"
#include "Hlx/CWholeQuoteSettingDialog.h"
#include "ModalDriver.h"
#include "PanelEvents.h"
#include "RecordBuilders.h"
#include "ScriptedBackend.h"
#include "TestIds.h"
#include "TestUsers.h"
#include "Zu/COddEvenRowTable.h"
#include "panels/QuotesManagePanel.h"

using namespace Hlx;
using namespace RecordBuilders;
using namespace TestIds;
using Panel = CQuotesManagePanel;

namespace {

// Abandons a lock when the test has not finished its step in time, so that a call that would
// wait forever returns (empty) and the test fails instead of hanging.
class LockWatchdog {
public:
    explicit LockWatchdog(CPanelMutex& mutex)
        : m_thread([this, &mutex] {
              std::unique_lock<std::mutex> lock(m_mutex);
              if (!m_done.wait_for(lock, std::chrono::seconds(20), [this] { return m_finished; })) {
                  m_fired = true;
                  mutex.abandon();
              }
          }) {}
    ~LockWatchdog() {
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            m_finished = true;
        }
        m_done.notify_all();
        m_thread.join();
    }
    bool fired() const { return m_fired; }

private:
    std::mutex m_mutex;
    std::condition_variable m_done;
    bool m_finished = false;
    std::atomic<bool> m_fired{false};
    std::thread m_thread;
};

rkservice::CGlobalFeaturePermissionInfoPtr permission(const std::string& market) {
    auto info = boost::make_shared<rkservice::CGlobalFeaturePermissionInfo>();
    info->m_wholeQuote->setEnabled(market, true);
    return info;
}

}  // namespace

class TestQuotesPanelRaces : public QObject {
    Q_OBJECT
private slots:
    void init() {
        m_backend = ScriptedBackend::install();
        TestUsers::setCurrent(TestUsers::allRights());
    }
    void cleanup() { m_backend->drain(); }

    void directSlotCallKeepsTheQueuedTicket() {
        m_backend->setQueryAnswer(kDataQuoteSources,
                                  {source(1, kKxStocks, kStocks), source(2, kKxStocks, kStocks)});
        CStockQuotesManagePanel panel(nullptr);
        m_backend->setHolding(true);
        panel.refresh();
        QTRY_COMPARE(m_backend->heldCount(), 1);
        // The answer stores its records and queues its slot; no event runs before the direct
        // call below.
        m_backend->releaseAll();
        QVERIFY(COrinClientCenter::instance()->waitForIdle());
        panel.slotOnDataQuotesInfo(true, QStringLiteral("不是服务的回答"), 0);
        QCOMPARE(panel.table()->rowCount(), 0);
        m_backend->setHolding(false);
        m_backend->settle();
        // The queued answer still had its ticket and built its rows.
        QCOMPARE(panel.table()->rowCount(), 2);
        QCOMPARE(panel.rowRecordCount(), 2);
    }

    void directBrokerSlotCallKeepsTheQueuedTicket() {
        m_backend->setQueryAnswer(
            kDataBrokers, {broker(kKxFutures, "1_a", "甲", {group(1, "g", {"1.1.1.1:1"})})});
        m_backend->setQueryAnswer(kDataQuoteSources, "1", {brokerSource(3, kKxFutures, 1, 1, 1)});
        m_backend->setQueryAnswer(kDataQuoteSources, "2", {});
        CFutureQuotesManagePanel panel(nullptr);
        m_backend->setHolding(true);
        panel.refresh();
        QTRY_COMPARE(m_backend->heldCount(), 1);
        m_backend->releaseAll();
        QVERIFY(COrinClientCenter::instance()->waitForIdle());
        // A direct call that reports a failure sends nothing on.
        panel.slotOnDataBrokerInfo(true, QString());
        m_backend->setHolding(false);
        m_backend->settle();
        QCOMPARE(panel.table()->rowCount(), 1);
    }

    void rowAccessorsAnswerInsideTheEditDialog() {
        m_backend->setQueryAnswer(kDataQuoteSources,
                                  {source(7, kKxStocks, kStocks), source(8, kKxStocks, kStocks)});
        CStockQuotesManagePanel panel(nullptr);
        panel.refresh();
        QTRY_COMPARE(panel.table()->rowCount(), 2);
        int inside = -1;
        int count = -1;
        bool held = false;
        bool watchdogFired = false;
        ModalDriver::onNext([&](QWidget* modal) {
            held = panel.dataMutex().isHeldByCurrentThread();
            {
                LockWatchdog watchdog(panel.dataMutex());
                const auto record = panel.rowRecord(1);
                inside = record ? record->m_nId : 0;
                count = panel.rowRecordCount();
                watchdogFired = watchdog.fired();
            }
            qobject_cast<QDialog*>(modal)->reject();
        });
        panel.table()->selectRow(1);
        PanelEvents::pressEditInRow(panel, 1);
        QVERIFY(held);
        QVERIFY(!watchdogFired);
        QCOMPARE(inside, 8);
        QCOMPARE(count, 2);
    }

    void permissionAccessorAnswersInsideTheWholeQuoteDialog() {
        m_backend->setQueryAnswer(kDataGlobalPermission, {permission("SH")});
        CAllTypeQuotesManagePanel panel(nullptr);
        panel.switchSystem(0, "sys1");
        panel.onActive();
        QTRY_VERIFY(panel.permissionInfo());
        bool held = false;
        bool watchdogFired = false;
        rkservice::CGlobalFeaturePermissionInfoPtr inside;
        ModalDriver::onNext([&](QWidget* modal) {
            held = panel.permissionMutex().isHeldByCurrentThread();
            {
                LockWatchdog watchdog(panel.permissionMutex());
                inside = panel.permissionInfo();
                watchdogFired = watchdog.fired();
            }
            qobject_cast<QDialog*>(modal)->reject();
        });
        PanelEvents::press(panel, Panel::kBtnWholeQuote);
        QVERIFY(held);
        QVERIFY(!watchdogFired);
        QVERIFY(inside);
        QVERIFY(inside->m_wholeQuote->isEnabled("SH"));
    }

    void olderPermissionAnswerNeverOverwritesANewerOne() {
        m_backend->setQueryAnswer(kDataQuoteSources, {});
        CAllTypeQuotesManagePanel panel(nullptr);
        panel.switchSystem(0, "sys1");
        m_backend->setHolding(true);
        m_backend->setQueryAnswer(kDataGlobalPermission, {permission("OLD")});
        panel.onActive();
        QTRY_COMPARE(int(m_backend->requestsOf(kDataGlobalPermission).size()), 1);
        m_backend->setQueryAnswer(kDataGlobalPermission, {permission("NEW")});
        panel.onActive();
        QTRY_COMPARE(int(m_backend->requestsOf(kDataGlobalPermission).size()), 2);
        // The newer answer overtakes the older one.
        QVERIFY(m_backend->releaseNewest());
        QTRY_VERIFY(panel.permissionInfo());
        QVERIFY(panel.permissionInfo()->m_wholeQuote->isEnabled("NEW"));
        m_backend->setHolding(false);
        m_backend->releaseAll();
        m_backend->settle();
        QVERIFY(COrinClientCenter::instance()->waitForIdle());
        QVERIFY(panel.permissionInfo()->m_wholeQuote->isEnabled("NEW"));
        QVERIFY(!panel.permissionInfo()->m_wholeQuote->isEnabled("OLD"));
    }

    void olderPermissionAnswerStillCountsWhileNoNewerArrived() {
        m_backend->setQueryAnswer(kDataQuoteSources, {});
        CAllTypeQuotesManagePanel panel(nullptr);
        panel.switchSystem(0, "sys1");
        m_backend->setQueryAnswer(kDataGlobalPermission, {permission("SH")});
        m_backend->settle();
        m_backend->setHolding(true);
        panel.onActive();
        QTRY_COMPARE(m_backend->heldCount(), 2);
        // A plain reload (no new permission query) must not lose the permission answer.
        panel.refresh();
        m_backend->setHolding(false);
        m_backend->releaseAll();
        m_backend->settle();
        QTRY_VERIFY(panel.permissionInfo());
        QVERIFY(panel.permissionInfo()->m_wholeQuote->isEnabled("SH"));
    }

    void destroyedWhileItsEditDialogRuns() {
        m_backend->setQueryAnswer(kDataQuoteSources, {source(7, kKxStocks, kStocks)});
        QPointer<Panel> panel = new CStockQuotesManagePanel(nullptr);
        panel->refresh();
        QTRY_COMPARE(panel->table()->rowCount(), 1);
        bool opened = false;
        ModalDriver::onNext([&](QWidget*) {
            opened = true;
            delete panel.data();
        });
        panel->table()->selectRow(0);
        PanelEvents::pressEditInRow(*panel, 0);
        QVERIFY(opened);
        QVERIFY(panel.isNull());
        m_backend->settle();
    }

    void destroyedWhileItsWholeQuoteDialogRuns() {
        m_backend->setQueryAnswer(kDataGlobalPermission, {permission("SH")});
        QPointer<Panel> panel = new CAllTypeQuotesManagePanel(nullptr);
        panel->switchSystem(0, "sys1");
        panel->onActive();
        QTRY_VERIFY(panel->permissionInfo());
        m_backend->settle();
        bool opened = false;
        ModalDriver::onNext([&](QWidget* modal) {
            opened = qobject_cast<CWholeQuoteSettingDialog*>(modal) != nullptr;
            delete panel.data();
        });
        PanelEvents::press(*panel, Panel::kBtnWholeQuote);
        QVERIFY(opened);
        QVERIFY(panel.isNull());
        m_backend->settle();
    }

    void destroyedWhileItsWarningBoxRuns() {
        m_backend->setQueryAnswer(
            kDataBrokers, {broker(kKxFutures, "1_a", "甲", {group(1, "g", {"1.1.1.1:1"})})});
        m_backend->setQueryAnswer(kDataQuoteSources, "1", {brokerSource(3, kKxFutures, 1, 1, 1)});
        m_backend->setQueryAnswer(kDataQuoteSources, "2", {}, utils::RKError::fail("Kx源不可用"));
        QPointer<Panel> panel = new CFutureQuotesManagePanel(nullptr);
        bool opened = false;
        ModalDriver::onNext([&](QWidget* modal) {
            opened = qobject_cast<QMessageBox*>(modal) != nullptr;
            delete panel.data();
        });
        panel->refresh();
        QTRY_VERIFY(opened);
        QTRY_VERIFY(panel.isNull());
        m_backend->settle();
    }

    void destroyedWhileItsDeleteQuestionRuns() {
        m_backend->setQueryAnswer(kDataQuoteSources, {source(7, kKxStocks, kStocks)});
        QPointer<Panel> panel = new CStockQuotesManagePanel(nullptr);
        panel->refresh();
        QTRY_COMPARE(panel->table()->rowCount(), 1);
        m_backend->clearRequests();
        bool opened = false;
        ModalDriver::onNext([&](QWidget* modal) {
            opened = qobject_cast<QMessageBox*>(modal) != nullptr;
            delete panel.data();
        });
        panel->table()->selectRow(0);
        PanelEvents::pressDeleteInRow(*panel, 0);
        QVERIFY(opened);
        QVERIFY(panel.isNull());
        m_backend->settle();
        QVERIFY(m_backend->requestsOf(kDataQuoteSources).empty());
    }

private:
    boost::shared_ptr<ScriptedBackend> m_backend;
};

QTEST_MAIN(TestQuotesPanelRaces)
#include "tst_quotespanel_races.moc"
