#include "CProbeStore.h"

#include <QSqlQuery>
#include <QVariant>

#include "CDatabase.h"

namespace {

Hlx::CProbeResult resultOf(const QSqlQuery& query, int first) {
    Hlx::CProbeResult result;
    result.address = query.value(first).toString().toStdString();
    result.port = query.value(first + 1).toInt();
    result.state = query.value(first + 2).toString().toStdString();
    result.connectUs = query.value(first + 3).toLongLong();
    result.error = query.value(first + 4).toString().toStdString();
    return result;
}

}  // namespace

std::vector<Hlx::CProbeResult> CProbeStore::record(QSqlDatabase& db,
                                                   const std::vector<Hlx::CProbeResult>& probes,
                                                   long long nowMs) const {
    std::vector<Hlx::CProbeResult> results;
    bool changed = false;
    for (Hlx::CProbeResult probe : probes) {
        Hlx::CProbeResult before;
        const bool known = stored(db, probe, &before);
        probe.checkedMs = nowMs;
        probe.sinceMs = known && before.state == probe.state ? before.sinceMs : nowMs;
        store(db, probe);
        addHistory(db, probe);
        if (!known || before.state != probe.state) {
            addChange(db, probe);
            changed = true;
        }
        results.push_back(probe);
    }
    // Delivered at commit and only then, like the audit trail's notifications.
    if (changed && m_database.engine() == CDatabase::PostgreSQL) {
        QSqlQuery notify(db);
        notify.prepare(QStringLiteral("SELECT pg_notify(?, '')"));
        notify.addBindValue(QString::fromLatin1(kChangeChannel));
        m_database.exec(notify);
    }
    return results;
}

bool CProbeStore::stored(QSqlDatabase& db, const Hlx::CProbeResult& probe,
                         Hlx::CProbeResult* out) const {
    QSqlQuery query(db);
    query.prepare(
        QStringLiteral("SELECT state, since_ms FROM probe_status WHERE address = ? AND "
                       "port = ?"));
    query.addBindValue(QString::fromStdString(probe.address));
    query.addBindValue(probe.port);
    m_database.exec(query);
    if (!query.next())
        return false;
    out->state = query.value(0).toString().toStdString();
    out->sinceMs = query.value(1).toLongLong();
    return true;
}

void CProbeStore::store(QSqlDatabase& db, const Hlx::CProbeResult& result) const {
    QSqlQuery query(db);
    query.prepare(QStringLiteral(
        "INSERT INTO probe_status (address, port, state, connect_us, error, since_ms, checked_ms) "
        "VALUES (?, ?, ?, ?, ?, ?, ?) ON CONFLICT (address, port) DO UPDATE SET state = "
        "excluded.state, connect_us = excluded.connect_us, error = excluded.error, since_ms = "
        "excluded.since_ms, checked_ms = excluded.checked_ms"));
    query.addBindValue(QString::fromStdString(result.address));
    query.addBindValue(result.port);
    query.addBindValue(QString::fromStdString(result.state));
    query.addBindValue(result.connectUs);
    query.addBindValue(QString::fromStdString(result.error));
    query.addBindValue(result.sinceMs);
    query.addBindValue(result.checkedMs);
    m_database.exec(query);
}

void CProbeStore::addHistory(QSqlDatabase& db, const Hlx::CProbeResult& result) const {
    QSqlQuery query(db);
    query.prepare(QStringLiteral(
        "INSERT INTO probe_history (address, port, time_ms, state, connect_us, samples, coarse) "
        "VALUES (?, ?, ?, ?, ?, 1, 0)"));
    query.addBindValue(QString::fromStdString(result.address));
    query.addBindValue(result.port);
    query.addBindValue(result.checkedMs);
    query.addBindValue(QString::fromStdString(result.state));
    query.addBindValue(result.connectUs);
    m_database.exec(query);
}

void CProbeStore::addChange(QSqlDatabase& db, const Hlx::CProbeResult& result) const {
    QSqlQuery query(db);
    query.prepare(
        QStringLiteral("INSERT INTO probe_changes (time_ms, address, port, state, "
                       "connect_us, error) VALUES (?, ?, ?, ?, ?, ?)"));
    query.addBindValue(result.sinceMs);
    query.addBindValue(QString::fromStdString(result.address));
    query.addBindValue(result.port);
    query.addBindValue(QString::fromStdString(result.state));
    query.addBindValue(result.connectUs);
    query.addBindValue(QString::fromStdString(result.error));
    m_database.exec(query);
}

