// The audit trail of the data service: every change makes exactly one entry with one detail row
// per record it touched, written with the change; refusals are recorded on their own; no entry
// holds a password or the token; reading and pruning need the administrator right.

#include <QJsonArray>
#include <QJsonDocument>
#include <QSqlQuery>
#include <QSqlRecord>
#include <QTemporaryDir>
#include <QtTest>
#include <boost/make_shared.hpp>

#include "CAccountStore.h"
#include "CCaller.h"
#include "CDatabase.h"
#include "CEmbeddedAdmin.h"
#include "CQuotesService.h"
#include "CSchema.h"
#include "CSeedData.h"
#include "PostgresCluster.h"
#include "RecordBuilders.h"
#include "ServiceResults.h"
#include "StoredRevisions.h"
#include "TestDatabases.h"
#include "model/CAuditVocabulary.h"
#include "rkservice/CGlobalFeaturePermissionInfo.h"
#include "rkservice/DataTypeIds.h"

namespace {

const std::string kSourcePassword = "source-secret-7";
const std::string kNewSourcePassword = "source-secret-8";
const std::string kToken = "Level2Token4711";
const std::string kAccountPassword = "correct horse battery staple";

using Entries = std::vector<Hlx::CAuditEntry>;

rkservice::COrinQuoterSourceInfoPtr stockSource(int port) {
    auto source = RecordBuilders::source(0, 10000, 2, "10.0.0.1", port);
    source->m_strPassword = kSourcePassword;
    return source;
}

}  // namespace

class TestAudit : public QObject {
    Q_OBJECT

public:
    // On SQLite files, or on databases of the cluster when one is given.
    explicit TestAudit(PostgresCluster* postgres = nullptr, QString postgresDown = QString())
        : m_postgres(postgres), m_postgresDown(postgresDown) {}

private:
    PostgresCluster* m_postgres;
    QString m_postgresDown;
    int m_databases = 0;
    QTemporaryDir* m_dir = nullptr;
    boost::shared_ptr<CQuotesService> m_service;
    boost::shared_ptr<CEmbeddedAdmin> m_owner;

    boost::shared_ptr<CEmbeddedAdmin> as(const std::string& name) {
        for (const auto& user : storedUsers(*m_service)) {
            if (user->m_strName == name) {
                const CCaller caller = CCaller::user(*user).locally("os-" + name);
                return boost::make_shared<CEmbeddedAdmin>(m_service, [caller] { return caller; });
            }
        }
        return nullptr;
    }

    Entries entries(Hlx::CAuditFilter filter = Hlx::CAuditFilter()) {
        Entries result;
        filter.limit = 100000;
        const utils::RKError error = m_owner->auditEntries(filter, &result);
        if (!error.isSuccess())
            qWarning("%s", error.errorMsg().c_str());
        return result;
    }

    utils::RKError operate(Hlx::IQuotesAdmin& admin, int dataType, int operateType,
                           const std::vector<rkservice::IDataPtr>& datas,
                           const std::string& subsystem = "sys1") {
        // The trail is the subject here: each change names the revision stored now.
        if (operateType != rkservice::kOperateAdd)
            StoredRevisions::fill(*m_service, dataType, datas, subsystem);
        rkservice::COperateDataReq request;
        request.dataType = dataType;
        request.operateType = operateType;
        request.datas = datas;
        return admin.operate(Hlx::CRequestTarget::subsystem(subsystem), request, nullptr);
    }

    // Runs the change and returns the one entry it added (fails the test when it added none or
    // several).
    template <class Change>
    Hlx::CAuditEntry onlyNewEntry(Change change) {
        const size_t before = entries().size();
        change();
        const Entries after = entries();
        if (after.size() != before + 1) {
            qWarning("expected one new entry, found %d", int(after.size() - before));
            return Hlx::CAuditEntry();
        }
        return after.front();
    }

    // Every text the trail's tables hold, as the database has it.
    QString storedText() {
        QString all;
        m_service->database().transact(false, [&](QSqlDatabase& db) {
            for (const char* table : {"audit_entries", "audit_details"}) {
                QSqlQuery query(db);
                query.exec(QStringLiteral("SELECT * FROM %1").arg(QLatin1String(table)));
                while (query.next())
                    for (int i = 0; i < query.record().count(); ++i)
                        all += query.value(i).toString() + QLatin1Char('|');
            }
        });
        return all;
    }

