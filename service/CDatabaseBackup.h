#pragma once

#include <QSqlDatabase>
#include <QString>

class CDatabase;

// A consistent copy of a live SQLite database, made while others go on writing: VACUUM INTO
// reads one snapshot (in WAL mode writers keep committing meanwhile) into a new file. The copy
// holds the key's check value as the database does, never the key itself, so a restore can
// tell whether a key file opens it.
class CDatabaseBackup {
public:
    // The next backup-<time>.db in dir (sortable by time, never an existing file).
    static QString target(const QString& dir);
    // Writes the copy of the database behind db to path: mode 0600, through an empty temporary
    // file beside it that is synced and then renamed over path, so a failure leaves no partial
    // copy. Throws CServiceError when it cannot.
    static void write(const CDatabase& database, QSqlDatabase& db, const QString& path);

private:
    static QByteArray createEmpty(const QString& path);
    static void sync(const QByteArray& file);
};
