// Accounts and logins of the data service: password hashes and policy, login refusals that all
// look alike, throttling, token expiry on a fake clock, account changes that count at once, two
// managers on one database, the migration of older databases and many threads at once; on
// SQLite and again on PostgreSQL.

#include <pwd.h>
#include <unistd.h>

#include "ServiceResults.h"
#include "model/CRightsTable.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QProcess>
#include <QSqlQuery>
#include <QThread>
#include <atomic>
#include <cctype>
#include <memory>

#include "CAccountStore.h"
#include "CDatabase.h"
#include "CEmbeddedAdmin.h"
#include "CLoginManager.h"
#include "CPasswordHasher.h"
#include "CSchema.h"
#include "CServiceError.h"
#include "PostgresCluster.h"
#include "RecordBuilders.h"
#include "ServiceTestUtil.h"
#include "TestDatabases.h"
#include "rkservice/DataTypeIds.h"

namespace {

const qint64 kStart = 1700000000000;  // any fixed epoch time; the clock only moves forward
const qint64 kMinute = 60 * 1000;
const std::string kPassword = "correct horse battery";
const QString kHere = QStringLiteral("10.0.0.1");

using Reason = CLoginManager::Reason;

// Collects every Qt message while alive, to show that no secret reaches a log.
struct MessageCapture {
    static QStringList& lines() {
        static QStringList all;
        return all;
    }
    static void handler(QtMsgType, const QMessageLogContext&, const QString& text) {
        lines() << text;
    }
    QtMessageHandler previous;
    MessageCapture() : previous(qInstallMessageHandler(&MessageCapture::handler)) {
        lines().clear();
    }
    ~MessageCapture() { qInstallMessageHandler(previous); }
};

}  // namespace

class TestAccounts : public QObject {
    Q_OBJECT

public:
    // On SQLite files, or on databases of the cluster when one is given.
    explicit TestAccounts(PostgresCluster* postgres = nullptr, QString postgresDown = QString())
        : m_postgres(postgres), m_postgresDown(postgresDown) {}

private:
    PostgresCluster* m_postgres;
    QString m_postgresDown;
    int m_databases = 0;
    std::unique_ptr<QTemporaryDir> m_dir;
    QString m_databaseName;
    boost::shared_ptr<CQuotesService> m_service;
    std::unique_ptr<CDatabase> m_database;
    std::unique_ptr<CAccountStore> m_store;
    qint64 m_now = kStart;

    CServiceOptions options() const {
        CServiceOptions o;
        o.dataDir = m_dir->path();
        if (m_postgres)
            o.dbUrl = m_postgres->url(m_databaseName);
        o.busyTimeoutMs = 30000;
        return o;
    }
    // A new empty database for the next test.
    bool freshStorage() {
        m_dir.reset(new QTemporaryDir);
        if (!m_dir->isValid())
            return false;
        if (!m_postgres)
            return true;
        m_databaseName = QStringLiteral("accounts_%1").arg(++m_databases);
        return m_postgres->createDatabase(m_databaseName);
    }
    std::unique_ptr<CDatabase> openDatabase() {
        QString error;
        auto database = CDatabase::create(options(), &error);
        if (!database)
            qWarning("database: %s", qPrintable(error));
        return database;
    }
    CLoginManager::Options fastLockout() const {
        CLoginManager::Options o;
        o.lockoutBaseMs = 2000;
        o.lockoutMaxMs = 16000;
        return o;
    }
    static QString storedHash(CDatabase& database, const QString& name) {
        QString hash;
        database.transact(false, [&](QSqlDatabase& db) {
            QSqlQuery query(db);
            query.prepare(QStringLiteral("SELECT password_hash FROM users WHERE name = ?"));
            query.addBindValue(name);
            database.exec(query);
            if (query.next())
                hash = query.value(0).toString();
        });
        return hash;
    }
    // Fails the attempt `count` times with a wrong password.
    static void failTimes(CLoginManager& manager, const QString& name, const QString& address,
                          int count, qint64 now) {
        for (int i = 0; i < count; ++i) {
            const auto r = manager.login(name, "wrong password!", address, now);
            QCOMPARE(r.reason, Reason::WrongPassword);
        }
    }

private slots:
    void initTestCase() {
        if (!m_postgres)
            return;
        if (!m_postgresDown.isEmpty()) {
            if (qEnvironmentVariable("CI") == QLatin1String("true"))
                QFAIL(qPrintable(m_postgresDown));
            QSKIP(qPrintable(m_postgresDown));
        }
    }

    void init() {
        QVERIFY(freshStorage());
        QString error;
        m_service = CQuotesService::open(options(), &error);
        QVERIFY2(m_service, qPrintable(error));
        m_database = openDatabase();
        QVERIFY(m_database);
        m_store.reset(new CAccountStore(*m_database));
        m_store->setPassword(QStringLiteral("admin"), kPassword);
        m_now = kStart;
    }
    void cleanup() {
        m_store.reset();
        m_database.reset();
        m_service.reset();
        m_dir.reset();
    }

    void hashRoundTrip() {
        const std::string hash = CPasswordHasher::hash(kPassword);
        QVERIFY(QString::fromStdString(hash).startsWith(QStringLiteral("$argon2id$")));
        QVERIFY(hash.find(kPassword) == std::string::npos);
        QVERIFY(CPasswordHasher::verify(hash, kPassword));
        QVERIFY(!CPasswordHasher::verify(hash, kPassword + "x"));
        QVERIFY(!CPasswordHasher::verify("$argon2id$broken", kPassword));
        QVERIFY(!CPasswordHasher::verify(std::string(), kPassword));
        // A fresh salt every time.
        QVERIFY(CPasswordHasher::hash(kPassword) != hash);
        // What the store keeps is such a hash, never the password.
        const QString stored = storedHash(*m_database, QStringLiteral("admin"));
        QVERIFY(stored.startsWith(QStringLiteral("$argon2id$")));
        QVERIFY(!stored.contains(QString::fromStdString(kPassword)));
        QVERIFY(CPasswordHasher::verify(stored.toStdString(), kPassword));
    }

