#pragma once

#include <QSqlDatabase>

class CDatabase;

// The versioned database schema and its forward migrations.
class CSchema {
public:
    // The version this code writes and understands.
    static int currentVersion();
    // The first version that stores the secrets sealed.
    static int sealedSince() { return 4; }
    // The version of the open database; 0 when it holds no schema yet.
    static int version(const CDatabase& database, QSqlDatabase& db);
    // Applies the migrations after `from` up to and including `to`. Runs inside the caller's
    // write transaction, so a failed step leaves the database as it was.
    static void migrate(const CDatabase& database, QSqlDatabase& db, int from, int to);
};
