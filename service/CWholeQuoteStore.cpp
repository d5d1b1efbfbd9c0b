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

long long CWholeQuoteStore::revision(QSqlDatabase& db, const QString& subsystem,
                                     bool forUpdate) const {
    QSqlQuery query(db);
    const bool lock = forUpdate && m_database.engine() == CDatabase::PostgreSQL;
    query.prepare(QStringLiteral("SELECT revision FROM whole_quote_revisions WHERE subsystem = ?") +
                  (lock ? QStringLiteral(" FOR UPDATE") : QString()));
    query.addBindValue(subsystem);
    m_database.exec(query);
    // A sub-system added after the revisions came has its first revision until it changes.
    return query.next() ? query.value(0).toLongLong() : 1;
}

long long CWholeQuoteStore::advance(QSqlDatabase& db, const QString& subsystem,
                                    long long current) const {
    QSqlQuery update(db);
    update.prepare(
        QStringLiteral("UPDATE whole_quote_revisions SET revision = ? WHERE subsystem = ?"));
    update.addBindValue(current + 1);
    update.addBindValue(subsystem);
    m_database.exec(update);
    if (update.numRowsAffected() < 1) {
        QSqlQuery insert(db);
        insert.prepare(QStringLiteral(
            "INSERT INTO whole_quote_revisions (subsystem, revision) VALUES (?, ?)"));
        insert.addBindValue(subsystem);
        insert.addBindValue(current + 1);
        m_database.exec(insert);
    }
    return current + 1;
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
