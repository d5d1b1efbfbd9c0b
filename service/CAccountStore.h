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

private:
    static std::set<int> readRights(const CDatabase& database, QSqlDatabase& db,
                                    const QString& name);
    static void writeRights(const CDatabase& database, QSqlDatabase& db, const QString& name,
                            const std::set<int>& rights);
    static void checkName(const QString& name);
    void update(const QString& name, const QString& assignment, const QVariant& value,
                bool endsLogins);

    void runHook(QSqlDatabase& db) const;

    CDatabase& m_database;
    std::function<void(QSqlDatabase&)> m_hook;
};
