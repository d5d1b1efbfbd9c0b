// Secrets through a real quotesd: the token and the users' records by right, exports without
// secrets decided by the server, a Ping that tells strangers only the version, quotesctl logging
// out when its command ends, the server's own commands on record and a sealed backup restored
// through the server with its key.

#include <sys/stat.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QtTest>
#include <boost/make_shared.hpp>

#include "CRemoteAdmin.h"
#include "Hlx/CRequestTarget.h"
#include "Hlx/QuotesVersion.h"
#include "QuotesctlOnServer.h"
#include "QuotesdLogin.h"
#include "QuotesdProcess.h"
#include "TestPasswords.h"
#include "rkservice/CLevel2Token.h"
#include "rkservice/COrinQuoterSourceInfo.h"
#include "rkservice/CUserInfo.h"
#include "rkservice/DataTypeIds.h"

namespace {

const std::string kToken = "ServerToken4b8e02";

}  // namespace

class TestQuotesdSecrets : public QObject {
    Q_OBJECT

    QuotesdProcess m_server;
    std::unique_ptr<CRemoteAdmin> m_admin;
    std::unique_ptr<CRemoteAdmin> m_viewer;

    static std::vector<rkservice::IDataPtr> query(CRemoteAdmin& who, int dataType) {
        rkservice::COrinQueryDataReq request;
        request.dataType = dataType;
        std::vector<rkservice::IDataPtr> datas;
        const utils::RKError error = who.query(Hlx::CRequestTarget::centre(), request, &datas);
        if (!error.isSuccess())
            qWarning("%s", error.errorMsg().c_str());
        return datas;
    }

    static std::string tokenFor(CRemoteAdmin& who) {
        const auto datas = query(who, rkservice::kDataLevel2Tokens);
        return datas.size() == 1
                   ? boost::dynamic_pointer_cast<rkservice::CLevel2Token>(datas.front())->token
                   : std::string("(none)");
    }

    // The login tokens the server's database holds for the account.
    int storedLogins(const QString& account) {
        int count = -1;
        {
            QSqlDatabase db =
                QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), QStringLiteral("probe"));
            db.setDatabaseName(QDir(m_server.dataDir()).filePath(QStringLiteral("quotes.db")));
            db.setConnectOptions(QStringLiteral("QSQLITE_OPEN_READONLY"));
            QSqlQuery query(db);
            if (db.open() && query.prepare(QStringLiteral(
                                 "SELECT COUNT(*) FROM login_tokens WHERE user_name = ?"))) {
                query.addBindValue(account);
                if (query.exec() && query.next())
                    count = query.value(0).toInt();
            }
        }
        QSqlDatabase::removeDatabase(QStringLiteral("probe"));
        return count;
    }

