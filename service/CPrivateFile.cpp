#include "CPrivateFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <QDir>
#include <QFileInfo>
#include <cerrno>
#include <cstdio>
#include <cstring>

bool CPrivateFile::writeAll(int fd, const QByteArray& bytes) {
    qint64 done = 0;
    while (done < bytes.size()) {
        const ssize_t n = ::write(fd, bytes.constData() + done, size_t(bytes.size() - done));
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return false;
        done += n;
    }
    return true;
}

bool CPrivateFile::write(const QString& path, const QByteArray& bytes, QString* error) {
    const QFileInfo info(path);
    const QByteArray target = QFile::encodeName(info.absoluteFilePath());
    QByteArray temporary = QFile::encodeName(
        QDir(info.absolutePath()).filePath(QStringLiteral(".%1.XXXXXX").arg(info.fileName())));
    // mkstemp creates the file with mode 0600 whatever the umask.
    const int fd = ::mkstemp(temporary.data());
    if (fd < 0) {
        const int failure = errno;
        *error = QStringLiteral("无法创建文件 %1: %2")
                     .arg(path, QString::fromLocal8Bit(strerror(failure)));
        errno = failure;
        return false;
    }
    bool ok = writeAll(fd, bytes) && ::fsync(fd) == 0;
    const int savedErrno = errno;
    ok = (::close(fd) == 0) && ok;
    if (ok && ::rename(temporary.constData(), target.constData()) == 0)
        return true;
    const int failure = ok ? errno : savedErrno;
    *error =
        QStringLiteral("无法写入文件 %1: %2").arg(path, QString::fromLocal8Bit(strerror(failure)));
    ::unlink(temporary.constData());
    // The caller may tell a full disk from other failures.
    errno = failure;
    return false;
}
