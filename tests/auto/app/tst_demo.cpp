#include <arpa/inet.h>

#include <QSet>
#include <QtTest>

#include "CConsoleOptions.h"
#include "CDemoData.h"
#include "CDemoLoopback.h"
#include "CPanelCatalogue.h"
#include "CScreenshotter.h"
#include "CSourceProber.h"
#include "CTcpProber.h"
#include "ConsolePanels.h"
#include "EmbeddedService.h"
#include "Hlx/CUserManager.h"
#include "ProbeResults.h"
#include "ServiceResults.h"
#include "Zu/COddEvenRowTable.h"
#include "model/CProbeVocabulary.h"
#include "panels/CLevel2QuotesManagePanel.h"
#include "panels/CQuotesManagePanel.h"
#include "rkservice/COrinQueryDataReq.h"
#include "rkservice/DataTypeIds.h"

using namespace Hlx;

// The first run's sample data: something on every panel, in both sub-systems, with addresses
// from the documentation ranges only.
class TestDemo : public QObject {
    Q_OBJECT

    static bool documentationAddress(const QString& text) {
        const std::string host = text.toStdString();
        unsigned char bytes[16] = {0};
        if (inet_pton(AF_INET6, host.c_str(), bytes) == 1)
            return bytes[0] == 0x20 && bytes[1] == 0x01 && bytes[2] == 0x0d && bytes[3] == 0xb8;
        if (inet_pton(AF_INET, host.c_str(), bytes) != 1)
            return false;
        return (bytes[0] == 192 && bytes[1] == 0 && bytes[2] == 2) ||
               (bytes[0] == 198 && bytes[1] == 51 && bytes[2] == 100) ||
               (bytes[0] == 203 && bytes[1] == 0 && bytes[2] == 113);
    }

    // "host", "host:port" or an IPv6 address.
    static QString hostOf(const QString& part) {
        return part.count(':') == 1 ? part.section(':', 0, 0) : part;
    }

private slots:
    void init() {
        m_embedded.reset(new EmbeddedService);
        QVERIFY2(m_embedded->isOpen(), qPrintable(m_embedded->error()));
        QString error;
        QVERIFY2(CDemoData::fill(*m_embedded->service(), &error), qPrintable(error));
        QVERIFY(m_embedded->loginAs("admin"));
    }

    void cleanup() {
        CScreenshotter::waitUntilSettled();
        m_embedded.reset();
    }

    void everyPanelListsSources() {
        QSet<QString> subsystems;
        int futuresRows = 0;
        for (const CPanelEntry& entry : CPanelCatalogue::entries()) {
            std::unique_ptr<IorinDockableWidget> panel(entry.create(nullptr));
            panel->onActive();
            CScreenshotter::waitUntilSettled();
            if (auto* token = qobject_cast<CLevel2QuotesManagePanel*>(panel.get())) {
                QCOMPARE(token->table()->rowCount(), 1);
                continue;
            }
            auto* quotes = qobject_cast<CQuotesManagePanel*>(panel.get());
            QVERIFY(quotes);
            Zu::COddEvenRowTable* table = quotes->table();
            QVERIFY2(table->rowCount() > 0, qPrintable(entry.objectName));
            for (int row = 0; row < table->rowCount(); ++row) {
                subsystems << table->itemText(row, CQuotesManagePanel::kColSubsystem);
                const QString address = table->itemText(row, CQuotesManagePanel::kColAddress);
                // A broker's source lists its server group's addresses.
                for (const QString& part : address.split(QRegExp("[,;\\s]+"), Qt::SkipEmptyParts))
                    QVERIFY2(documentationAddress(hostOf(part)), qPrintable(part));
            }
            if (entry.objectName == ConsolePanels::futures()) {
                QSet<QString> brokers;
                for (int row = 0; row < table->rowCount(); ++row)
                    brokers << table->itemText(row, CQuotesManagePanel::kColName);
                QVERIFY(brokers.size() >= 3);
                futuresRows = table->rowCount();
            }
        }
        QVERIFY(futuresRows > 0);
        QVERIFY(subsystems.size() >= 2);
    }

    void usersOfEveryRole() {
        QStringList names;
        for (const rkservice::CUserInfoPtr& user : storedUsers(*m_embedded->service()))
            names << QString::fromStdString(user->m_strName);
        for (const char* name : {"admin", "futures_op", "stock_op", "viewer"})
            QVERIFY2(names.contains(name), name);
    }

