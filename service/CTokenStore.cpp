#include "CTokenStore.h"

#include <QSqlQuery>
#include <QVariant>

#include "CDatabase.h"
#include "CSecretBox.h"

bool CTokenStore::read(QSqlDatabase& db, std::string* token, long long* revision,
                       bool forUpdate) const {
    QSqlQuery query(db);
    const bool lock = forUpdate && m_database.engine() == CDatabase::PostgreSQL;
    query.prepare(QStringLiteral("SELECT token, revision FROM level2_token WHERE slot = 1") +
                  (lock ? QStringLiteral(" FOR UPDATE") : QString()));
    m_database.exec(query);
    if (!query.next())
        return false;
    *token = m_database.secrets()->open(query.value(0).toString());
    if (revision)
        *revision = query.value(1).toLongLong();
    return true;
}

void CTokenStore::insert(QSqlDatabase& db, const std::string& token) const {
    write(db, QStringLiteral("INSERT INTO level2_token (slot, token) VALUES (1, ?)"), token);
}

void CTokenStore::update(QSqlDatabase& db, const std::string& token) const {
    write(
        db,
        QStringLiteral("UPDATE level2_token SET token = ?, revision = revision + 1 WHERE slot = 1"),
        token);
}

void CTokenStore::remove(QSqlDatabase& db) const {
    m_database.exec(db, QStringLiteral("DELETE FROM level2_token WHERE slot = 1"));
}

void CTokenStore::write(QSqlDatabase& db, const QString& sql, const std::string& token) const {
    QSqlQuery query(db);
    query.prepare(sql);
    query.addBindValue(m_database.secrets()->seal(token));
    m_database.exec(query);
}
