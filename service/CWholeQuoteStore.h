#pragma once

#include <QSqlDatabase>
#include <QString>
#include <map>

class CDatabase;

// The whole-quote settings: per sub-system, which markets are pushed whole. Every call runs
// inside the caller's transaction.
class CWholeQuoteStore {
public:
    using Flags = std::map<QString, bool>;  // market -> enabled

    explicit CWholeQuoteStore(const CDatabase& database) : m_database(database) {}

    // The stored flags of one sub-system (markets never set are absent).
    Flags read(QSqlDatabase& db, const QString& subsystem) const;
    // Every sub-system's flags.
    std::map<QString, Flags> readAll(QSqlDatabase& db) const;
    // Makes the sub-system's flags exactly these.
    void replace(QSqlDatabase& db, const QString& subsystem, const Flags& flags) const;
    // The revision of a sub-system's settings (1 until their first change). forUpdate locks it for
    // the transaction (PostgreSQL), so that two saves of one revision take turns.
    long long revision(QSqlDatabase& db, const QString& subsystem, bool forUpdate = false) const;
    // Advances the revision of a sub-system's settings from the one read; answers the new one.
    long long advance(QSqlDatabase& db, const QString& subsystem, long long current) const;
    // Makes the table hold exactly these (import).
    void replaceAll(QSqlDatabase& db, const std::map<QString, Flags>& all) const;

private:
    void insert(QSqlDatabase& db, const QString& subsystem, const Flags& flags) const;

    const CDatabase& m_database;
};
