#pragma once

#include <QString>

// How the data service finds and treats its database.
struct CServiceOptions {
    // Directory of the SQLite file; empty = CQuotesService::defaultDataDir().
    QString dataDir;
    // Empty = SQLite file quotes.db in dataDir; "sqlite:///path/file.db" = that SQLite file;
    // "postgresql://user[:password]@[host][:port]/db?host=/socket/dir&port=N" = PostgreSQL.
    QString dbUrl;
    // The key of the stored secrets; empty = secrets.key beside the SQLite file, or in dataDir
    // (default: CQuotesService::defaultDataDir()) for PostgreSQL.
    QString secretsKeyFile;
    // Set up a database (and its key) that holds nothing yet; a server joining a shared
    // database leaves that to the first server.
    bool createMissing = true;
    // Seed reference data, sub-systems, permissions and users when the database is created.
    bool seed = true;
    // Also the sample brokers, whose server groups name documentation-range addresses, when the
    // database is created: for demonstrations and tests, never for a production database.
    bool sampleData = false;
    // How long a request waits for a lock held by another writer before it gives up.
    int busyTimeoutMs = 5000;
    // Upper bound of the SQLite file in pages (0 = no bound), so a runaway import cannot fill
    // the disk the console also needs.
    qint64 maxPageCount = 0;
    // PostgreSQL: how long one statement may run before it is cancelled, and how long the cancel
    // may take before the connection is cut (0: no bound).
    int statementTimeoutMs = 30000;
    int cancelGraceMs = 5000;
    // WAL with synchronous=FULL: an answered change survives a power cut, not only a crash.
    bool synchronousFull = true;
    // Record every change and refusal in the audit trail (off only to measure what it costs).
    bool auditTrail = true;
};
