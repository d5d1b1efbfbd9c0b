#include <QAbstractButton>
#include <QApplication>
#include <QMessageBox>
#include <QSignalSpy>
#include <QtTest>
#include <thread>

#include "Hlx/COrinClientCenter.h"
#include "PanelEvents.h"
#include "RecordBuilders.h"
#include "ScriptedBackend.h"
#include "TestIds.h"
#include "TestUsers.h"
#include "Zu/COddEvenRowTable.h"
#include "model/CAnswerGuard.h"
#include "panels/QuotesManagePanel.h"

using namespace Hlx;
using namespace RecordBuilders;
using namespace TestIds;
using Panel = CQuotesManagePanel;

namespace {

// A stock panel whose delete answer the test can deliver itself.
class DeleteProbe : public CStockQuotesManagePanel {
public:
    DeleteProbe() : CStockQuotesManagePanel(nullptr) {}
    void answerDelete(const utils::RKError& error) {
        onOperationDeleteQuotes(error, bson::BSONObj());
    }
};

QStringList idColumn(Panel* panel) {
    QStringList ids;
    for (int row = 0; row < panel->table()->rowCount(); ++row)
        ids << panel->table()->itemText(row, Panel::kColId);
    return ids;
}

}  // namespace

class TestQuotesPanelConcurrency : public QObject {
    Q_OBJECT
private slots:
    void init() {
        m_backend = ScriptedBackend::install();
        TestUsers::setCurrent(TestUsers::allRights());
    }
    void cleanup() {
        m_backend->setHolding(false);
        m_backend->releaseAll();
        m_backend->settle();
    }

    void lateAnswersAfterDestruction_data() {
        QTest::addColumn<int>("tradeType");
        QTest::newRow("stocks") << 2;
        QTest::newRow("futures") << 1;
        QTest::newRow("futures options") << 5;
        QTest::newRow("all types") << -1;
    }

    void lateAnswersAfterDestruction() {
        QFETCH(int, tradeType);
        m_backend->setQueryAnswer(kDataQuoteSources,
                                  {source(1, kKxStocks, kStocks), source(2, kKxFutures, kStocks)});
        m_backend->setQueryAnswer(kDataGlobalPermission,
                                  {boost::make_shared<rkservice::CGlobalFeaturePermissionInfo>()});
        m_backend->setHolding(true);
        const int held = tradeType == -1 ? 2 : 1;
        {
            std::unique_ptr<Panel> panel(createQuotesPanel(tradeType, nullptr));
            panel->onActive();
            // The first step of the load, and the permission query of the all-types panel.
            QTRY_COMPARE(m_backend->heldCount(), held);
        }
        const int dropped = CAnswerGuard::droppedCount();
        m_backend->releaseAll();
        m_backend->settle();
        // Every answer reached the guard of the destroyed panel and went no further.
        QCOMPARE(CAnswerGuard::droppedCount() - dropped, held);
    }

    void lateAnswerOfEveryStepAfterDestruction() {
        // Destroy the panel at each step of a futures load in turn.
        scriptFuturesLoad();
        for (int step = 0; step < 3; ++step) {
            m_backend->setHolding(true);
            m_backend->clearRequests();
            auto* panel = new CFutureQuotesManagePanel(nullptr);
            panel->refresh();
            for (int done = 0; done < step; ++done) {
                QTRY_COMPARE(m_backend->heldCount(), 1);
                m_backend->releaseAll();
                QTRY_COMPARE(m_backend->requestCount(), done + 2);
            }
            QTRY_COMPARE(m_backend->heldCount(), 1);
            delete panel;
            const int dropped = CAnswerGuard::droppedCount();
            m_backend->releaseAll();
            m_backend->settle();
            QCOMPARE(CAnswerGuard::droppedCount() - dropped, 1);
        }
    }

