#pragma once

#include <QSqlDatabase>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "CAccessPolicy.h"
#include "rkservice/COrinQuoterSourceInfo.h"

class CCaller;
class CDatabase;

// Refuses a change of quote sources made from rows shown before the latest import. Every real
// import counts the database's generation up; each session remembers the generation of its last
// quote-source query: a login on the token's row (so every server on the database agrees), a
// session without one (the embedded mode) here in memory. A caller without a session is never
// refused.
class CImportGeneration {
public:
    // What a quote-source query read before its rows.
    struct Seen {
        long long generation = 0;
        // The session's stored generation, when it has a token row.
        bool tokenRow = false;
        long long stored = 0;
    };

    explicit CImportGeneration(CDatabase& database) : m_database(database) {}

    // In a real import's transaction, before it changes anything: on PostgreSQL the row lock it
    // takes makes changes that check the generation wait for the import's outcome.
    void advance(QSqlDatabase& db) const;
    // In a quote-source query's transaction, before it reads the rows: a generation read after
    // them could pass rows an import replaced meanwhile.
    Seen beforeQuery(QSqlDatabase& db, const CCaller& caller) const;
    // After the query's transaction, before its answer leaves: the session counts as current.
    void afterQuery(const CCaller& caller, const Seen& seen);

    // In a modify's transaction: throws CServiceError(CStaleRows::kRefusal) when stale.
    void checkModify(QSqlDatabase& db, const CCaller& caller) const;
    // The same for a delete, which also needs each record's platform to be the stored row's.
    void checkDelete(QSqlDatabase& db, const CCaller& caller,
                     const std::vector<rkservice::COrinQuoterSourceInfoPtr>& sources,
                     const std::map<int, CStoredKind>& stored) const;

private:
    // The current generation; locked against an import until the transaction ends.
    long long current(QSqlDatabase& db) const;
    // The session's generation at its last quote-source query; 0 when it never queried.
    long long sessionGeneration(QSqlDatabase& db, const std::string& session) const;
    static void refuse();

    CDatabase& m_database;
    mutable std::mutex m_mutex;
    // Sessions without a token row.
    std::map<std::string, long long> m_local;
};
