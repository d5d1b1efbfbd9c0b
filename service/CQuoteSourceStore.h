#pragma once

#include <QSqlDatabase>
#include <QString>
#include <functional>
#include <map>
#include <vector>

#include "CAccessPolicy.h"
#include "rkservice/COrinQuoterSourceInfo.h"

class CDatabase;

// The quote-source table (key "kx_orin_quoter_source"): reads, checked changes and raw rows for
// export and import. Every call runs inside the caller's transaction.
class CQuoteSourceStore {
public:
    // Which rows' passwords a read opens (null: every row's); the others stay empty.
    using PasswordFilter = std::function<bool(const rkservice::COrinQuoterSourceInfo&)>;

    explicit CQuoteSourceStore(const CDatabase& database) : m_database(database) {}

    // Sources of one sub-system (all when empty), of one trade type when filter is set, by id;
    // each tagged with its sub-system.
    std::vector<rkservice::IDataPtr> query(QSqlDatabase& db, const QString& subsystem, bool filter,
                                           int tradeType,
                                           const PasswordFilter& mayRead = PasswordFilter()) const;
    // The stored sources with the ids, within the sub-system (any when empty), by id; ids not
    // found are left out. One indexed statement for a change's few rows, whatever the table holds.
    // forUpdate locks the rows for the transaction (PostgreSQL; SQLite's writer excludes others
    // already), so that a change made elsewhere meanwhile is waited for, not overwritten.
    std::map<int, rkservice::COrinQuoterSourceInfo> byIds(QSqlDatabase& db,
                                                          const QString& subsystem,
                                                          const std::vector<int>& ids,
                                                          bool forUpdate = false) const;
    // What the rights of the stored rows are checked on.
    static std::map<int, CStoredKind> kindsOf(
        const std::map<int, rkservice::COrinQuoterSourceInfo>& stored);
    // Adds the sources to the sub-system; returns the ids assigned, in order.
    std::vector<int> add(QSqlDatabase& db, const QString& subsystem,
                         const std::vector<rkservice::COrinQuoterSourceInfoPtr>& sources) const;
    // Rewrites the sources named by their ids, as stored read them (byIds), each advancing its
    // revision; an id stored lacks is not found. Answers the rows as written (with their new
    // revisions), by id.
    std::map<int, rkservice::COrinQuoterSourceInfo> modify(
        QSqlDatabase& db, const std::map<int, rkservice::COrinQuoterSourceInfo>& stored,
        const std::vector<rkservice::COrinQuoterSourceInfoPtr>& sources) const;
    // Deletes the sources named by their ids, within the sub-system (any when empty).
    void remove(QSqlDatabase& db, const QString& subsystem, const std::vector<int>& ids) const;

    // Checks a source as it would be stored in the sub-system (ignoring the row excludeId); a
    // text equal to the stored row's is kept as it is (CSourceValidator::checkFields).
    void check(QSqlDatabase& db, const QString& subsystem,
               const rkservice::COrinQuoterSourceInfo& source, int excludeId,
               const rkservice::COrinQuoterSourceInfo* stored = nullptr) const;
    // Inserts a row as it is, id included (import).
    void insertRaw(QSqlDatabase& db, const QString& subsystem,
                   const rkservice::COrinQuoterSourceInfo& source) const;
    // Lets the id sequence continue after the largest id present (after an import).
    void resetIdSequence(QSqlDatabase& db) const;

private:
    const CDatabase& m_database;
};
