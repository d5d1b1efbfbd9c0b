#pragma once

#include <QString>
#include <QtGlobal>
#include <atomic>
#include <map>
#include <mutex>
#include <string>

#include "CAccount.h"
#include "CLoginFailures.h"
#include "CSemaphore.h"

class CDatabase;

// Logins of the accounts: checks passwords, hands out tokens and recognises them again. Tokens
// live in the database (only their SHA-256), so every manager on one database accepts the
// tokens of the others. Failures are counted per (account, address) in the database too
// (CLoginFailures), so every manager on it enforces them and a restart keeps them. Thread-safe
// and never sleeps: a throttled attempt is refused at once. Time is passed in, so callers (and
// tests) own the clock.
class CLoginManager {
public:
    struct Options {
        // A token ends after this long without a request.
        qint64 idleTimeoutMs = 30 * 60 * 1000;
        // A token's last use is written to the database at most this often; another manager may
        // therefore end a token up to this much early, never late.
        qint64 lastUsedWriteIntervalMs = 10 * 1000;
        // Failures of an (account, address) pair before its further attempts are refused
        // unchecked; names that are no account count per address only.
        int failuresBeforeLockout = 5;
        // First lockout; it doubles with every further failure, up to lockoutMaxMs.
        qint64 lockoutBaseMs = 30 * 1000;
        qint64 lockoutMaxMs = 15 * 60 * 1000;
        // A counter without failures for this long (and not locked out) is forgotten.
        qint64 forgetFailuresAfterMs = 60 * 60 * 1000;
        // Password checks at once; each Argon2id check takes 64 MiB, the others wait.
        int concurrentPasswordChecks = 4;
        // An account that failed from this many addresses within the forget interval is
        // reported (it still logs in from a clean address).
        int reportedAddresses = 5;
    };

    // Why a login or a token was refused; for the caller's audit log only, never for the client.
    enum class Reason {
        Ok,
        WrongPassword,
        UnknownAccount,
        AccountDisabled,
        NoPassword,
        ThrottledAccount,  // this account from this address
        ThrottledAddress,  // names that are no account, from this address
        TokenUnknown,      // never issued, logged out, or ended by an account change
        TokenExpired,
        ServiceError,
    };

    struct LoginResult {
        Reason reason = Reason::ServiceError;
        QString message;  // empty when ok; Chinese text for the client otherwise
        std::string token;
        CAccount account;  // the account that logged in (empty on refusal)
        // On a failure of an account from many addresses: how many (0 otherwise).
        int failingAddresses = 0;
        bool ok() const { return reason == Reason::Ok; }
    };

    struct AuthResult {
        Reason reason = Reason::ServiceError;
        QString message;
        CAccount account;       // as the database holds it now
        std::string tokenHash;  // names the login's session
        QString expiredName;    // the account whose login just expired (for the audit trail)
        bool ok() const { return reason == Reason::Ok; }
    };

    explicit CLoginManager(CDatabase& database);
    CLoginManager(CDatabase& database, const Options& options);

    CLoginManager(const CLoginManager&) = delete;
    CLoginManager& operator=(const CLoginManager&) = delete;

    // clientAddress keys the per-address throttle (the peer's IP, without the port) and is kept
    // with the token for audit. nowMs: milliseconds since the epoch.
    LoginResult login(const QString& name, const std::string& password,
                      const QString& clientAddress, qint64 nowMs);
    AuthResult authenticate(const std::string& token, qint64 nowMs);
    // Whether the login of the token's hash still lives (known, not idle too long, its account
    // enabled), without counting as a use of it.
    bool isLive(const std::string& tokenHash, qint64 nowMs);
    // True when the token was a live login.
    bool logout(const std::string& token);
    // The logins of every server of the database whose last use is within the idle timeout
    // (as the database knows it, up to the write interval late); throws CServiceError.
    long long liveLogins(qint64 nowMs);
    // Removes tokens idle for longer than the timeout; returns how many. Login calls it now and
    // then; a server may also call it on a timer.
    int purgeExpired(qint64 nowMs);

    // Password checks run so far (each costs an Argon2id computation).
    quint64 verifyCount() const { return m_verifyCount.load(); }
    // The most password checks that ran at once.
    int peakConcurrentChecks() const { return m_checks.peak(); }

    static const QString& wrongCredentialsMessage();
    static const QString& expiredMessage();
    static const QString& disabledMessage();
    static QString throttledMessage(qint64 remainingMs);

private:
    // The stored lockout of the name from the address: the pair for an account, the address
    // for a name that is none.
    qint64 lockedOut(const QString& name, const QString& address, qint64 nowMs, Reason* which);
    // Counts the failure; how many addresses the account failed from lately, when that many
    // are to be reported.
    int recordFailure(const QString& name, const QString& address, bool known, qint64 nowMs);
    void recordSuccess(const QString& name, const QString& address);
    // Now and then: tells the caller to forget quiet counters and purge expired tokens.
    bool housekeepingDue(qint64 nowMs);
    void housekeeping(qint64 nowMs);

    bool checkPassword(const QString& name, const std::string& password, CAccount* account,
                       Reason* reason);
    std::string issueToken(const QString& name, const QString& address, qint64 nowMs);
    bool endToken(const std::string& tokenHash, qint64 seenLastUsedMs);
    void noteUse(const std::string& tokenHash, qint64 nowMs);
    bool readLogin(const std::string& tokenHash, CAccount* account, qint64* storedLastUse);
    // The later of the stored last use and this manager's own.
    qint64 lastUse(const std::string& tokenHash, qint64 storedLastUse);
    void writeLastUse(const std::string& tokenHash, qint64 nowMs);

    CDatabase& m_database;
    const Options m_options;
    std::atomic<quint64> m_verifyCount{0};
    CSemaphore m_checks;

    const CLoginFailures m_failures;
    std::mutex m_mutex;
    // Last use of each token seen by this manager, possibly newer than the database holds.
    std::map<std::string, qint64> m_localLastUse;
    qint64 m_lastHousekeepingMs = 0;
};