    void policy_data() {
        QTest::addColumn<QByteArray>("password");
        QTest::addColumn<QString>("refusal");
        QTest::newRow("twelve ascii") << QByteArray("abcdefghijkl") << QString();
        QTest::newRow("eleven ascii")
            << QByteArray("abcdefghijk") << QStringLiteral("密码至少需要 12 个字符");
        // Characters count, not bytes: eleven Chinese characters are 33 bytes and still short.
        QTest::newRow("eleven chinese") << QStringLiteral("一二三四五六七八九十百").toUtf8()
                                        << QStringLiteral("密码至少需要 12 个字符");
        QTest::newRow("twelve chinese")
            << QStringLiteral("一二三四五六七八九十百千").toUtf8() << QString();
        QTest::newRow("256 bytes") << QByteArray(256, 'a') << QString();
        QTest::newRow("257 bytes") << QByteArray(257, 'a') << QStringLiteral("密码最多 256 个字节");
        QTest::newRow("invalid byte")
            << QByteArray("abcdefghijkl\xff") << QStringLiteral("密码必须是有效的 UTF-8 文本");
        QTest::newRow("overlong") << QByteArray("abcdefghijkl\xc0\xaf")
                                  << QStringLiteral("密码必须是有效的 UTF-8 文本");
        QTest::newRow("surrogate") << QByteArray("abcdefghijkl\xed\xa0\x80")
                                   << QStringLiteral("密码必须是有效的 UTF-8 文本");
        QTest::newRow("truncated")
            << QByteArray("abcdefghijkl\xe4\xb8") << QStringLiteral("密码必须是有效的 UTF-8 文本");
        QTest::newRow("newline") << QByteArray("abcdefghijkl\n")
                                 << QStringLiteral("密码不能包含控制字符");
        QTest::newRow("nul") << QByteArray("abcdefghijkl\0x", 14)
                             << QStringLiteral("密码不能包含控制字符");
        QTest::newRow("delete") << QByteArray("abcdefghijkl\x7f")
                                << QStringLiteral("密码不能包含控制字符");
        QTest::newRow("c1 control")
            << QByteArray("abcdefghijkl\xc2\x85") << QStringLiteral("密码不能包含控制字符");
    }

    void policy() {
        QFETCH(QByteArray, password);
        QFETCH(QString, refusal);
        const std::string text = password.toStdString();
        QCOMPARE(CPasswordHasher::checkPolicy(text), refusal);
        const QString before = storedHash(*m_database, QStringLiteral("viewer"));
        try {
            m_store->setPassword(QStringLiteral("viewer"), text);
            QVERIFY2(refusal.isEmpty(), "a refused password was stored");
            QVERIFY(storedHash(*m_database, QStringLiteral("viewer")) != before);
        } catch (const CServiceError& e) {
            QCOMPARE(QString::fromStdString(e.what()), refusal);
            QCOMPARE(storedHash(*m_database, QStringLiteral("viewer")), before);
        }
    }

    void generatedPasswords() {
        const std::string a = CPasswordHasher::generate();
        const std::string b = CPasswordHasher::generate();
        QVERIFY(a.size() >= 16);
        QVERIFY(a != b);
        QVERIFY(CPasswordHasher::generate(4).size() >= 16);
        QVERIFY(CPasswordHasher::checkPolicy(a).isEmpty());
        for (char c : a + b)
            QVERIFY2(std::isalnum(static_cast<unsigned char>(c)) &&
                         std::string("0O1lI").find(c) == std::string::npos,
                     std::string(1, c).c_str());
    }

    void accountStore() {
        CAccount admin = m_store->account(QStringLiteral("admin"));
        QVERIFY(admin.enabled && admin.hasPassword);
        QCOMPARE(admin.systemId, -1);
        QVERIFY(admin.rights.count(10385));
        QVERIFY(!m_store->account(QStringLiteral("viewer")).hasPassword);

        m_store->createAccount(QStringLiteral("ops"), 3, {1, 2});
        CAccount ops;
        QVERIFY(m_store->find(QStringLiteral("ops"), &ops));
        QCOMPARE(ops.systemId, 3);
        QCOMPARE(ops.rights, (std::set<int>{1, 2}));
        QVERIFY(ops.enabled && !ops.hasPassword);
        m_store->setRights(QStringLiteral("ops"), {7});
        m_store->setEnabled(QStringLiteral("ops"), false);
        ops = m_store->account(QStringLiteral("ops"));
        QCOMPARE(ops.rights, (std::set<int>{7}));
        QVERIFY(!ops.enabled);

        QVERIFY_EXCEPTION_THROWN(m_store->createAccount(QStringLiteral("ops"), 0, {}),
                                 CServiceError);
        QVERIFY_EXCEPTION_THROWN(m_store->createAccount(QStringLiteral("a b"), 0, {}),
                                 CServiceError);
        QVERIFY_EXCEPTION_THROWN(m_store->createAccount(QString(), 0, {}), CServiceError);
        // 30 characters, 90 bytes: more than a login name may carry.
        QVERIFY_EXCEPTION_THROWN(m_store->createAccount(QString(30, QChar(0x884C)), 0, {}),
                                 CServiceError);
        QVERIFY_EXCEPTION_THROWN(m_store->setEnabled(QStringLiteral("nobody"), true),
                                 CServiceError);
        QVERIFY_EXCEPTION_THROWN(m_store->setRights(QStringLiteral("nobody"), {}), CServiceError);
        QVERIFY(!m_store->find(QStringLiteral("nobody"), &ops));

        const auto all = m_store->accounts();
        QCOMPARE(int(all.size()), 5);
        QCOMPARE(all.front().name, QStringLiteral("admin"));
        QVERIFY(all.front().hasPassword);

        m_store->clearPassword(QStringLiteral("admin"));
        QVERIFY(!m_store->account(QStringLiteral("admin")).hasPassword);
        QVERIFY(storedHash(*m_database, QStringLiteral("admin")).isEmpty());
    }

