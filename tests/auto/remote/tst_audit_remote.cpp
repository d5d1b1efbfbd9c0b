// The audit trail through quotesd: a change records the account and the client's address, a
// failed login is recorded without the password it tried, reading needs the administrator right,
// and quotesctl lists and prunes the trail through the server. Logins, logouts and refused reads
// are recorded; refused logins count on one entry per address, whatever names they try, and
// oversized names are refused and recorded cut; the trail is read page by page.

#include <algorithm>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <QtTest>

#include <grpcpp/grpcpp.h>

#include <QSqlQuery>

#include "CDatabase.h"
#include "CRemoteAdmin.h"
#include "QuotesctlOnServer.h"
#include "QuotesdLogin.h"
#include "RecordBuilders.h"
#include "TestPasswords.h"
#include "model/CAuditVocabulary.h"
#include "quotes.grpc.pb.h"
#include "rkservice/DataTypeIds.h"

namespace {

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

    // One login for every read, so that reading adds no entry of its own.
    std::unique_ptr<CRemoteAdmin> m_reader;

    Entries entries(const Hlx::CAuditFilter& filter = Hlx::CAuditFilter()) {
        Entries result;
        if (!m_reader)
            m_reader = loggedIn("admin", kAdminPassword);
        const utils::RKError error = m_reader->auditEntries(filter, &result);
        if (!error.isSuccess())
            qWarning("%s", error.errorMsg().c_str());
        return result;
    }

    // The entries but those of logins (quotesctl logs in for each command).
    int changes() {
        int count = 0;
        for (const Hlx::CAuditEntry& entry : entries())
            count += entry.dataType == "session" ? 0 : 1;
        return count;
    }

    // The newest refused login: it names an account (calls without a login name none).
    static Hlx::CAuditEntry newestRefusal(const Entries& found) {
        for (const Hlx::CAuditEntry& entry : found) {
            if (!entry.error.empty() && !entry.account.empty())
                return entry;
        }
        return Hlx::CAuditEntry();
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
        m_reader.reset();
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
        QJsonArray left;
        // quotesctl's own login is recorded after the prune; of the changes only the prune is.
        for (const QJsonValue entry :
             QJsonDocument::fromJson(quotesctl({"audit", "--json"}, &code)).array()) {
            if (entry.toObject().value("data_type").toString() != QLatin1String("session"))
                left.append(entry);
        }
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
        const int entriesBefore = changes();

        const QString dryRun =
            QString::fromUtf8(quotesctl({"import", "--dry-run", document.fileName()}, &code));
        QCOMPARE(code, 0);
        QVERIFY2(dryRun.contains(QStringLiteral("sources ")), qPrintable(dryRun));
        QVERIFY(!dryRun.contains(QStringLiteral("backup ")));
        QCOMPARE(changes(), entriesBefore);

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
        // The newest entry but the session's own (quotesctl logs out when it ends).
        const Entries after = entries();
        const auto newest = std::find_if(after.begin(), after.end(), [](const auto& entry) {
            return entry.dataType != CAuditVocabulary::kSession;
        });
        QVERIFY(newest != after.end());
        QCOMPARE(newest->action, std::string("import"));
    }

    void loginsAndLogoutsAreRecorded() {
        std::unique_ptr<CRemoteAdmin> viewer = loggedIn("viewer", kViewerPassword);
        QVERIFY(viewer->isLoggedIn());
        QVERIFY(viewer->logout().isSuccess());
        Hlx::CAuditFilter filter;
        filter.account = "viewer";
        filter.action = "login";
        const Entries logins = entries(filter);
        QVERIFY(!logins.empty());
        QVERIFY(logins.front().error.empty());
        QCOMPARE(logins.front().clientAddress, std::string("127.0.0.1"));
        filter.action = "logout";
        const Entries logouts = entries(filter);
        QCOMPARE(int(logouts.size()), 1);
        QCOMPARE(logouts.front().clientAddress, std::string("127.0.0.1"));
        QVERIFY(logouts.front().id > logins.front().id);
    }

