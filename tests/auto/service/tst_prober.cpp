// Reachability: the prober connects to where the stored sources point (IPv4 and IPv6,
// non-blocking, bounded, timed out), never to an address it may not contact, records what it
// finds (state, connect time, since, history), announces changes of state through the change
// feed, probes on demand at most once per address per login and period, and of several probers
// on one database only one probes. Every port it reaches is a loopback listener the test opened.

#include <QDateTime>
#include <QtTest>

#include "CCaller.h"
#include "CChangeFeed.h"
#include "CDatabase.h"
#include "CProbeAllowList.h"
#include "CProbeStore.h"
#include "CQuotesService.h"
#include "CSourceProber.h"
#include "CTcpProber.h"
#include "ChangeLog.h"
#include "LoopbackListeners.h"
#include "OwnerCalls.h"
#include "ProbeResults.h"
#include "RecordBuilders.h"
#include "SampleData.h"
#include "ServiceResults.h"
#include "TestDatabases.h"
#include "model/CProbeVocabulary.h"
#include "rkservice/DataTypeIds.h"

namespace {

const QString kLoopback = QStringLiteral("127.0.0.1");

CTcpProber loopbackProber(int timeoutMs = 3000, int concurrency = 64) {
    CTcpProber::Options options;
    options.timeoutMs = timeoutMs;
    options.concurrency = concurrency;
    return CTcpProber(CProbeAllowList::only({QStringLiteral("127.0.0.0/8")}), options);
}

}  // namespace

class TestProber : public QObject {
    Q_OBJECT

public:
    explicit TestProber(PostgresCluster* postgres = nullptr, QString down = QString())
        : m_postgres(postgres), m_databases(QStringLiteral("prober"), postgres, std::move(down)) {}

private:
    PostgresCluster* m_postgres;
    TestDatabases m_databases;
    CServiceOptions m_options;
    boost::shared_ptr<CQuotesService> m_service;

    boost::shared_ptr<CQuotesService> open() {
        QString error;
        auto service = CQuotesService::open(m_options, &error);
        if (!service)
            qWarning("%s", qPrintable(error));
        else
            service->prober().tcp().setAllowList(CProbeAllowList::only({"127.0.0.0/8", "::1"}));
        return service;
    }

    // Adds a stock source and answers its id.
    int addSource(const std::string& address, int port) {
        const utils::RKError added =
            OwnerCalls::operate(*m_service, rkservice::kDataQuoteSources, rkservice::kOperateAdd,
                                RecordBuilders::source(0, 10000, 2, address, port));
        if (!added.isSuccess())
            qWarning("%s", added.errorMsg().c_str());
        std::vector<rkservice::IDataPtr> datas;
        OwnerCalls::query(*m_service, rkservice::kDataQuoteSources, &datas);
        for (const auto& data : datas) {
            auto source = boost::dynamic_pointer_cast<rkservice::COrinQuoterSourceInfo>(data);
            if (source && source->m_strAddress == address && source->m_nPort == port)
                return source->m_nId;
        }
        return 0;
    }

    // A futures source of broker 8060's first server group, whose addresses become these.
    int addFuturesSource(const QStringList& groupAddresses, int tradeType) {
        m_service->database().transact(true, [&](QSqlDatabase& db) {
            QSqlQuery update(db);
            update.prepare(
                QStringLiteral("UPDATE server_groups SET addresses = ? WHERE "
                               "platform_id = 20000 AND broker_id = 8060 AND "
                               "group_id = 1"));
            update.addBindValue(groupAddresses.join(QLatin1Char('\n')));
            m_service->database().exec(update);
        });
        auto source = RecordBuilders::brokerSource(0, 20000, 8060, 1, tradeType);
        const utils::RKError added = OwnerCalls::operate(*m_service, rkservice::kDataQuoteSources,
                                                         rkservice::kOperateAdd, source);
        if (!added.isSuccess())
            qWarning("%s", added.errorMsg().c_str());
        std::vector<rkservice::IDataPtr> datas;
        OwnerCalls::query(*m_service, rkservice::kDataQuoteSources, &datas);
        int id = 0;
        for (const auto& data : datas) {
            auto stored = boost::dynamic_pointer_cast<rkservice::COrinQuoterSourceInfo>(data);
            if (stored && stored->m_nBrokerId == 8060 && stored->m_nTradeType == tradeType)
                id = stored->m_nId;
        }
        return id;
    }

