#pragma once

#include <QSqlDatabase>
#include <QString>
#include <QVariant>
#include <functional>
#include <set>
#include <string>
#include <vector>

#include "CAccount.h"

class CDatabase;

// The accounts in the database: rights, enabled flag and password hash. Each call is one
// transaction and throws CServiceError with the operator's text. Changes that take an account's
// access away (disable, new or cleared password) also end its logins.
class CAccountStore {
public:
    // An account as a backup carries it: its hash, never a password.
    struct Row {
        QString name;
        int systemId = 0;
        std::set<int> rights;
        // Whether the enabled flag and the hash are known (documents of version 2 and later).
        bool hasLogin = false;
        bool enabled = true;
        QString passwordHash;  // Argon2id; empty: no password
        // The document carried no hash (an export without secrets): the stored one stays, and a
        // new account has none.
        bool keepsHash = false;
    };

    explicit CAccountStore(CDatabase& database);

    // Runs inside the transaction of each change, before the change (which reads the state
    // it replaces): the change and what records it commit together.
    void alsoInTransaction(std::function<void(QSqlDatabase&)> hook) { m_hook = std::move(hook); }

    std::vector<CAccount> accounts();
    // False when there is no such account.
    bool find(const QString& name, CAccount* account);
    // Throws "用户不存在" when there is no such account.
    CAccount account(const QString& name);

    void createAccount(const QString& name, int systemId, const std::set<int>& rights);
    void setRights(const QString& name, const std::set<int>& rights);
    void setEnabled(const QString& name, bool enabled);
    // Checks the policy, hashes and stores; the password itself is not kept.
    void setPassword(const QString& name, const std::string& password);
    void setPasswordHash(const QString& name, const std::string& encodedHash);
    void clearPassword(const QString& name);

    // Within the caller's transaction: the account and its stored hash (empty when none set).
    // False when there is no such account.
    static bool read(const CDatabase& database, QSqlDatabase& db, const QString& name,
                     CAccount* account, std::string* passwordHash);
    // Within the caller's transaction: ends every login of the account.
    static void endLogins(const CDatabase& database, QSqlDatabase& db, const QString& name);
    // Within the caller's transaction: every account by name, its hash included (export). The
    // rights are read before the accounts.
    static std::vector<Row> rows(const CDatabase& database, QSqlDatabase& db);
    // Within the caller's transaction: makes the accounts exactly these (import). An account the
    // rows name keeps its logins (and, without a known login, its password and enabled flag);
    // an account they leave out goes, and its logins with it.
    static void replaceRows(const CDatabase& database, QSqlDatabase& db,
                            const std::vector<Row>& rows);
    // Within the caller's transaction: whether an enabled account holds the administrator right.
    static bool hasAdministrator(const CDatabase& database, QSqlDatabase& db);

private:
    static std::set<int> readRights(const CDatabase& database, QSqlDatabase& db,
                                    const QString& name);
    static void writeRights(const CDatabase& database, QSqlDatabase& db, const QString& name,
                            const std::set<int>& rights);
    static void insertRights(const CDatabase& database, QSqlDatabase& db, const QString& name,
                             const std::set<int>& rights);
    static void checkName(const QString& name);
    // Refuses a change that leaves no enabled account with the administrator right when there
    // was one before it.
    static void keepAdministrator(const CDatabase& database, QSqlDatabase& db,
                                  bool hadAdministrator);
    static void writeLogin(const CDatabase& database, QSqlDatabase& db, const Row& row);
    static void removeAllBut(const CDatabase& database, QSqlDatabase& db,
                             const std::set<QString>& kept);
    void update(const QString& name, const QString& assignment, const QVariant& value,
                bool endsLogins);

    void runHook(QSqlDatabase& db) const;

    CDatabase& m_database;
    std::function<void(QSqlDatabase&)> m_hook;
};