    // A new empty database for the next test.
    CServiceOptions freshOptions() {
        delete m_dir;
        m_dir = new QTemporaryDir;
        CServiceOptions options;
        options.dataDir = m_dir->path();
        if (m_postgres) {
            const QString name = QStringLiteral("audit_%1").arg(++m_databases);
            if (!m_postgres->createDatabase(name))
                qWarning("cannot create database %s", qPrintable(name));
            options.dbUrl = m_postgres->url(name);
        }
        return options;
    }

private slots:
    void initTestCase() {
        if (m_postgres && !m_postgresDown.isEmpty()) {
            if (qEnvironmentVariable("CI") == QLatin1String("true"))
                QFAIL(qPrintable(m_postgresDown));
            QSKIP(qPrintable(m_postgresDown));
        }
    }

    void init() {
        const CServiceOptions options = freshOptions();
        QString error;
        m_service = CQuotesService::open(options, &error);
        QVERIFY2(m_service, qPrintable(error));
        m_owner = CEmbeddedAdmin::asOwner(m_service);
    }

    void cleanup() {
        m_owner.reset();
        m_service.reset();
        delete m_dir;
        m_dir = nullptr;
    }

    // A database of the version before the trail gains it on opening and records from then on.
    void olderDatabaseGainsTheTrail() {
        cleanup();
        const CServiceOptions options = freshOptions();
        QString error;
        {
            std::unique_ptr<CDatabase> database = CDatabase::create(options, &error);
            QVERIFY2(database, qPrintable(error));
            database->transact(true, [&](QSqlDatabase& db) {
                CSchema::migrate(*database, db, 0, 3);  // before sealed secrets and the trail
                CSeedData::seed(*database, db, true);   // as databases were seeded then
            });
            database->dropConnection();
        }
        m_service = CQuotesService::open(options, &error);
        QVERIFY2(m_service, qPrintable(error));
        m_owner = CEmbeddedAdmin::asOwner(m_service);
        // The migration and the sealing of the secrets it found in clear are its first entries.
        std::vector<Hlx::CAuditEntry> upgrade = entries();
        QCOMPARE(int(upgrade.size()), 2);
        QCOMPARE(upgrade[0].action, std::string(CAuditVocabulary::kSeal));
        QCOMPARE(upgrade[1].action, std::string(CAuditVocabulary::kMigrate));
        QVERIFY(operate(*m_owner, rkservice::kDataQuoteSources, rkservice::kOperateAdd,
                        {stockSource(9001)})
                    .isSuccess());
        QCOMPARE(int(entries().size()), 3);
    }

    void sourceChangesMakeOneEntryWithDetailRows() {
        auto admin = as("admin");
        QVERIFY(admin);
        Hlx::CAuditEntry added = onlyNewEntry([&] {
            QVERIFY(operate(*admin, rkservice::kDataQuoteSources, rkservice::kOperateAdd,
                            {stockSource(9001), stockSource(9002)})
                        .isSuccess());
        });
        QCOMPARE(added.action, std::string("add"));
        QCOMPARE(added.dataType, std::string("quote_source"));
        QCOMPARE(added.subsystem, std::string("sys1"));
        QCOMPARE(added.account, std::string("admin"));
        QCOMPARE(added.osUser, std::string("os-admin"));
        QVERIFY(added.local);
        QVERIFY(added.error.empty());
        QCOMPARE(int(added.details.size()), 2);
        QVERIFY(added.details[0].before.isEmpty());
        QCOMPARE(added.details[0].after.value("port").toInt(), 9001);
        QCOMPARE(added.details[1].after.value("port").toInt(), 9002);
        QCOMPARE(added.details[0].after.value("password").toString(), QStringLiteral("******"));
        QCOMPARE(added.details[0].after.value("password_changed").toBool(), true);
        const std::string first = added.details[0].recordId;
        const std::string second = added.details[1].recordId;
        QCOMPARE(added.ids, first + "," + second);

        auto changed = stockSource(9011);
        changed->m_nId = std::stoi(first);
        changed->m_strPassword = kNewSourcePassword;
        auto same = stockSource(9012);
        same->m_nId = std::stoi(second);
        Hlx::CAuditEntry modified = onlyNewEntry([&] {
            QVERIFY(operate(*admin, rkservice::kDataQuoteSources, rkservice::kOperateModify,
                            {changed, same})
                        .isSuccess());
        });
        QCOMPARE(modified.action, std::string("modify"));
        QCOMPARE(int(modified.details.size()), 2);
        QCOMPARE(modified.details[0].before.value("port").toInt(), 9001);
        QCOMPARE(modified.details[0].after.value("port").toInt(), 9011);
        QCOMPARE(modified.details[0].after.value("password_changed").toBool(), true);
        QCOMPARE(modified.details[1].after.value("password_changed").toBool(), false);

        // A patch (quotesctl's modify) is recorded with the stored source's sub-system.
        Hlx::CSourcePatch patch;
        patch.port = 9021;
        Hlx::CAuditEntry patched = onlyNewEntry([&] {
            const utils::RKError error = admin->modifySource(std::stoi(first), patch);
            QVERIFY2(error.isSuccess(), error.errorMsg().c_str());
        });
        QCOMPARE(patched.action, std::string("modify"));
        QCOMPARE(patched.subsystem, std::string("sys1"));
        QCOMPARE(patched.ids, first);
        QCOMPARE(int(patched.details.size()), 1);
        QCOMPARE(patched.details[0].before.value("port").toInt(), 9011);
        QCOMPARE(patched.details[0].after.value("port").toInt(), 9021);
        QCOMPARE(patched.details[0].after.value("password_changed").toBool(), false);

        // Deleting all of them: one entry, one row per source, nothing after.
        Hlx::CAuditEntry deleted = onlyNewEntry([&] {
            QVERIFY(operate(*admin, rkservice::kDataQuoteSources, rkservice::kOperateDelete,
                            {changed, same})
                        .isSuccess());
        });
        QCOMPARE(deleted.action, std::string("delete"));
        QCOMPARE(deleted.ids, first + "," + second);
        QCOMPARE(int(deleted.details.size()), 2);
        QCOMPARE(deleted.details[1].before.value("port").toInt(), 9012);
        QVERIFY(deleted.details[1].after.isEmpty());
    }

