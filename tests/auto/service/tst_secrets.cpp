// Secrets at rest: source passwords and the Level-2 token are sealed under the key file, the key
// is proved when the database opens, the data directory is the owner's alone.

#include <sys/stat.h>

#include <QDir>
#include <QDirIterator>
#include <QSqlQuery>
#include <QTemporaryDir>
#include <QtTest>
#include <boost/make_shared.hpp>

#include "CCaller.h"
#include "CDatabase.h"
#include "CQuotesService.h"
#include "CSchema.h"
#include "CSecretBox.h"
#include "CSecretKeyFile.h"
#include "CServiceOptions.h"
#include "Hlx/CRequestTarget.h"
#include "Hlx/CSourcePatch.h"
#include "OwnerCalls.h"
#include "ServiceResults.h"
#include "rkservice/CLevel2Token.h"
#include "rkservice/COrinQuoterSourceInfo.h"
#include "rkservice/DataTypeIds.h"

namespace {

const std::string kMarker = "Marker-Pw-51f0c9e2";
const std::string kTokenMarker = "MarkerToken8c41d7";

unsigned modeOf(const QString& path) {
    struct stat info;
    return ::stat(QFile::encodeName(path).constData(), &info) == 0 ? info.st_mode & 0777 : 0;
}

}  // namespace

class TestSecrets : public QObject {
    Q_OBJECT

private:
    std::unique_ptr<QTemporaryDir> m_dir;
    boost::shared_ptr<CQuotesService> m_service;

    QString dataDir() const { return m_dir->filePath(QStringLiteral("data")); }
    QString keyFile() const { return CSecretKeyFile::defaultPath(dataDir()); }

    CServiceOptions options() const {
        CServiceOptions o;
        o.dataDir = dataDir();
        return o;
    }

    bool open(QString* error = nullptr) {
        QString ignored;
        m_service = CQuotesService::open(options(), error ? error : &ignored);
        if (!m_service && !error)
            qWarning("%s", qPrintable(ignored));
        return bool(m_service);
    }

    utils::RKError operate(int dataType, int operateType, const rkservice::IDataPtr& record) {
        return OwnerCalls::operate(*m_service, dataType, operateType, record);
    }

    utils::RKError addSource(const std::string& password) {
        auto source = boost::make_shared<rkservice::COrinQuoterSourceInfo>();
        source->m_nPlatformId = 10000;
        source->m_nTradeType = 2;
        source->m_strAddress = "10.1.2.3";
        source->m_nPort = 9100;
        source->m_strUserName = "u";
        source->m_strPassword = password;
        return operate(rkservice::kDataQuoteSources, rkservice::kOperateAdd, source);
    }

    utils::RKError setToken(const std::string& token) {
        auto record = boost::make_shared<rkservice::CLevel2Token>();
        record->token = token;
        return operate(rkservice::kDataLevel2Tokens, rkservice::kOperateAdd, record);
    }

    std::vector<std::string> passwords() {
        std::vector<rkservice::IDataPtr> datas;
        const utils::RKError error =
            OwnerCalls::query(*m_service, rkservice::kDataQuoteSources, &datas);
        std::vector<std::string> result;
        if (!error.isSuccess())
            result.push_back("error: " + error.errorMsg());
        for (const auto& data : datas)
            result.push_back(static_cast<rkservice::COrinQuoterSourceInfo&>(*data).m_strPassword);
        return result;
    }

    std::string token() {
        std::vector<rkservice::IDataPtr> datas;
        OwnerCalls::query(*m_service, rkservice::kDataLevel2Tokens, &datas);
        return datas.empty() ? std::string()
                             : static_cast<rkservice::CLevel2Token&>(*datas.front()).token;
    }

    std::vector<rkservice::IDataPtr> ownerSources() {
        std::vector<rkservice::IDataPtr> datas;
        OwnerCalls::query(*m_service, rkservice::kDataQuoteSources, &datas);
        return datas;
    }

    // Stores a password for the source that no key opens, as a damaged row would hold it.
    void damagePassword(int id) {
        QSqlDatabase db = m_service->database().connection();
        QSqlQuery query(db);
        QVERIFY(query.prepare(
            QStringLiteral("UPDATE kx_orin_quoter_source SET password = ? WHERE id = ?")));
        query.addBindValue(CSecretBox::generate().seal("sealed under another key"));
        query.addBindValue(id);
        QVERIFY(query.exec());
        QCOMPARE(query.numRowsAffected(), 1);
    }

