// Upgrading as an administrator would: databases and export documents written by earlier
// releases themselves (tests/data/earlier-releases) are migrated and imported by this build with
// every value kept; values those releases accepted are listed with the rule they break and
// refuse only a change that sets them; a backup exists only of an import that went through;
// a full disk says so.

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QProcess>

#include "CSchema.h"
#include "Hlx/CSourcePatch.h"
#include "QuotesctlRun.h"
#include "ServiceResults.h"
#include "ServiceTestUtil.h"
#include "model/CAuditVocabulary.h"
#include "model/CRightsTable.h"

using namespace svctest;

namespace {

QString dataFile(const QString& name) {
    return qEnvironmentVariable("QUOTES_SOURCE_DIR") +
           QStringLiteral("/tests/data/earlier-releases/") + name;
}

QJsonObject readJson(const QString& path) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return QJsonObject();
    return QJsonDocument::fromJson(file.readAll()).object();
}

bool copyFile(const QString& from, const QString& to) {
    QFile::remove(to);
    return QFile::copy(from, to) && QFile::setPermissions(to, QFile::ReadOwner | QFile::WriteOwner);
}

// A source as this build exports it: a source of no broker has the brokerId null (older formats
// wrote 2147483647).
QJsonObject normalSource(QJsonObject source) {
    if (source.value(QLatin1String("brokerId")).toInt() == 2147483647)
        source.insert(QStringLiteral("brokerId"), QJsonValue(QJsonValue::Null));
    return source;
}

QJsonArray normalSources(const QJsonObject& document) {
    QJsonArray sources;
    for (const QJsonValue& value : document.value(QLatin1String("sources")).toArray())
        sources.append(normalSource(value.toObject()));
    return sources;
}

QJsonObject userOf(const QJsonObject& document, const QString& name) {
    for (const QJsonValue& value : document.value(QLatin1String("users")).toArray()) {
        if (value.toObject().value(QLatin1String("name")).toString() == name)
            return value.toObject();
    }
    return QJsonObject();
}

bool holds(const QJsonObject& user, int right) {
    return user.value(QLatin1String("rights")).toArray().contains(right);
}

// Every value the earlier releases stored that breaks a rule of today, with the rule.
QStringList keptOfReleaseOne() {
    return {QStringLiteral("行情源 2: 用户名不能含控制字符"),
            QStringLiteral("行情源 2: 密码不能含控制字符"),
            QStringLiteral("行情源 3: 用户名不能超过 75 字节"),
            QStringLiteral("行情源 4: 市场不能超过 256 字节")};
}

QStringList keptOfReleaseTwo() {
    return keptOfReleaseOne() + QStringList{QStringLiteral("行情源 6: 用户名不能含控制字符"),
                                            QStringLiteral("行情源 6: 密码不能含控制字符")};
}

QStringList texts(const std::vector<std::string>& lines) {
    QStringList result;
    for (const std::string& line : lines)
        result << QString::fromStdString(line);
    return result;
}

}  // namespace

class TestUpgrade : public QObject {
    Q_OBJECT

private:
    std::unique_ptr<QTemporaryDir> m_dir;
    boost::shared_ptr<CQuotesService> m_service;
    QString m_program;

