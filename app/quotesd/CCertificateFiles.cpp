#include "CCertificateFiles.h"

#include <sys/stat.h>
#include <unistd.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>

namespace {

const QFileDevice::Permissions kWorldReadable = QFileDevice::ReadOwner | QFileDevice::WriteOwner |
                                                QFileDevice::ReadGroup | QFileDevice::ReadOther;

}  // namespace

CCertificateFiles::CCertificateFiles(const QString& dataDir, const QString& publicDir)
    : m_dataDir(dataDir),
      m_publicDir(publicDir.isEmpty() ? defaultPublicDir(dataDir) : publicDir) {}

QString CCertificateFiles::defaultPublicDir(const QString& dataDir) {
    return QDir::cleanPath(QFileInfo(dataDir).absoluteFilePath()) + QStringLiteral("-public");
}

QString CCertificateFiles::keyPath() const {
    return QDir(m_dataDir).filePath(QStringLiteral("quotesd.key"));
}

QString CCertificateFiles::chainPath() const {
    return QDir(m_dataDir).filePath(QStringLiteral("quotesd.crt"));
}

QString CCertificateFiles::authorityKeyPath() const {
    return QDir(m_dataDir).filePath(QStringLiteral("ca.key"));
}

QString CCertificateFiles::publishedPath() const {
    return QDir(m_publicDir).filePath(QStringLiteral("ca.crt"));
}

bool CCertificateFiles::isSetUp() const {
    return QFileInfo::exists(keyPath()) || QFileInfo::exists(chainPath());
}

bool CCertificateFiles::preparePublicDir(QString* error) const {
    const QByteArray native = QFile::encodeName(m_publicDir);
    if (!QFileInfo(m_publicDir).isDir()) {
        // 0755 whatever the umask: the point of the directory is that everyone can read it.
        if (::mkdir(native.constData(), 0755) != 0 || ::chmod(native.constData(), 0755) != 0) {
            *error = QStringLiteral(
                         "cannot create %1 for the files desktops need: create it (sudo install -d "
                         "-o USER -m 0755 %1) or name another with --public DIR")
                         .arg(m_publicDir);
            return false;
        }
        return true;
    }
    if (::access(native.constData(), W_OK | X_OK) != 0) {
        *error = QStringLiteral("cannot write into %1 (the files desktops need)").arg(m_publicDir);
        return false;
    }
    return true;
}

bool CCertificateFiles::publish(const QByteArray& rootPem, QString* error) const {
    QSaveFile file(publishedPath());
    const bool saved = file.open(QIODevice::WriteOnly) && file.setPermissions(kWorldReadable) &&
                       file.write(rootPem) == rootPem.size() && file.commit();
    if (!saved)
        *error = QStringLiteral("cannot write %1: %2").arg(publishedPath(), file.errorString());
    return saved;
}