    void twoQuickRefreshesShowTheSecondLoadOnce() {
        m_backend->setHolding(true);
        CStockQuotesManagePanel panel(nullptr);
        m_backend->setQueryAnswer(kDataQuoteSources,
                                  {source(1, kKxStocks, kStocks), source(2, kKxStocks, kStocks)});
        panel.refresh();
        QTRY_COMPARE(m_backend->heldCount(), 1);
        m_backend->setQueryAnswer(kDataQuoteSources, {source(3, kKxStocks, kStocks)});
        panel.refresh();
        QTRY_COMPARE(m_backend->heldCount(), 2);
        m_backend->releaseAll();
        m_backend->settle();
        QCOMPARE(idColumn(&panel), QStringList{"3"});
    }

    void twoQuickRefreshesOfAFuturesPanel() {
        scriptFuturesLoad();
        m_backend->setHolding(true);
        CFutureQuotesManagePanel panel(nullptr);
        panel.refresh();
        panel.refresh();
        // Release step by step, both loads interleaved.
        for (int round = 0; round < 6 && (m_backend->heldCount() > 0 || round == 0); ++round) {
            QTRY_VERIFY(m_backend->heldCount() > 0);
            m_backend->releaseAll();
            m_backend->settle();
        }
        m_backend->setHolding(false);
        m_backend->settle();
        QCOMPARE(idColumn(&panel), (QStringList{"3", "4"}));
        QCOMPARE(panel.rowRecordCount(), 2);
    }

    void slotQueuedBeforeARefreshIsDropped() {
        scriptFuturesLoad();
        m_backend->setHolding(true);
        CFutureQuotesManagePanel panel(nullptr);
        panel.refresh();
        QTRY_COMPARE(m_backend->heldCount(), 1);
        // The first broker answer runs and queues its slot; no event is processed before the
        // second refresh.
        m_backend->releaseAll();
        QVERIFY(COrinClientCenter::instance()->waitForIdle());
        panel.refresh();
        m_backend->setHolding(false);
        m_backend->releaseAll();
        m_backend->settle();
        // One quote query for the second load only, one Kx query, no duplicated rows.
        QCOMPARE(int(m_backend->requestsOf(kDataQuoteSources).size()), 2);
        QCOMPARE(idColumn(&panel), (QStringList{"3", "4"}));
    }

    void slotDueInsideAModalBoxIsParked() {
        // The Kx slot holds the data lock while its warning box runs; a load answer arriving
        // meanwhile must neither deadlock nor be lost.
        m_backend->setQueryAnswer(kDataQuoteSources, "2", {}, utils::RKError::fail("Kx源不可用"));
        m_backend->setQueryAnswer(
            kDataBrokers, {broker(kKxFutures, "1_a", "甲", {group(1, "g", {"1.1.1.1:1"})})});
        m_backend->setQueryAnswer(kDataQuoteSources, "1", {brokerSource(3, kKxFutures, 1, 1, 1)});
        CFutureQuotesManagePanel panel(nullptr);
        bool refreshedInside = false;
        int boxes = 0;
        QTimer watcher;
        connect(&watcher, &QTimer::timeout, [&] {
            auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
            if (!box)
                return;
            if (!refreshedInside) {
                refreshedInside = true;
                QVERIFY(panel.dataMutex().isHeldByCurrentThread());
                m_backend->setQueryAnswer(kDataQuoteSources, "2", {source(9, kKxFutures, kStocks)});
                panel.refresh();      // parked: the box's owner holds the lock
                m_backend->settle();  // the new load's answers are due now, inside the box
                QVERIFY(panel.dataMutex().parkedCount() >= 1);
            }
            ++boxes;
            box->button(QMessageBox::Ok)->click();
        });
        watcher.start(20);
        panel.refresh();
        QTRY_VERIFY(refreshedInside);
        QTRY_COMPARE(idColumn(&panel), (QStringList{"3", "9"}));
        m_backend->settle();
        QCOMPARE(idColumn(&panel), (QStringList{"3", "9"}));
        QCOMPARE(boxes, 1);
    }

