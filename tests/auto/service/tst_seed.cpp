// What a new database starts with: the futures platforms, the sub-systems and the accounts, and
// no broker unless asked for the sample data, whose addresses are documentation ranges that
// reach nothing.

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QtTest>

#include "CCaller.h"
#include "CQuotesService.h"
#include "SampleData.h"
#include "ServiceResults.h"

class TestSeed : public QObject {
    Q_OBJECT

private:
    QJsonObject exportedFrom(const CServiceOptions& options) {
        QString error;
        const boost::shared_ptr<CQuotesService> service = CQuotesService::open(options, &error);
        if (!service) {
            qWarning("open: %s", qPrintable(error));
            return QJsonObject();
        }
        QJsonObject document;
        error = failureOf(service->exportDocument(CCaller::owner(), &document));
        if (!error.isEmpty())
            qWarning("export: %s", qPrintable(error));
        return document;
    }

    static int documentationAddresses(const QJsonObject& document) {
        static const QRegularExpression documentation(
            QStringLiteral("192\\.0\\.2\\.|198\\.51\\.100\\.|203\\.0\\.113\\.|2001:db8:"));
        const QString text = QString::fromUtf8(QJsonDocument(document).toJson());
        int count = 0;
        for (auto it = documentation.globalMatch(text); it.hasNext(); it.next())
            ++count;
        return count;
    }

private slots:
    void aProductionDatabaseHasNoSampleBrokers() {
        QTemporaryDir dir;
        CServiceOptions options;
        options.dataDir = dir.path();
        const QJsonObject document = exportedFrom(options);
        QVERIFY(!document.isEmpty());
        QCOMPARE(document.value(QLatin1String("brokers")).toArray().size(), 0);
        QCOMPARE(documentationAddresses(document), 0);
        // What sources and accounts need stays: the platforms, the sub-systems, admin.
        QVERIFY(!document.value(QLatin1String("platforms")).toArray().isEmpty());
        QVERIFY(!document.value(QLatin1String("subsystems")).toArray().isEmpty());
        QVERIFY(!document.value(QLatin1String("users")).toArray().isEmpty());
    }

    void theSampleDataKeepsThem() {
        QTemporaryDir dir;
        const QJsonObject document = exportedFrom(SampleData::inDirectory(dir.path()));
        QCOMPARE(document.value(QLatin1String("brokers")).toArray().size(), 17);
        QVERIFY(documentationAddresses(document) > 0);
    }
};

QTEST_GUILESS_MAIN(TestSeed)
#include "tst_seed.moc"
