#include "CLoginManager.h"

#include <QSqlQuery>
#include <QVariant>
#include <algorithm>

#include "CAccountStore.h"
#include "CDatabase.h"
#include "CPasswordHasher.h"
#include "CServiceError.h"

namespace {

constexpr int kTokenBytes = 32;
constexpr size_t kMaxTokenLength = 128;
constexpr qint64 kHousekeepingIntervalMs = 60 * 1000;
// Where names that are no account count (empty, never null: a null QString binds as NULL).
const QString kNoAccount = QStringLiteral("");

// The hash an unknown account's attempt is checked against, so that it costs as much as a known
// one and its timing does not tell whether the account exists.
const std::string& dummyHash() {
    static const std::string hash = CPasswordHasher::hash(CPasswordHasher::randomToken(16));
    return hash;
}

bool plausibleToken(const std::string& token) {
    if (token.empty() || token.size() > kMaxTokenLength)
        return false;
    return std::all_of(token.begin(), token.end(), [](char c) {
        return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') ||
               c == '-' || c == '_';
    });
}

// A database that does not answer says so in the words every other call uses.
QString serviceFailure(const CServiceError& e) {
    if (e.kind() == utils::ErrorKind::Unavailable)
        return QString::fromUtf8(CDatabase::kNoResponse);
    return QStringLiteral("登录服务暂时不可用: ") + QString::fromStdString(e.what());
}

CLoginFailures::Rule ruleOf(const CLoginManager::Options& options) {
    CLoginFailures::Rule rule;
    rule.failuresBeforeLockout = options.failuresBeforeLockout;
    rule.baseLockoutMs = options.lockoutBaseMs;
    rule.maxLockoutMs = options.lockoutMaxMs;
    rule.forgetAfterMs = options.forgetFailuresAfterMs;
    return rule;
}

}  // namespace

CLoginManager::CLoginManager(CDatabase& database) : CLoginManager(database, Options()) {}

CLoginManager::CLoginManager(CDatabase& database, const Options& options)
    : m_database(database),
      m_options(options),
      m_checks(options.concurrentPasswordChecks),
      m_failures(database, ruleOf(options)) {
    CPasswordHasher::ensureInitialised();
}

const QString& CLoginManager::wrongCredentialsMessage() {
    static const QString text = QStringLiteral("用户名或密码错误");
    return text;
}

const QString& CLoginManager::expiredMessage() {
    static const QString text = QStringLiteral("登录已过期，请重新登录");
    return text;
}

QString CLoginManager::throttledMessage(qint64 remainingMs) {
    const qint64 seconds = std::max<qint64>(1, (remainingMs + 999) / 1000);
    return QStringLiteral("登录失败次数过多，请 %1 秒后再试").arg(seconds);
}

const QString& CLoginManager::disabledMessage() {
    static const QString text = QStringLiteral("账户已停用");
    return text;
}

qint64 CLoginManager::lockedOut(const QString& name, const QString& address, qint64 nowMs,
                                Reason* which) {
    qint64 wait = 0;
    m_database.transact(false, [&](QSqlDatabase& db) {
        CAccount account;
        const bool known = CAccountStore::read(m_database, db, name, &account, nullptr);
        // A name that is no account waits on its address's counter of such names; a real
        // account only on its own pair, so nobody else's guesses stand in its way.
        wait = m_failures.lockedFor(db, known ? name : kNoAccount, address, nowMs);
        *which = known ? Reason::ThrottledAccount : Reason::ThrottledAddress;
    });
    return wait;
}

int CLoginManager::recordFailure(const QString& name, const QString& address, bool known,
                                 qint64 nowMs) {
    int addresses = 0;
    m_database.transact(true, [&](QSqlDatabase& db) {
        m_failures.recordFailure(db, known ? name : kNoAccount, address, nowMs);
        if (known)
            addresses = m_failures.failingAddresses(db, name, nowMs);
    });
    return addresses >= m_options.reportedAddresses ? addresses : 0;
}

void CLoginManager::recordSuccess(const QString& name, const QString& address) {
    m_database.transact(true, [&](QSqlDatabase& db) { m_failures.clear(db, name, address); });
}

bool CLoginManager::housekeepingDue(qint64 nowMs) {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (nowMs - m_lastHousekeepingMs < kHousekeepingIntervalMs)
        return false;
    m_lastHousekeepingMs = nowMs;
    return true;
}

void CLoginManager::housekeeping(qint64 nowMs) {
    m_database.transact(true, [&](QSqlDatabase& db) { m_failures.forgetQuiet(db, nowMs); });
    purgeExpired(nowMs);
}