    void loginOk() {
        CLoginManager manager(*m_database);
        const auto r = manager.login(QStringLiteral("admin"), kPassword, kHere, m_now);
        QVERIFY2(r.ok(), qPrintable(r.message));
        QVERIFY(r.message.isEmpty());
        // 32 random bytes in URL-safe base64.
        QCOMPARE(int(r.token.size()), 43);
        QCOMPARE(r.account.name, QStringLiteral("admin"));
        QCOMPARE(r.account.rights, m_store->account(QStringLiteral("admin")).rights);
        const auto again = manager.login(QStringLiteral("admin"), kPassword, kHere, m_now);
        QVERIFY(again.ok());
        QVERIFY(again.token != r.token);

        const auto auth = manager.authenticate(r.token, m_now + 1000);
        QVERIFY2(auth.ok(), qPrintable(auth.message));
        QCOMPARE(auth.account.name, QStringLiteral("admin"));
        QVERIFY(auth.account.enabled);
        QVERIFY(!manager.authenticate(r.token + "x", m_now).ok());
        QVERIFY(!manager.authenticate(std::string(), m_now).ok());
        QVERIFY(!manager.authenticate("not a token!", m_now).ok());

        // Only the token's hash is in the database.
        m_database->transact(false, [&](QSqlDatabase& db) {
            QSqlQuery q(db);
            q.prepare(QStringLiteral("SELECT token_hash, client_address FROM login_tokens"));
            m_database->exec(q);
            int rows = 0;
            while (q.next()) {
                ++rows;
                QVERIFY(q.value(0).toString() != QString::fromStdString(r.token));
                QCOMPARE(q.value(1).toString(), kHere);
            }
            QCOMPARE(rows, 2);
        });
        QVERIFY(manager.authenticate(r.token, m_now + 2000).ok());
    }

    void refusalsLookAlike() {
        m_store->createAccount(QStringLiteral("off"), 0, {});
        m_store->setPassword(QStringLiteral("off"), kPassword);
        m_store->setEnabled(QStringLiteral("off"), false);
        CLoginManager manager(*m_database);
        struct Case {
            QString name;
            std::string password;
            Reason reason;
        };
        const std::vector<Case> cases = {
            {QStringLiteral("admin"), "wrong password!", Reason::WrongPassword},
            {QStringLiteral("nobody"), kPassword, Reason::UnknownAccount},
            {QStringLiteral("off"), "wrong password!", Reason::WrongPassword},
            {QStringLiteral("viewer"), kPassword, Reason::NoPassword},
        };
        for (const Case& c : cases) {
            const quint64 verifies = manager.verifyCount();
            const auto r = manager.login(c.name, c.password, kHere, m_now);
            QVERIFY(!r.ok());
            QCOMPARE(r.reason, c.reason);
            QCOMPARE(r.message, QStringLiteral("用户名或密码错误"));
            QVERIFY(r.token.empty());
            QVERIFY(r.account.name.isEmpty());
            // The unknown and the password-less account cost one Argon2 check like the others.
            QCOMPARE(manager.verifyCount(), verifies + 1);
        }
    }

    void disabledAccountToldWithItsPassword() {
        m_store->createAccount(QStringLiteral("off"), 0, {});
        m_store->setPassword(QStringLiteral("off"), kPassword);
        m_store->setEnabled(QStringLiteral("off"), false);
        CLoginManager manager(*m_database);
        // Only who knows the password learns that the account exists and is disabled.
        auto r = manager.login(QStringLiteral("off"), kPassword, kHere, m_now);
        QCOMPARE(r.reason, Reason::AccountDisabled);
        QCOMPARE(r.message, QStringLiteral("账户已停用"));
        QVERIFY(r.token.empty());
        r = manager.login(QStringLiteral("off"), "wrong password!", kHere, m_now);
        QCOMPARE(r.message, QStringLiteral("用户名或密码错误"));
    }

    void lockedPerAccountAndAddress() {
        CLoginManager manager(*m_database);  // default: 30 s base
        const QString attacker = QStringLiteral("10.66.0.1");
        failTimes(manager, QStringLiteral("admin"), attacker, 5, m_now);
        const quint64 verifies = manager.verifyCount();
        // From the address that failed, even the right password is refused unchecked.
        auto r = manager.login(QStringLiteral("admin"), kPassword, attacker, m_now);
        QCOMPARE(r.reason, Reason::ThrottledAccount);
        QCOMPARE(r.message, QStringLiteral("登录失败次数过多，请 30 秒后再试"));
        QVERIFY(r.token.empty());
        QCOMPARE(manager.verifyCount(), verifies);
        // Whole seconds, rounded up.
        r = manager.login(QStringLiteral("admin"), kPassword, attacker, m_now + 10200);
        QCOMPARE(r.message, QStringLiteral("登录失败次数过多，请 20 秒后再试"));
        // Nobody else is held up: the account from another address, another account from this
        // one.
        r = manager.login(QStringLiteral("admin"), kPassword, kHere, m_now);
        QVERIFY2(r.ok(), qPrintable(r.message));
        m_store->setPassword(QStringLiteral("viewer"), kPassword);
        QVERIFY(manager.login(QStringLiteral("viewer"), kPassword, attacker, m_now).ok());
        // Once the interval has passed the right password works from there too.
        r = manager.login(QStringLiteral("admin"), kPassword, attacker, m_now + 30000);
        QVERIFY2(r.ok(), qPrintable(r.message));
    }

