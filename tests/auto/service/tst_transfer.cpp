// Export and import: a document must be whole and well typed to replace anything, an import
// keeps an administrator and a backup, a dry run changes nothing, and ids always leave room for
// the next add.

#include <sys/stat.h>

#include <QDir>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>

#include "CImportBackups.h"
#include "CSecretKeyFile.h"
#include "SampleData.h"
#include "ServiceResults.h"
#include "ServiceTestUtil.h"
#include "StoredRevisions.h"
#include "model/CRightsTable.h"

using namespace svctest;

namespace {

const char* const kSections[] = {"subsystems", "loginTypeAuth", "platforms",   "brokers",
                                 "sources",    "wholeQuote",    "level2Token", "users"};

// A JSON value of another type than the section's own.
QJsonValue wrongType(const QJsonValue& value) {
    if (value.isArray())
        return QJsonObject();
    if (value.isObject())
        return QJsonArray();
    return QJsonValue(7);
}

QJsonObject withUsers(QJsonObject document, const std::function<void(QJsonObject*)>& change) {
    QJsonArray users;
    for (const QJsonValue& value : document.value(QLatin1String("users")).toArray()) {
        QJsonObject user = value.toObject();
        change(&user);
        users.append(user);
    }
    document.insert(QStringLiteral("users"), users);
    return document;
}

QJsonObject sourceEntry(QJsonObject document, int index) {
    return document.value(QLatin1String("sources")).toArray().at(index).toObject();
}

QJsonObject withSources(QJsonObject document, const QJsonArray& sources) {
    document.insert(QStringLiteral("sources"), sources);
    return document;
}

}  // namespace

class TestTransfer : public QObject {
    Q_OBJECT

private:
    std::unique_ptr<QTemporaryDir> m_dir;
    boost::shared_ptr<CQuotesService> m_service;

    QJsonObject exported() {
        QJsonObject document;
        QString error;
        error = failureOf(m_service->exportDocument(CCaller::owner(), &document));
        if (!error.isEmpty())
            qWarning("export: %s", qPrintable(error));
        return document;
    }
    // Imports and returns the refusal, empty when the import went through.
    QString importError(const QJsonObject& document) {
        QString error;
        error = failureOf(m_service->importDocument(CCaller::owner(), document, {}, nullptr));
        if (error.isEmpty())
            return QString();
        return error.isEmpty() ? QStringLiteral("(refused without a text)") : error;
    }
    utils::RKError add(const rkservice::IDataPtr& source) {
        rkservice::COperateDataReq request;
        request.dataType = rkservice::kDataQuoteSources;
        request.operateType = rkservice::kOperateAdd;
        request.datas.push_back(source);
        return m_service->operateSync(CCaller::owner(), Hlx::CRequestTarget::centre(), request);
    }
    utils::RKError modify(const std::vector<rkservice::IDataPtr>& sources) {
        rkservice::COperateDataReq request;
        request.dataType = rkservice::kDataQuoteSources;
        request.operateType = rkservice::kOperateModify;
        StoredRevisions::fill(*m_service, rkservice::kDataQuoteSources, sources);
        request.datas = sources;
        return m_service->operateSync(CCaller::owner(), Hlx::CRequestTarget::centre(), request);
    }
    QStringList backups() const {
        return QDir(m_dir->path())
            .entryList({QStringLiteral("import-backup-*.json")}, QDir::Files, QDir::Name);
    }

private slots:
    void init() {
        m_dir.reset(new QTemporaryDir);
        CServiceOptions options = SampleData::inDirectory(m_dir->path());
        QString error;
        m_service = CQuotesService::open(options, &error);
        QVERIFY2(m_service, qPrintable(error));
        QVERIFY(add(stockSource(10000, 2, "10.0.0.1", 9000)).isSuccess());
        QVERIFY(add(futureSource(20000, 1, 8060, 1)).isSuccess());
    }
    void cleanup() {
        m_service.reset();
        m_dir.reset();
    }

