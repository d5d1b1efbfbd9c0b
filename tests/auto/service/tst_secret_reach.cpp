// Who receives a secret: the Level-2 token only callers with a Level-2 right, the users' records
// only their own account (or the administrator), an export without secrets no password hash,
// import backups sealed under the data's key, and every export on record.

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QSqlQuery>
#include <QTemporaryDir>
#include <QtTest>
#include <boost/make_shared.hpp>

#include "CAccountStore.h"
#include "CAuditTrail.h"
#include "CCaller.h"
#include "CDatabase.h"
#include "CImportBackups.h"
#include "CQuotesService.h"
#include "CSecretBox.h"
#include "CSecretKeyFile.h"
#include "CServiceError.h"
#include "CServiceOptions.h"
#include "Hlx/CRequestTarget.h"
#include "OwnerCalls.h"
#include "ServiceResults.h"
#include "rkservice/CLevel2Token.h"
#include "rkservice/COrinQuoterSourceInfo.h"
#include "rkservice/CUserInfo.h"
#include "rkservice/DataTypeIds.h"

namespace {

const std::string kToken = "ReachToken7f3a91";
const std::string kPassword = "Reach-Pw-5c21e8";

}  // namespace

class TestSecretReach : public QObject {
    Q_OBJECT

private:
    std::unique_ptr<QTemporaryDir> m_dir;
    boost::shared_ptr<CQuotesService> m_service;

    static CCaller caller(const std::string& name, const std::set<int>& rights) {
        return CCaller::user(name, rights);
    }

    void setToken() {
        auto record = boost::make_shared<rkservice::CLevel2Token>();
        record->token = kToken;
        QVERIFY_OK(OwnerCalls::operate(*m_service, rkservice::kDataLevel2Tokens,
                                       rkservice::kOperateAdd, record));
    }

    void addSource() {
        auto source = boost::make_shared<rkservice::COrinQuoterSourceInfo>();
        source->m_nPlatformId = 10000;
        source->m_nTradeType = 2;
        source->m_strAddress = "10.4.5.6";
        source->m_nPort = 9100;
        source->m_strUserName = "u";
        source->m_strPassword = kPassword;
        QVERIFY_OK(OwnerCalls::operate(*m_service, rkservice::kDataQuoteSources,
                                       rkservice::kOperateAdd, source));
    }

    std::vector<rkservice::IDataPtr> query(const CCaller& who, int dataType,
                                           const std::string& condition = std::string()) {
        rkservice::COrinQueryDataReq request;
        request.dataType = dataType;
        request.condition = condition;
        std::vector<rkservice::IDataPtr> datas;
        const utils::RKError error =
            m_service->querySync(who, Hlx::CRequestTarget::centre(), request, &datas);
        if (!error.isSuccess())
            qWarning("%s", error.errorMsg().c_str());
        return datas;
    }

    std::string tokenFor(const CCaller& who) {
        const auto datas = query(who, rkservice::kDataLevel2Tokens);
        if (datas.size() != 1)
            return "(none)";
        return boost::dynamic_pointer_cast<rkservice::CLevel2Token>(datas.front())->token;
    }

    QStringList userNames(const CCaller& who, const std::string& condition = std::string()) {
        QStringList names;
        for (const auto& data : query(who, rkservice::kDataUsers, condition))
            names << QString::fromStdString(
                boost::dynamic_pointer_cast<rkservice::CUserInfo>(data)->m_strName);
        return names;
    }

    std::string storedHash(const QString& name) {
        std::string hash;
        m_service->database().transact(false, [&](QSqlDatabase& db) {
            CAccount account;
            CAccountStore::read(m_service->database(), db, name, &account, &hash);
        });
        return hash;
    }

    QJsonObject exported(const CCaller& who, bool withoutSecrets = false) {
        Hlx::CExportOptions options;
        options.withoutSecrets = withoutSecrets;
        QJsonObject document;
        const utils::RKError error = m_service->exportDocument(who, &document, options);
        if (!error.isSuccess())
            qWarning("%s", error.errorMsg().c_str());
        return document;
    }