    bool open() {
        m_service.reset();
        CServiceOptions options;
        options.dataDir = m_dir->path();
        QString error;
        m_service = CQuotesService::open(options, &error);
        if (!m_service)
            qWarning("open: %s", qPrintable(error));
        return bool(m_service);
    }
    // The database written by release 1.0.0, with its key, opened by this build.
    bool openReleaseDatabase() {
        return copyFile(dataFile("release-1.0.0.db"), m_dir->filePath("quotes.db")) &&
               copyFile(dataFile("release-1.0.0.key"), m_dir->filePath("secrets.key")) && open();
    }
    QJsonObject exported() {
        QJsonObject document;
        const utils::RKError error = m_service->exportDocument(CCaller::owner(), &document);
        if (!error.isSuccess())
            qWarning("export: %s", error.errorMsg().c_str());
        return document;
    }
    std::vector<Hlx::CAuditEntry> entries(const char* action) {
        Hlx::CAuditFilter filter;
        filter.action = action;
        std::vector<Hlx::CAuditEntry> result;
        m_service->auditEntries(CCaller::owner(), filter, &result);
        return result;
    }
    QStringList backups() const {
        return QDir(m_dir->path())
            .entryList({QStringLiteral("import-backup-*.json")}, QDir::Files, QDir::Name);
    }
    rkservice::COrinQuoterSourceInfoPtr stored(int id) {
        rkservice::COrinQueryDataReq request;
        request.dataType = rkservice::kDataQuoteSources;
        std::vector<rkservice::IDataPtr> datas;
        if (!m_service->querySync(CCaller::owner(), Hlx::CRequestTarget::centre(), request, &datas)
                 .isSuccess())
            return nullptr;
        for (const auto& source : as<rkservice::COrinQuoterSourceInfo>(datas)) {
            if (source->m_nId == id)
                return source;
        }
        return nullptr;
    }
    utils::RKError modify(const rkservice::COrinQuoterSourceInfoPtr& source) {
        rkservice::COperateDataReq request;
        request.dataType = rkservice::kDataQuoteSources;
        request.operateType = rkservice::kOperateModify;
        request.datas = {source};
        return m_service->operateSync(CCaller::owner(), Hlx::CRequestTarget::centre(), request);
    }
    // quotesctl on the test's directory under a file-size limit of blocks of 512 bytes (the
    // shell's ulimit -f): the database cannot grow, as on a full disk.
    QuotesctlRun limited(int blocks, const QStringList& arguments) {
        QStringList quoted;
        for (const QString& argument : QStringList{m_program, "--data", m_dir->path()} + arguments)
            quoted << QLatin1Char('\'') + argument + QLatin1Char('\'');
        // Ignored, SIGXFSZ lets the write fail with EFBIG instead of killing the process.
        return QuotesctlRun::start(
            QStringLiteral("sh"),
            {QStringLiteral("-c"), QStringLiteral("trap '' XFSZ; ulimit -f %1; exec %2")
                                       .arg(blocks)
                                       .arg(quoted.join(' '))});
    }
    static void verifyEveryLineNamed(const QByteArray& err) {
        QVERIFY(!err.isEmpty());
        for (const QByteArray& line : err.split('\n')) {
            if (!line.isEmpty())
                QVERIFY2(line.startsWith("quotesctl: "), line.constData());
        }
    }

private slots:
    void initTestCase() {
        QVERIFY2(QFile::exists(dataFile("release-1.0.0.db")), qPrintable(dataFile("")));
        m_program = qEnvironmentVariable("QUOTES_BINARY_DIR") + QStringLiteral("/bin/quotesctl");
        QVERIFY2(QFileInfo(m_program).isExecutable(), qPrintable(m_program));
    }
    void init() {
        m_dir.reset(new QTemporaryDir);
        // Some cases need a service of their own; the others open one.
        m_service.reset();
    }
    void cleanup() {
        m_service.reset();
        m_dir.reset();
    }

    void releaseDatabaseKeepsEveryValue() {
        QVERIFY(openReleaseDatabase());
        const QJsonObject before = readJson(dataFile("export-v3-1.0.0.json"));
        const QJsonObject after = exported();
        QCOMPARE(after.value(QLatin1String("sources")).toArray(), normalSources(before));
        QCOMPARE(after.value(QLatin1String("level2Token")),
                 before.value(QLatin1String("level2Token")));
        QCOMPARE(after.value(QLatin1String("users")), before.value(QLatin1String("users")));
        QCOMPARE(after.value(QLatin1String("wholeQuote")),
                 before.value(QLatin1String("wholeQuote")));
        // The migration is on the record, once: a second opening migrates nothing.
        const auto migrations = entries(CAuditVocabulary::kMigrate);
        QCOMPARE(int(migrations.size()), 1);
        QCOMPARE(migrations.front().summary.value(QLatin1String("from")).toInt(), 6);
        QCOMPARE(migrations.front().summary.value(QLatin1String("to")).toInt(),
                 CSchema::currentVersion());
        QVERIFY(migrations.front().local);
        // Its secrets were sealed by the release itself.
        QVERIFY(entries(CAuditVocabulary::kSeal).empty());
        QVERIFY(open());
        QCOMPARE(int(entries(CAuditVocabulary::kMigrate).size()), 1);
    }