    // A name over the user-name limit is refused before anything looks at it, and recorded cut.
    void oversizedNameIsRefusedAndRecordedCut() {
        grpc::SslCredentialsOptions tls;
        tls.pem_root_certs = m_server.certificatePem().toStdString();
        grpc::ChannelArguments arguments;
        arguments.SetMaxSendMessageSize(8 * 1024 * 1024);
        const auto stub = quotes::v1::QuotesAdmin::NewStub(grpc::CreateCustomChannel(
            m_server.address().toStdString(), grpc::SslCredentials(tls), arguments));
        quotes::v1::LoginRequest request;
        request.set_name(std::string(4 * 1024 * 1024, 'm'));
        request.set_password(kWrongPassword);
        quotes::v1::LoginReply reply;
        grpc::ClientContext context;
        context.set_deadline(std::chrono::system_clock::now() + std::chrono::seconds(20));
        const grpc::Status status = stub->Login(&context, request, &reply);
        QCOMPARE(int(status.error_code()), int(grpc::StatusCode::INVALID_ARGUMENT));
        Hlx::CAuditFilter filter;
        filter.action = "login";
        const Hlx::CAuditEntry newest = newestRefusal(entries(filter));
        const QString cut(75, QLatin1Char('m'));
        QVERIFY(newest.summary.value("names").toArray().contains(cut) ||
                newest.account == cut.toStdString());
        for (const Hlx::CAuditEntry& entry : entries(filter))
            QVERIFY(entry.account.size() <= 75);
    }

    // Calls without a valid login count with the refused logins of their address.
    void callsWithoutALoginAreCounted() {
        Hlx::CAuditFilter filter;
        filter.action = "login";
        auto refused = [&] {
            long long count = 0;
            for (const Hlx::CAuditEntry& entry : entries(filter))
                count += entry.error.empty() ? 0 : entry.count;
            return count;
        };
        const long long before = refused();
        grpc::SslCredentialsOptions tls;
        tls.pem_root_certs = m_server.certificatePem().toStdString();
        const auto stub = quotes::v1::QuotesAdmin::NewStub(
            grpc::CreateChannel(m_server.address().toStdString(), grpc::SslCredentials(tls)));
        for (const char* token : {"", "not-a-token", "AAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAA"}) {
            grpc::ClientContext context;
            if (*token)
                context.AddMetadata("authorization", std::string("Bearer ") + token);
            quotes::v1::ListAccountsReply reply;
            const grpc::Status status =
                stub->ListAccounts(&context, quotes::v1::ListAccountsRequest(), &reply);
            QCOMPARE(int(status.error_code()), int(grpc::StatusCode::UNAUTHENTICATED));
        }
        QCOMPARE(refused(), before + 3);
    }

    // A login idle for too long ends on its next call, and the trail says whose it was.
    void expiryIsRecorded() {
        std::unique_ptr<CRemoteAdmin> viewer = loggedIn("viewer", kViewerPassword);
        CServiceOptions options;
        options.dataDir = m_server.dataDir();
        QString error;
        const std::unique_ptr<CDatabase> database = CDatabase::create(options, &error);
        QVERIFY2(database, qPrintable(error));
        // As if it had last been used long ago.
        database->transact(true, [&](QSqlDatabase& db) {
            QSqlQuery age(db);
            age.prepare(
                QStringLiteral("UPDATE login_tokens SET last_used_ms = 1 WHERE "
                               "user_name = 'viewer'"));
            database->exec(age);
        });
        std::vector<Hlx::CAdminAccount> accounts;
        QVERIFY(!viewer->accounts(&accounts).isSuccess());
        Hlx::CAuditFilter filter;
        filter.account = "viewer";
        filter.action = "expire";
        const Entries expired = entries(filter);
        QCOMPARE(int(expired.size()), 1);
        QCOMPARE(expired.front().clientAddress, std::string("127.0.0.1"));
        QCOMPARE(expired.front().dataType, std::string("session"));
    }

