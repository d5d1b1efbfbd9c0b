// Reachability through quotesd: whoever may read the sources probes them over the network
// (ProbeSources, quotesctl sources probe), the server's timer probes them when --probe-interval
// asks, its findings are read back (ProbeStatus, ProbeHistory) and its changes of state reach
// every console through the event stream. Every port reached is a loopback listener of the
// test's own; --probe-allow lets the server contact loopback.

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QtTest>

#include "CRemoteAdmin.h"
#include "ChangeLog.h"
#include "LoopbackListeners.h"
#include "ProbeResults.h"
#include "QuotesctlOnServer.h"
#include "QuotesdLogin.h"
#include "SourceAdds.h"
#include "TestPasswords.h"
#include "model/CProbeVocabulary.h"
#include "rkservice/DataTypeIds.h"

class TestProbeRemote : public QObject {
    Q_OBJECT

    QuotesdProcess m_server;
    LoopbackListeners m_listeners;
    int m_open = 0;
    int m_closed = 0;

private slots:
    void initTestCase() {
        QString output;
        QVERIFY2(m_server.init(kAdminPassword, &output), qPrintable(output));
        QVERIFY(m_server.setPassword(QStringLiteral("viewer"), kViewerPassword));
        QVERIFY2(m_server.start({QStringLiteral("--probe-allow"), QStringLiteral("127.0.0.0/8"),
                                 QStringLiteral("--probe-interval"), QStringLiteral("1")}),
                 qPrintable(m_server.log()));
        m_open = m_listeners.open();
        m_closed = m_listeners.closed();
        auto admin = loggedInTo(m_server, "admin", kAdminPassword);
        QVERIFY(addStockSource(*admin, "127.0.0.1", m_open).isSuccess());
        QVERIFY(addStockSource(*admin, "127.0.0.1", m_closed).isSuccess());
        QVERIFY(addStockSource(*admin, "192.0.2.11", 9999).isSuccess());
    }

    void cleanupTestCase() {
        if (m_server.isRunning())
            QCOMPARE(m_server.stop(), 0);
    }

    void aViewerProbesTheStoredSources() {
        auto viewer = loggedInTo(m_server, "viewer", kViewerPassword);
        std::vector<Hlx::CProbeResult> results;
        const utils::RKError probed = viewer->probeSources({}, true, &results);
        QVERIFY2(probed.isSuccess(), probed.errorMsg().c_str());
        QCOMPARE(int(results.size()), 3);
        QCOMPARE(probeResultAt(results, "127.0.0.1", m_open)->state,
                 std::string(CProbeVocabulary::kReachable));
        QCOMPARE(probeResultAt(results, "127.0.0.1", m_closed)->state,
                 std::string(CProbeVocabulary::kRefused));
        const Hlx::CProbeResult* documentation = probeResultAt(results, "192.0.2.11", 9999);
        QCOMPARE(documentation->state, std::string(CProbeVocabulary::kNotProbed));
        QVERIFY(!documentation->error.empty());
        QCOMPARE(documentation->sourceIds.size(), std::size_t(1));
    }

    void anUnknownSourceIsNotFound() {
        auto viewer = loggedInTo(m_server, "viewer", kViewerPassword);
        std::vector<Hlx::CProbeResult> results;
        const utils::RKError probed = viewer->probeSources({4242}, false, &results);
        QCOMPARE(probed.kind(), utils::ErrorKind::NotFound);
    }

    void theTimersFindingsAreReadBack() {
        auto viewer = loggedInTo(m_server, "viewer", kViewerPassword);
        std::vector<Hlx::CProbeResult> status;
        QTRY_VERIFY_WITH_TIMEOUT(viewer->probeStatus("sys1", &status).isSuccess() &&
                                     status.size() == 3 &&
                                     probeResultAt(status, "127.0.0.1", m_open)->checkedMs > 0,
                                 10000);
        std::vector<Hlx::CProbeSample> history;
        QVERIFY(viewer->probeHistory("127.0.0.1", m_open, 0, &history).isSuccess());
        QVERIFY(!history.empty());
        QCOMPARE(history.back().state, std::string(CProbeVocabulary::kReachable));
    }

    void changesOfStateAreStreamed() {
        auto watcher = loggedInTo(m_server, "viewer", kViewerPassword);
        ChangeLog log;
        const auto handle = watcher->watchChanges(log.handler());
        QTRY_COMPARE(log.size(), 1);
        const int port = m_listeners.open();
        auto admin = loggedInTo(m_server, "admin", kAdminPassword);
        QVERIFY(addStockSource(*admin, "127.0.0.1", port).isSuccess());
        const auto heard = [port](const Hlx::CChangeEvent& event) {
            return event.probeChange && event.probe.port == port;
        };
        // The timer finds the new source within its interval and the reading of sources.
        QTRY_VERIFY_WITH_TIMEOUT(log.count(heard) == 1, 15000);
        QCOMPARE(log.last().dataType, std::string(CProbeVocabulary::kProbeStatus));
        m_listeners.shut(port);
        QTRY_VERIFY_WITH_TIMEOUT(log.count(heard) == 2, 15000);
        QCOMPARE(log.last().probe.state, std::string(CProbeVocabulary::kRefused));
    }

    void quotesctlProbesThroughTheServer() {
        const QuotesctlOnServer ctl(m_server, QStringLiteral("viewer"), kViewerPassword);
        const QuotesctlRun run = ctl.run({"sources", "probe", "--all", "--json"});
        QVERIFY2(run.code == 0, run.err.constData());
        const QJsonArray results = QJsonDocument::fromJson(run.out).array();
        QVERIFY(results.size() >= 3);
        QStringList states;
        for (const QJsonValue& result : results)
            states << result.toObject().value(QLatin1String("state")).toString();
        QVERIFY(states.contains(QLatin1String(CProbeVocabulary::kReachable)));
        QVERIFY(states.contains(QLatin1String(CProbeVocabulary::kRefused)));
        QVERIFY(states.contains(QLatin1String(CProbeVocabulary::kNotProbed)));
        const QuotesctlRun table = ctl.run({"sources", "probe", "1"});
        QCOMPARE(table.code, 0);
        QVERIFY(table.out.contains("reachable"));
    }
};

QTEST_GUILESS_MAIN(TestProbeRemote)
#include "tst_probe_remote.moc"