    void earliestDatabaseGrantsAndSeals() {
        QVERIFY(copyFile(dataFile("schema2-54f08e1.db"), m_dir->filePath("quotes.db")));
        QVERIFY(open());
        const QJsonObject before = readJson(dataFile("export-v1-54f08e1.json"));
        const QJsonObject after = exported();
        QCOMPARE(after.value(QLatin1String("sources")).toArray(), normalSources(before));
        QCOMPARE(after.value(QLatin1String("level2Token")).toString(),
                 QStringLiteral("ABCdef123456"));
        QVERIFY(!holds(userOf(before, "admin"), Hlx::CRightsTable::kAdminister));
        QVERIFY(holds(userOf(after, "admin"), Hlx::CRightsTable::kAdminister));
        QVERIFY(holds(userOf(after, "admin"), Hlx::CRightsTable::kWholeQuoteSave));
        const auto migrations = entries(CAuditVocabulary::kMigrate);
        QCOMPARE(int(migrations.size()), 1);
        QCOMPARE(migrations.front().summary.value(QLatin1String("from")).toInt(), 2);
        const auto seals = entries(CAuditVocabulary::kSeal);
        QCOMPARE(int(seals.size()), 1);
        QCOMPARE(seals.front().dataType, std::string(CAuditVocabulary::kSecrets));
        QCOMPARE(seals.front().summary.value(QLatin1String("kx_orin_quoter_source")).toInt(), 5);
        QCOMPARE(seals.front().summary.value(QLatin1String("level2_token")).toInt(), 1);
    }

    void earlierExports_data() {
        QTest::addColumn<QString>("file");
        QTest::addColumn<QStringList>("kept");
        QTest::newRow("version 1") << "export-v1-54f08e1.json" << keptOfReleaseOne();
        QTest::newRow("version 2") << "export-v2-2060a4e.json" << keptOfReleaseTwo();
        QTest::newRow("version 3") << "export-v3-1.0.0.json" << keptOfReleaseTwo();
    }
    void earlierExports() {
        QFETCH(QString, file);
        QFETCH(QStringList, kept);
        QVERIFY(open());
        const QJsonObject document = readJson(dataFile(file));
        QVERIFY(!document.isEmpty());
        Hlx::CImportReport report;
        QVERIFY_OK(m_service->importDocument(CCaller::owner(), document, {}, &report));
        // Every value kept is listed, each with the rule it breaks.
        QCOMPARE(texts(report.keptValues), kept);
        const QJsonObject after = exported();
        QCOMPARE(after.value(QLatin1String("sources")).toArray(), normalSources(document));
        QCOMPARE(after.value(QLatin1String("level2Token")),
                 document.value(QLatin1String("level2Token")));
        // The administrator's rights, as the schema migration grants them.
        const QJsonObject admin = userOf(after, "admin");
        QVERIFY(holds(admin, Hlx::CRightsTable::kAdminister));
        QVERIFY(holds(admin, Hlx::CRightsTable::kWholeQuoteSave));
        if (document.value(QLatin1String("version")).toInt() >= 2)
            QCOMPARE(after.value(QLatin1String("users")), document.value(QLatin1String("users")));
        const auto imports = entries(CAuditVocabulary::kImport);
        QCOMPARE(int(imports.size()), 1);
        QCOMPARE(imports.front().summary.value(QLatin1String("kept")).toArray().size(),
                 kept.size());
    }