    void tokenAndWholeQuoteChangesAreRecorded() {
        Hlx::CAuditEntry token = onlyNewEntry([&] {
            QVERIFY(operate(*m_owner, rkservice::kDataLevel2Tokens, rkservice::kOperateAdd,
                            {RecordBuilders::token(kToken)})
                        .isSuccess());
        });
        QCOMPARE(token.dataType, std::string("level2_token"));
        QCOMPARE(token.action, std::string("add"));
        QCOMPARE(int(token.details.size()), 1);
        QCOMPARE(token.details[0].after.value("value").toString(), QStringLiteral("******"));
        QVERIFY(token.details[0].after.value("changed").toBool());
        // The owner of the file has no account; the entry keeps the operating-system user.
        QVERIFY(token.account.empty());
        QCOMPARE(token.osUser, CCaller::operatingSystemUser());

        auto permission = boost::make_shared<rkservice::CGlobalFeaturePermissionInfo>();
        permission->m_wholeQuote = boost::make_shared<rkservice::CWholeQuotedivision>();
        permission->m_wholeQuote->setEnabled("SH", true);
        permission->m_wholeQuote->setEnabled("SZ", false);
        Hlx::CAuditEntry whole = onlyNewEntry([&] {
            QVERIFY(operate(*m_owner, rkservice::kDataGlobalPermission,
                            rkservice::kOperateSaveWholeQuote, {permission}, "sys2")
                        .isSuccess());
        });
        QCOMPARE(whole.dataType, std::string("whole_quote"));
        QCOMPARE(whole.subsystem, std::string("sys2"));
        QCOMPARE(int(whole.details.size()), 1);
        QCOMPARE(whole.details[0].after.value("SH").toBool(), true);
        QCOMPARE(whole.details[0].after.value("SZ").toBool(), false);
    }