bool CLoginManager::checkPassword(const QString& name, const std::string& password,
                                  CAccount* account, Reason* reason) {
    std::string hash;
    bool exists = false;
    m_database.transact(false, [&](QSqlDatabase& db) {
        exists = CAccountStore::read(m_database, db, name, account, &hash);
    });
    // Always one Argon2id check, whatever the account's state, so all refusals cost the same.
    const bool usable = exists && account->hasPassword;
    ++m_verifyCount;
    const CSemaphore::Hold check(m_checks);
    const bool matched = CPasswordHasher::verify(usable ? hash : dummyHash(), password) && usable;
    if (!exists)
        *reason = Reason::UnknownAccount;
    else if (!account->hasPassword)
        *reason = Reason::NoPassword;
    else if (!matched)
        *reason = Reason::WrongPassword;
    else if (!account->enabled)
        *reason = Reason::AccountDisabled;  // told only to who knows the password
    else
        *reason = Reason::Ok;
    return *reason == Reason::Ok;
}

std::string CLoginManager::issueToken(const QString& name, const QString& address, qint64 nowMs) {
    const std::string token = CPasswordHasher::randomToken(kTokenBytes);
    m_database.transact(true, [&](QSqlDatabase& db) {
        QSqlQuery insert(db);
        insert.prepare(QStringLiteral(
            "INSERT INTO login_tokens (token_hash, user_name, client_address, created_ms, "
            "last_used_ms) VALUES (?, ?, ?, ?, ?)"));
        insert.addBindValue(QString::fromStdString(CPasswordHasher::sha256Hex(token)));
        insert.addBindValue(name);
        insert.addBindValue(address);
        insert.addBindValue(nowMs);
        insert.addBindValue(nowMs);
        m_database.exec(insert);
    });
    return token;
}

CLoginManager::LoginResult CLoginManager::login(const QString& name, const std::string& password,
                                                const QString& clientAddress, qint64 nowMs) {
    LoginResult result;
    try {
        if (housekeepingDue(nowMs))
            housekeeping(nowMs);
        const qint64 wait = lockedOut(name, clientAddress, nowMs, &result.reason);
        if (wait > 0) {
            result.message = throttledMessage(wait);
            return result;
        }
        CAccount account;
        if (!checkPassword(name, password, &account, &result.reason)) {
            if (result.reason == Reason::AccountDisabled) {
                result.message = disabledMessage();
                return result;
            }
            const bool known = result.reason != Reason::UnknownAccount;
            result.failingAddresses = recordFailure(name, clientAddress, known, nowMs);
            result.message = wrongCredentialsMessage();
            return result;
        }
        result.token = issueToken(account.name, clientAddress, nowMs);
        result.account = account;
        recordSuccess(name, clientAddress);
    } catch (const CServiceError& e) {
        result.reason = Reason::ServiceError;
        result.message = serviceFailure(e);
        result.token.clear();
        result.account = CAccount();
    }
    return result;
}

bool CLoginManager::endToken(const std::string& tokenHash, qint64 seenLastUsedMs) {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_localLastUse.erase(tokenHash);
    }
    bool ended = false;
    m_database.transact(true, [&](QSqlDatabase& db) {
        QSqlQuery erase(db);
        // With a last use given, only when no other manager has used it since.
        erase.prepare(seenLastUsedMs < 0
                          ? QStringLiteral("DELETE FROM login_tokens WHERE token_hash = ?")
                          : QStringLiteral("DELETE FROM login_tokens WHERE token_hash = ? AND "
                                           "last_used_ms <= ?"));
        erase.addBindValue(QString::fromStdString(tokenHash));
        if (seenLastUsedMs >= 0)
            erase.addBindValue(seenLastUsedMs);
        m_database.exec(erase);
        ended = erase.numRowsAffected() > 0;
    });
    return ended;
}

void CLoginManager::noteUse(const std::string& tokenHash, qint64 nowMs) {
    std::lock_guard<std::mutex> lock(m_mutex);
    qint64& last = m_localLastUse[tokenHash];
    last = std::max(last, nowMs);
}

bool CLoginManager::readLogin(const std::string& tokenHash, CAccount* account,
                              qint64* storedLastUse) {
    bool found = false;
    // One statement, read on every request: a change of rights or a disable made through any
    // manager counts at once. The account exists while its token does (cascading delete).
    m_database.transact(false, [&](QSqlDatabase& db) {
        QSqlQuery query(db);
        query.setForwardOnly(true);
        query.prepare(QStringLiteral(
            "SELECT t.last_used_ms, u.name, u.system_id, u.enabled, u.password_hash, r.right_id "
            "FROM login_tokens t JOIN users u ON u.name = t.user_name LEFT JOIN user_rights r "
            "ON r.user_name = u.name WHERE t.token_hash = ?"));
        query.addBindValue(QString::fromStdString(tokenHash));
        m_database.exec(query);
        while (query.next()) {
            if (!found) {
                found = true;
                *storedLastUse = query.value(0).toLongLong();
                account->name = query.value(1).toString();
                account->systemId = query.value(2).toInt();
                account->enabled = query.value(3).toInt() != 0;
                account->hasPassword = !query.value(4).toString().isEmpty();
            }
            if (!query.value(5).isNull())
                account->rights.insert(query.value(5).toInt());
        }
    });
    return found;
}

