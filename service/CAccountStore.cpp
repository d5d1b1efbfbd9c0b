#include "CAccountStore.h"

#include <QSqlQuery>
#include <QVariant>
#include <map>

#include "CDatabase.h"
#include "CPasswordHasher.h"
#include "CServiceError.h"
#include "model/CFieldLimits.h"
#include "model/CRightsTable.h"

namespace {

constexpr int kMaxNameLength = 64;

[[noreturn]] void unknownAccount(const QString& name) {
    throw CServiceError::notFound("用户不存在: " + name.toStdString());
}

}  // namespace

CAccountStore::CAccountStore(CDatabase& database) : m_database(database) {}

void CAccountStore::runHook(QSqlDatabase& db) const {
    if (m_hook)
        m_hook(db);
}

bool CAccountStore::read(const CDatabase& database, QSqlDatabase& db, const QString& name,
                         CAccount* account, std::string* passwordHash) {
    QSqlQuery query(db);
    query.setForwardOnly(true);
    query.prepare(
        QStringLiteral("SELECT name, system_id, enabled, password_hash FROM users WHERE name = ?"));
    query.addBindValue(name);
    database.exec(query);
    if (!query.next())
        return false;
    const QVariant hash = query.value(3);
    account->name = query.value(0).toString();
    account->systemId = query.value(1).toInt();
    account->enabled = query.value(2).toInt() != 0;
    account->hasPassword = !hash.isNull() && !hash.toString().isEmpty();
    if (passwordHash)
        *passwordHash = account->hasPassword ? hash.toString().toStdString() : std::string();
    query.finish();
    account->rights = readRights(database, db, name);
    return true;
}

std::set<int> CAccountStore::readRights(const CDatabase& database, QSqlDatabase& db,
                                        const QString& name) {
    std::set<int> rights;
    QSqlQuery query(db);
    query.setForwardOnly(true);
    query.prepare(QStringLiteral("SELECT right_id FROM user_rights WHERE user_name = ?"));
    query.addBindValue(name);
    database.exec(query);
    while (query.next())
        rights.insert(query.value(0).toInt());
    return rights;
}

void CAccountStore::writeRights(const CDatabase& database, QSqlDatabase& db, const QString& name,
                                const std::set<int>& rights) {
    QSqlQuery clear(db);
    clear.prepare(QStringLiteral("DELETE FROM user_rights WHERE user_name = ?"));
    clear.addBindValue(name);
    database.exec(clear);
    insertRights(database, db, name, rights);
}

void CAccountStore::insertRights(const CDatabase& database, QSqlDatabase& db, const QString& name,
                                 const std::set<int>& rights) {
    QSqlQuery insert(db);
    insert.prepare(QStringLiteral("INSERT INTO user_rights (user_name, right_id) VALUES (?, ?)"));
    for (int id : rights) {
        insert.addBindValue(name);
        insert.addBindValue(id);
        database.exec(insert);
    }
}

void CAccountStore::endLogins(const CDatabase& database, QSqlDatabase& db, const QString& name) {
    QSqlQuery erase(db);
    erase.prepare(QStringLiteral("DELETE FROM login_tokens WHERE user_name = ?"));
    erase.addBindValue(name);
    database.exec(erase);
}

std::vector<CAccount> CAccountStore::accounts() {
    std::vector<CAccount> result;
    m_database.transact(false, [&](QSqlDatabase& db) {
        std::map<QString, size_t> index;
        QSqlQuery query(db);
        query.setForwardOnly(true);
        query.prepare(
            QStringLiteral("SELECT name, system_id, enabled, password_hash IS NOT NULL "
                           "AND password_hash <> '' FROM users ORDER BY name"));
        m_database.exec(query);
        while (query.next()) {
            CAccount account;
            account.name = query.value(0).toString();
            account.systemId = query.value(1).toInt();
            account.enabled = query.value(2).toInt() != 0;
            account.hasPassword = query.value(3).toBool();
            index[account.name] = result.size();
            result.push_back(account);
        }
        QSqlQuery rights(db);
        rights.setForwardOnly(true);
        rights.prepare(QStringLiteral("SELECT user_name, right_id FROM user_rights"));
        m_database.exec(rights);
        while (rights.next()) {
            auto it = index.find(rights.value(0).toString());
            if (it != index.end())
                result[it->second].rights.insert(rights.value(1).toInt());
        }
    });
    return result;
}