    void administrativeChangesAreRecorded() {
        Hlx::CAuditEntry loginType =
            onlyNewEntry([&] { QVERIFY(m_owner->setLoginTypeAuth(3, true).isSuccess()); });
        QCOMPARE(loginType.dataType, std::string("login_type"));
        QCOMPARE(loginType.ids, std::string("3"));
        QCOMPARE(loginType.details.at(0).after.value("granted").toBool(), true);

        std::vector<Hlx::SubsystemInfo> subsystems = m_service->subsystems();
        subsystems.push_back({"sys3", "第三站"});
        Hlx::CAuditEntry changedSubsystems =
            onlyNewEntry([&] { QVERIFY(m_owner->setSubsystems(subsystems).isSuccess()); });
        QCOMPARE(changedSubsystems.dataType, std::string("subsystems"));
        QVERIFY(!changedSubsystems.details.at(0).before.contains("sys3"));
        QVERIFY(changedSubsystems.details.at(0).after.contains("sys3"));

        Hlx::CAuditEntry rights = onlyNewEntry([&] {
            QVERIFY(m_owner->setRights("viewer", {10385, 90002}).isSuccess());
        });
        QCOMPARE(rights.action, std::string("set_rights"));
        QCOMPARE(rights.ids, std::string("viewer"));
        QCOMPARE(rights.details.at(0).before.value("rights").toArray().size(), 0);
        QCOMPARE(rights.details.at(0).after.value("rights").toArray().size(), 2);

        Hlx::CAuditEntry disabled =
            onlyNewEntry([&] { QVERIFY(m_owner->setAccountEnabled("viewer", false).isSuccess()); });
        QCOMPARE(disabled.action, std::string("set_enabled"));
        QCOMPARE(disabled.details.at(0).before.value("enabled").toBool(), true);
        QCOMPARE(disabled.details.at(0).after.value("enabled").toBool(), false);

        Hlx::CAuditEntry password = onlyNewEntry(
            [&] { QVERIFY(m_owner->setPassword("viewer", kAccountPassword).isSuccess()); });
        QCOMPARE(password.action, std::string("set_password"));
        QCOMPARE(password.details.at(0).after.value("password").toObject().value("changed"),
                 QJsonValue(true));

        QJsonObject document;
        QVERIFY(m_owner->exportDocument(&document).isSuccess());
        // Export reads; it leaves the trail alone.
        const size_t beforeImport = entries().size();
        Hlx::CAuditEntry imported =
            onlyNewEntry([&] { QVERIFY(m_owner->importDocument(document).isSuccess()); });
        QCOMPARE(imported.action, std::string("import"));
        QVERIFY(imported.details.empty());
        QCOMPARE(imported.summary.value("sha256").toString().size(), 64);
        QCOMPARE(imported.summary.value("counts").toObject().value("subsystems").toInt(), 3);
        // The import replaced the data, not the trail.
        QCOMPARE(entries().size(), beforeImport + 1);
    }

    void noEntryHoldsASecret() {
        QVERIFY(operate(*m_owner, rkservice::kDataQuoteSources, rkservice::kOperateAdd,
                        {stockSource(9101)})
                    .isSuccess());
        const int id = std::stoi(entries().front().details.at(0).recordId);
        auto changed = stockSource(9101);
        changed->m_nId = id;
        changed->m_strPassword = kNewSourcePassword;
        QVERIFY(
            operate(*m_owner, rkservice::kDataQuoteSources, rkservice::kOperateModify, {changed})
                .isSuccess());
        QVERIFY(operate(*m_owner, rkservice::kDataLevel2Tokens, rkservice::kOperateAdd,
                        {RecordBuilders::token(kToken)})
                    .isSuccess());
        QVERIFY(operate(*m_owner, rkservice::kDataLevel2Tokens, rkservice::kOperateDelete,
                        {RecordBuilders::token(kToken)})
                    .isSuccess());
        QVERIFY(m_owner->setPassword("viewer", kAccountPassword).isSuccess());
        // Refused requests too: their details never reach the trail.
        QVERIFY(!m_owner->setPassword("nobody", kAccountPassword).isSuccess());
        QVERIFY(!operate(*m_owner, rkservice::kDataLevel2Tokens, rkservice::kOperateAdd,
                         {RecordBuilders::token(kToken + "x!")})
                     .isSuccess());
        QJsonObject document;
        QVERIFY(m_owner->exportDocument(&document).isSuccess());
        QVERIFY(m_owner->importDocument(document).isSuccess());

        const QString stored = storedText();
        QVERIFY(stored.contains(QStringLiteral("******")));
        for (const std::string& secret :
             {kSourcePassword, kNewSourcePassword, kToken, kAccountPassword})
            QVERIFY2(!stored.contains(QString::fromStdString(secret)), secret.c_str());
        // Nor the account's hash.
        QVERIFY(!stored.contains(QStringLiteral("$argon2")));
    }

    void refusalsAreRecordedOnTheirOwn() {
        auto viewer = as("viewer");
        QVERIFY(viewer);
        Hlx::CAuditEntry refused = onlyNewEntry([&] {
            QVERIFY(!operate(*viewer, rkservice::kDataQuoteSources, rkservice::kOperateAdd,
                             {stockSource(9201)})
                         .isSuccess());
        });
        QCOMPARE(refused.account, std::string("viewer"));
        QCOMPARE(refused.action, std::string("add"));
        QVERIFY(!refused.error.empty());
        QVERIFY(refused.details.empty());

        // Refused inside the change's transaction (the source does not exist): the change is
        // rolled back, the refusal stays.
        auto missing = stockSource(9202);
        missing->m_nId = 4242;
        Hlx::CAuditEntry modify = onlyNewEntry([&] {
            QVERIFY(!operate(*m_owner, rkservice::kDataQuoteSources, rkservice::kOperateModify,
                             {missing})
                         .isSuccess());
        });
        QCOMPARE(modify.ids, std::string("4242"));
        QVERIFY(QString::fromStdString(modify.error).contains(QStringLiteral("4242")));
        for (const Hlx::CAuditEntry& entry : entries())
            QVERIFY(entry.action != "modify" || !entry.error.empty());

        // Validation.
        Hlx::CAuditEntry invalid = onlyNewEntry([&] {
            QVERIFY(!operate(*m_owner, rkservice::kDataQuoteSources, rkservice::kOperateAdd,
                             {RecordBuilders::source(0, 10000, 77)})
                         .isSuccess());
        });
        QVERIFY(!invalid.error.empty());

        // An administrative change without the right.
        Hlx::CAuditEntry rights =
            onlyNewEntry([&] { QVERIFY(!viewer->setRights("viewer", {90002}).isSuccess()); });
        QCOMPARE(rights.action, std::string("set_rights"));
        QCOMPARE(rights.ids, std::string("viewer"));
        QVERIFY(!rights.error.empty());
    }