std::vector<Hlx::CProbeResult> CProbeStore::status(QSqlDatabase& db) const {
    QSqlQuery query(db);
    query.setForwardOnly(true);
    query.prepare(
        QStringLiteral("SELECT address, port, state, connect_us, error, since_ms, "
                       "checked_ms FROM probe_status ORDER BY address, port"));
    m_database.exec(query);
    std::vector<Hlx::CProbeResult> results;
    while (query.next()) {
        Hlx::CProbeResult result = resultOf(query, 0);
        result.sinceMs = query.value(5).toLongLong();
        result.checkedMs = query.value(6).toLongLong();
        results.push_back(result);
    }
    return results;
}

std::vector<Hlx::CProbeSample> CProbeStore::history(QSqlDatabase& db, const QString& address,
                                                    int port, long long sinceMs) const {
    QSqlQuery query(db);
    query.setForwardOnly(true);
    query.prepare(
        QStringLiteral("SELECT time_ms, state, connect_us, samples FROM probe_history "
                       "WHERE address = ? AND port = ? AND time_ms >= ? ORDER BY "
                       "time_ms"));
    query.addBindValue(address);
    query.addBindValue(port);
    query.addBindValue(sinceMs);
    m_database.exec(query);
    std::vector<Hlx::CProbeSample> samples;
    while (query.next()) {
        samples.push_back({query.value(0).toLongLong(), query.value(1).toString().toStdString(),
                           query.value(2).toLongLong(), query.value(3).toInt()});
    }
    return samples;
}

void CProbeStore::thin(QSqlDatabase& db, long long nowMs) const {
    // Only whole periods, so a period is thinned once and never gets a second point.
    const long long cutoff = (nowMs - kFineMs) / kCoarsePeriodMs * kCoarsePeriodMs;
    QSqlQuery coarse(db);
    // The period is written out: PostgreSQL groups by an expression only when it is the
    // selected one, which two bound values are not.
    coarse.prepare(
        QStringLiteral(
            "INSERT INTO probe_history (address, port, time_ms, state, connect_us, samples, "
            "coarse) "
            "SELECT address, port, (time_ms / %1) * %1, COALESCE(MAX(CASE WHEN state <> "
            "'reachable' "
            "THEN state END), 'reachable'), COALESCE(CAST(AVG(CASE WHEN state = 'reachable' THEN "
            "connect_us END) AS BIGINT), 0), SUM(samples), 1 FROM probe_history WHERE coarse = 0 "
            "AND "
            "time_ms < ? GROUP BY address, port, (time_ms / %1) * %1")
            .arg(kCoarsePeriodMs));
    coarse.addBindValue(cutoff);
    m_database.exec(coarse);
    QSqlQuery fine(db);
    fine.prepare(QStringLiteral("DELETE FROM probe_history WHERE coarse = 0 AND time_ms < ?"));
    fine.addBindValue(cutoff);
    m_database.exec(fine);
    for (const QString& table :
         {QStringLiteral("probe_history"), QStringLiteral("probe_changes")}) {
        QSqlQuery old(db);
        old.prepare(QStringLiteral("DELETE FROM %1 WHERE time_ms < ?").arg(table));
        old.addBindValue(nowMs - kKeptMs);
        m_database.exec(old);
    }
}

std::vector<std::pair<long long, Hlx::CProbeResult>> CProbeStore::changesAfter(
    QSqlDatabase& db, long long lastId) const {
    QSqlQuery query(db);
    query.setForwardOnly(true);
    query.prepare(
        QStringLiteral("SELECT id, address, port, state, connect_us, error, time_ms "
                       "FROM probe_changes WHERE id > ? ORDER BY id"));
    query.addBindValue(lastId);
    m_database.exec(query);
    std::vector<std::pair<long long, Hlx::CProbeResult>> changes;
    while (query.next()) {
        Hlx::CProbeResult result = resultOf(query, 1);
        result.sinceMs = query.value(6).toLongLong();
        result.checkedMs = result.sinceMs;
        changes.emplace_back(query.value(0).toLongLong(), result);
    }
    return changes;
}

long long CProbeStore::lastChangeId(QSqlDatabase& db) const {
    QSqlQuery query(db);
    query.prepare(QStringLiteral("SELECT COALESCE(MAX(id), 0) FROM probe_changes"));
    m_database.exec(query);
    return query.next() ? query.value(0).toLongLong() : 0;
}