    void unknownNamesNeverLockAnAccount() {
        CLoginManager manager(*m_database, fastLockout());
        const QString jumpHost = QStringLiteral("10.66.0.2");
        for (int i = 0; i < 5; ++i) {
            const auto r = manager.login(QStringLiteral("mallory"), kPassword, jumpHost, m_now);
            QCOMPARE(r.reason, Reason::UnknownAccount);
        }
        const quint64 verifies = manager.verifyCount();
        // Further names that are no account are refused unchecked from that address...
        auto r = manager.login(QStringLiteral("guess"), kPassword, jumpHost, m_now + 500);
        QCOMPARE(r.reason, Reason::ThrottledAddress);
        QCOMPARE(r.message, QStringLiteral("登录失败次数过多，请 2 秒后再试"));
        QCOMPARE(manager.verifyCount(), verifies);
        // ...but a real account behind the same address logs in.
        r = manager.login(QStringLiteral("admin"), kPassword, jumpHost, m_now + 500);
        QVERIFY2(r.ok(), qPrintable(r.message));
        QCOMPARE(manager.verifyCount(), verifies + 1);
    }

    void countersLiveInTheDatabase() {
        CLoginManager first(*m_database, fastLockout());
        failTimes(first, QStringLiteral("admin"), kHere, 5, m_now);
        // Another server on the database, and this one after a restart, enforce them.
        auto otherDatabase = openDatabase();
        QVERIFY(otherDatabase);
        CLoginManager second(*otherDatabase, fastLockout());
        QCOMPARE(second.login(QStringLiteral("admin"), kPassword, kHere, m_now).reason,
                 Reason::ThrottledAccount);
        CLoginManager restarted(*m_database, fastLockout());
        QCOMPARE(restarted.login(QStringLiteral("admin"), kPassword, kHere, m_now).reason,
                 Reason::ThrottledAccount);
    }

    void failuresFromManyAddressesReported() {
        CLoginManager manager(*m_database, fastLockout());
        int reported = 0;
        for (int i = 1; i <= 5; ++i) {
            const auto r = manager.login(QStringLiteral("admin"), "wrong password!",
                                         QStringLiteral("10.9.0.%1").arg(i), m_now);
            QCOMPARE(r.reason, Reason::WrongPassword);
            reported = r.failingAddresses;
            QCOMPARE(reported, i < 5 ? 0 : 5);
        }
        // Reported, not locked: a clean address still logs in.
        const auto r = manager.login(QStringLiteral("admin"), kPassword, kHere, m_now);
        QVERIFY2(r.ok(), qPrintable(r.message));
    }

    void unlockClearsCounters() {
        CLoginManager manager(*m_database, fastLockout());
        failTimes(manager, QStringLiteral("admin"), kHere, 5, m_now);
        QCOMPARE(manager.login(QStringLiteral("admin"), kPassword, kHere, m_now).reason,
                 Reason::ThrottledAccount);
        const auto owner = CEmbeddedAdmin::asOwner(m_service);
        QVERIFY(owner->unlockLogins("admin", "").isSuccess());
        QVERIFY(manager.login(QStringLiteral("admin"), kPassword, kHere, m_now).ok());
        // By address: every name failed from it.
        failTimes(manager, QStringLiteral("admin"), kHere, 5, m_now);
        QVERIFY(owner->unlockLogins("", kHere.toStdString()).isSuccess());
        QVERIFY(manager.login(QStringLiteral("admin"), kPassword, kHere, m_now).ok());
        // Only the administrator may.
        const CCaller viewerCaller = CCaller::user("viewer", {});
        CEmbeddedAdmin viewer(m_service, [viewerCaller] { return viewerCaller; });
        QVERIFY(!viewer.unlockLogins("admin", "").isSuccess());
    }

    void lastAdministratorStays() {
        const auto owner = CEmbeddedAdmin::asOwner(m_service);
        const std::string refusal = "不能移除最后一个管理员";
        auto check = [&](const utils::RKError& error) {
            QVERIFY(!error.isSuccess());
            QCOMPARE(QString::fromStdString(error.errorMsg()), QString::fromStdString(refusal));
        };
        check(owner->setAccountEnabled("admin", false));
        check(owner->setRights("admin", {Hlx::CRightsTable::kWholeQuoteSave}));
        CAccount admin;
        QVERIFY(m_store->find(QStringLiteral("admin"), &admin));
        QVERIFY(admin.enabled);
        QVERIFY(admin.rights.count(Hlx::CRightsTable::kAdminister));
        // With a second administrator either may go.
        QVERIFY(owner->setRights("viewer", {Hlx::CRightsTable::kAdminister}).isSuccess());
        QVERIFY(owner->setAccountEnabled("admin", false).isSuccess());
        check(owner->setRights("viewer", {}));
    }

    void unknownRightIsInvalid() {
        const auto owner = CEmbeddedAdmin::asOwner(m_service);
        const utils::RKError error =
            owner->setRights("viewer", {Hlx::CRightsTable::kAdminister, 7});
        QCOMPARE(error.kind(), utils::ErrorKind::Invalid);
        QCOMPARE(QString::fromStdString(error.errorMsg()), QStringLiteral("未知权限 7"));
    }

