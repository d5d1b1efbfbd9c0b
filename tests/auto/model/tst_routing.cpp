#include <QtTest>
#include <atomic>

#include "Hlx/COrinClientCenter.h"
#include "ScriptedBackend.h"
#include "model/CAnswerGuard.h"
#include "model/CPanelMutex.h"
#include "model/CRequestFactory.h"
#include "model/CRequestRouter.h"
#include "rkservice/DataTypeIds.h"

using namespace Hlx;

namespace {

QueryCallback counting(std::atomic<int>* calls) {
    return [calls](const utils::RKError&, const std::vector<rkservice::IDataPtr>&, int,
                   bson::BSONObj) { ++*calls; };
}

}  // namespace

class TestRouting : public QObject {
    Q_OBJECT
private slots:
    void init() {
        m_backend = ScriptedBackend::install();
        m_backend->setSubsystems({{"sys1", "上海"}, {"sys2", "深圳"}});
    }
    void cleanup() { COrinClientCenter::instance()->waitForIdle(); }

    void destinations_data() {
        QTest::addColumn<int>("policy");
        QTest::addColumn<bool>("routed");
        QTest::addColumn<bool>("multi");
        QTest::addColumn<QString>("name");
        QTest::addColumn<int>("destination");
        const int centre = int(CRequestRouter::Destination::Centre);
        const int client = int(CRequestRouter::Destination::Client);
        const int dropped = int(CRequestRouter::Destination::Dropped);
        QTest::newRow("centre always")
            << int(RoutePolicy::Centre) << true << true << "sys2" << centre;
        QTest::newRow("named client, no name")
            << int(RoutePolicy::NamedClient) << false << false << "" << client;
        QTest::newRow("named or centre, name")
            << int(RoutePolicy::NamedOrCentre) << false << false << "sys2" << client;
        QTest::newRow("named or centre, none")
            << int(RoutePolicy::NamedOrCentre) << true << true << "" << centre;
        QTest::newRow("routed, multi, name")
            << int(RoutePolicy::RoutedOrCentre) << true << true << "sys2" << client;
        QTest::newRow("routed, multi, none")
            << int(RoutePolicy::RoutedOrCentre) << true << true << "" << centre;
        QTest::newRow("routed, single")
            << int(RoutePolicy::RoutedOrCentre) << true << false << "sys2" << centre;
        QTest::newRow("not routed, multi")
            << int(RoutePolicy::RoutedOrCentre) << false << true << "sys2" << centre;
        QTest::newRow("drop: routed, multi, name")
            << int(RoutePolicy::RoutedOrDrop) << true << true << "sys2" << client;
        QTest::newRow("drop: routed, multi, none")
            << int(RoutePolicy::RoutedOrDrop) << true << true << "" << dropped;
        QTest::newRow("drop: single, none")
            << int(RoutePolicy::RoutedOrDrop) << true << false << "" << centre;
        QTest::newRow("drop: not routed, none")
            << int(RoutePolicy::RoutedOrDrop) << false << true << "" << centre;
    }

    void destinations() {
        QFETCH(int, policy);
        QFETCH(bool, routed);
        QFETCH(bool, multi);
        QFETCH(QString, name);
        QFETCH(int, destination);
        if (!multi)
            m_backend->setSubsystems({{"sys2", "深圳"}});
        CRequestRouter router(RoutePolicy(policy), routed, name);
        QCOMPARE(int(router.destination()), destination);
        std::atomic<int> calls{0};
        const bool sent = router.query(CRequestFactory::query(rkservice::kDataQuoteSources, "2"),
                                       counting(&calls));
        QCOMPARE(sent, destination != int(CRequestRouter::Destination::Dropped));
        if (!sent) {
            QCOMPARE(m_backend->requestCount(), 0);
            return;
        }
        QTRY_COMPARE(calls.load(), 1);
        const auto request = m_backend->requests().front();
        QCOMPARE(request.toCentre, destination == int(CRequestRouter::Destination::Centre));
        if (!request.toCentre)
            QCOMPARE(request.subsystem,
                     name.isEmpty() ? m_backend->subsystems().front().name : name.toStdString());
    }

