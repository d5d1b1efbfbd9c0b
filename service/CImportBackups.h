#pragma once

#include <QByteArray>
#include <QJsonObject>
#include <QString>

#include "Hlx/IQuotesAdmin.h"

class CDatabase;
class CSecretBox;

// The copies a real import writes of the content it replaces: in the data directory (the newest
// kKept kept) or where the caller chooses. A copy holds every secret, so it is sealed under the
// key of the stored secrets (CSecretBox) like the database itself: a header line, then the
// sealed document.
class CImportBackups {
public:
    // dir: the data directory, empty when there is none (a PostgreSQL database opened by URL).
    // The database gives the key each copy is sealed with.
    CImportBackups(QString dir, const CDatabase& database)
        : m_dir(std::move(dir)), m_database(database) {}

    const QString& dir() const { return m_dir; }
    // The caller's file, or the next one in the directory; throws when there is neither.
    QString target(const Hlx::CImportOptions& options) const;
    // Writes the content sealed (0600, through a temporary file); throws when it cannot.
    void write(const QJsonObject& content, const QString& path) const;
    // Once the change it backs up has committed: the oldest copies in the directory beyond the
    // ones kept go (never before, so that a change that fails costs no older copy).
    void keep(const QString& written) const;

    // Seals the copies in the data directory that the old key opens under the database's key
    // again (after a rekey), so that the one key file opens them all; throws when one cannot
    // be written.
    void reseal(const CSecretBox& old) const;

    // Whether the bytes are a sealed copy (rather than a plain export document).
    static bool isSealed(const QByteArray& bytes);
    // The document a sealed copy holds; throws CServiceError when the key is not the one it
    // was sealed with or the copy is damaged.
    static QJsonObject open(const QByteArray& bytes, const CSecretBox& box);

private:
    static const int kKept = 10;
    void prune() const;

    QString m_dir;
    const CDatabase& m_database;
};