    // A type no right belongs to is a bad request, for a caller without rights too.
    void unknownTradeTypeIsInvalid() {
        const CCaller viewerCaller = CCaller::user("viewer", {});
        CEmbeddedAdmin viewer(m_service, [viewerCaller] { return viewerCaller; });
        rkservice::COperateDataReq request;
        request.dataType = rkservice::kDataQuoteSources;
        request.operateType = rkservice::kOperateAdd;
        request.datas = {RecordBuilders::source(0, 10000, 0, "10.0.0.1", 9000)};
        const utils::RKError error =
            viewer.operate(Hlx::CRequestTarget::subsystem("sys1"), request, nullptr);
        QCOMPARE(error.kind(), utils::ErrorKind::Invalid);
        QCOMPARE(QString::fromStdString(error.errorMsg()), QStringLiteral("未知交易类型 0"));
    }

    void lockoutGrows() {
        CLoginManager manager(*m_database, fastLockout());  // 2 s, doubling, at most 16 s
        failTimes(manager, QStringLiteral("admin"), kHere, 5, m_now);
        QCOMPARE(manager.login(QStringLiteral("admin"), kPassword, kHere, m_now).message,
                 QStringLiteral("登录失败次数过多，请 2 秒后再试"));
        const int expected[] = {4, 8, 16, 16};
        for (int seconds : expected) {
            // Wait out the lockout, then fail once more.
            const quint64 verifies = manager.verifyCount();
            const auto held = manager.login(QStringLiteral("admin"), kPassword, kHere, m_now);
            // Name and address are both held here; either may be named.
            QVERIFY(held.reason == Reason::ThrottledAccount ||
                    held.reason == Reason::ThrottledAddress);
            QCOMPARE(manager.verifyCount(), verifies);
            m_now += 16000;
            failTimes(manager, QStringLiteral("admin"), kHere, 1, m_now);
            QCOMPARE(manager.login(QStringLiteral("admin"), kPassword, kHere, m_now).message,
                     QStringLiteral("登录失败次数过多，请 %1 秒后再试").arg(seconds));
        }
    }

    void successResetsCounters() {
        CLoginManager manager(*m_database, fastLockout());
        failTimes(manager, QStringLiteral("admin"), kHere, 4, m_now);
        QVERIFY(manager.login(QStringLiteral("admin"), kPassword, kHere, m_now).ok());
        failTimes(manager, QStringLiteral("admin"), kHere, 4, m_now);
        // Four after the success: still checked, and still answered.
        const quint64 verifies = manager.verifyCount();
        QVERIFY(manager.login(QStringLiteral("admin"), kPassword, kHere, m_now).ok());
        QCOMPARE(manager.verifyCount(), verifies + 1);
        // Without the reset these would be failures six to nine.
        failTimes(manager, QStringLiteral("admin"), kHere, 5, m_now);
        QCOMPARE(manager.login(QStringLiteral("admin"), kPassword, kHere, m_now).message,
                 QStringLiteral("登录失败次数过多，请 2 秒后再试"));
    }

    void quietCountersForgotten() {
        CLoginManager manager(*m_database, fastLockout());  // forgets after an hour
        failTimes(manager, QStringLiteral("admin"), kHere, 4, m_now);
        m_now += 61 * kMinute;
        failTimes(manager, QStringLiteral("admin"), kHere, 1, m_now);
        // One failure since the counter was forgotten: still checked.
        const quint64 verifies = manager.verifyCount();
        QVERIFY(manager.login(QStringLiteral("admin"), kPassword, kHere, m_now).ok());
        QCOMPARE(manager.verifyCount(), verifies + 1);
    }

    void expiresWhenIdle() {
        CLoginManager manager(*m_database);
        const auto r = manager.login(QStringLiteral("admin"), kPassword, kHere, m_now);
        QVERIFY(r.ok());
        // Each use slides the expiry: three uses just under 30 minutes apart.
        for (int i = 0; i < 3; ++i) {
            m_now += 30 * kMinute - 1;
            const auto auth = manager.authenticate(r.token, m_now);
            QVERIFY2(auth.ok(), qPrintable(auth.message));
        }
        // A use soon after another is not written to the database at once, yet still counts.
        m_now += 5000;
        QVERIFY(manager.authenticate(r.token, m_now).ok());
        m_now += 30 * kMinute - 1;
        QVERIFY(manager.authenticate(r.token, m_now).ok());
        m_now += 30 * kMinute;
        auto auth = manager.authenticate(r.token, m_now);
        QCOMPARE(auth.reason, Reason::TokenExpired);
        QCOMPARE(auth.message, QStringLiteral("登录已过期，请重新登录"));
        QVERIFY(auth.account.name.isEmpty());
        // Gone for good, also for a clock that went back.
        auth = manager.authenticate(r.token, m_now - 10 * kMinute);
        QCOMPARE(auth.reason, Reason::TokenUnknown);
        QCOMPARE(auth.message, QStringLiteral("登录已过期，请重新登录"));
    }

    void lastUseWrittenSparingly() {
        CLoginManager manager(*m_database);
        const auto r = manager.login(QStringLiteral("admin"), kPassword, kHere, m_now);
        QVERIFY(r.ok());
        auto stored = [&] {
            qint64 last = -1;
            m_database->transact(false, [&](QSqlDatabase& db) {
                QSqlQuery q(db);
                q.prepare(QStringLiteral("SELECT last_used_ms FROM login_tokens"));
                m_database->exec(q);
                if (q.next())
                    last = q.value(0).toLongLong();
            });
            return last;
        };
        QCOMPARE(stored(), m_now);
        QVERIFY(manager.authenticate(r.token, m_now + 9999).ok());
        QCOMPARE(stored(), m_now);
        QVERIFY(manager.authenticate(r.token, m_now + 10000).ok());
        QCOMPARE(stored(), m_now + 10000);
        QVERIFY(manager.authenticate(r.token, m_now + 15000).ok());
        QCOMPARE(stored(), m_now + 10000);
    }