qint64 CLoginManager::lastUse(const std::string& tokenHash, qint64 storedLastUse) {
    std::lock_guard<std::mutex> lock(m_mutex);
    auto it = m_localLastUse.find(tokenHash);
    return it == m_localLastUse.end() ? storedLastUse : std::max(storedLastUse, it->second);
}

void CLoginManager::writeLastUse(const std::string& tokenHash, qint64 nowMs) {
    m_database.transact(true, [&](QSqlDatabase& db) {
        QSqlQuery touch(db);
        touch.prepare(QStringLiteral(
            "UPDATE login_tokens SET last_used_ms = ? WHERE token_hash = ? AND last_used_ms < ?"));
        touch.addBindValue(nowMs);
        touch.addBindValue(QString::fromStdString(tokenHash));
        touch.addBindValue(nowMs);
        m_database.exec(touch);
    });
}

CLoginManager::AuthResult CLoginManager::authenticate(const std::string& token, qint64 nowMs) {
    AuthResult result;
    result.message = expiredMessage();
    if (!plausibleToken(token)) {
        result.reason = Reason::TokenUnknown;
        return result;
    }
    const std::string tokenHash = CPasswordHasher::sha256Hex(token);
    try {
        CAccount account;
        qint64 storedLastUse = 0;
        if (!readLogin(tokenHash, &account, &storedLastUse)) {
            std::lock_guard<std::mutex> lock(m_mutex);
            m_localLastUse.erase(tokenHash);
            result.reason = Reason::TokenUnknown;
            return result;
        }
        if (nowMs - lastUse(tokenHash, storedLastUse) >= m_options.idleTimeoutMs) {
            endToken(tokenHash, storedLastUse);
            result.reason = Reason::TokenExpired;
            result.expiredName = account.name;
            return result;
        }
        if (!account.enabled || !account.hasPassword) {
            result.reason = Reason::AccountDisabled;
            return result;
        }
        noteUse(tokenHash, nowMs);
        if (nowMs - storedLastUse >= m_options.lastUsedWriteIntervalMs)
            writeLastUse(tokenHash, nowMs);
        result.account = account;
        result.tokenHash = tokenHash;
    } catch (const CServiceError&) {
        // Not an expired login: the database could not tell. The caller keeps its login.
        result.reason = Reason::ServiceError;
        result.message = QString::fromUtf8(CDatabase::kNoResponse);
        return result;
    }
    result.reason = Reason::Ok;
    result.message.clear();
    return result;
}

bool CLoginManager::isLive(const std::string& tokenHash, qint64 nowMs) {
    try {
        CAccount account;
        qint64 storedLastUse = 0;
        return readLogin(tokenHash, &account, &storedLastUse) &&
               nowMs - lastUse(tokenHash, storedLastUse) < m_options.idleTimeoutMs &&
               account.enabled && account.hasPassword;
    } catch (const CServiceError&) {
        // The database cannot say now; the next check will.
        return true;
    }
}

bool CLoginManager::logout(const std::string& token) {
    if (!plausibleToken(token))
        return false;
    try {
        return endToken(CPasswordHasher::sha256Hex(token), -1);
    } catch (const CServiceError&) {
        return false;
    }
}

long long CLoginManager::liveLogins(qint64 nowMs) {
    const qint64 since = nowMs - m_options.idleTimeoutMs - m_options.lastUsedWriteIntervalMs;
    long long count = 0;
    m_database.transact(false, [&](QSqlDatabase& db) {
        QSqlQuery live(db);
        live.prepare(QStringLiteral("SELECT COUNT(*) FROM login_tokens WHERE last_used_ms >= ?"));
        live.addBindValue(since);
        m_database.exec(live);
        if (live.next())
            count = live.value(0).toLongLong();
    });
    return count;
}

int CLoginManager::purgeExpired(qint64 nowMs) {
    // The database may lag a manager's last use by up to the write interval; wait that much
    // longer so that no token still alive somewhere goes.
    const qint64 before = nowMs - m_options.idleTimeoutMs - m_options.lastUsedWriteIntervalMs;
    int removed = 0;
    m_database.transact(true, [&](QSqlDatabase& db) {
        QSqlQuery erase(db);
        erase.prepare(QStringLiteral("DELETE FROM login_tokens WHERE last_used_ms < ?"));
        erase.addBindValue(before);
        m_database.exec(erase);
        removed = erase.numRowsAffected();
    });
    std::lock_guard<std::mutex> lock(m_mutex);
    for (auto it = m_localLastUse.begin(); it != m_localLastUse.end();) {
        if (nowMs - it->second >= m_options.idleTimeoutMs)
            it = m_localLastUse.erase(it);
        else
            ++it;
    }
    return removed;
}
