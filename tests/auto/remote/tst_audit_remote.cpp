// The audit trail through quotesd: a change records the account and the client's address, a
// failed login is recorded without the password it tried, reading needs the administrator right,
// and quotesctl lists and prunes the trail through the server.

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <QtTest>

#include "CRemoteAdmin.h"
#include "QuotesctlOnServer.h"
#include "QuotesdLogin.h"
#include "RecordBuilders.h"
#include "rkservice/DataTypeIds.h"

namespace {

const QString kAdminPassword = QStringLiteral("admin-password-1");
const QString kViewerPassword = QStringLiteral("viewer-password-1");
const std::string kWrongPassword = "wrong-password-4711";
const std::string kSourcePassword = "remote-source-secret";

using Entries = std::vector<Hlx::CAuditEntry>;

}  // namespace

class TestAuditRemote : public QObject {
    Q_OBJECT

    QuotesdProcess m_server;
    QTemporaryDir m_files;

    std::unique_ptr<CRemoteAdmin> client() {
        return std::make_unique<CRemoteAdmin>(
            std::vector<std::string>{m_server.address().toStdString()},
            m_server.certificatePem().toStdString());
    }

    std::unique_ptr<CRemoteAdmin> loggedIn(const std::string& name, const QString& password) {
        return loggedInTo(m_server, name, password);
    }

    Entries entries(const Hlx::CAuditFilter& filter = Hlx::CAuditFilter()) {
        Entries result;
        const utils::RKError error =
            loggedIn("admin", kAdminPassword)->auditEntries(filter, &result);
        if (!error.isSuccess())
            qWarning("%s", error.errorMsg().c_str());
        return result;
    }

    QByteArray quotesctl(const QStringList& arguments, int* code) {
        const QuotesctlRun run =
            QuotesctlOnServer(m_server, QStringLiteral("admin"), kAdminPassword).run(arguments);
        *code = run.code;
        return run.out;
    }

private slots:
    void initTestCase() {
        QVERIFY(m_files.isValid());
        QString output;
        QVERIFY2(startWithViewer(m_server, kAdminPassword, kViewerPassword, &output),
                 qPrintable(output + m_server.log()));
    }

    void cleanupTestCase() {
        if (m_server.isRunning())
            QCOMPARE(m_server.stop(), 0);
    }

    void changeRecordsAccountAndAddress() {
        std::unique_ptr<CRemoteAdmin> admin = loggedIn("admin", kAdminPassword);
        rkservice::COperateDataReq request;
        request.dataType = rkservice::kDataQuoteSources;
        request.operateType = rkservice::kOperateAdd;
        auto source = RecordBuilders::source(0, 10000, 2, "10.1.1.1", 9500);
        source->m_strPassword = kSourcePassword;
        request.datas = {source};
        const size_t before = entries().size();
        QVERIFY(
            admin->operate(Hlx::CRequestTarget::subsystem("sys1"), request, nullptr).isSuccess());
        const Entries after = entries();
        QCOMPARE(after.size(), before + 1);
        const Hlx::CAuditEntry& entry = after.front();
        QCOMPARE(entry.action, std::string("add"));
        QCOMPARE(entry.account, std::string("admin"));
        QCOMPARE(entry.clientAddress, std::string("127.0.0.1"));
        QVERIFY(!entry.local);
        QVERIFY(entry.osUser.empty());
        QCOMPARE(int(entry.details.size()), 1);
        QCOMPARE(entry.details[0].after.value("port").toInt(), 9500);
        QCOMPARE(entry.details[0].after.value("password").toString(), QStringLiteral("******"));
    }

