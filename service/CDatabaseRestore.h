#pragma once

#include <QSqlDatabase>
#include <QString>
#include <memory>

class CDatabase;
class CSecretBox;

// Puts a copy made by CDatabaseBackup in place of a data directory's SQLite database, once the
// copy has proved itself: SQLite's integrity check, a schema this program knows, and a key that
// opens its secrets. The copy is checked in the directory first (a copy of it, never the file
// given), and the database is replaced only while this process holds its exclusive lock, so a
// database that a server or any other program has open is never replaced.
class CDatabaseRestore {
public:
    struct Plan {
        QString backup;   // the copy to restore
        QString dataDir;  // where the database lives (quotes.db)
        // The key file the database is opened with, and the one to check the copy with when
        // it is another (installed in place of the first after the restore).
        QString keyFile;
        QString checkKeyFile;
    };
    struct Outcome {
        QString database;     // the restored database
        QString previous;     // the database it replaced, kept; empty when there was none
        QString previousKey;  // the key file the restore replaced, kept; empty when none
        int schema = 0;       // the copy's schema version (migrated when a server next opens it)
    };

    // Throws CServiceError, having changed nothing, when the copy fails a check or the database
    // is in use.
    static Outcome run(const Plan& plan);

private:
    static QString stage(const Plan& plan);
    static int check(const QString& staged, const CSecretBox& key);
    static void checkIntegrity(QSqlDatabase& db);
    static void replace(const QString& staged, const QString& dataDir, Outcome* outcome);
    static void lockExclusively(CDatabase& live);
    static QString installKey(const Plan& plan);
    static std::unique_ptr<CDatabase> open(const QString& dataDir, const QString& url);
};