    void expiredTokensArePurged() {
        CLoginManager manager(*m_database);
        const auto old = manager.login(QStringLiteral("admin"), kPassword, kHere, m_now);
        const auto fresh =
            manager.login(QStringLiteral("admin"), kPassword, kHere, m_now + 20 * kMinute);
        QVERIFY(old.ok() && fresh.ok());
        // Idle for the timeout plus the write interval another manager may lag behind.
        const qint64 limit = m_now + 30 * kMinute + 10 * 1000;
        QCOMPARE(manager.purgeExpired(m_now + 30 * kMinute), 0);
        QCOMPARE(manager.purgeExpired(limit), 0);
        QCOMPARE(manager.purgeExpired(limit + 1), 1);
        QCOMPARE(manager.purgeExpired(limit + 1), 0);
        QVERIFY(manager.authenticate(fresh.token, limit + 1).ok());
        QCOMPARE(manager.authenticate(old.token, limit + 1).reason, Reason::TokenUnknown);
    }

    void logout() {
        CLoginManager manager(*m_database);
        const auto r = manager.login(QStringLiteral("admin"), kPassword, kHere, m_now);
        const auto other = manager.login(QStringLiteral("admin"), kPassword, kHere, m_now);
        QVERIFY(r.ok() && other.ok());
        QVERIFY(manager.logout(r.token));
        const auto auth = manager.authenticate(r.token, m_now);
        QCOMPARE(auth.reason, Reason::TokenUnknown);
        QCOMPARE(auth.message, QStringLiteral("登录已过期，请重新登录"));
        QVERIFY(!manager.logout(r.token));
        // Only that login ended.
        QVERIFY(manager.authenticate(other.token, m_now).ok());
    }

    void accountChangesCountAtOnce() {
        CLoginManager manager(*m_database);
        const auto r = manager.login(QStringLiteral("admin"), kPassword, kHere, m_now);
        QVERIFY(r.ok());
        QVERIFY(manager.authenticate(r.token, m_now).ok());
        // Changed through another connection to the database, as another server would.
        auto otherDatabase = openDatabase();
        QVERIFY(otherDatabase);
        CAccountStore other(*otherDatabase);
        // Another administrator, so that admin's rights and flag may go.
        other.createAccount(QStringLiteral("admin2"), 0, {Hlx::CRightsTable::kAdminister});
        other.setRights(QStringLiteral("admin"), {42});
        auto auth = manager.authenticate(r.token, m_now + 1);
        QVERIFY(auth.ok());
        QCOMPARE(auth.account.rights, std::set<int>{42});

        other.setEnabled(QStringLiteral("admin"), false);
        auth = manager.authenticate(r.token, m_now + 2);
        QVERIFY(!auth.ok());
        QCOMPARE(auth.message, QStringLiteral("登录已过期，请重新登录"));
        // Enabling again does not revive the old token; a new login works.
        other.setEnabled(QStringLiteral("admin"), true);
        QVERIFY(!manager.authenticate(r.token, m_now + 3).ok());
        const auto again = manager.login(QStringLiteral("admin"), kPassword, kHere, m_now + 3);
        QVERIFY(again.ok());
        // A new password ends the logins made with the old one.
        other.setPassword(QStringLiteral("admin"), "another long password");
        QVERIFY(!manager.authenticate(again.token, m_now + 4).ok());
        QCOMPARE(manager.login(QStringLiteral("admin"), kPassword, kHere, m_now + 4).reason,
                 Reason::WrongPassword);
        QVERIFY(
            manager.login(QStringLiteral("admin"), "another long password", kHere, m_now + 4).ok());
    }

    void enabledFlagReadOnEveryRequest() {
        CLoginManager manager(*m_database);
        const auto r = manager.login(QStringLiteral("admin"), kPassword, kHere, m_now);
        QVERIFY(r.ok());
        // Only the flag, tokens left in place: authenticate itself must look at it.
        auto setFlag = [&](int enabled) {
            m_database->transact(true, [&](QSqlDatabase& db) {
                QSqlQuery q(db);
                q.prepare(QStringLiteral("UPDATE users SET enabled = ? WHERE name = 'admin'"));
                q.addBindValue(enabled);
                m_database->exec(q);
            });
        };
        setFlag(0);
        auto auth = manager.authenticate(r.token, m_now + 1);
        QCOMPARE(auth.reason, Reason::AccountDisabled);
        QCOMPARE(auth.message, QStringLiteral("登录已过期，请重新登录"));
        QVERIFY(auth.account.name.isEmpty());
        setFlag(1);
        auth = manager.authenticate(r.token, m_now + 2);
        QVERIFY2(auth.ok(), qPrintable(auth.message));
    }

    void tokensWorkAcrossManagers() {
        auto secondDatabase = openDatabase();
        QVERIFY(secondDatabase);
        CLoginManager first(*m_database);
        CLoginManager second(*secondDatabase);
        const auto r = first.login(QStringLiteral("admin"), kPassword, kHere, m_now);
        QVERIFY(r.ok());
        auto auth = second.authenticate(r.token, m_now + 1000);
        QVERIFY2(auth.ok(), qPrintable(auth.message));
        QCOMPARE(auth.account.name, QStringLiteral("admin"));
        // Use on the first manager slides the expiry the second one sees.
        m_now += 25 * kMinute;
        QVERIFY(first.authenticate(r.token, m_now).ok());
        m_now += 25 * kMinute;
        auth = second.authenticate(r.token, m_now);
        QVERIFY2(auth.ok(), qPrintable(auth.message));
        // A logout on one ends it on the other.
        QVERIFY(second.logout(r.token));
        QCOMPARE(first.authenticate(r.token, m_now).reason, Reason::TokenUnknown);
    }