    std::vector<Hlx::CProbeResult> probe(const std::vector<int>& ids, bool all = false,
                                         const std::string& session = "session-a") {
        std::vector<Hlx::CProbeResult> results;
        const utils::RKError answered =
            m_service->probeSources(CCaller::owner().inSession(session), ids, all, &results);
        if (!answered.isSuccess())
            qWarning("%s", answered.errorMsg().c_str());
        return results;
    }

private slots:
    void initTestCase() {
        if (m_databases.unavailable())
            return;
    }

    void init() {
        m_options = SampleData::with(m_databases.fresh());
        m_service = open();
        QVERIFY(m_service);
    }

    void cleanup() {
        m_service.reset();
        m_databases.release();
    }

    void openClosedAndFullBacklogAreToldApart() {
        LoopbackListeners listeners;
        const int open = listeners.open();
        const int closed = listeners.closed();
        const int full = listeners.full();
        CTcpProber prober = loopbackProber();
        QElapsedTimer timer;
        timer.start();
        const auto outcomes =
            prober.probe({{kLoopback, open}, {kLoopback, closed}, {kLoopback, full}});
        QCOMPARE(outcomes[0].state, std::string(CProbeVocabulary::kReachable));
        QVERIFY(outcomes[0].connectUs > 0);
        QCOMPARE(outcomes[1].state, std::string(CProbeVocabulary::kRefused));
        QCOMPARE(outcomes[2].state, std::string(CProbeVocabulary::kTimeout));
        // Given up after the timeout, not the kernel's minutes of SYN retries.
        QVERIFY2(timer.elapsed() >= 2900 && timer.elapsed() < 6000,
                 qPrintable(QString::number(timer.elapsed())));
        QCOMPARE(prober.connectsStarted(), 3LL);
    }

    void ipv6LoopbackIsProbed() {
        const int fd = ::socket(AF_INET6, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in6 address{};
        address.sin6_family = AF_INET6;
        address.sin6_addr = in6addr_loopback;
        if (::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0) {
            ::close(fd);
            QSKIP("no IPv6 loopback here");
        }
        ::listen(fd, 4);
        socklen_t length = sizeof(address);
        ::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length);
        CTcpProber prober = loopbackProber();
        prober.setAllowList(CProbeAllowList::only({QStringLiteral("::1")}));
        const auto outcomes = prober.probe({{QStringLiteral("::1"), ntohs(address.sin6_port)}});
        ::close(fd);
        QCOMPARE(outcomes[0].state, std::string(CProbeVocabulary::kReachable));
    }

    void addressesNeverContactedWhateverIsAllowed() {
        CTcpProber prober(CProbeAllowList::parse(QStringLiteral("0.0.0.0/0,::/0")),
                          CTcpProber::Options());
        const QStringList never = {
            "192.0.2.11", "198.51.100.7", "203.0.113.71", "2001:db8::5",     "0.0.0.0",
            "::",         "224.0.0.1",    "ff02::1",      "255.255.255.255", "::ffff:192.0.2.11"};
        std::vector<CTcpProber::Target> targets;
        for (const QString& address : never)
            targets.push_back({address, 9999});
        const auto outcomes = prober.probe(targets);
        for (std::size_t i = 0; i < outcomes.size(); ++i) {
            QCOMPARE(outcomes[i].state, std::string(CProbeVocabulary::kNotProbed));
            QVERIFY2(!outcomes[i].error.empty(), qPrintable(never[int(i)]));
            QCOMPARE(prober.connectsTo(never[int(i)]), 0LL);
        }
        QCOMPARE(prober.connectsStarted(), 0LL);
    }