    void guardDropsLateAnswers() {
        std::atomic<int> calls{0};
        QueryCallback guarded;
        {
            CAnswerGuard guard;
            guarded = guard.guardQuery(counting(&calls));
            guarded(utils::RKError(), {}, 0, bson::BSONObj());
            QCOMPARE(calls.load(), 1);
        }
        guarded(utils::RKError(), {}, 0, bson::BSONObj());
        QCOMPARE(calls.load(), 1);
    }

    void guardDropsStaleLoads() {
        std::atomic<int> calls{0};
        CAnswerGuard guard;
        guard.startLoad();
        QueryCallback first = guard.guardLoad(counting(&calls));
        guard.startLoad();
        QueryCallback second = guard.guardLoad(counting(&calls));
        first(utils::RKError(), {}, 0, bson::BSONObj());
        QCOMPARE(calls.load(), 0);
        second(utils::RKError(), {}, 0, bson::BSONObj());
        QCOMPARE(calls.load(), 1);
    }

    void guardWaitsForARunningAnswer() {
        std::atomic<bool> inside{false};
        std::atomic<bool> finished{false};
        std::mutex gate;
        std::unique_lock<std::mutex> closed(gate);
        auto guard = std::make_unique<CAnswerGuard>();
        QueryCallback guarded =
            guard->guardQuery([&](const utils::RKError&, const std::vector<rkservice::IDataPtr>&,
                                  int, bson::BSONObj) {
                inside = true;
                std::lock_guard<std::mutex> wait(gate);
                finished = true;
            });
        // Dropped once the destructor has begun: it marks the guard dead under the guard's lock
        // and then waits, so a dropped probe means the destructor is waiting.
        std::atomic<bool> probed{false};
        QueryCallback probe =
            guard->guardQuery([&](const utils::RKError&, const std::vector<rkservice::IDataPtr>&,
                                  int, bson::BSONObj) { probed = true; });
        std::thread worker([&] { guarded(utils::RKError(), {}, 0, bson::BSONObj()); });
        QTRY_VERIFY(inside.load());
        std::thread opener([&] {
            do {
                probed = false;
                probe(utils::RKError(), {}, 0, bson::BSONObj());
                std::this_thread::yield();
            } while (probed);
            closed.unlock();
        });
        guard.reset();
        QVERIFY(finished.load());
        worker.join();
        opener.join();
    }

    void mutexParksCallsOfItsHolder() {
        CPanelMutex mutex;
        QStringList order;
        {
            CPanelMutex::Locker outer = mutex.lockOrPark([&] { order << "never"; });
            QVERIFY(outer.owns());
            QVERIFY(mutex.isHeldByCurrentThread());
            // A slot running inside a nested loop of the holder: parked, not deadlocked.
            CPanelMutex::Locker inner = mutex.lockOrPark([&] {
                CPanelMutex::Locker again = mutex.lockOrPark([&] { order << "nested again"; });
                QVERIFY(again.owns());
                order << "parked ran";
            });
            QVERIFY(!inner.owns());
            QCOMPARE(mutex.parkedCount(), 1);
            order << "outer";
        }
        QCOMPARE(order, (QStringList{"outer", "parked ran"}));
        QVERIFY(!mutex.isHeldByCurrentThread());
    }

    void workerWaitsForTheHolder() {
        CPanelMutex mutex;
        std::atomic<bool> got{false};
        CPanelMutex::Locker held(mutex);
        std::thread worker([&] {
            CPanelMutex::Locker locker(mutex);
            got = locker.owns();
        });
        QTRY_COMPARE(mutex.waitingCount(), 1);
        QVERIFY(!got.load());
        held.unlock();
        worker.join();
        QVERIFY(got.load());
    }

    void abandonReleasesWaitingWorkers() {
        CPanelMutex mutex;
        std::atomic<int> result{-1};
        CPanelMutex::Locker held(mutex);
        std::thread worker([&] {
            CPanelMutex::Locker locker(mutex);
            result = locker.owns() ? 1 : 0;
        });
        QTRY_COMPARE(mutex.waitingCount(), 1);
        QCOMPARE(result.load(), -1);
        mutex.abandon();
        worker.join();
        QCOMPARE(result.load(), 0);
    }

private:
    boost::shared_ptr<ScriptedBackend> m_backend;
};

QTEST_MAIN(TestRouting)
#include "tst_routing.moc"