    void migratesVersionTwo() {
        m_store.reset();
        m_database.reset();
        m_service.reset();
        QVERIFY(freshStorage());
        {
            auto database = openDatabase();
            QVERIFY(database);
            database->transact(true, [&](QSqlDatabase& db) {
                CSchema::migrate(*database, db, 0, 2);
                database->exec(db, QStringLiteral("INSERT INTO subsystems VALUES ('s', 'S', 0)"));
                database->exec(db, QStringLiteral("INSERT INTO users VALUES ('old', 2)"));
                database->exec(db, QStringLiteral("INSERT INTO user_rights VALUES ('old', 5)"));
                database->exec(db, QStringLiteral("INSERT INTO user_rights VALUES ('old', 9)"));
                database->exec(db, QStringLiteral("INSERT INTO users VALUES ('admin', -1)"));
                database->exec(db,
                               QStringLiteral("INSERT INTO user_rights VALUES ('admin', 10937)"));
            });
            QSqlDatabase probe = database->connection();
            QCOMPARE(CSchema::version(*database, probe), 2);
        }
        QString error;
        m_service = CQuotesService::open(options(), &error);
        QVERIFY2(m_service, qPrintable(error));
        m_database = openDatabase();
        {
            QSqlDatabase probe = m_database->connection();
            QCOMPARE(CSchema::version(*m_database, probe), CSchema::currentVersion());
        }
        CAccountStore store(*m_database);
        const CAccount old = store.account(QStringLiteral("old"));
        QCOMPARE(old.systemId, 2);
        QCOMPARE(old.rights, (std::set<int>{5, 9}));
        // The administrator keeps saving whole-quote settings and administering.
        QCOMPARE(store.account(QStringLiteral("admin")).rights,
                 (std::set<int>{10937, 90001, 90002}));
        QVERIFY(old.enabled);
        QVERIFY(!old.hasPassword);
        CLoginManager manager(*m_database);
        QCOMPARE(manager.login(QStringLiteral("old"), kPassword, kHere, m_now).reason,
                 Reason::NoPassword);
        store.setPassword(QStringLiteral("old"), kPassword);
        const auto r = manager.login(QStringLiteral("old"), kPassword, kHere, m_now);
        QVERIFY2(r.ok(), qPrintable(r.message));
        QCOMPARE(r.account.rights, (std::set<int>{5, 9}));
    }

    // A restored server lets the same people log in; a version-1 document keeps passwords.
    void exportCarriesLoginsToAnotherServer() {
        m_store->setPassword(QStringLiteral("stock_op"), kPassword);
        m_store->setPassword(QStringLiteral("viewer"), kPassword);
        m_store->setEnabled(QStringLiteral("viewer"), false);
        QJsonObject document;
        QString error;
        QVERIFY_OK(m_service->exportDocument(CCaller::owner(), &document));

        QTemporaryDir other;
        CServiceOptions options;
        options.dataDir = other.path();
        const auto restored = CQuotesService::open(options, &error);
        QVERIFY2(restored, qPrintable(error));
        QVERIFY_OK(restored->importDocument(CCaller::owner(), document, {}, nullptr));
        CLoginManager manager(restored->database());
        QVERIFY(manager.login(QStringLiteral("stock_op"), kPassword, kHere, m_now).ok());
        QCOMPARE(manager.login(QStringLiteral("viewer"), kPassword, kHere, m_now).reason,
                 Reason::AccountDisabled);

        // Version 1: no flags, no hashes; the accounts keep theirs.
        QJsonObject old = document;
        old.insert(QStringLiteral("version"), 1);
        QJsonArray users;
        for (const QJsonValue& value : old.value(QLatin1String("users")).toArray()) {
            QJsonObject user = value.toObject();
            user.remove(QStringLiteral("enabled"));
            user.remove(QStringLiteral("passwordHash"));
            users.append(user);
        }
        old.insert(QStringLiteral("users"), users);
        CAccountStore(restored->database())
            .setPassword(QStringLiteral("stock_op"), "another password");
        QVERIFY_OK(restored->importDocument(CCaller::owner(), old, {}, nullptr));
        QVERIFY(manager.login(QStringLiteral("stock_op"), "another password", kHere, m_now).ok());

        // A hash that is not Argon2id, or a missing flag, is refused whole.
        QJsonObject bad = document;
        QJsonArray badUsers = bad.value(QLatin1String("users")).toArray();
        QJsonObject first = badUsers.at(0).toObject();
        first.insert(QStringLiteral("passwordHash"), QStringLiteral("plain text"));
        badUsers.replace(0, first);
        bad.insert(QStringLiteral("users"), badUsers);
        error = failureOf(restored->importDocument(CCaller::owner(), bad, {}, nullptr));
        QVERIFY(!error.isEmpty());
        QVERIFY2(error.contains(QStringLiteral("passwordHash")), qPrintable(error));
        first.insert(QStringLiteral("passwordHash"), QJsonValue(QJsonValue::Null));
        first.remove(QStringLiteral("enabled"));
        badUsers.replace(0, first);
        bad.insert(QStringLiteral("users"), badUsers);
        error = failureOf(restored->importDocument(CCaller::owner(), bad, {}, nullptr));
        QVERIFY(!error.isEmpty());
        QVERIFY2(error.contains(QStringLiteral("enabled")), qPrintable(error));
        QVERIFY(manager.login(QStringLiteral("stock_op"), "another password", kHere, m_now).ok());
    }