    void failedLoginIsRecordedWithoutThePassword() {
        std::unique_ptr<CRemoteAdmin> intruder = client();
        QVERIFY(!intruder->login("viewer", kWrongPassword).isSuccess());
        Hlx::CAuditFilter filter;
        filter.account = "viewer";
        filter.action = "login";
        const Entries found = entries(filter);
        QCOMPARE(int(found.size()), 1);
        QVERIFY(!found[0].error.empty());
        QCOMPARE(found[0].clientAddress, std::string("127.0.0.1"));
        QCOMPARE(found[0].dataType, std::string("session"));
        int code = -1;
        const QByteArray everything = quotesctl({"audit", "--json"}, &code);
        QCOMPARE(code, 0);
        QVERIFY(everything.contains("\"login\""));
        QVERIFY(!everything.contains(kWrongPassword.c_str()));
        QVERIFY(!everything.contains(kSourcePassword.c_str()));
        QVERIFY(!everything.contains(kAdminPassword.toUtf8()));
    }

    void readingAndPruningNeedTheAdministratorRight() {
        std::unique_ptr<CRemoteAdmin> viewer = loggedIn("viewer", kViewerPassword);
        QVERIFY(viewer->isLoggedIn());
        Entries seen;
        QVERIFY(!viewer->auditEntries(Hlx::CAuditFilter(), &seen).isSuccess());
        int removed = -1;
        QVERIFY(!viewer->pruneAudit(QDateTime::currentMSecsSinceEpoch(), &removed).isSuccess());
        Hlx::CAuditFilter filter;
        filter.account = "viewer";
        filter.action = "prune";
        const Entries refused = entries(filter);
        QCOMPARE(int(refused.size()), 1);
        QVERIFY(!refused[0].error.empty());
    }

    void quotesctlPrunesThroughTheServer() {
        int code = -1;
        const QByteArray removed =
            quotesctl({"audit", "prune", "--before", "2999-01-01T00:00:00Z"}, &code);
        QCOMPARE(code, 0);
        QVERIFY(removed.trimmed().toInt() >= 3);
        const QJsonArray left =
            QJsonDocument::fromJson(quotesctl({"audit", "--json"}, &code)).array();
        QCOMPARE(code, 0);
        QCOMPARE(left.size(), 1);
        const QJsonObject prune = left[0].toObject();
        QCOMPARE(prune.value("action").toString(), QStringLiteral("prune"));
        QCOMPARE(prune.value("account").toString(), QStringLiteral("admin"));
        QCOMPARE(prune.value("client_address").toString(), QStringLiteral("127.0.0.1"));
    }

    // An import through the server: a dry run counts and changes nothing; a real one is recorded
    // and the server names the backup it wrote in its own data directory; a backup path of the
    // client's is refused.
    void importThroughTheServer() {
        int code = -1;
        const QByteArray exported = quotesctl({"export"}, &code);
        QCOMPARE(code, 0);
        QFile document(m_files.filePath(QStringLiteral("document.json")));
        QVERIFY(document.open(QIODevice::WriteOnly));
        document.write(exported);
        document.close();
        const int entriesBefore = int(entries().size());

        const QString dryRun =
            QString::fromUtf8(quotesctl({"import", "--dry-run", document.fileName()}, &code));
        QCOMPARE(code, 0);
        QVERIFY2(dryRun.contains(QStringLiteral("sources ")), qPrintable(dryRun));
        QVERIFY(!dryRun.contains(QStringLiteral("backup ")));
        QCOMPARE(int(entries().size()), entriesBefore);

        quotesctl({"import", "--backup", m_files.filePath("mine.json"), document.fileName()},
                  &code);
        QCOMPARE(code, 1);
        QVERIFY(!QFile::exists(m_files.filePath("mine.json")));

        const QString imported =
            QString::fromUtf8(quotesctl({"import", document.fileName()}, &code));
        QCOMPARE(code, 0);
        const QString backup =
            imported.section(QLatin1Char('\n'), 0, 0).section(QLatin1Char(' '), 1).trimmed();
        QVERIFY2(backup.startsWith(m_server.dataDir()), qPrintable(imported));
        QCOMPARE(entries().front().action, std::string("import"));
    }
};

QTEST_GUILESS_MAIN(TestAuditRemote)
#include "tst_audit_remote.moc"
