#pragma once

#include <QString>

// How the data service finds and treats its database.
struct CServiceOptions {
    // Directory of the SQLite file; empty = CQuotesService::defaultDataDir().
    QString dataDir;
    // Empty = SQLite file quotes.db in dataDir; "sqlite:///path/file.db" = that SQLite file;
    // "postgresql://user[:password]@[host][:port]/db?host=/socket/dir&port=N" = PostgreSQL.
    QString dbUrl;
    // Seed reference data, sub-systems, permissions and users when the database is created.
    bool seed = true;
    // How long a request waits for a lock held by another writer before it gives up.
    int busyTimeoutMs = 5000;
    // Upper bound of the SQLite file in pages (0 = no bound), so a runaway import cannot fill
    // the disk the console also needs.
    qint64 maxPageCount = 0;
    // WAL with synchronous=FULL: an answered change survives a power cut, not only a crash.
    bool synchronousFull = true;
    // Record every change and refusal in the audit trail (off only to measure what it costs).
    bool auditTrail = true;
};