    void loopbackAndLinkLocalOnlyWhenAllowed() {
        const CProbeAllowList defaults;
        QVERIFY(!defaults.refusal(QStringLiteral("127.0.0.1")).empty());
        QVERIFY(!defaults.refusal(QStringLiteral("::1")).empty());
        QVERIFY(!defaults.refusal(QStringLiteral("169.254.1.1")).empty());
        QVERIFY(!defaults.refusal(QStringLiteral("fe80::1")).empty());
        QVERIFY(defaults.refusal(QStringLiteral("10.1.2.3")).empty());
        const CProbeAllowList confined = CProbeAllowList::parse(QStringLiteral("10.1.0.0/16"));
        QVERIFY(confined.refusal(QStringLiteral("10.1.2.3")).empty());
        QVERIFY(!confined.refusal(QStringLiteral("10.2.0.1")).empty());
        QVERIFY(!confined.refusal(QStringLiteral("::ffff:10.2.0.1")).empty());
        QVERIFY(confined.refusal(QStringLiteral("::ffff:10.1.0.1")).empty());
        QVERIFY_EXCEPTION_THROWN(CProbeAllowList::parse(QStringLiteral("10.1.0.0/33")),
                                 CServiceError);
    }

    void concurrencyIsBounded() {
        LoopbackListeners listeners;
        std::vector<CTcpProber::Target> targets;
        for (int i = 0; i < 6; ++i)
            targets.push_back({kLoopback, listeners.full()});
        CTcpProber prober = loopbackProber(300, 2);
        QElapsedTimer timer;
        timer.start();
        const auto outcomes = prober.probe(targets);
        for (const auto& outcome : outcomes)
            QCOMPARE(outcome.state, std::string(CProbeVocabulary::kTimeout));
        QCOMPARE(prober.peakInFlight(), 2);
        // Three rounds of two.
        QVERIFY2(timer.elapsed() >= 850, qPrintable(QString::number(timer.elapsed())));
    }

    void documentationSourcesAreNotProbedButListed() {
        LoopbackListeners listeners;
        const int open = listeners.open();
        const int loopbackId = addSource("127.0.0.1", open);
        const int documentationId = addSource("192.0.2.11", 9999);
        QVERIFY(loopbackId > 0 && documentationId > 0);
        const auto results = probe({}, true);
        QCOMPARE(int(results.size()), 2);
        const auto* documentation = probeResultAt(results, "192.0.2.11", 9999);
        QVERIFY(documentation);
        QCOMPARE(documentation->state, std::string(CProbeVocabulary::kNotProbed));
        QVERIFY(!documentation->error.empty());
        QCOMPARE(documentation->sourceIds, std::vector<int>{documentationId});
        QCOMPARE(probeResultAt(results, "127.0.0.1", open)->state,
                 std::string(CProbeVocabulary::kReachable));
        QCOMPARE(m_service->prober().tcp().connectsTo(QStringLiteral("192.0.2.11")), 0LL);
        QCOMPARE(m_service->prober().tcp().connectsStarted(), 1LL);
    }

    void eachAddressOnceForManySources() {
        LoopbackListeners listeners;
        const int open = listeners.open();
        const int other = listeners.open();
        const QString a = QStringLiteral("127.0.0.1:%1").arg(open);
        const QString b = QStringLiteral("127.0.0.1:%1").arg(other);
        const int futures = addFuturesSource({a, b}, 1);
        const int futures2 = addFuturesSource({a, b}, 5);
        const int stock = addSource("127.0.0.1", open);
        QVERIFY(futures > 0 && futures2 > 0 && stock > 0);
        const auto results = probe({futures, futures2, stock});
        QCOMPARE(int(results.size()), 2);
        const auto* first = probeResultAt(results, "127.0.0.1", open);
        QVERIFY(first);
        QCOMPARE(first->sourceIds, (std::vector<int>{futures, futures2, stock}));
        QCOMPARE(probeResultAt(results, "127.0.0.1", other)->sourceIds,
                 (std::vector<int>{futures, futures2}));
        QCOMPARE(probeResultAt(results, "127.0.0.1", other)->state,
                 std::string(CProbeVocabulary::kReachable));
        // Three sources, two addresses: two connects.
        QCOMPARE(m_service->prober().tcp().connectsTo(kLoopback), 2LL);
    }

