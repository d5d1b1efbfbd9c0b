#include "CImportBackups.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <cerrno>

#include "CDataDirectory.h"
#include "CDatabase.h"
#include "CPrivateFile.h"
#include "CSecretBox.h"
#include "CServiceError.h"

namespace {

// The first line of a sealed copy; the sealed text follows.
const QByteArray kSealedHeader = QByteArrayLiteral("PanelQuotesManage sealed backup 1\n");

}  // namespace

QString CImportBackups::target(const Hlx::CImportOptions& options) const {
    if (!options.backupFile.empty())
        return QString::fromStdString(options.backupFile);
    if (m_dir.isEmpty())
        throw CServiceError("没有数据目录可存放导入前的备份，请指定备份文件");
    // Sortable by time, so the oldest come first by name.
    return CDataDirectory::timedName(m_dir, QStringLiteral("import-backup-"),
                                     QStringLiteral(".json"));
}

void CImportBackups::write(const QJsonObject& content, const QString& path) const {
    const QByteArray plain = QJsonDocument(content).toJson(QJsonDocument::Compact);
    const QByteArray sealed =
        kSealedHeader + m_database.secrets()->seal(plain.toStdString()).toLatin1() + '\n';
    QString failure;
    if (!CPrivateFile::write(path, sealed, &failure)) {
        const std::string full = CDatabase::outOfSpace(errno) ? "数据库空间已满：" : "";
        throw CServiceError::unavailable(full + "导入前备份失败，未导入: " + failure.toStdString());
    }
}

void CImportBackups::keep(const QString& written) const {
    if (!m_dir.isEmpty() && QFileInfo(written).absolutePath() == QDir(m_dir).absolutePath())
        prune();
}

void CImportBackups::prune() const {
    QStringList names =
        QDir(m_dir).entryList({QStringLiteral("import-backup-*.json")}, QDir::Files, QDir::Name);
    while (names.size() > kKept)
        QFile::remove(QDir(m_dir).filePath(names.takeFirst()));
}

void CImportBackups::reseal(const CSecretBox& old) const {
    if (m_dir.isEmpty())
        return;
    const QDir dir(m_dir);
    for (const QString& name :
         dir.entryList({QStringLiteral("import-backup-*.json")}, QDir::Files, QDir::Name)) {
        QFile file(dir.filePath(name));
        if (!file.open(QIODevice::ReadOnly))
            continue;
        const QByteArray bytes = file.readAll();
        file.close();
        QJsonObject content;
        try {
            content = open(bytes, old);
        } catch (const CServiceError&) {
            // Sealed under another key already, or not a copy of ours: left as it is.
            continue;
        }
        write(content, dir.filePath(name));
    }
}

bool CImportBackups::isSealed(const QByteArray& bytes) {
    return bytes.startsWith(kSealedHeader);
}

QJsonObject CImportBackups::open(const QByteArray& bytes, const CSecretBox& box) {
    if (!isSealed(bytes))
        throw CServiceError("不是加密的导入前备份");
    std::string plain;
    try {
        plain = box.open(bytes.mid(kSealedHeader.size()).trimmed());
    } catch (const CServiceError&) {
        throw CServiceError("无法打开备份: 密钥与备份不符或备份已损坏");
    }
    QJsonParseError parse;
    const QJsonDocument document =
        QJsonDocument::fromJson(QByteArray::fromStdString(plain), &parse);
    if (parse.error != QJsonParseError::NoError || !document.isObject())
        throw CServiceError("备份中的文档无效: " + parse.errorString().toStdString());
    return document.object();
}