bool CAccountStore::find(const QString& name, CAccount* account) {
    bool found = false;
    m_database.transact(
        false, [&](QSqlDatabase& db) { found = read(m_database, db, name, account, nullptr); });
    return found;
}

CAccount CAccountStore::account(const QString& name) {
    CAccount result;
    if (!find(name, &result))
        unknownAccount(name);
    return result;
}

void CAccountStore::checkName(const QString& name) {
    if (name.isEmpty())
        throw CServiceError("用户名不能为空");
    if (name.size() > kMaxNameLength)
        throw CServiceError("用户名最多 " + std::to_string(kMaxNameLength) + " 个字符");
    // A login name longer than this is refused before it is looked at: such an account could
    // never log in.
    const int maxBytes = Hlx::CFieldLimits::of(Hlx::CFieldLimit::UserName).maxBytes;
    if (name.toUtf8().size() > maxBytes)
        throw CServiceError("用户名最多 " + std::to_string(maxBytes) + " 个字节");
    for (const QChar c : name) {
        if (c.isSpace() || c.category() == QChar::Other_Control)
            throw CServiceError("用户名不能包含空白或控制字符");
    }
}

void CAccountStore::createAccount(const QString& name, int systemId, const std::set<int>& rights) {
    checkName(name);
    m_database.transact(true, [&](QSqlDatabase& db) {
        runHook(db);
        CAccount existing;
        if (read(m_database, db, name, &existing, nullptr))
            throw CServiceError::conflict("用户已存在: " + name.toStdString());
        QSqlQuery insert(db);
        insert.prepare(
            QStringLiteral("INSERT INTO users (name, system_id, enabled) VALUES (?, ?, 1)"));
        insert.addBindValue(name);
        insert.addBindValue(systemId);
        m_database.exec(insert);
        writeRights(m_database, db, name, rights);
    });
}

void CAccountStore::setRights(const QString& name, const std::set<int>& rights) {
    m_database.transact(true, [&](QSqlDatabase& db) {
        runHook(db);
        CAccount existing;
        if (!read(m_database, db, name, &existing, nullptr))
            unknownAccount(name);
        const bool hadAdministrator = hasAdministrator(m_database, db);
        writeRights(m_database, db, name, rights);
        keepAdministrator(m_database, db, hadAdministrator);
    });
}

void CAccountStore::update(const QString& name, const QString& assignment, const QVariant& value,
                           bool endsLogins) {
    m_database.transact(true, [&](QSqlDatabase& db) {
        runHook(db);
        const bool hadAdministrator = hasAdministrator(m_database, db);
        QSqlQuery change(db);
        change.prepare(QStringLiteral("UPDATE users SET %1 WHERE name = ?").arg(assignment));
        change.addBindValue(value);
        change.addBindValue(name);
        m_database.exec(change);
        if (change.numRowsAffected() < 1)
            unknownAccount(name);
        if (endsLogins)
            endLogins(m_database, db, name);
        keepAdministrator(m_database, db, hadAdministrator);
    });
}

void CAccountStore::keepAdministrator(const CDatabase& database, QSqlDatabase& db,
                                      bool hadAdministrator) {
    // Without one, only a shell on the server could let anyone administer again.
    if (hadAdministrator && !hasAdministrator(database, db))
        throw CServiceError::refused("不能移除最后一个管理员");
}

void CAccountStore::setEnabled(const QString& name, bool enabled) {
    // A disabled account's tokens go at once, so enabling it again does not revive them.
    update(name, QStringLiteral("enabled = ?"), enabled ? 1 : 0, !enabled);
}

void CAccountStore::setPassword(const QString& name, const std::string& password) {
    const QString refusal = CPasswordHasher::checkPolicy(password);
    if (!refusal.isEmpty())
        throw CServiceError(refusal.toStdString());
    setPasswordHash(name, CPasswordHasher::hash(password));
}

void CAccountStore::setPasswordHash(const QString& name, const std::string& encodedHash) {
    if (encodedHash.empty())
        throw CServiceError("密码摘要为空");
    update(name, QStringLiteral("password_hash = ?"), QString::fromStdString(encodedHash), true);
}

