#pragma once

#include <QJsonObject>
#include <QString>

#include "Hlx/IQuotesAdmin.h"

// The copies a real import writes of the content it replaces: in the data directory (the newest
// kKept kept) or where the caller chooses.
class CImportBackups {
public:
    // dir: the data directory, empty when there is none (a PostgreSQL database opened by URL).
    explicit CImportBackups(QString dir) : m_dir(std::move(dir)) {}

    const QString& dir() const { return m_dir; }
    // The caller's file, or the next one in the directory; throws when there is neither.
    QString target(const Hlx::CImportOptions& options) const;
    // Writes the content (0600, through a temporary file); throws when it cannot.
    void write(const QJsonObject& content, const QString& path) const;

private:
    static const int kKept = 10;
    void prune() const;

    QString m_dir;
};