    // New names from one address: one entry a minute, counting them and listing the names.
    void refusedLoginsCountOnOneEntryPerAddress() {
        Hlx::CAuditFilter filter;
        filter.action = "login";
        auto refusals = [&] {
            int rows = 0;
            for (const Hlx::CAuditEntry& entry : entries(filter))
                rows += entry.error.empty() ? 0 : 1;
            return rows;
        };
        const int before = refusals();
        std::unique_ptr<CRemoteAdmin> intruder = client();
        const int attempts = 30;
        for (int i = 0; i < attempts; ++i)
            QVERIFY(!intruder->login("flood-" + std::to_string(i), kWrongPassword).isSuccess());
        QVERIFY(refusals() <= before + 1);
        const Hlx::CAuditEntry newest = newestRefusal(entries(filter));
        QVERIFY(!newest.error.empty());
        QCOMPARE(newest.clientAddress, std::string("127.0.0.1"));
        QVERIFY2(newest.count >= attempts, qPrintable(QString::number(newest.count)));
        const QJsonArray names = newest.summary.value("names").toArray();
        QVERIFY(names.contains(QStringLiteral("flood-1")));
        QVERIFY(names.size() <= 20);
        // The count travels to quotesctl, as text and as JSON.
        int code = -1;
        const QJsonArray listed =
            QJsonDocument::fromJson(quotesctl({"audit", "--action", "login", "--json"}, &code))
                .array();
        QCOMPARE(code, 0);
        bool counted = false;
        for (const QJsonValue entry : listed)
            counted |= entry.toObject().value("count").toInt() >= attempts;
        QVERIFY(counted);
        QVERIFY(quotesctl({"audit", "--action", "login"}, &code).contains("COUNT"));
    }

    void refusedReadsAreRecorded() {
        std::unique_ptr<CRemoteAdmin> viewer = loggedIn("viewer", kViewerPassword);
        std::vector<Hlx::CAdminAccount> accounts;
        for (int i = 0; i < 5; ++i)
            QVERIFY(!viewer->accounts(&accounts).isSuccess());
        const utils::RKError integrity = viewer->checkIntegrity(nullptr);
        QCOMPARE(QString::fromStdString(integrity.errorMsg()),
                 QStringLiteral("没有权限：一致性检查"));
        QJsonObject document;
        QVERIFY(!viewer->exportDocument(&document).isSuccess());
        Entries trail;
        QVERIFY(!viewer->auditEntries(Hlx::CAuditFilter(), &trail).isSuccess());
        Hlx::CAuditFilter filter;
        filter.account = "viewer";
        const Entries found = entries(filter);
        auto find = [&](const char* action, const char* dataType) -> const Hlx::CAuditEntry* {
            for (const Hlx::CAuditEntry& entry : found) {
                if (entry.action == action && entry.dataType == dataType && !entry.error.empty())
                    return &entry;
            }
            return nullptr;
        };
        const Hlx::CAuditEntry* listing = find("read", "account");
        QVERIFY(listing);
        // Five refusals of one action within a minute: one entry counting them.
        QCOMPARE(listing->count, 5LL);
        QVERIFY(find("check", "database"));
        QVERIFY(find("export", "document"));
        QVERIFY(find("read", "audit"));
    }

    void pagingThroughTheTrail() {
        for (int i = 0; i < 3; ++i)  // a login and a logout each
            QVERIFY(loggedIn("viewer", kViewerPassword)->logout().isSuccess());
        Hlx::CAuditFilter everything;
        everything.limit = 100000;
        const Entries all = entries(everything);
        QVERIFY(all.size() >= 6);
        Hlx::CAuditFilter page;
        page.limit = 2;
        std::vector<long long> paged;
        // Never more pages than entries: each page moves on.
        for (size_t pages = 0; pages <= all.size(); ++pages) {
            Hlx::CAuditPage one;
            QVERIFY(m_reader->auditPage(page, &one).isSuccess());
            QVERIFY(one.entries.size() <= 2);
            for (const Hlx::CAuditEntry& entry : one.entries)
                paged.push_back(entry.id);
            if (!one.more)
                break;
            page.beforeId = one.entries.back().id;
        }
        std::vector<long long> ids;
        for (const Hlx::CAuditEntry& entry : all)
            ids.push_back(entry.id);
        QCOMPARE(paged, ids);
        // quotesctl says where a listing stopped and how to read on.
        const QuotesctlRun run =
            QuotesctlOnServer(m_server, QStringLiteral("admin"), kAdminPassword)
                .run({"audit", "--limit", "1"});
        QCOMPARE(run.code, 0);
        QVERIFY2(run.err.contains("--before"), run.err.constData());
        const QuotesctlRun unknown =
            QuotesctlOnServer(m_server, QStringLiteral("admin"), kAdminPassword)
                .run({"audit", "--action", "nonsense"});
        QCOMPARE(unknown.code, 2);
        QVERIFY2(unknown.err.contains("set_rights"), unknown.err.constData());
    }
};

QTEST_GUILESS_MAIN(TestAuditRemote)
#include "tst_audit_remote.moc"