    std::vector<Hlx::CAuditEntry> entries(const std::string& action) {
        Hlx::CAuditFilter filter;
        filter.action = action;
        std::vector<Hlx::CAuditEntry> result;
        m_service->auditEntries(CCaller::owner(), filter, &result);
        return result;
    }

    QStringList backups() const {
        return QDir(m_dir->path()).entryList({QStringLiteral("import-backup-*")}, QDir::Files);
    }

private slots:
    void init() {
        m_dir.reset(new QTemporaryDir);
        QVERIFY(m_dir->isValid());
        CServiceOptions options;
        options.dataDir = m_dir->path();
        QString error;
        m_service = CQuotesService::open(options, &error);
        QVERIFY2(m_service, qPrintable(error));
    }

    void cleanup() {
        m_service.reset();
        m_dir.reset();
    }

    // Each Level-2 right shows the token (a delete sends the text shown); no right, the
    // administrator's included, shows "******".
    void tokenReachesOnlyTheLevel2Rights() {
        setToken();
        for (int right : {12532, 12534, 12536})
            QCOMPARE(tokenFor(caller("op", {right})), kToken);
        QCOMPARE(tokenFor(CCaller::owner()), kToken);
        QCOMPARE(tokenFor(caller("viewer", {})), std::string("******"));
        QCOMPARE(tokenFor(caller("admin", {90001, 90002, 10937})), std::string("******"));
        // Who may delete deletes with the text shown.
        auto shown = boost::dynamic_pointer_cast<rkservice::CLevel2Token>(
            query(caller("op", {12536}), rkservice::kDataLevel2Tokens).front());
        rkservice::COperateDataReq request;
        request.dataType = rkservice::kDataLevel2Tokens;
        request.operateType = rkservice::kOperateDelete;
        request.datas = {shown};
        QVERIFY_OK(
            m_service->operateSync(caller("op", {12536}), Hlx::CRequestTarget::centre(), request));
        QCOMPARE(tokenFor(CCaller::owner()), std::string("(none)"));
    }

    // An export follows the same rule; an import of the masked document keeps the stored token.
    void exportMasksTheTokenWithoutALevel2Right() {
        setToken();
        const CCaller administrator = caller("admin", {90002});
        const QJsonObject masked = exported(administrator);
        QCOMPARE(masked.value("level2Token").toString(), QString("******"));
        QVERIFY(!QJsonDocument(masked).toJson().contains(QByteArray::fromStdString(kToken)));
        QCOMPARE(exported(caller("admin", {90002, 12534})).value("level2Token").toString(),
                 QString::fromStdString(kToken));
        QVERIFY_OK(
            m_service->importDocument(administrator, masked, Hlx::CImportOptions(), nullptr));
        QCOMPARE(tokenFor(CCaller::owner()), kToken);
    }

    void usersReachOnlyTheirOwnAccount() {
        QCOMPARE(userNames(caller("viewer", {})), QStringList{"viewer"});
        QCOMPARE(userNames(caller("stock_op", {10937, 10389, 10563})), QStringList{"stock_op"});
        QCOMPARE(userNames(caller("viewer", {}), "admin"), QStringList());
        QCOMPARE(userNames(caller("admin", {90002})).size(), 4);
        QCOMPARE(userNames(caller("admin", {90002}), "viewer"), QStringList{"viewer"});
        QCOMPARE(userNames(CCaller::owner()).size(), 4);
    }