    void readingAndPruningNeedTheAdministratorRight() {
        auto viewer = as("viewer");
        Entries seen;
        QVERIFY(!viewer->auditEntries(Hlx::CAuditFilter(), &seen).isSuccess());
        int removed = -1;
        Hlx::CAuditEntry refused = onlyNewEntry([&] {
            QVERIFY(
                !viewer->pruneAudit(QDateTime::currentMSecsSinceEpoch() + 1, &removed).isSuccess());
        });
        QCOMPARE(refused.action, std::string("prune"));
        QVERIFY(!refused.error.empty());
        QVERIFY(as("admin")->auditEntries(Hlx::CAuditFilter(), &seen).isSuccess());
        QVERIFY(!seen.empty());
    }

    void pruneRemovesOlderEntriesAndIsRecorded() {
        for (int port : {9301, 9302, 9303})
            QVERIFY(operate(*m_owner, rkservice::kDataQuoteSources, rkservice::kOperateAdd,
                            {stockSource(port)})
                        .isSuccess());
        const Entries before = entries();
        QCOMPARE(int(before.size()), 3);
        // Between the second and the third entry.
        const long long cut = before[0].timeMs;
        int removed = -1;
        QVERIFY(m_owner->pruneAudit(cut, &removed).isSuccess());
        const Entries after = entries();
        int older = 0;
        for (const Hlx::CAuditEntry& entry : before)
            older += entry.timeMs < cut ? 1 : 0;
        QCOMPARE(removed, older);
        QCOMPARE(int(after.size()), 3 - older + 1);
        QCOMPARE(after.front().action, std::string("prune"));
        QCOMPARE(after.front().summary.value("removed").toInt(), older);
        for (const Hlx::CAuditEntry& entry : after)
            QVERIFY(entry.timeMs >= cut);
    }

    void filtersSelectNewestFirst() {
        auto admin = as("admin");
        QVERIFY(operate(*admin, rkservice::kDataQuoteSources, rkservice::kOperateAdd,
                        {stockSource(9401)})
                    .isSuccess());
        QVERIFY(m_owner->setLoginTypeAuth(2, true).isSuccess());
        QVERIFY(operate(*admin, rkservice::kDataQuoteSources, rkservice::kOperateAdd,
                        {stockSource(9402)})
                    .isSuccess());
        Hlx::CAuditFilter byAccount;
        byAccount.account = "admin";
        const Entries mine = entries(byAccount);
        QCOMPARE(int(mine.size()), 2);
        QVERIFY(mine[0].id > mine[1].id);
        QCOMPARE(mine[0].details.at(0).after.value("port").toInt(), 9402);
        Hlx::CAuditFilter byAction;
        byAction.action = "set";
        QCOMPARE(int(entries(byAction).size()), 1);
        Hlx::CAuditFilter window;
        window.sinceMs = mine[1].timeMs;
        window.untilMs = mine[1].timeMs + 1;
        for (const Hlx::CAuditEntry& entry : entries(window))
            QCOMPARE(entry.timeMs, mine[1].timeMs);
        Hlx::CAuditFilter limited;
        limited.limit = 1;
        Entries one;
        QVERIFY(m_owner->auditEntries(limited, &one).isSuccess());
        QCOMPARE(int(one.size()), 1);
        QCOMPARE(one.front().id, mine[0].id);
    }
};

class TestAuditPostgres : public TestAudit {
    Q_OBJECT

public:
    TestAuditPostgres(PostgresCluster* postgres, const QString& down) : TestAudit(postgres, down) {}
};

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    return TestDatabases::runBoth<TestAudit, TestAuditPostgres>(argc, argv);
}
#include "tst_audit.moc"