void CAccountStore::clearPassword(const QString& name) {
    update(name, QStringLiteral("password_hash = ?"), QVariant(QVariant::String), true);
}

std::vector<CAccountStore::Row> CAccountStore::rows(const CDatabase& database, QSqlDatabase& db) {
    std::map<QString, std::set<int>> rightsOf;
    QSqlQuery rights(db);
    rights.setForwardOnly(true);
    rights.prepare(QStringLiteral("SELECT user_name, right_id FROM user_rights"));
    database.exec(rights);
    while (rights.next())
        rightsOf[rights.value(0).toString()].insert(rights.value(1).toInt());
    std::vector<Row> result;
    QSqlQuery users(db);
    users.setForwardOnly(true);
    users.prepare(
        QStringLiteral("SELECT name, system_id, enabled, password_hash FROM users ORDER BY name"));
    database.exec(users);
    while (users.next()) {
        Row row;
        row.name = users.value(0).toString();
        row.systemId = users.value(1).toInt();
        row.rights = rightsOf[row.name];
        row.hasLogin = true;
        row.enabled = users.value(2).toInt() != 0;
        row.passwordHash = users.value(3).toString();
        result.push_back(row);
    }
    return result;
}

bool CAccountStore::hasAdministrator(const CDatabase& database, QSqlDatabase& db) {
    QSqlQuery query(db);
    query.prepare(
        QStringLiteral("SELECT count(*) FROM users JOIN user_rights ON user_rights.user_name = "
                       "users.name WHERE users.enabled = 1 AND user_rights.right_id = ?"));
    query.addBindValue(int(Hlx::CRightsTable::kAdminister));
    database.exec(query);
    return query.next() && query.value(0).toInt() > 0;
}

void CAccountStore::writeLogin(const CDatabase& database, QSqlDatabase& db, const Row& row) {
    CAccount current;
    std::string currentHash;
    read(database, db, row.name, &current, &currentHash);
    const QString hash = row.keepsHash ? QString::fromStdString(currentHash) : row.passwordHash;
    // Logins end when the row disables the account or gives it another password.
    if (!row.enabled || currentHash != hash.toStdString())
        endLogins(database, db, row.name);
    QSqlQuery write(db);
    write.prepare(QStringLiteral("UPDATE users SET enabled = ?, password_hash = ? WHERE name = ?"));
    write.addBindValue(row.enabled ? 1 : 0);
    write.addBindValue(hash.isEmpty() ? QVariant(QVariant::String) : QVariant(hash));
    write.addBindValue(row.name);
    database.exec(write);
}

void CAccountStore::removeAllBut(const CDatabase& database, QSqlDatabase& db,
                                 const std::set<QString>& kept) {
    std::vector<QString> gone;
    QSqlQuery existing(db);
    existing.prepare(QStringLiteral("SELECT name FROM users"));
    database.exec(existing);
    while (existing.next()) {
        if (!kept.count(existing.value(0).toString()))
            gone.push_back(existing.value(0).toString());
    }
    existing.finish();
    QSqlQuery erase(db);
    erase.prepare(QStringLiteral("DELETE FROM users WHERE name = ?"));
    for (const QString& name : gone) {
        erase.addBindValue(name);
        database.exec(erase);
    }
}

void CAccountStore::replaceRows(const CDatabase& database, QSqlDatabase& db,
                                const std::vector<Row>& rows) {
    std::set<QString> named;
    for (const Row& row : rows)
        named.insert(row.name);
    database.exec(db, QStringLiteral("DELETE FROM user_rights"));
    removeAllBut(database, db, named);
    QSqlQuery update(db);
    update.prepare(QStringLiteral("UPDATE users SET system_id = ? WHERE name = ?"));
    QSqlQuery insert(db);
    insert.prepare(QStringLiteral("INSERT INTO users (name, system_id) VALUES (?, ?)"));
    for (const Row& row : rows) {
        update.addBindValue(row.systemId);
        update.addBindValue(row.name);
        database.exec(update);
        if (update.numRowsAffected() < 1) {
            insert.addBindValue(row.name);
            insert.addBindValue(row.systemId);
            database.exec(insert);
        }
        if (row.hasLogin)
            writeLogin(database, db, row);
        insertRights(database, db, row.name, row.rights);
    }
}