    void missingSectionChangesNothing() {
        const QJsonObject before = exported();
        for (const char* key : kSections) {
            QJsonObject document = before;
            document.remove(QLatin1String(key));
            const QString error = importError(document);
            QVERIFY2(error.contains(QLatin1String(key)), qPrintable(key + (": " + error)));
            QCOMPARE(exported(), before);
        }
    }

    void wrongTypeChangesNothing() {
        const QJsonObject before = exported();
        for (const char* key : kSections) {
            QJsonObject document = before;
            document.insert(QLatin1String(key), wrongType(before.value(QLatin1String(key))));
            const QString error = importError(document);
            QVERIFY2(error.contains(QLatin1String(key)), qPrintable(key + (": " + error)));
            QCOMPARE(exported(), before);
        }
        // An entry of a section that is not an object is refused too.
        QJsonObject document = before;
        document.insert(QStringLiteral("sources"), QJsonArray{1});
        QVERIFY(!importError(document).isEmpty());
        QCOMPARE(exported(), before);
    }

    void unknownSectionRefusedAuditIgnored() {
        const QJsonObject before = exported();
        QJsonObject document = before;
        document.insert(QStringLiteral("source"), QJsonArray());
        QVERIFY2(importError(document).contains(QLatin1String("source")),
                 qPrintable(importError(document)));
        QCOMPARE(exported(), before);
        document = before;
        document.insert(QStringLiteral("audit"), QJsonArray{QJsonObject{{"what", "x"}}});
        QCOMPARE(importError(document), QString());
        QCOMPARE(exported(), before);
    }

    void brokerIdNullOrNoBroker() {
        const QJsonObject document = exported();
        QCOMPARE(document.value(QLatin1String("version")).toInt(), 3);
        const QJsonObject address = sourceEntry(document, 0);
        QVERIFY(address.value(QLatin1String("brokerId")).isNull());
        QCOMPARE(sourceEntry(document, 1).value(QLatin1String("brokerId")).toInt(), 8060);
        // Written the old way, it reads the same.
        QJsonObject old = address;
        old.insert(QStringLiteral("brokerId"), 2147483647);
        QCOMPARE(importError(withSources(document, {old, sourceEntry(document, 1)})), QString());
        QCOMPARE(exported(), document);
    }

    void versionOneStaysImportable() {
        QJsonObject document = withUsers(exported(), [](QJsonObject* user) {
            user->remove(QStringLiteral("enabled"));
            user->remove(QStringLiteral("passwordHash"));
        });
        QJsonObject source = sourceEntry(document, 0);
        source.insert(QStringLiteral("brokerId"), 2147483647);
        document = withSources(document, {source, sourceEntry(document, 1)});
        document.insert(QStringLiteral("version"), 1);
        QCOMPARE(importError(document), QString());
        QCOMPARE(int(exported().value(QLatin1String("sources")).toArray().size()), 2);
    }

    void importKeepsAnAdministrator() {
        const QJsonObject before = exported();
        const int administer = Hlx::CRightsTable::kAdminister;
        auto without = [&](QJsonObject* user) {
            QJsonArray rights;
            for (const QJsonValue& right : user->value(QLatin1String("rights")).toArray()) {
                if (right.toInt() != administer)
                    rights.append(right);
            }
            user->insert(QStringLiteral("rights"), rights);
        };
        QString error = importError(withUsers(before, without));
        QVERIFY2(error.contains(QString::number(administer)), qPrintable(error));
        QCOMPARE(exported(), before);
        // Holding the right on a disabled account does not count.
        error = importError(withUsers(before, [&](QJsonObject* user) {
            if (user->value(QLatin1String("name")).toString() == QLatin1String("admin"))
                user->insert(QStringLiteral("enabled"), false);
        }));
        QVERIFY2(error.contains(QString::number(administer)), qPrintable(error));
        QCOMPARE(exported(), before);
        // Handed to another enabled account, it is fine.
        QCOMPARE(importError(withUsers(before,
                                       [&](QJsonObject* user) {
                                           const QString name =
                                               user->value(QLatin1String("name")).toString();
                                           if (name == QLatin1String("admin"))
                                               without(user);
                                           if (name == QLatin1String("viewer"))
                                               user->insert(QStringLiteral("rights"),
                                                            QJsonArray{administer});
                                       })),
                 QString());
    }