    void demoOptions() {
        CConsoleOptions options;
        QString error;
        QVERIFY(CConsoleOptions::parse({"quotes-console", "--demo", "--reset"}, &options, &error));
        QVERIFY(options.demo);
        QVERIFY(options.reset);
        QVERIFY(!CConsoleOptions::parse({"quotes-console", "--reset"}, &options, &error));
        QVERIFY(!CConsoleOptions::parse({"quotes-console", "--demo", "--data", "/tmp/x"}, &options,
                                        &error));
        QVERIFY(!CConsoleOptions::parse({"quotes-console", "--demo", "--server", "h:1"}, &options,
                                        &error));
    }

    // The dock's states on the demo: two loopback ports the console listens on are reachable,
    // its closed one refuses, and documentation addresses are never contacted.
    void loopbackShowsEveryState() {
        CQuotesService& service = *m_embedded->service();
        CDemoLoopback loopback;
        QString error;
        QVERIFY2(loopback.start(service, &error), qPrintable(error));
        const std::vector<int> ports = loopback.ports();
        QCOMPARE(int(ports.size()), 3);
        std::vector<Hlx::CProbeResult> results;
        QVERIFY(service.probeSources(CCaller::owner(), {}, true, &results).isSuccess());
        const char* expected[] = {CProbeVocabulary::kReachable, CProbeVocabulary::kReachable,
                                  CProbeVocabulary::kRefused};
        for (std::size_t i = 0; i < ports.size(); ++i) {
            const Hlx::CProbeResult* found =
                probeResultAt(results, CDemoLoopback::kAddress, ports[i]);
            QVERIFY2(found, qPrintable(QString::number(ports[i])));
            QCOMPARE(found->state, std::string(expected[i]));
        }
        const Hlx::CProbeResult* documentation = probeResultAt(results, "192.0.2.11", 7709);
        QVERIFY(documentation);
        QCOMPARE(documentation->state, std::string(CProbeVocabulary::kNotProbed));
        QCOMPARE(service.prober().tcp().connectsTo("192.0.2.11"), 0LL);
        QCOMPARE(service.prober().tcp().connectsStarted(), 3LL);
    }

    // A restart binds the ports stored before: the sources stay as they were, and nothing is
    // recorded for them.
    void restartKeepsTheSources() {
        CQuotesService& service = *m_embedded->service();
        QString error;
        std::vector<int> first;
        {
            CDemoLoopback loopback;
            QVERIFY2(loopback.start(service, &error), qPrintable(error));
            first = loopback.ports();
        }
        const int entries = auditCount(service);
        CDemoLoopback again;
        QVERIFY2(again.start(service, &error), qPrintable(error));
        QCOMPARE(again.ports(), first);
        QCOMPARE(auditCount(service), entries);
        QCOMPARE(loopbackSources(service), 3);
    }

    void resetStartsAfresh() {
        QTemporaryDir base;
        const QString dir = base.filePath("demo");
        bool fresh = false;
        QString error;
        QVERIFY(CDemoData::prepare(dir, false, &fresh, &error));
        QVERIFY(fresh);
        QFile db(QDir(dir).filePath("quotes.db"));
        QVERIFY(db.open(QIODevice::WriteOnly));
        db.close();
        QVERIFY(CDemoData::prepare(dir, false, &fresh, &error));
        QVERIFY(!fresh);
        QVERIFY(CDemoData::prepare(dir, true, &fresh, &error));
        QVERIFY(fresh);
        QVERIFY(QDir(dir).exists());
        QVERIFY(CDemoData::defaultDirectory().endsWith("PanelQuotesManage-demo"));
    }

private:
    static int auditCount(CQuotesService& service) {
        Hlx::CAuditFilter filter;
        filter.limit = 10000;
        std::vector<Hlx::CAuditEntry> entries;
        if (!service.auditEntries(CCaller::owner(), filter, &entries).isSuccess())
            return -1;
        return int(entries.size());
    }

    static int loopbackSources(CQuotesService& service) {
        rkservice::COrinQueryDataReq request;
        request.dataType = rkservice::kDataQuoteSources;
        std::vector<rkservice::IDataPtr> datas;
        service.querySync(CCaller::owner(), Hlx::CRequestTarget::centre(), request, &datas);
        int found = 0;
        for (const rkservice::IDataPtr& data : datas) {
            auto source = boost::dynamic_pointer_cast<rkservice::COrinQuoterSourceInfo>(data);
            found += source && source->m_strAddress == CDemoLoopback::kAddress ? 1 : 0;
        }
        return found;
    }

    std::unique_ptr<EmbeddedService> m_embedded;
};

QTEST_MAIN(TestDemo)
#include "tst_demo.moc"
