#pragma once

#include <QSqlDatabase>
#include <string>

class CDatabase;

// The Level-2 token (one for the whole platform), kept sealed. Every call runs inside the
// caller's transaction.
class CTokenStore {
public:
    explicit CTokenStore(const CDatabase& database) : m_database(database) {}

    // Whether a token is stored, and then which, at which revision (may be null). forUpdate locks
    // the row for the transaction (PostgreSQL), so that two changes of one revision take turns.
    bool read(QSqlDatabase& db, std::string* token, long long* revision = nullptr,
              bool forUpdate = false) const;
    // A new token starts at revision 1; an update advances it.
    void insert(QSqlDatabase& db, const std::string& token) const;
    void update(QSqlDatabase& db, const std::string& token) const;
    void remove(QSqlDatabase& db) const;

private:
    void write(QSqlDatabase& db, const QString& sql, const std::string& token) const;

    const CDatabase& m_database;
};