    // Every file under the data directory whose bytes contain the text.
    QStringList filesHolding(const std::string& text) const {
        QStringList found;
        QDirIterator it(dataDir(), QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
        while (it.hasNext()) {
            QFile file(it.next());
            if (file.open(QIODevice::ReadOnly) &&
                file.readAll().contains(QByteArray::fromStdString(text)))
                found << file.fileName();
        }
        return found;
    }

private slots:
    void init() {
        m_dir.reset(new QTemporaryDir);
        QVERIFY(m_dir->isValid());
    }
    void cleanup() {
        m_service.reset();
        m_dir.reset();
    }

    void passwordsAndTokenNeverReachTheFiles() {
        QVERIFY(open());
        QVERIFY(addSource(kMarker).isSuccess());
        QVERIFY(setToken(kTokenMarker).isSuccess());
        // Records still carry plain text to and from the panels.
        QCOMPARE(passwords(), std::vector<std::string>{kMarker});
        QCOMPARE(token(), kTokenMarker);
        QVERIFY(QFileInfo::exists(dataDir() + QStringLiteral("/quotes.db-wal")));
        QCOMPARE(filesHolding(kMarker), QStringList());
        QCOMPARE(filesHolding(kTokenMarker), QStringList());
        // Nor once the log is folded into the database file.
        m_service.reset();
        QVERIFY(open());
        QCOMPARE(passwords(), std::vector<std::string>{kMarker});
        m_service.reset();
        QCOMPARE(filesHolding(kMarker), QStringList());
        QCOMPARE(filesHolding(kTokenMarker), QStringList());
    }

    void exportCarriesSecretsInClear() {
        QVERIFY(open());
        QVERIFY(addSource(kMarker).isSuccess());
        QVERIFY(setToken(kTokenMarker).isSuccess());
        QJsonObject document;
        QVERIFY(m_service->exportDocument(CCaller::owner(), &document).isSuccess());
        const QJsonObject source =
            document.value(QLatin1String("sources")).toArray().at(0).toObject();
        QCOMPARE(source.value(QLatin1String("password")).toString().toStdString(), kMarker);
        QCOMPARE(document.value(QLatin1String("level2Token")).toString().toStdString(),
                 kTokenMarker);
        // And a restore elsewhere, under another key, needs no key of this database.
        QTemporaryDir other;
        CServiceOptions o;
        o.dataDir = other.path();
        auto restored = CQuotesService::open(o, nullptr);
        QVERIFY(restored);
        QString error;
        QVERIFY_OK(restored->importDocument(CCaller::owner(), document, {}, nullptr));
        m_service = restored;
        QCOMPARE(passwords(), std::vector<std::string>{kMarker});
        QCOMPARE(token(), kTokenMarker);
    }

    void directoryAndFilesAreTheOwnersAlone() {
        QVERIFY(open());
        QVERIFY(addSource(kMarker).isSuccess());
        QCOMPARE(modeOf(dataDir()), 0700u);
        QDirIterator it(dataDir(), QDir::Files | QDir::Hidden);
        int files = 0;
        while (it.hasNext()) {
            const QString path = it.next();
            QCOMPARE(modeOf(path), 0600u);
            ++files;
        }
        QVERIFY(files >= 3);  // database, its log, the key
        QVERIFY(QFileInfo::exists(keyFile()));
    }

    void looserModesAreTightened() {
        QVERIFY(open());
        m_service.reset();
        ::chmod(QFile::encodeName(dataDir()).constData(), 0755);
        const QString db = dataDir() + QStringLiteral("/quotes.db");
        ::chmod(QFile::encodeName(db).constData(), 0644);
        ::chmod(QFile::encodeName(keyFile()).constData(), 0640);
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression(QStringLiteral("700.*data$")));
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression(QStringLiteral("600.*quotes\\.db$")));
        QTest::ignoreMessage(QtWarningMsg,
                             QRegularExpression(QStringLiteral("600.*secrets\\.key$")));
        QVERIFY(open());
        QCOMPARE(modeOf(dataDir()), 0700u);
        QCOMPARE(modeOf(db), 0600u);
        QCOMPARE(modeOf(keyFile()), 0600u);
    }

    void secureDeleteIsOn() {
        QVERIFY(open());
        QSqlDatabase db = m_service->database().connection();
        QSqlQuery query(db);
        QVERIFY(query.exec(QStringLiteral("PRAGMA secure_delete")));
        QVERIFY(query.next());
        QCOMPARE(query.value(0).toInt(), 1);
    }

    void missingKeyRefusesToOpen() {
        QVERIFY(open());
        QVERIFY(addSource(kMarker).isSuccess());
        m_service.reset();
        QVERIFY(QFile::remove(keyFile()));
        QString error;
        QVERIFY(!open(&error));
        QVERIFY2(error.contains(QStringLiteral("缺少密钥文件")), qPrintable(error));
        QVERIFY2(error.contains(keyFile()), qPrintable(error));
        // Refusing made no new key that would then pass for the right one.
        QVERIFY(!QFileInfo::exists(keyFile()));
    }

    void wrongKeyRefusesToOpen() {
        QVERIFY(open());
        QVERIFY(addSource(kMarker).isSuccess());
        m_service.reset();
        CSecretKeyFile::write(keyFile(), CSecretBox::generate());
        QString error;
        QVERIFY(!open(&error));
        QVERIFY2(error.contains(QStringLiteral("与数据库不符")), qPrintable(error));
    }

    void keyOptionNamesTheFile() {
        const QString elsewhere = m_dir->filePath(QStringLiteral("keys/shared.key"));
        CServiceOptions o = options();
        o.secretsKeyFile = elsewhere;
        m_service = CQuotesService::open(o, nullptr);
        QVERIFY(m_service);
        QVERIFY(addSource(kMarker).isSuccess());
        m_service.reset();
        QVERIFY(QFileInfo::exists(elsewhere));
        QVERIFY(!QFileInfo::exists(keyFile()));
        QVERIFY(!open());
        m_service = CQuotesService::open(o, nullptr);
        QVERIFY(m_service);
        QCOMPARE(passwords(), std::vector<std::string>{kMarker});
    }

    void migratesPlainSecrets() {
        {
            QString error;
            auto database = CDatabase::create(options(), &error);
            QVERIFY2(database, qPrintable(error));
            database->transact(true, [&](QSqlDatabase& db) {
                CSchema::migrate(*database, db, 0, 3);
                database->exec(db, QStringLiteral("INSERT INTO subsystems VALUES ('s', 'S', 0)"));
                database->exec(
                    db, QStringLiteral("INSERT INTO kx_orin_quoter_source (subsystem, platform_id, "
                                       "broker_id, server_group_id, address, port, user_name, "
                                       "password, trade_type, markets) VALUES ('s', 10000, "
                                       "2147483647, 0, '10.0.0.9', 9000, 'u', '%1', 2, '')")
                            .arg(QString::fromStdString(kMarker)));
                database->exec(db, QStringLiteral("INSERT INTO level2_token VALUES (1, '%1')")
                                       .arg(QString::fromStdString(kTokenMarker)));
            });
        }
        QString error;
        QVERIFY2(open(&error), qPrintable(error));
        QCOMPARE(passwords(), std::vector<std::string>{kMarker});
        QCOMPARE(token(), kTokenMarker);
        QSqlDatabase db = m_service->database().connection();
        QSqlQuery stored(db);
        QVERIFY(stored.exec(QStringLiteral("SELECT password FROM kx_orin_quoter_source")));
        QVERIFY(stored.next());
        QVERIFY(stored.value(0).toString().startsWith(QLatin1String("sb1:")));
        QCOMPARE(CSchema::version(m_service->database(), db), CSchema::currentVersion());
        stored.finish();
        db = QSqlDatabase();
        m_service.reset();
        QCOMPARE(filesHolding(kMarker), QStringList());
    }

    void rekeySealsUnderANewKey() {
        QVERIFY(open());
        QVERIFY(addSource(kMarker).isSuccess());
        QVERIFY(setToken(kTokenMarker).isSuccess());
        const QByteArray before = CSecretKeyFile::read(keyFile()).key();
        QString error;
        QVERIFY_OK(m_service->rekey(CCaller::owner()));
        const QByteArray after = CSecretKeyFile::read(keyFile()).key();
        QVERIFY(before != after);
        QVERIFY(!QFileInfo::exists(keyFile() + QStringLiteral(".new")));
        QCOMPARE(passwords(), std::vector<std::string>{kMarker});
        m_service.reset();
        QVERIFY(open());
        QCOMPARE(passwords(), std::vector<std::string>{kMarker});
        QCOMPARE(token(), kTokenMarker);
        m_service.reset();
        // The old key no longer opens it.
        CSecretKeyFile::write(keyFile(), CSecretBox(before));
        QVERIFY(!open(&error));
        QVERIFY2(error.contains(QStringLiteral("与数据库不符")), qPrintable(error));
    }

    void rekeyNeedsTheAdministratorRight() {
        QVERIFY(open());
        const QByteArray before = CSecretKeyFile::read(keyFile()).key();
        QString error;
        error = failureOf(m_service->rekey(CCaller::user("viewer", {})));
        QVERIFY(!error.isEmpty());
        QCOMPARE(CSecretKeyFile::read(keyFile()).key(), before);
    }

    void keyOfAnInterruptedRekeyIsAdopted() {
        QVERIFY(open());
        QVERIFY(addSource(kMarker).isSuccess());
        const QByteArray before = CSecretKeyFile::read(keyFile()).key();
        QVERIFY(m_service->rekey(CCaller::owner()).isSuccess());
        m_service.reset();
        // As if the process died after the commit, before the new file replaced the old one.
        const QByteArray after = CSecretKeyFile::read(keyFile()).key();
        CSecretKeyFile::write(keyFile() + QStringLiteral(".new"), CSecretBox(after));
        CSecretKeyFile::write(keyFile(), CSecretBox(before));
        QString error;
        QVERIFY2(open(&error), qPrintable(error));
        QCOMPARE(passwords(), std::vector<std::string>{kMarker});
        QCOMPARE(CSecretKeyFile::read(keyFile()).key(), after);
    }

    void passwordThatIsNotUtf8IsRefused() {
        QVERIFY(open());
        const utils::RKError error = addSource(std::string("ab\xff\xfe", 4));
        QVERIFY(!error.isSuccess());
        QVERIFY2(QString::fromStdString(error.errorMsg()).contains(QStringLiteral("UTF-8")),
                 error.errorMsg().c_str());
        QCOMPARE(passwords(), std::vector<std::string>{});
        QVERIFY(addSource("密码-ü").isSuccess());
        QCOMPARE(passwords(), std::vector<std::string>{"密码-ü"});
    }

    // A change reads the rows it changes and no other: a row elsewhere in the table whose
    // password cannot be opened does not stop it. Whoever reads that row still learns of it.
    void aChangeReadsOnlyItsOwnRows() {
        QVERIFY(open());
        QVERIFY_OK(addSource(kMarker));
        const std::vector<rkservice::IDataPtr> added = ownerSources();
        QCOMPARE(int(added.size()), 1);
        auto other = boost::make_shared<rkservice::COrinQuoterSourceInfo>(
            static_cast<const rkservice::COrinQuoterSourceInfo&>(*added.front()));
        other->m_nPort = 9101;
        QVERIFY_OK(operate(rkservice::kDataQuoteSources, rkservice::kOperateAdd, other));
        const int damaged =
            static_cast<const rkservice::COrinQuoterSourceInfo&>(*added.front()).m_nId;
        damagePassword(damaged);

        auto changed = boost::make_shared<rkservice::COrinQuoterSourceInfo>(*other);
        changed->m_nId = damaged + 1;
        changed->m_nPort = 9102;
        // The revisions as added and as each change leaves them (a read of every row would open
        // the damaged password).
        changed->setRevision(1);
        QVERIFY_OK(operate(rkservice::kDataQuoteSources, rkservice::kOperateModify, changed));
        Hlx::CSourcePatch patch;
        patch.port = 9103;
        QVERIFY_OK(m_service->modifySource(CCaller::owner(), damaged + 1, patch));
        changed->setRevision(3);
        QVERIFY_OK(operate(rkservice::kDataQuoteSources, rkservice::kOperateDelete, changed));
        QCOMPARE(passwords().front().rfind("error: ", 0), size_t(0));
    }

    // A query opens only the passwords its caller receives: a viewer's answer does not depend on
    // them.
    void aQueryOpensOnlyThePasswordsItsCallerReceives() {
        QVERIFY(open());
        QVERIFY_OK(addSource(kMarker));
        damagePassword(
            static_cast<const rkservice::COrinQuoterSourceInfo&>(*ownerSources().front()).m_nId);
        rkservice::COrinQueryDataReq request;
        request.dataType = rkservice::kDataQuoteSources;
        std::vector<rkservice::IDataPtr> datas;
        QVERIFY_OK(m_service->querySync(CCaller::user("viewer", {10385}),
                                        Hlx::CRequestTarget::centre(), request, &datas));
        QCOMPARE(int(datas.size()), 1);
        QVERIFY(
            static_cast<rkservice::COrinQuoterSourceInfo&>(*datas.front()).m_strPassword.empty());
        QVERIFY(
            !m_service->querySync(CCaller::owner(), Hlx::CRequestTarget::centre(), request, &datas)
                 .isSuccess());
    }

    void sealedValuesAreFreshAndBound() {
        const CSecretBox box = CSecretBox::generate();
        const QString a = box.seal(kMarker);
        QVERIFY(a != box.seal(kMarker));
        QCOMPARE(box.open(a), kMarker);
        QVERIFY_EXCEPTION_THROWN(CSecretBox::generate().open(a), std::runtime_error);
        // One character of the nonce changed: the ciphertext no longer authenticates.
        QString tampered = a;
        tampered[10] = tampered[10] == QLatin1Char('A') ? QLatin1Char('B') : QLatin1Char('A');
        QVERIFY_EXCEPTION_THROWN(box.open(tampered), std::runtime_error);
        QVERIFY_EXCEPTION_THROWN(box.open(QString::fromStdString(kMarker)), std::runtime_error);
        QVERIFY(box.matches(box.checkValue()));
        QVERIFY(!CSecretBox::generate().matches(box.checkValue()));
    }
};

QTEST_GUILESS_MAIN(TestSecrets)
#include "tst_secrets.moc"
