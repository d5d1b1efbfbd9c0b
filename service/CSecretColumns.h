#pragma once

#include <QSqlDatabase>
#include <QString>
#include <functional>
#include <string>

class CDatabase;
class CSecretBox;

// Every stored secret at once: the sources' passwords, the Level-2 token and the key check
// value kept in meta. Runs inside the caller's write transaction.
class CSecretColumns {
public:
    // How a stored value reads as plain text (the old key, or none before secrets were sealed).
    using Reader = std::function<std::string(const QString& stored)>;

    // Rewrites every secret sealed under `to` and stores to's check value.
    static void reseal(const CDatabase& database, QSqlDatabase& db, const Reader& read,
                       const CSecretBox& to);
    // Whether the database holds a check value at all, and then whether the box matches it.
    static bool hasCheck(const CDatabase& database, QSqlDatabase& db);
    static bool matches(const CDatabase& database, QSqlDatabase& db, const CSecretBox& box);
};