    void unknownSourceIsNotFound() {
        std::vector<Hlx::CProbeResult> results;
        const utils::RKError answered =
            m_service->probeSources(CCaller::owner(), {4242}, false, &results);
        QCOMPARE(answered.kind(), utils::ErrorKind::NotFound);
        QCOMPARE(m_service->prober().tcp().connectsStarted(), 0LL);
    }

    void aLoginProbesAnAddressOncePerPeriod() {
        LoopbackListeners listeners;
        const int open = listeners.open();
        const int id = addSource("127.0.0.1", open);
        QCOMPARE(probe({id}).size(), std::size_t(1));
        const auto again = probe({id});
        QCOMPARE(m_service->prober().tcp().connectsStarted(), 1LL);
        // Answered from what is stored.
        QCOMPARE(int(again.size()), 1);
        QCOMPARE(again[0].state, std::string(CProbeVocabulary::kReachable));
        QCOMPARE(again[0].sourceIds, std::vector<int>{id});
        probe({id}, false, "session-b");
        QCOMPARE(m_service->prober().tcp().connectsStarted(), 2LL);
    }

    void stateSinceAndHistoryAreStored() {
        LoopbackListeners listeners;
        const int port = listeners.open();
        const int id = addSource("127.0.0.1", port);
        const auto first = probe({id}, false, "one");
        // A later probe must carry a later time: wait for the clock to pass the first one.
        QTRY_VERIFY(QDateTime::currentMSecsSinceEpoch() > first[0].checkedMs);
        const auto second = probe({id}, false, "two");
        QCOMPARE(second[0].sinceMs, first[0].sinceMs);
        QVERIFY(second[0].checkedMs > first[0].checkedMs);
        listeners.shut(port);
        const auto third = probe({id}, false, "three");
        QCOMPARE(third[0].state, std::string(CProbeVocabulary::kRefused));
        QVERIFY(third[0].sinceMs > first[0].sinceMs);
        std::vector<Hlx::CProbeSample> history;
        QVERIFY(
            m_service->probeHistory(CCaller::owner(), "127.0.0.1", port, 0, &history).isSuccess());
        QCOMPARE(int(history.size()), 3);
        QCOMPARE(history[2].state, std::string(CProbeVocabulary::kRefused));
    }

    void historyBeyondAnHourIsThinnedAndADayKept() {
        const long long now = QDateTime::currentMSecsSinceEpoch();
        const long long period = CProbeStore::kCoarsePeriodMs;
        const long long oldPeriod = (now - 3 * 3600 * 1000LL) / period * period;
        CDatabase& database = m_service->database();
        database.transact(true, [&](QSqlDatabase& db) {
            QSqlQuery insert(db);
            insert.prepare(QStringLiteral(
                "INSERT INTO probe_history (address, port, time_ms, state, connect_us, samples, "
                "coarse) VALUES ('127.0.0.1', 9, ?, ?, ?, 1, 0)"));
            const auto add = [&](long long at, const char* state, long long us) {
                insert.addBindValue(at);
                insert.addBindValue(QString::fromLatin1(state));
                insert.addBindValue(us);
                database.exec(insert);
            };
            add(oldPeriod + 1000, CProbeVocabulary::kReachable, 100);
            add(oldPeriod + 2000, CProbeVocabulary::kReachable, 300);
            add(oldPeriod + 3000, CProbeVocabulary::kTimeout, 0);
            add(now - 25 * 3600 * 1000LL, CProbeVocabulary::kReachable, 100);
            add(now - 60 * 1000, CProbeVocabulary::kReachable, 50);
            add(now - 30 * 1000, CProbeVocabulary::kReachable, 70);
            CProbeStore(database).thin(db, now);
        });
        std::vector<Hlx::CProbeSample> history;
        QVERIFY(m_service->probeHistory(CCaller::owner(), "127.0.0.1", 9, 0, &history).isSuccess());
        QCOMPARE(int(history.size()), 3);
        QCOMPARE(history[0].timeMs, oldPeriod);
        QCOMPARE(history[0].samples, 3);
        QCOMPARE(history[0].state, std::string(CProbeVocabulary::kTimeout));
        QCOMPARE(history[0].connectUs, 200LL);
        QCOMPARE(history[1].samples, 1);
        QCOMPARE(history[2].connectUs, 70LL);
        // No source connects to a port beyond 1..65535: asking for its history is a bad request.
        for (int port : {0, -1, 65536})
            QCOMPARE(
                m_service->probeHistory(CCaller::owner(), "127.0.0.1", port, 0, &history).kind(),
                utils::ErrorKind::Invalid);
    }

