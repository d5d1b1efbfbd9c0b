#include "CImportBackups.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>

#include "CPrivateFile.h"
#include "CServiceError.h"

QString CImportBackups::target(const Hlx::CImportOptions& options) const {
    if (!options.backupFile.empty())
        return QString::fromStdString(options.backupFile);
    if (m_dir.isEmpty())
        throw CServiceError("没有数据目录可存放导入前的备份，请指定备份文件");
    // Sortable by time, so the oldest come first by name; a suffix keeps two in one
    // millisecond apart.
    const QString stamp =
        QDateTime::currentDateTimeUtc().toString(QStringLiteral("yyyyMMdd-HHmmss-zzz"));
    const QDir dir(m_dir);
    QString path = dir.filePath(QStringLiteral("import-backup-%1.json").arg(stamp));
    for (int n = 1; QFileInfo::exists(path); ++n)
        path = dir.filePath(QStringLiteral("import-backup-%1-%2.json").arg(stamp).arg(n));
    return path;
}

void CImportBackups::write(const QJsonObject& content, const QString& path) const {
    QString failure;
    if (!CPrivateFile::write(path, QJsonDocument(content).toJson(QJsonDocument::Indented),
                             &failure))
        throw CServiceError::unavailable("导入前备份失败，未导入: " + failure.toStdString());
    if (!m_dir.isEmpty() && QFileInfo(path).absolutePath() == QDir(m_dir).absolutePath())
        prune();
}

void CImportBackups::prune() const {
    QStringList names =
        QDir(m_dir).entryList({QStringLiteral("import-backup-*.json")}, QDir::Files, QDir::Name);
    while (names.size() > kKept)
        QFile::remove(QDir(m_dir).filePath(names.takeFirst()));
}
