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
    std::map<int, rkservice::COrinQuoterSourceInfo> byIds(QSqlDatabase& db,
                                                          const QString& subsystem,
                                                          const std::vector<int>& ids) const;
    // The stored source with the id, locked for this transaction; throws when there is none.
    rkservice::COrinQuoterSourceInfoPtr find(QSqlDatabase& db, int id) const;
    // Adds the sources to the sub-system; returns the ids assigned, in order.
    std::vector<int> add(QSqlDatabase& db, const QString& subsystem,
                         const std::vector<rkservice::COrinQuoterSourceInfoPtr>& sources) const;
    // Rewrites the sources named by their ids, within the sub-system (any when empty).
    void modify(QSqlDatabase& db, const QString& subsystem,
                const std::vector<rkservice::COrinQuoterSourceInfoPtr>& sources) const;
    // The stored trade type and platform of the named sources within the sub-system (any when
    // empty); ids not found are left out.
    std::map<int, CStoredKind> kinds(QSqlDatabase& db, const QString& subsystem,
                                     const std::vector<int>& ids) const;
    // Deletes the sources named by their ids, within the sub-system (any when empty).
    void remove(QSqlDatabase& db, const QString& subsystem, const std::vector<int>& ids) const;

    // Checks a source as it would be stored in the sub-system (ignoring the row excludeId).
    void check(QSqlDatabase& db, const QString& subsystem,
               const rkservice::COrinQuoterSourceInfo& source, int excludeId) const;
    // Inserts a row as it is, id included (import).
    void insertRaw(QSqlDatabase& db, const QString& subsystem,
                   const rkservice::COrinQuoterSourceInfo& source) const;
    // Lets the id sequence continue after the largest id present (after an import).
    void resetIdSequence(QSqlDatabase& db) const;

private:
    const CDatabase& m_database;
};
