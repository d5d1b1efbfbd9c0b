#pragma once

#include <QSqlDatabase>
#include <vector>

#include "Hlx/CProbeResult.h"

class CDatabase;

// The probe tables (schema 8): the last state of each address and port, its history and the
// changes of state. Every call runs inside the caller's transaction.
class CProbeStore {
public:
    // The change feed's channel of new state changes on PostgreSQL.
    static constexpr const char* kChangeChannel = "quotes_probe_changes";
    // History: every probe for the last hour, beyond it one point per period, for a day.
    static constexpr long long kFineMs = 60LL * 60 * 1000;
    static constexpr long long kCoarsePeriodMs = 5LL * 60 * 1000;
    static constexpr long long kKeptMs = 24LL * 60 * 60 * 1000;

    explicit CProbeStore(const CDatabase& database) : m_database(database) {}

    // Records the probes made at nowMs (address, port, state, connect time, error of each):
    // a new state starts its "since" and is a change; the same state keeps it. Answers the
    // results as stored (with since and checked).
    std::vector<Hlx::CProbeResult> record(QSqlDatabase& db,
                                          const std::vector<Hlx::CProbeResult>& probes,
                                          long long nowMs) const;
    // The stored state of every address and port probed.
    std::vector<Hlx::CProbeResult> status(QSqlDatabase& db) const;
    // One address's history since sinceMs, oldest first.
    std::vector<Hlx::CProbeSample> history(QSqlDatabase& db, const QString& address, int port,
                                           long long sinceMs) const;
    // Thins out the history beyond the last hour into periods and drops what is older than a
    // day (the changes too).
    void thin(QSqlDatabase& db, long long nowMs) const;

    // The changes of state after the id, in order (their results carry since = their time).
    std::vector<std::pair<long long, Hlx::CProbeResult>> changesAfter(QSqlDatabase& db,
                                                                      long long lastId) const;
    long long lastChangeId(QSqlDatabase& db) const;

private:
    // The stored state of one address, false when none.
    bool stored(QSqlDatabase& db, const Hlx::CProbeResult& probe, Hlx::CProbeResult* out) const;
    void store(QSqlDatabase& db, const Hlx::CProbeResult& result) const;
    void addHistory(QSqlDatabase& db, const Hlx::CProbeResult& result) const;
    void addChange(QSqlDatabase& db, const Hlx::CProbeResult& result) const;

    const CDatabase& m_database;
};
