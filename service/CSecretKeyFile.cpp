#include "CSecretKeyFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <atomic>
#include <cerrno>

#include "CPrivateFile.h"
#include "CServiceError.h"

namespace {

std::string name(const QString& path) {
    return QDir::toNativeSeparators(path).toStdString();
}

void makeDirectory(const QString& dir) {
    if (QFileInfo(dir).isDir())
        return;
    if (!QDir().mkpath(dir))
        throw CServiceError::unavailable("无法创建密钥文件所在目录: " + name(dir));
    QFile::setPermissions(dir,
                          QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
}

}  // namespace

QString CSecretKeyFile::defaultPath(const QString& directory) {
    return QDir(directory).filePath(QStringLiteral("secrets.key"));
}

bool CSecretKeyFile::exists(const QString& path) {
    return QFileInfo::exists(path);
}

CSecretBox CSecretKeyFile::read(const QString& path) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        throw CServiceError::unavailable("无法读取密钥文件: " + name(path));
    QByteArray text = file.read(256).trimmed();
    const QByteArray key = QByteArray::fromBase64(text, QByteArray::AbortOnBase64DecodingErrors);
    text.fill('\0');
    if (key.size() != CSecretBox::kKeyBytes)
        throw CServiceError::unavailable("密钥文件格式错误: " + name(path));
    return CSecretBox(key);
}

void CSecretKeyFile::write(const QString& path, const CSecretBox& box) {
    place(path, box, true);
}

bool CSecretKeyFile::create(const QString& path, const CSecretBox& box) {
    return place(path, box, false);
}

bool CSecretKeyFile::place(const QString& path, const CSecretBox& box, bool replace) {
    makeDirectory(QFileInfo(path).absolutePath());
    static std::atomic<int> serial{0};
    const QString temporary =
        path + QStringLiteral(".%1-%2.tmp").arg(::getpid()).arg(serial.fetch_add(1));
    const QByteArray native = QFile::encodeName(temporary);
    const QByteArray target = QFile::encodeName(path);
    const int fd = ::open(native.constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (fd < 0)
        throw CServiceError::unavailable("无法写入密钥文件: " + name(path));
    const bool written =
        CPrivateFile::writeAll(fd, box.key().toBase64() + '\n') && ::fsync(fd) == 0;
    ::close(fd);
    // rename replaces; link fails with EEXIST when the file exists already.
    const int placed = !written  ? -1
                       : replace ? ::rename(native.constData(), target.constData())
                                 : ::link(native.constData(), target.constData());
    const int cause = errno;
    ::unlink(native.constData());
    if (placed == 0)
        return true;
    if (written && !replace && cause == EEXIST)
        return false;
    throw CServiceError::unavailable("无法写入密钥文件: " + name(path));
}
