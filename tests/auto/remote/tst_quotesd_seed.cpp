// quotesd init as an administrator runs it sets up a database without the sample brokers, whose
// addresses are documentation ranges; init --sample-data keeps them for trying things out.

#include <QJsonArray>
#include <QJsonObject>
#include <QtTest>

#include "CCaller.h"
#include "CQuotesService.h"
#include "QuotesdProcess.h"
#include "ServiceResults.h"
#include "TestPasswords.h"

namespace {

// The brokers of the database a server's init made (-1 when it cannot be read).
int storedBrokers(const QuotesdProcess& server) {
    CServiceOptions options;
    options.dataDir = server.dataDir();
    options.createMissing = false;
    QString error;
    const boost::shared_ptr<CQuotesService> service = CQuotesService::open(options, &error);
    if (!service) {
        qWarning("open: %s", qPrintable(error));
        return -1;
    }
    QJsonObject document;
    error = failureOf(service->exportDocument(CCaller::owner(), &document));
    if (!error.isEmpty()) {
        qWarning("export: %s", qPrintable(error));
        return -1;
    }
    return document.value(QLatin1String("brokers")).toArray().size();
}

}  // namespace

class TestQuotesdSeed : public QObject {
    Q_OBJECT

private slots:
    void initSeedsNoSampleBrokers() {
        QuotesdProcess server;
        server.setSampleData(false);
        QString output;
        QVERIFY2(server.init(kAdminPassword, &output), qPrintable(output));
        QCOMPARE(storedBrokers(server), 0);
    }

    void initWithSampleDataKeepsThem() {
        QuotesdProcess server;
        QString output;
        QVERIFY2(server.init(kAdminPassword, &output), qPrintable(output));
        QCOMPARE(storedBrokers(server), 17);
    }
};

QTEST_GUILESS_MAIN(TestQuotesdSeed)
#include "tst_quotesd_seed.moc"
