#include "CDataDirectory.h"

#include <sys/stat.h>

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QtGlobal>

namespace {

// Takes every permission of group and others away; warns when there were any.
void tighten(const QString& path, mode_t wanted) {
    struct stat info;
    const QByteArray native = QFile::encodeName(path);
    if (::lstat(native.constData(), &info) != 0 || S_ISLNK(info.st_mode))
        return;
    if ((info.st_mode & 077) == 0)
        return;
    if (::chmod(native.constData(), wanted) == 0)
        qWarning("权限过宽，已改为 %o: %s", unsigned(wanted), native.constData());
    else
        qWarning("权限过宽且无法修改: %s", native.constData());
}

}  // namespace

bool CDataDirectory::create(const QString& dir, QString* error) {
    const QFileInfo info(dir);
    if (info.isDir())
        return true;
    if (info.exists() || !QDir().mkpath(dir)) {
        *error = QStringLiteral("无法创建数据目录: %1").arg(dir);
        return false;
    }
    ::chmod(QFile::encodeName(dir).constData(), 0700);
    return true;
}

void CDataDirectory::tightenFile(const QString& path) {
    tighten(path, 0600);
}

bool CDataDirectory::prepare(const QString& dir, QString* error) {
    if (!QFileInfo(dir).isDir())
        return create(dir, error);
    tighten(dir, 0700);
    const QDir directory(dir);
    for (const QString& name : directory.entryList(QDir::Files | QDir::Hidden | QDir::System))
        tighten(directory.filePath(name), 0600);
    return true;
}

QString CDataDirectory::timedName(const QString& dir, const QString& prefix,
                                  const QString& suffix) {
    const QString stamp =
        QDateTime::currentDateTimeUtc().toString(QStringLiteral("yyyyMMdd-HHmmss-zzz"));
    const QDir directory(dir);
    QString path = directory.filePath(prefix + stamp + suffix);
    for (int n = 1; QFileInfo::exists(path); ++n)
        path =
            directory.filePath(QStringLiteral("%1%2-%3%4").arg(prefix, stamp).arg(n).arg(suffix));
    return path;
}