private slots:
    void initTestCase() {
        QString output;
        QVERIFY2(startWithViewer(m_server, kAdminPassword, kViewerPassword, &output),
                 qPrintable(output + m_server.log()));
        m_admin = loggedInTo(m_server, "admin", kAdminPassword);
        m_viewer = loggedInTo(m_server, "viewer", kViewerPassword);
        QVERIFY(m_admin->isLoggedIn() && m_viewer->isLoggedIn());
        rkservice::COperateDataReq request;
        request.dataType = rkservice::kDataLevel2Tokens;
        request.operateType = rkservice::kOperateAdd;
        auto token = boost::make_shared<rkservice::CLevel2Token>();
        token->token = kToken;
        request.datas = {token};
        bson::BSONObj result;
        const utils::RKError added =
            m_admin->operate(Hlx::CRequestTarget::centre(), request, &result);
        QVERIFY2(added.isSuccess(), added.errorMsg().c_str());
    }

    void cleanupTestCase() {
        m_admin.reset();
        m_viewer.reset();
        if (m_server.isRunning())
            QCOMPARE(m_server.stop(), 0);
    }

    void tokenAndUsersByRight() {
        QCOMPARE(tokenFor(*m_admin), kToken);
        QCOMPARE(tokenFor(*m_viewer), std::string("******"));
        QStringList names;
        for (const auto& data : query(*m_viewer, rkservice::kDataUsers))
            names << QString::fromStdString(
                boost::dynamic_pointer_cast<rkservice::CUserInfo>(data)->m_strName);
        QCOMPARE(names, QStringList{"viewer"});
        QCOMPARE(int(query(*m_admin, rkservice::kDataUsers).size()), 4);
        // quotesctl shows what the account receives.
        const QuotesctlRun shown =
            QuotesctlOnServer(m_server, QStringLiteral("viewer"), kViewerPassword)
                .run({"token", "show"});
        QCOMPARE(shown.code, 0);
        QVERIFY2(shown.out.contains("******"), shown.out.constData());
        QVERIFY(!shown.out.contains(QByteArray::fromStdString(kToken)));
    }

    // The server leaves the secrets out when asked: the client strips nothing itself.
    void exportWithoutSecretsIsTheServers() {
        QJsonObject document;
        QVERIFY(m_admin->exportDocument(&document).isSuccess());
        QVERIFY(QJsonDocument(document).toJson().contains("$argon2id$"));
        Hlx::CExportOptions options;
        options.withoutSecrets = true;
        QVERIFY(m_admin->exportDocument(&document, options).isSuccess());
        const QByteArray text = QJsonDocument(document).toJson();
        QVERIFY(!text.contains("$argon2id$"));
        QVERIFY(!text.contains(QByteArray::fromStdString(kToken)));
        QVERIFY(document.value("level2Token").isNull());
    }

    void pingWithoutALoginTellsOnlyTheVersion() {
        CRemoteAdmin stranger({m_server.address().toStdString()},
                              m_server.certificatePem().toStdString());
        Hlx::CServiceStatus status;
        QVERIFY(stranger.status(&status).isSuccess());
        QCOMPARE(QString::fromStdString(status.version), QString(Hlx::quotesVersion()));
        QCOMPARE(status.database, std::string());
        QCOMPARE(status.uptimeMs, 0LL);
        QVERIFY(m_viewer->status(&status).isSuccess());
        QVERIFY(QString::fromStdString(status.database).contains(m_server.dataDir()));
    }

    void quotesctlLogsOutWhenDone() {
        const int before = storedLogins(QStringLiteral("viewer"));
        QVERIFY(before >= 1);
        const QuotesctlRun listed =
            QuotesctlOnServer(m_server, QStringLiteral("viewer"), kViewerPassword)
                .run({"sources", "list"});
        QCOMPARE(listed.code, 0);
        QCOMPARE(storedLogins(QStringLiteral("viewer")), before);
        // Also after a refused command.
        const QuotesctlRun refused =
            QuotesctlOnServer(m_server, QStringLiteral("viewer"), kViewerPassword)
                .run({"accounts", "list"});
        QCOMPARE(refused.code, 1);
        QCOMPARE(storedLogins(QStringLiteral("viewer")), before);
    }

    // init and reset-password act on the server's files: on record as local, with the
    // operating-system user.
    void serverCommandsAreRecorded() {
        Hlx::CAuditFilter filter;
        filter.action = "set_password";
        std::vector<Hlx::CAuditEntry> entries;
        QVERIFY(m_admin->auditEntries(filter, &entries).isSuccess());
        QStringList names;
        for (const Hlx::CAuditEntry& entry : entries) {
            QVERIFY(entry.local);
            QVERIFY(!entry.osUser.empty());
            QCOMPARE(entry.account, std::string());
            names << QString::fromStdString(entry.ids);
        }
        QCOMPARE(names, (QStringList{"viewer", "admin"}));
    }

    void exportsAreRecorded() {
        QJsonObject document;
        QVERIFY(m_admin->exportDocument(&document).isSuccess());
        Hlx::CAuditFilter filter;
        filter.action = "export";
        std::vector<Hlx::CAuditEntry> entries;
        QVERIFY(m_admin->auditEntries(filter, &entries).isSuccess());
        QVERIFY(!entries.empty());
        QCOMPARE(entries.front().account, std::string("admin"));
        QCOMPARE(entries.front().clientAddress, std::string("127.0.0.1"));
        QCOMPARE(entries.front().summary.value("secrets").toBool(false), true);
    }

    // The server seals the backup it writes; quotesctl restores it through the server with the
    // server's key.
    void sealedBackupRestoresThroughTheServer() {
        const QuotesctlOnServer admin(m_server, QStringLiteral("admin"), kAdminPassword);
        QTemporaryDir files;
        const QString document = files.filePath(QStringLiteral("document.json"));
        QCOMPARE(admin.run({"export", "--output", document}).code, 0);
        QuotesctlRun run = admin.run({"import", document});
        QCOMPARE(run.code, 0);
        const QString backup = QString::fromUtf8(run.out.split('\n').front().mid(7));
        QFile file(backup);
        QVERIFY2(file.open(QIODevice::ReadOnly), qPrintable(backup));
        QVERIFY(!file.readAll().contains(QByteArray::fromStdString(kToken)));
        run = admin.run({"import", backup});
        QCOMPARE(run.code, 2);
        QVERIFY2(run.err.contains("--key FILE"), run.err.constData());
        run = admin.run({"import", backup, "--key", m_server.secretsKeyFile()});
        QVERIFY2(run.code == 0, run.err.constData());
        QCOMPARE(tokenFor(*m_admin), kToken);
    }

    // The sections to import travel to the server: one it does not know is refused there.
    void partialImportThroughTheServer() {
        const QuotesctlOnServer admin(m_server, QStringLiteral("admin"), kAdminPassword);
        QTemporaryDir files;
        const QString document = files.filePath(QStringLiteral("document.json"));
        QCOMPARE(admin.run({"export", "--output", document}).code, 0);
        QuotesctlRun run = admin.run({"import", "--only", "brokers,platforms", document});
        QVERIFY2(run.code == 0, run.err.constData());
        QVERIFY(run.out.contains("brokers "));
        run = admin.run({"import", "--only", "bogus", document});
        QCOMPARE(run.code, 1);
        QVERIFY2(run.err.contains("bogus"), run.err.constData());
    }

    // The server writes the online copy into its own data directory, names it to quotesctl, and
    // keeps the token sealed in it; only an administrator may ask, and never for a path.
    void backupThroughTheServerLandsInItsDataDirectory() {
        const QuotesctlOnServer admin(m_server, QStringLiteral("admin"), kAdminPassword);
        QuotesctlRun run = admin.run({"backup"});
        QVERIFY2(run.code == 0, run.err.constData());
        QVERIFY(run.out.startsWith("backup "));
        const QString copy = QString::fromUtf8(run.out.mid(7).trimmed());
        QCOMPARE(QFileInfo(copy).absolutePath(), QFileInfo(m_server.dataDir()).absoluteFilePath());
        struct stat info {};
        QCOMPARE(::stat(QFile::encodeName(copy).constData(), &info), 0);
        QCOMPARE(int(info.st_mode & 0777), 0600);
        QFile file(copy);
        QVERIFY(file.open(QIODevice::ReadOnly));
        const QByteArray bytes = file.readAll();
        QVERIFY(bytes.startsWith("SQLite format 3"));
        QVERIFY(!bytes.contains(QByteArray::fromStdString(kToken)));

        run = admin.run({"backup", "--output", QDir::temp().filePath(QStringLiteral("x.db"))});
        QCOMPARE(run.code, 2);
        run =
            QuotesctlOnServer(m_server, QStringLiteral("viewer"), kViewerPassword).run({"backup"});
        QCOMPARE(run.code, 1);
    }
};

QTEST_GUILESS_MAIN(TestQuotesdSecrets)
#include "tst_quotesd_secrets.moc"