    void idsLeaveRoomForTheNextAdd() {
        const QJsonObject before = exported();
        QJsonObject source = sourceEntry(before, 0);
        for (int id : {0, -3, 1000000000, 2147483646, 2147483647}) {
            source.insert(QStringLiteral("id"), id);
            const QString error = importError(withSources(before, {source}));
            QVERIFY2(error.contains(QStringLiteral("999999999")), qPrintable(error));
        }
        QCOMPARE(exported(), before);
        source.insert(QStringLiteral("id"), 999999999);
        QCOMPARE(importError(withSources(before, {source})), QString());
        QVERIFY(add(stockSource(10000, 2, "10.0.0.2", 9000)).isSuccess());
        // A later import with small ids lets the counter continue right after them.
        source.insert(QStringLiteral("id"), 5);
        QCOMPARE(importError(withSources(before, {source})), QString());
        rkservice::COperateDataReq request;
        request.dataType = rkservice::kDataQuoteSources;
        request.operateType = rkservice::kOperateAdd;
        request.datas.push_back(stockSource(10000, 2, "10.0.0.3", 9000));
        bson::BSONObj result;
        QVERIFY(m_service
                    ->operateSync(CCaller::owner(), Hlx::CRequestTarget::centre(), request, &result)
                    .isSuccess());
        QCOMPARE(result.getStringField("ids"), std::string("6"));
    }

    void dryRunCountsAndChangesNothing() {
        const QJsonObject before = exported();
        QJsonObject moved = sourceEntry(before, 0);
        moved.insert(QStringLiteral("port"), 9001);
        QJsonObject added = sourceEntry(before, 0);
        added.insert(QStringLiteral("id"), 40);
        added.insert(QStringLiteral("address"), QStringLiteral("10.0.0.9"));
        QJsonObject document = withSources(before, {moved, added});
        document.insert(QStringLiteral("level2Token"), QStringLiteral("ABC123"));
        Hlx::CImportOptions options;
        options.dryRun = true;
        Hlx::CImportReport report;
        QString error;
        QVERIFY_OK(m_service->importDocument(CCaller::owner(), document, options, &report));
        QCOMPARE(exported(), before);
        QVERIFY(backups().isEmpty());
        QVERIFY(report.backupFile.empty());
        std::map<std::string, Hlx::CSectionChange> bySection;
        for (const auto& change : report.sections)
            bySection[change.section] = change;
        QCOMPARE(int(bySection.size()), 8);
        const auto& sources = bySection["sources"];
        QCOMPARE(sources.before, 2);
        QCOMPARE(sources.after, 2);
        QCOMPARE(sources.added, 2);
        QCOMPARE(sources.removed, 2);
        QCOMPARE(bySection["level2Token"].added, 1);
        QCOMPARE(bySection["users"].added + bySection["users"].removed, 0);
        // A bad document is refused by a dry run as by an import.
        document.remove(QStringLiteral("users"));
        error = failureOf(m_service->importDocument(CCaller::owner(), document, options, &report));
        QVERIFY(!error.isEmpty());
    }

    void importWritesPrivateBackupsKeepingTen() {
        const QJsonObject before = exported();
        Hlx::CImportReport report;
        QString error;
        QVERIFY_OK(
            m_service->importDocument(CCaller::owner(), before, Hlx::CImportOptions(), &report));
        const QString first = QString::fromStdString(report.backupFile);
        QCOMPARE(QFileInfo(first).absolutePath(), QDir(m_dir->path()).absolutePath());
        QFile file(first);
        QVERIFY(file.open(QIODevice::ReadOnly));
        // Sealed under the data's key.
        QCOMPARE(CImportBackups::open(file.readAll(), CSecretKeyFile::read(m_service->keyFile())),
                 before);
        struct stat info;
        QCOMPARE(::stat(QFile::encodeName(first).constData(), &info), 0);
        QCOMPARE(int(info.st_mode & 0777), 0600);
        for (int i = 0; i < 11; ++i)
            QCOMPARE(importError(before), QString());
        QCOMPARE(backups().size(), 10);
        QVERIFY(!QFile::exists(first));
        // A backup that cannot be written stops the import.
        Hlx::CImportOptions options;
        options.backupFile = m_dir->filePath("missing/dir/backup.json").toStdString();
        QJsonObject changed = withSources(before, QJsonArray());
        error = failureOf(m_service->importDocument(CCaller::owner(), changed, options, &report));
        QVERIFY(!error.isEmpty());
        QCOMPARE(exported(), before);
    }