    void workerWaitingOnAPanelLockDoesNotStallOthers() {
        m_backend->setQueryAnswer(kDataQuoteSources, {source(1, kKxStocks, kStocks)});
        CStockQuotesManagePanel blocked(nullptr);
        CStockQuotesManagePanel other(nullptr);
        m_backend->setHolding(true);
        blocked.refresh();
        QTRY_COMPARE(m_backend->heldCount(), 1);
        // This thread holds the panel's lock as a modal action would.
        QVERIFY(blocked.dataMutex().lock());
        m_backend->releaseAll();
        QTRY_COMPARE(blocked.dataMutex().waitingCount(), 1);
        m_backend->setHolding(false);
        other.refresh();
        QTRY_COMPARE(other.table()->rowCount(), 1);
        QCOMPARE(blocked.table()->rowCount(), 0);
        blocked.dataMutex().unlock();
        QTRY_COMPARE(blocked.table()->rowCount(), 1);
    }

    void destroyingAPanelReleasesItsWaitingWorker() {
        m_backend->setQueryAnswer(kDataQuoteSources, {source(1, kKxStocks, kStocks)});
        auto* panel = new CStockQuotesManagePanel(nullptr);
        m_backend->setHolding(true);
        panel->refresh();
        QTRY_COMPARE(m_backend->heldCount(), 1);
        // Held by this thread and never released: the destructor must not wait for it.
        QVERIFY(panel->dataMutex().lock());
        m_backend->releaseAll();
        QTRY_COMPARE(panel->dataMutex().waitingCount(), 1);
        delete panel;
        QVERIFY(COrinClientCenter::instance()->waitForIdle(5000));
        m_backend->settle();
    }

    // A host may answer a batch delete once per record: one delete round refreshes once,
    // whatever number of answers it gets, and the next round refreshes again.
    void deleteAnswersRefreshOnce() {
        m_backend->setQueryAnswer(kDataQuoteSources,
                                  {source(1, kKxStocks, kStocks), source(2, kKxStocks, kStocks)});
        DeleteProbe panel;
        panel.refresh();
        QTRY_COMPARE(panel.table()->rowCount(), 2);
        QSignalSpy finished(&panel, &Panel::sigOnDataFinished);
        for (int round = 1; round <= 2; ++round) {
            m_backend->setHolding(true);
            QTimer::singleShot(0, [] {
                if (auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget()))
                    box->button(QMessageBox::Ok)->click();
            });
            panel.table()->selectRow(0);
            PanelEvents::pressDeleteInRow(panel, 0);
            QTRY_COMPARE(m_backend->heldCount(), 1);
            m_backend->setHolding(false);
            m_backend->releaseAll();
            // Further answers of the same round, on worker threads as the host delivers them.
            std::vector<std::thread> answers;
            for (int i = 0; i < 3; ++i)
                answers.emplace_back([&panel, i] {
                    panel.answerDelete(i == 1 ? utils::RKError::fail("x") : utils::RKError());
                });
            for (auto& answer : answers)
                answer.join();
            m_backend->settle();
            QTRY_COMPARE(finished.count(), round);
            QCoreApplication::processEvents();
            QCOMPARE(finished.count(), round);
            QTRY_COMPARE(panel.table()->rowCount(), 2);
        }
    }

private:
    // A futures load of one broker row (id 3) and one Kx row (id 4).
    void scriptFuturesLoad() {
        m_backend->setQueryAnswer(
            kDataBrokers, {broker(kKxFutures, "1_a", "甲", {group(1, "g", {"1.1.1.1:1"})})});
        m_backend->setQueryAnswer(kDataQuoteSources, "1", {brokerSource(3, kKxFutures, 1, 1, 1)});
        m_backend->setQueryAnswer(kDataQuoteSources, "2", {source(4, kKxFutures, kStocks)});
    }

    boost::shared_ptr<ScriptedBackend> m_backend;
};

QTEST_MAIN(TestQuotesPanelConcurrency)
#include "tst_quotespanel_concurrency.moc"
