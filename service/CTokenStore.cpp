#include "CTokenStore.h"

#include <QSqlQuery>
#include <QVariant>

#include "CDatabase.h"
#include "CSecretBox.h"

bool CTokenStore::read(QSqlDatabase& db, std::string* token) const {
    QSqlQuery query(db);
    query.prepare(QStringLiteral("SELECT token FROM level2_token WHERE slot = 1"));
    m_database.exec(query);
    if (!query.next())
        return false;
    *token = m_database.secrets()->open(query.value(0).toString());
    return true;
}

void CTokenStore::insert(QSqlDatabase& db, const std::string& token) const {
    write(db, QStringLiteral("INSERT INTO level2_token (slot, token) VALUES (1, ?)"), token);
}

void CTokenStore::update(QSqlDatabase& db, const std::string& token) const {
    write(db, QStringLiteral("UPDATE level2_token SET token = ? WHERE slot = 1"), token);
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