    void importKeepsAccountsItNames() {
        m_store->setPassword(QStringLiteral("stock_op"), kPassword);
        CLoginManager manager(*m_database);
        const auto admin = manager.login(QStringLiteral("admin"), kPassword, kHere, m_now);
        const auto stock = manager.login(QStringLiteral("stock_op"), kPassword, kHere, m_now);
        QVERIFY(admin.ok() && stock.ok());
        QJsonObject document;
        QString error;
        QVERIFY_OK(m_service->exportDocument(CCaller::owner(), &document));
        // The document carries each account's hash, never a password.
        const QByteArray text = QJsonDocument(document).toJson();
        QVERIFY(text.contains("$argon2id$"));
        QVERIFY(!text.contains(QByteArray::fromStdString(kPassword)));
        QCOMPARE(document.value(QLatin1String("version")).toInt(), 3);
        // The document drops stock_op and gives admin other rights; futures_op becomes the
        // administrator, since an import must leave one.
        QJsonArray users;
        for (const QJsonValue& value : document.value(QLatin1String("users")).toArray()) {
            QJsonObject user = value.toObject();
            const QString name = user.value(QLatin1String("name")).toString();
            if (name == QLatin1String("stock_op"))
                continue;
            if (name == QLatin1String("admin"))
                user.insert(QStringLiteral("rights"), QJsonArray{77});
            if (name == QLatin1String("futures_op"))
                user.insert(QStringLiteral("rights"),
                            QJsonArray{int(Hlx::CRightsTable::kAdminister)});
            users.append(user);
        }
        document.insert(QStringLiteral("users"), users);
        QVERIFY_OK(m_service->importDocument(CCaller::owner(), document, {}, nullptr));

        const auto auth = manager.authenticate(admin.token, m_now + 1);
        QVERIFY2(auth.ok(), qPrintable(auth.message));
        QCOMPARE(auth.account.rights, std::set<int>{77});
        QVERIFY(m_store->account(QStringLiteral("admin")).hasPassword);
        QVERIFY(manager.login(QStringLiteral("admin"), kPassword, kHere, m_now + 2).ok());
        CAccount gone;
        QVERIFY(!m_store->find(QStringLiteral("stock_op"), &gone));
        QCOMPARE(manager.authenticate(stock.token, m_now + 1).reason, Reason::TokenUnknown);
    }

    void noSecretInTextsOrLogs() {
        MessageCapture capture;
        CLoginManager manager(*m_database, fastLockout());
        const auto ok = manager.login(QStringLiteral("admin"), kPassword, kHere, m_now);
        QVERIFY(ok.ok());
        QStringList texts;
        for (int i = 0; i < 6; ++i)
            texts << manager.login(QStringLiteral("admin"), kPassword + "!", kHere, m_now).message;
        texts << (manager.authenticate(ok.token, m_now).message);
        QVERIFY(manager.logout(ok.token));
        texts << (manager.authenticate(ok.token, m_now).message);
        texts << (manager.authenticate(ok.token + "A", m_now).message);
        QVERIFY(!texts.back().isEmpty());
        const QString password = QString::fromStdString(kPassword);
        const QString token = QString::fromStdString(ok.token);
        for (const QString& text : texts + MessageCapture::lines()) {
            QVERIFY2(!text.contains(password), qPrintable(text));
            QVERIFY2(!text.contains(token), qPrintable(text));
        }
    }

    void authenticateCost() {
        // What reading the account on every request costs (shown, not judged: machines differ).
        CLoginManager manager(*m_database);
        const auto r = manager.login(QStringLiteral("admin"), kPassword, kHere, m_now);
        QVERIFY(r.ok());
        QElapsedTimer timer;
        timer.start();
        const int kRounds = 500;
        for (int i = 0; i < kRounds; ++i)
            QVERIFY(manager.authenticate(r.token, m_now + i).ok());
        qInfo("authenticate: %.1f us each", double(timer.nsecsElapsed()) / kRounds / 1000.0);
    }

    void eightThreadsAtOnce() {
        const int kThreads = 8;
        for (int t = 0; t < kThreads; ++t) {
            m_store->createAccount(QStringLiteral("user%1").arg(t), 0, {t});
            m_store->setPasswordHash(QStringLiteral("user%1").arg(t),
                                     CPasswordHasher::hash(kPassword));
        }
        auto secondDatabase = openDatabase();
        CLoginManager first(*m_database);
        CLoginManager second(*secondDatabase);
        std::atomic<int> failures{0};
        std::atomic<int> authenticated{0};
        std::vector<QThread*> threads;
        for (int t = 0; t < kThreads; ++t) {
            threads.push_back(QThread::create([&, t] {
                CLoginManager& mine = t % 2 ? second : first;
                CLoginManager& theirs = t % 2 ? first : second;
                const QString name = QStringLiteral("user%1").arg(t);
                const QString address = QStringLiteral("10.8.0.%1").arg(t);
                for (int round = 0; round < 2; ++round) {
                    if (mine.login(name, "wrong password!", address, kStart).ok())
                        ++failures;
                    const auto r = mine.login(name, kPassword, address, kStart);
                    if (!r.ok() || !r.account.rights.count(t)) {
                        ++failures;
                        continue;
                    }
                    for (int i = 0; i < 40; ++i) {
                        const auto auth = (i % 2 ? theirs : mine).authenticate(r.token, kStart + i);
                        if (auth.ok() && auth.account.name == name)
                            ++authenticated;
                        else
                            ++failures;
                    }
                    if (!mine.logout(r.token) || theirs.authenticate(r.token, kStart).ok())
                        ++failures;
                }
            }));
        }
        for (QThread* thread : threads)
            thread->start();
        for (QThread* thread : threads) {
            QVERIFY(thread->wait(120000));
            delete thread;
        }
        QCOMPARE(failures.load(), 0);
        QCOMPARE(authenticated.load(), kThreads * 2 * 40);
    }
};

// The same tests on PostgreSQL, where several servers share one database.
class TestAccountsPostgres : public TestAccounts {
    Q_OBJECT

public:
    TestAccountsPostgres(PostgresCluster* postgres, const QString& down)
        : TestAccounts(postgres, down) {}
};

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    return TestDatabases::runBoth<TestAccounts, TestAccountsPostgres>(argc, argv);
}

#include "tst_accounts.moc"
