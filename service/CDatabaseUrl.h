#pragma once

#include <QString>

// Where a database is, worked out from a database URL (or the data directory) without touching
// anything: PostgreSQL's connection parameters, or the SQLite file.
class CDatabaseUrl {
public:
    // False with *error set when the URL cannot be used.
    static bool parse(const QString& url, const QString& dataDir, CDatabaseUrl* out,
                      QString* error);
    // Whether the URL carries a password (which other local users can read).
    static bool hasPassword(const QString& url);

    bool postgres = false;
    // SQLite: the file, and whether it is quotes.db of a data directory (rather than a file
    // named by its own URL, whose directory may be shared).
    QString filePath;
    bool inDataDirectory = false;
    // PostgreSQL.
    QString host;
    int port = -1;
    QString user;
    QString password;
    QString database;
    QString options;

private:
    bool parsePostgres(const QString& url, QString* error);
};