    void changesOfStateAreAnnounced() {
        LoopbackListeners listeners;
        const int port = listeners.open();
        const int id = addSource("127.0.0.1", port);
        ChangeLog log;
        const auto handle = m_service->changes().subscribe(log.handler());
        probe({id}, false, "one");
        QTRY_COMPARE(log.count([](const Hlx::CChangeEvent& e) { return e.probeChange; }), 1);
        const Hlx::CChangeEvent event = log.last();
        QCOMPARE(event.dataType, std::string(CProbeVocabulary::kProbeStatus));
        QCOMPARE(event.probe.state, std::string(CProbeVocabulary::kReachable));
        QCOMPARE(event.probe.port, port);
        QCOMPARE(event.entryId, 0LL);
        // The same state again is no change; a new one is.
        probe({id}, false, "two");
        listeners.shut(port);
        probe({id}, false, "three");
        QTRY_COMPARE(log.count([](const Hlx::CChangeEvent& e) { return e.probeChange; }), 2);
        QCOMPARE(log.last().probe.state, std::string(CProbeVocabulary::kRefused));
        // Audit entries are still announced beside them.
        addSource("127.0.0.1", 1);
        QTRY_VERIFY(log.last().dataType == "quote_source");
    }

    void theTimerProbesEachAddressOncePerInterval() {
        LoopbackListeners listeners;
        const int port = listeners.open();
        addSource("127.0.0.1", port);
        addSource("192.0.2.11", 9999);
        m_service->prober().start(std::chrono::milliseconds(1000));
        QTRY_VERIFY(m_service->prober().tcp().connectsStarted() >= 1);
        // Time itself is under test: how many probes two and a half intervals hold.
        QTest::qWait(2500);
        const long long connects = m_service->prober().tcp().connectsTo(kLoopback);
        QVERIFY2(connects >= 2 && connects <= 4, qPrintable(QString::number(connects)));
        QCOMPARE(m_service->prober().tcp().connectsTo(QStringLiteral("192.0.2.11")), 0LL);
        std::vector<Hlx::CProbeResult> status;
        QVERIFY(m_service->probeStatus(CCaller::owner(), "", &status).isSuccess());
        QCOMPARE(int(status.size()), 2);
        QCOMPARE(probeResultAt(status, "127.0.0.1", port)->state,
                 std::string(CProbeVocabulary::kReachable));
        QCOMPARE(probeResultAt(status, "192.0.2.11", 9999)->state,
                 std::string(CProbeVocabulary::kNotProbed));
    }

    void oneProberPerDatabaseAndAnotherTakesOver() {
        LoopbackListeners listeners;
        addSource("127.0.0.1", listeners.open());
        auto second = open();
        QVERIFY(second);
        m_service->prober().start(std::chrono::milliseconds(500));
        QTRY_VERIFY(m_service->prober().probing());
        second->prober().start(std::chrono::milliseconds(500));
        // While the first probes the address three times (three of its intervals), the second
        // stays idle.
        QTRY_VERIFY_WITH_TIMEOUT(m_service->prober().tcp().connectsTo(kLoopback) >= 3, 10000);
        QVERIFY(!second->prober().probing());
        QCOMPARE(second->prober().tcp().connectsStarted(), 0LL);
        m_service.reset();
        QTRY_VERIFY_WITH_TIMEOUT(second->prober().probing(), 10000);
        QTRY_VERIFY(second->prober().tcp().connectsStarted() >= 1);
        second.reset();
        m_service = open();
    }
};

class TestProberPostgres : public TestProber {
    Q_OBJECT

public:
    TestProberPostgres(PostgresCluster* postgres, const QString& down)
        : TestProber(postgres, down) {}
};

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    return TestDatabases::runBoth<TestProber, TestProberPostgres>(argc, argv);
}
#include "tst_prober.moc"