    // Without secrets: no source password, no token, no hash; importing it back keeps the
    // stored hashes and gives a new account none.
    void exportWithoutSecretsCarriesNoHashes() {
        setToken();
        addSource();
        QVERIFY_OK(m_service->setPassword(CCaller::owner(), "viewer", "Viewer-Pw-81be2"));
        const std::string hash = storedHash("viewer");
        QVERIFY(!hash.empty());
        const QJsonObject document = exported(CCaller::owner(), true);
        const QByteArray text = QJsonDocument(document).toJson();
        QVERIFY(!text.contains("$argon2id$"));
        QVERIFY(!text.contains("passwordHash"));
        QVERIFY(!text.contains(QByteArray::fromStdString(kPassword)));
        QVERIFY(!text.contains(QByteArray::fromStdString(kToken)));
        QVERIFY(document.value("level2Token").isNull());
        QCOMPARE(document.value("users").toArray().size(), 4);

        QJsonObject changed = document;
        QJsonArray users = changed.value("users").toArray();
        users.append(QJsonObject{
            {"name", "newcomer"}, {"systemId", 0}, {"rights", QJsonArray()}, {"enabled", true}});
        changed.insert("users", users);
        QVERIFY_OK(
            m_service->importDocument(CCaller::owner(), changed, Hlx::CImportOptions(), nullptr));
        QCOMPARE(storedHash("viewer"), hash);
        QCOMPARE(storedHash("newcomer"), std::string());
    }

    // Every export is on record, with whether it carried secrets; it is no change to announce.
    void exportsAreRecorded() {
        exported(CCaller::owner().locally("root"));
        exported(caller("admin", {90002}).from("192.0.2.7"), true);
        const auto recorded = entries("export");
        QCOMPARE(int(recorded.size()), 2);
        QCOMPARE(recorded[0].account, std::string("admin"));
        QCOMPARE(recorded[0].clientAddress, std::string("192.0.2.7"));
        QCOMPARE(recorded[0].summary.value("secrets").toBool(true), false);
        QVERIFY(recorded[1].local);
        QCOMPARE(recorded[1].osUser, std::string("root"));
        QCOMPARE(recorded[1].summary.value("secrets").toBool(false), true);
        std::vector<CAuditTrail::Entry> changes;
        m_service->database().transact(false, [&](QSqlDatabase& db) {
            changes = m_service->auditTrail().changesAfter(db, 0);
        });
        for (const auto& change : changes)
            QVERIFY(change.action != "export");
    }

    // A backup holds every secret: it is sealed under the data's key, and opens with it alone.
    void importBackupsAreSealed() {
        setToken();
        addSource();
        const QJsonObject before = exported(CCaller::owner());
        Hlx::CImportReport report;
        QVERIFY_OK(
            m_service->importDocument(CCaller::owner(), before, Hlx::CImportOptions(), &report));
        QCOMPARE(backups().size(), 1);
        QFile file(QString::fromStdString(report.backupFile));
        QVERIFY(file.open(QIODevice::ReadOnly));
        const QByteArray bytes = file.readAll();
        QVERIFY(!bytes.contains(QByteArray::fromStdString(kPassword)));
        QVERIFY(!bytes.contains(QByteArray::fromStdString(kToken)));
        QVERIFY(!bytes.contains("$argon2id$"));
        QVERIFY(CImportBackups::isSealed(bytes));
        QCOMPARE(CImportBackups::open(bytes, CSecretKeyFile::read(m_service->keyFile())), before);
        QVERIFY_EXCEPTION_THROWN(CImportBackups::open(bytes, CSecretBox::generate()),
                                 CServiceError);
    }

    // A new key reseals the backups too: the one key file opens everything.
    void rekeyResealsTheBackups() {
        setToken();
        const QJsonObject before = exported(CCaller::owner());
        Hlx::CImportReport report;
        QVERIFY_OK(
            m_service->importDocument(CCaller::owner(), before, Hlx::CImportOptions(), &report));
        const QByteArray oldKey = CSecretKeyFile::read(m_service->keyFile()).key();
        QVERIFY_OK(m_service->rekey(CCaller::owner()));
        QVERIFY(CSecretKeyFile::read(m_service->keyFile()).key() != oldKey);
        QFile file(QString::fromStdString(report.backupFile));
        QVERIFY(file.open(QIODevice::ReadOnly));
        QCOMPARE(CImportBackups::open(file.readAll(), CSecretKeyFile::read(m_service->keyFile())),
                 before);
        // On record, as every command on the data's own files.
        const auto recorded = entries("rekey");
        QCOMPARE(int(recorded.size()), 1);
        QCOMPARE(recorded.front().dataType, std::string("secrets"));
    }
};

QTEST_GUILESS_MAIN(TestSecretReach)
#include "tst_secret_reach.moc"
