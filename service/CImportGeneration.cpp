#include "CImportGeneration.h"

#include <QSqlQuery>
#include <QVariant>
#include <algorithm>

#include "CCaller.h"
#include "CDatabase.h"
#include "CServiceError.h"
#include "model/CStaleRows.h"

void CImportGeneration::advance(QSqlDatabase& db) const {
    m_database.exec(
        db,
        QStringLiteral("UPDATE import_generation SET generation = generation + 1 WHERE slot = 1"));
}

CImportGeneration::Seen CImportGeneration::beforeQuery(QSqlDatabase& db,
                                                       const CCaller& caller) const {
    Seen seen;
    if (caller.session().empty())
        return seen;
    // One statement for both, so that a token's query costs a single extra read.
    QSqlQuery query(db);
    query.prepare(QStringLiteral(
        "SELECT g.generation, t.import_generation FROM import_generation g LEFT JOIN "
        "login_tokens t ON t.token_hash = ? WHERE g.slot = 1"));
    query.addBindValue(QString::fromStdString(caller.session()));
    m_database.exec(query);
    if (!query.next())
        return seen;
    seen.generation = query.value(0).toLongLong();
    seen.tokenRow = !query.value(1).isNull();
    seen.stored = query.value(1).toLongLong();
    return seen;
}

void CImportGeneration::afterQuery(const CCaller& caller, const Seen& seen) {
    const std::string& session = caller.session();
    if (session.empty())
        return;
    if (!seen.tokenRow) {
        std::lock_guard<std::mutex> lock(m_mutex);
        long long& known = m_local[session];
        known = std::max(known, seen.generation);
        return;
    }
    // Written only when it moves, and never back: a slower query of the same login may end
    // after a newer one.
    if (seen.stored >= seen.generation)
        return;
    m_database.transact(true, [&](QSqlDatabase& db) {
        QSqlQuery update(db);
        update.prepare(
            QStringLiteral("UPDATE login_tokens SET import_generation = ? WHERE "
                           "token_hash = ? AND import_generation < ?"));
        update.addBindValue(seen.generation);
        update.addBindValue(QString::fromStdString(session));
        update.addBindValue(seen.generation);
        m_database.exec(update);
    });
}

void CImportGeneration::checkModify(QSqlDatabase& db, const CCaller& caller) const {
    if (caller.session().empty())
        return;
    const long long now = current(db);
    if (sessionGeneration(db, caller.session()) < now)
        refuse();
}

void CImportGeneration::checkDelete(QSqlDatabase& db, const CCaller& caller,
                                    const std::vector<rkservice::COrinQuoterSourceInfoPtr>& sources,
                                    const std::map<int, CStoredKind>& stored) const {
    if (caller.session().empty())
        return;
    checkModify(db, caller);
    // Only the platform: a delete record folds trade types, so its type proves nothing.
    for (const auto& source : sources) {
        const auto found = stored.find(source->m_nId);
        if (found != stored.end() && found->second.platformId != source->m_nPlatformId)
            refuse();
    }
}

long long CImportGeneration::current(QSqlDatabase& db) const {
    QSqlQuery query(db);
    query.prepare(m_database.engine() == CDatabase::PostgreSQL
                      ? QStringLiteral("SELECT generation FROM import_generation WHERE slot = 1 "
                                       "FOR SHARE")
                      : QStringLiteral("SELECT generation FROM import_generation WHERE slot = 1"));
    m_database.exec(query);
    return query.next() ? query.value(0).toLongLong() : 0;
}

long long CImportGeneration::sessionGeneration(QSqlDatabase& db, const std::string& session) const {
    QSqlQuery query(db);
    query.prepare(
        QStringLiteral("SELECT import_generation FROM login_tokens WHERE token_hash = ?"));
    query.addBindValue(QString::fromStdString(session));
    m_database.exec(query);
    if (query.next())
        return query.value(0).toLongLong();
    std::lock_guard<std::mutex> lock(m_mutex);
    const auto found = m_local.find(session);
    return found == m_local.end() ? 0 : found->second;
}

void CImportGeneration::refuse() {
    throw CServiceError::conflict(CStaleRows::kRefusal);
}