    void keptValuesRefuseOnlyChangesThatSetThem() {
        QVERIFY(openReleaseDatabase());
        std::vector<std::string> kept;
        QVERIFY_OK(m_service->checkIntegrity(CCaller::owner(), &kept));
        QCOMPARE(texts(kept), keptOfReleaseTwo());
        Hlx::CSourcePatch port;
        port.port = 5555;
        QVERIFY_OK(m_service->modifySource(CCaller::owner(), 2, port));
        // The whole record, as a dialog sends it, with only its port changed.
        auto source = stored(2);
        QVERIFY(source);
        source->m_nPort = 5556;
        QVERIFY_OK(modify(source));
        source = stored(2);
        QCOMPARE(source->m_nPort, 5556);
        QCOMPARE(source->m_strPassword, std::string("tab\tpass"));
        QCOMPARE(source->m_strUserName, std::string("tab\tuser"));
        // A change that sets such a value is held to today's rules.
        Hlx::CSourcePatch password;
        password.password = std::string("new\tpass");
        QVERIFY(failureOf(m_service->modifySource(CCaller::owner(), 2, password))
                    .contains(QStringLiteral("密码不能含控制字符")));
        auto markets = stored(4);
        markets->m_strMarkets += ",SZ0001";
        QVERIFY(failureOf(modify(markets)).contains(QStringLiteral("市场不能超过 256 字节")));
        // This build's own export of the database imports again, with or without secrets.
        QJsonObject document = exported();
        QVERIFY_OK(m_service->importDocument(CCaller::owner(), document, {}, nullptr));
        QJsonArray sources;
        for (const QJsonValue& value : document.value(QLatin1String("sources")).toArray()) {
            QJsonObject entry = value.toObject();
            entry.insert(QStringLiteral("password"), QString());
            sources.append(entry);
        }
        document.insert(QStringLiteral("sources"), sources);
        document.insert(QStringLiteral("level2Token"), QJsonValue());
        QVERIFY_OK(m_service->importDocument(CCaller::owner(), document, {}, nullptr));
    }

    void refusedImportWritesNoBackup() {
        QVERIFY(open());
        const QJsonObject good = exported();
        Hlx::CImportReport report;
        QVERIFY_OK(m_service->importDocument(CCaller::owner(), good, {}, &report));
        const QStringList real = backups();
        QCOMPARE(real.size(), 1);
        // Without the administrator right on any account: refused by the last check.
        QJsonArray users;
        for (const QJsonValue& value : good.value(QLatin1String("users")).toArray()) {
            QJsonObject user = value.toObject();
            user.insert(QStringLiteral("rights"), QJsonArray());
            users.append(user);
        }
        QJsonObject refused = good;
        refused.insert(QStringLiteral("users"), users);
        for (int i = 0; i < 11; ++i)
            QVERIFY(!failureOf(m_service->importDocument(CCaller::owner(), refused, {}, nullptr))
                         .isEmpty());
        QCOMPARE(backups(), real);
    }

    void fullDiskSaysSo() {
        QVERIFY(open());
        const QJsonObject document = exported();
        // As many backups as are kept: a change that fails must not cost one of them.
        for (int i = 0; i < 10; ++i)
            QVERIFY_OK(m_service->importDocument(CCaller::owner(), document, {}, nullptr));
        const QStringList kept = backups();
        QCOMPARE(kept.size(), 10);
        m_service.reset();
        // Outside the data directory, whose files quotesctl would tighten (and say so).
        QTemporaryFile file;
        QVERIFY(file.open());
        file.write(QJsonDocument(document).toJson());
        file.close();
        // At start: SQLite cannot even make its shared-memory file.
        QuotesctlRun r = limited(8, {"sources", "list"});
        QCOMPARE(r.code, 3);
        QVERIFY2(r.err.contains("数据库空间已满"), r.err.constData());
        verifyEveryLineNamed(r.err);
        // A change: its commit does not fit, and leaves no backup of what it did not replace.
        r = limited(64, {"import", file.fileName()});
        QCOMPARE(r.code, 1);
        QVERIFY2(r.err.contains("数据库空间已满"), r.err.constData());
        verifyEveryLineNamed(r.err);
        QCOMPARE(backups(), kept);
    }

