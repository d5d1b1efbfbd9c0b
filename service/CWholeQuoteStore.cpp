#include "CWholeQuoteStore.h"

#include <QSqlQuery>
#include <QVariant>

#include "CDatabase.h"

CWholeQuoteStore::Flags CWholeQuoteStore::read(QSqlDatabase& db, const QString& subsystem) const {
    Flags flags;
    QSqlQuery query(db);
    query.setForwardOnly(true);
    query.prepare(QStringLiteral("SELECT market, enabled FROM whole_quote WHERE subsystem = ?"));
    query.addBindValue(subsystem);
    m_database.exec(query);
    while (query.next())
        flags[query.value(0).toString()] = query.value(1).toInt() != 0;
    return flags;
}

std::map<QString, CWholeQuoteStore::Flags> CWholeQuoteStore::readAll(QSqlDatabase& db) const {
    std::map<QString, Flags> all;
    QSqlQuery query(db);
    query.setForwardOnly(true);
    query.prepare(QStringLiteral("SELECT subsystem, market, enabled FROM whole_quote"));
    m_database.exec(query);
    while (query.next())
        all[query.value(0).toString()][query.value(1).toString()] = query.value(2).toInt() != 0;
    return all;
}

void CWholeQuoteStore::replace(QSqlDatabase& db, const QString& subsystem,
                               const Flags& flags) const {
    QSqlQuery clear(db);
    clear.prepare(QStringLiteral("DELETE FROM whole_quote WHERE subsystem = ?"));
    clear.addBindValue(subsystem);
    m_database.exec(clear);
    insert(db, subsystem, flags);
}

void CWholeQuoteStore::replaceAll(QSqlDatabase& db, const std::map<QString, Flags>& all) const {
    m_database.exec(db, QStringLiteral("DELETE FROM whole_quote"));
    for (const auto& subsystem : all)
        insert(db, subsystem.first, subsystem.second);
}

void CWholeQuoteStore::insert(QSqlDatabase& db, const QString& subsystem,
                              const Flags& flags) const {
    QSqlQuery insert(db);
    insert.prepare(
        QStringLiteral("INSERT INTO whole_quote (subsystem, market, enabled) VALUES (?, ?, ?)"));
    for (const auto& flag : flags) {
        insert.addBindValue(subsystem);
        insert.addBindValue(flag.first);
        insert.addBindValue(flag.second ? 1 : 0);
        m_database.exec(insert);
    }
}
