// quotesctl import --only: the sections named replace the stored ones, the others stay as
// stored, and the whole is checked as one import.

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <QtTest>

#include "QuotesctlRunner.h"

class TestPartialImport : public QObject {
    Q_OBJECT

private:
    std::unique_ptr<QTemporaryDir> m_dir;

    QuotesctlRunner::Result ctl(const QStringList& arguments) {
        return QuotesctlRunner::run(QStringList{QStringLiteral("--data"), m_dir->path()} +
                                    arguments);
    }

    QJsonObject exported() {
        const auto r = ctl({"export"});
        return QJsonDocument::fromJson(r.out).object();
    }

    QString write(const QJsonObject& document) {
        const QString path = m_dir->filePath(QStringLiteral("document.json"));
        QFile file(path);
        if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
            return QString();
        file.write(QJsonDocument(document).toJson());
        return path;
    }

    int count(const QStringList& command) {
        const auto r = ctl(command + QStringList{QStringLiteral("--json")});
        return QJsonDocument::fromJson(r.out).array().size();
    }

private slots:
    void init() {
        m_dir.reset(new QTemporaryDir);
        const auto r = ctl({"sources", "add", "--platform", "10000", "--trade-type", "2",
                            "--address", "10.9.8.7", "--port", "9000", "--user", "u"});
        QVERIFY2(r.code == 0, r.err.constData());
    }

    // An operator's brokers: one of the sample file's, on a database that starts without any.
    static QJsonArray oneBroker() {
        QFile file(qEnvironmentVariable("QUOTES_SOURCE_DIR") +
                   QStringLiteral("/service/data/brokers.json"));
        if (!file.open(QIODevice::ReadOnly))
            return QJsonArray();
        const QJsonArray all = QJsonDocument::fromJson(file.readAll())
                                   .object()
                                   .value(QLatin1String("brokers"))
                                   .toArray();
        return all.isEmpty() ? QJsonArray() : QJsonArray{all.first()};
    }

    void namedSectionsReplaceTheStoredOnesAndTheRestStays() {
        QJsonObject document = exported();
        QCOMPARE(document.value(QStringLiteral("brokers")).toArray().size(), 0);
        const QJsonArray brokers = oneBroker();
        QCOMPARE(brokers.size(), 1);
        document.insert(QStringLiteral("brokers"), brokers);
        // Sections not named stay as stored, whatever the document says of them.
        document.insert(QStringLiteral("sources"), QJsonArray());
        const auto r = ctl({"import", "--only", "brokers,platforms", write(document)});
        QVERIFY2(r.code == 0, r.err.constData());
        QVERIFY(r.out.contains("brokers "));
        QCOMPARE(exported().value(QStringLiteral("brokers")).toArray(), brokers);
        QCOMPARE(count({"sources", "list"}), 1);
    }

    void anUnknownSectionIsRefused() {
        const QJsonObject before = exported();
        const auto r = ctl({"import", "--only", "brokers,bogus", write(before)});
        QCOMPARE(r.code, 1);
        QVERIFY2(r.err.contains("bogus"), r.err.constData());
    }

    void aNamedSectionTheDocumentLacksIsRefused() {
        QJsonObject document = exported();
        document.remove(QStringLiteral("brokers"));
        const auto r = ctl({"import", "--only", "brokers", write(document)});
        QCOMPARE(r.code, 1);
        QVERIFY2(r.err.contains("缺少 brokers 部分"), r.err.constData());
        QCOMPARE(count({"sources", "list"}), 1);
    }
};

QTEST_GUILESS_MAIN(TestPartialImport)
#include "tst_partial_import.moc"