    // The backup of a large content does not fit where the database still does: the import
    // says the disk is full, and nothing changed.
    void fullDiskForTheBackupSaysSo() {
        QVERIFY(open());
        QJsonObject document = exported();
        QJsonArray sources;
        for (int i = 0; i < 6000; ++i)
            sources.append(
                QJsonObject{{"address", QStringLiteral("10.1.%1.%2").arg(i / 250).arg(i % 250)},
                            {"brokerId", 2147483647},
                            {"id", i + 1},
                            {"markets", "SH"},
                            {"password", QString(40, QLatin1Char('p'))},
                            {"platformId", 20000},
                            {"port", 7709},
                            {"serverGroupId", 0},
                            {"subsystem", "sys1"},
                            {"tradeType", 1},
                            {"userName", QStringLiteral("user%1").arg(i)}});
        document.insert(QStringLiteral("sources"), sources);
        QVERIFY_OK(m_service->importDocument(CCaller::owner(), document, {}, nullptr));
        m_service.reset();
        const QStringList before = backups();
        QTemporaryFile file;
        QVERIFY(file.open());
        file.write(QJsonDocument(document).toJson());
        file.close();
        const QuotesctlRun r = limited(1600, {"import", file.fileName()});
        QCOMPARE(r.code, 1);
        QVERIFY2(r.err.contains("数据库空间已满"), r.err.constData());
        verifyEveryLineNamed(r.err);
        QCOMPARE(backups(), before);
    }

    void realFullDiskSaysSo() {
        // A small file system of its own, where the user may mount one (a user namespace).
        QProcess probe;
        probe.start(QStringLiteral("unshare"), {"-rm", "true"});
        if (!probe.waitForFinished() || probe.exitStatus() != QProcess::NormalExit ||
            probe.exitCode() != 0)
            QSKIP("no user namespace to mount a small file system in");
        const QString mount = m_dir->filePath("mnt");
        QVERIFY(QDir().mkpath(mount));
        const QString script = QStringLiteral(
                                   "mount -t tmpfs -o size=512k tmpfs '%1' && '%2' --data '%1/d' "
                                   "sources list >/dev/null && (cat /dev/zero > '%1/filler' "
                                   "2>/dev/null; true) && rm -f '%1/d/quotes.db-wal' "
                                   "'%1/d/quotes.db-shm' && exec '%2' --data '%1/d' sources list")
                                   .arg(mount, m_program);
        const QuotesctlRun r =
            QuotesctlRun::start(QStringLiteral("unshare"), {"-rm", "sh", "-c", script});
        QCOMPARE(r.code, 3);
        QCOMPARE(r.err, QByteArray("quotesctl: 数据库空间已满\n"));
    }

    void everyLineNamesQuotesctl() {
        // A data directory others may read: quotesctl tightens it and says so.
        QVERIFY(QFile::setPermissions(m_dir->path(), QFile::ReadOwner | QFile::WriteOwner |
                                                         QFile::ExeOwner | QFile::ReadOther |
                                                         QFile::ExeOther));
        const QuotesctlRun r =
            QuotesctlRun::start(m_program, {"--data", m_dir->path(), "sources", "list"});
        QCOMPARE(r.code, 0);
        QVERIFY2(r.err.contains("700"), r.err.constData());
        verifyEveryLineNamed(r.err);
    }
};

QTEST_GUILESS_MAIN(TestUpgrade)
#include "tst_upgrade.moc"