    void fieldLimits() {
        QVERIFY(
            add(stockSource(10000, 2, "10.0.0.4", 1, std::string(75, 'u'), std::string(256, 'p')))
                .isSuccess());
        // The longest user name the stock dialog accepts: 25 characters of three bytes.
        const std::string widest = QString(25, QChar(0xFFFD)).toStdString();
        QVERIFY(add(stockSource(10000, 2, "10.0.0.6", 1, widest)).isSuccess());
        struct Case {
            rkservice::COrinQuoterSourceInfoPtr source;
            QString field;
            QString limit;
        };
        auto markets = stockSource(10000, 2, "10.0.0.5", 1);
        markets->m_strMarkets = std::string(257, 'M');
        const Case cases[] = {
            {stockSource(10000, 2, "10.0.0.5", 1, widest + "u"), "用户名", "75"},
            {stockSource(10000, 2, "10.0.0.5", 1, "u", std::string(257, 'p')), "密码", "256"},
            {markets, "市场", "256"},
            {stockSource(10000, 2, "10.0.0.5", 1, "u\tv"), "用户名", "控制字符"},
            {stockSource(10000, 2, "10.0.0.5", 1, "u", "p\x7f"), "密码", "控制字符"},
        };
        for (const Case& c : cases) {
            const QString error = QString::fromStdString(add(c.source).errorMsg());
            QVERIFY2(error.contains(c.field) && error.contains(c.limit), qPrintable(error));
        }
        // A broker's source is held to its own fields as strictly.
        auto broker = futureSource(20000, 1, -8060, 1);
        QVERIFY(!add(broker).isSuccess());
        broker = futureSource(20000, 1, 8060, -1);
        QVERIFY(!add(broker).isSuccess());
        broker = futureSource(20000, 1, 8060, 2);
        broker->m_strAddress = "not an address";
        broker->m_nPort = 1;
        QVERIFY(!add(broker).isSuccess());
    }

    void modifyNamingOneIdTwiceRefused() {
        const QJsonObject before = exported();
        const int id = sourceEntry(before, 0).value(QLatin1String("id")).toInt();
        auto first = stockSource(10000, 2, "10.0.0.1", 9100);
        first->m_nId = id;
        auto second = stockSource(10000, 2, "10.0.0.1", 9200);
        second->m_nId = id;
        const utils::RKError error = modify({first, second});
        QVERIFY(!error.isSuccess());
        QVERIFY2(QString::fromStdString(error.errorMsg()).contains(QString::number(id)),
                 error.errorMsg().c_str());
        QCOMPARE(exported(), before);
    }

    void referenceBrokerIdsRefused() {
        const QJsonObject before = exported();
        for (const char* key : {"0_none", "-5_minus", "2147483647_nobroker"}) {
            QJsonArray brokers = before.value(QLatin1String("brokers")).toArray();
            QJsonObject broker = brokers.at(0).toObject();
            broker.insert(QStringLiteral("brokerKey"), QLatin1String(key));
            brokers.append(broker);
            QJsonObject document = before;
            document.insert(QStringLiteral("brokers"), brokers);
            const QString error = importError(document);
            QVERIFY2(error.contains(QLatin1String(key)), qPrintable(error));
        }
        QCOMPARE(exported(), before);
    }
};

QTEST_GUILESS_MAIN(TestTransfer)
#include "tst_transfer.moc"
