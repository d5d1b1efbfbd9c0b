#include "CDatabaseBackup.h"

#include <fcntl.h>
#include <unistd.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSqlQuery>
#include <QVariant>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "CDataDirectory.h"
#include "CDatabase.h"
#include "CServiceError.h"

namespace {

std::string failed(const QString& path, int failure) {
    const std::string full = CDatabase::outOfSpace(failure) ? "数据库空间已满：" : "";
    return full + "备份失败: " + path.toStdString() + ": " + strerror(failure);
}

}  // namespace

QString CDatabaseBackup::target(const QString& dir) {
    return CDataDirectory::timedName(dir, QStringLiteral("backup-"), QStringLiteral(".db"));
}

void CDatabaseBackup::write(const CDatabase& database, QSqlDatabase& db, const QString& path) {
    const QByteArray temporary = createEmpty(path);
    try {
        // VACUUM INTO fills an empty file as it finds it, so the copy keeps mode 0600.
        QSqlQuery vacuum(db);
        vacuum.prepare(QStringLiteral("VACUUM INTO ?"));
        vacuum.addBindValue(QFile::decodeName(temporary));
        database.exec(vacuum);
        sync(temporary);
        if (::rename(temporary.constData(), QFile::encodeName(path).constData()) != 0)
            throw CServiceError::unavailable(failed(path, errno));
    } catch (...) {
        ::unlink(temporary.constData());
        throw;
    }
    sync(QFile::encodeName(QFileInfo(path).absolutePath()));
}

QByteArray CDatabaseBackup::createEmpty(const QString& path) {
    const QFileInfo info(path);
    QByteArray temporary = QFile::encodeName(
        QDir(info.absolutePath()).filePath(QStringLiteral(".%1.XXXXXX").arg(info.fileName())));
    // mkstemp creates the file with mode 0600 whatever the umask.
    const int fd = ::mkstemp(temporary.data());
    if (fd < 0)
        throw CServiceError::unavailable(failed(path, errno));
    ::close(fd);
    return temporary;
}

void CDatabaseBackup::sync(const QByteArray& file) {
    const int fd = ::open(file.constData(), O_RDONLY | O_CLOEXEC);
    const bool ok = fd >= 0 && ::fsync(fd) == 0;
    const int failure = errno;
    if (fd >= 0)
        ::close(fd);
    if (!ok)
        throw CServiceError::unavailable(failed(QFile::decodeName(file), failure));
}
