#include "CDatabaseRestore.h"

#include <fcntl.h>
#include <unistd.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSqlQuery>
#include <QVariant>
#include <cerrno>
#include <cstring>

#include "CDataDirectory.h"
#include "CDatabase.h"
#include "CSchema.h"
#include "CSecretBox.h"
#include "CSecretColumns.h"
#include "CSecretKeyFile.h"
#include "CServiceError.h"

namespace {

CServiceError systemFailure(const std::string& what, const QString& path) {
    return CServiceError::unavailable(what + ": " + path.toStdString() + ": " + strerror(errno));
}

void syncDirectory(const QString& dir) {
    const int fd = ::open(QFile::encodeName(dir).constData(), O_RDONLY | O_CLOEXEC);
    if (fd >= 0) {
        ::fsync(fd);
        ::close(fd);
    }
}

}  // namespace

CDatabaseRestore::Outcome CDatabaseRestore::run(const Plan& plan) {
    const CSecretBox key = CSecretKeyFile::read(plan.checkKeyFile);
    Outcome outcome;
    const QString staged = stage(plan);
    try {
        outcome.schema = check(staged, key);
        replace(staged, plan.dataDir, &outcome);
    } catch (...) {
        QFile::remove(staged);
        throw;
    }
    outcome.previousKey = installKey(plan);
    return outcome;
}

QString CDatabaseRestore::stage(const Plan& plan) {
    // Makes the directory 0700 when it is missing, and the database file (empty) with 0600.
    open(plan.dataDir, QString());
    const QString staged =
        CDataDirectory::timedName(plan.dataDir, QStringLiteral("restore-"), QStringLiteral(".db"));
    if (!QFileInfo(plan.backup).isFile())
        throw CServiceError("无法读取备份文件: " + plan.backup.toStdString());
    if (!QFile::copy(plan.backup, staged))
        throw systemFailure("无法复制备份文件", staged);
    QFile::setPermissions(staged, QFileDevice::ReadOwner | QFileDevice::WriteOwner);
    return staged;
}

int CDatabaseRestore::check(const QString& staged, const CSecretBox& key) {
    std::unique_ptr<CDatabase> copy =
        open(QString(), QStringLiteral("sqlite://") + QFileInfo(staged).absoluteFilePath());
    int schema = 0;
    try {
        QSqlDatabase db = copy->connection();
        checkIntegrity(db);
        schema = CSchema::version(*copy, db);
        if (schema >= CSchema::sealedSince() && !CSecretColumns::matches(*copy, db, key))
            throw CServiceError("密钥与备份不符，未恢复");
    } catch (const CServiceError& e) {
        // The database's own errors (a file that is no database) say little to the operator.
        if (e.kind() != utils::ErrorKind::Unavailable)
            throw;
        throw CServiceError(std::string("备份不是有效的数据库，未恢复: ") + e.what());
    }
    copy->dropConnection();
    if (schema <= 0)
        throw CServiceError("备份不是本系统的数据库，未恢复");
    if (schema > CSchema::currentVersion())
        throw CServiceError("备份的数据库版本 " + std::to_string(schema) +
                            " 高于本程序支持的版本 " + std::to_string(CSchema::currentVersion()) +
                            "，未恢复");
    return schema;
}

void CDatabaseRestore::checkIntegrity(QSqlDatabase& db) {
    QSqlQuery integrity(db);
    // A file that is no database fails here already.
    if (!integrity.exec(QStringLiteral("PRAGMA integrity_check")) || !integrity.next() ||
        integrity.value(0).toString() != QLatin1String("ok"))
        throw CServiceError("备份未通过一致性检查，未恢复");
}

void CDatabaseRestore::replace(const QString& staged, const QString& dataDir, Outcome* outcome) {
    std::unique_ptr<CDatabase> live = open(dataDir, QString());
    const QString database = live->filePath();
    lockExclusively(*live);
    const QByteArray target = QFile::encodeName(database);
    // The replaced database stays beside it, under a name of its own, until the operator
    // removes it; a link, so that the name quotes.db never goes missing meanwhile.
    if (QFileInfo(database).size() > 0) {
        outcome->previous = CDataDirectory::timedName(
            dataDir, QStringLiteral("quotes-before-restore-"), QStringLiteral(".db"));
        if (::link(target.constData(), QFile::encodeName(outcome->previous).constData()) != 0)
            throw systemFailure("无法保留原数据库", outcome->previous);
    }
    if (::rename(QFile::encodeName(staged).constData(), target.constData()) != 0)
        throw systemFailure("无法替换数据库", database);
    syncDirectory(dataDir);
    outcome->database = database;
    // The lock goes with the connection, on the file now kept as the previous database.
    live->dropConnection();
}

void CDatabaseRestore::lockExclusively(CDatabase& live) {
    QSqlDatabase db = live.connection();
    // Leaving WAL mode needs the only connection to the file (every WAL connection holds a
    // shared lock for its life); it also checkpoints and removes the -wal file, whose frames
    // would otherwise be read into the copy. The rollback journal's exclusive lock then keeps
    // every other connection out until the file is replaced.
    QSqlQuery mode(db);
    const bool alone = mode.exec(QStringLiteral("PRAGMA journal_mode=DELETE")) && mode.next() &&
                       mode.value(0).toString() == QLatin1String("delete");
    mode.finish();
    QSqlQuery begin(db);
    if (!alone || !begin.exec(QStringLiteral("BEGIN EXCLUSIVE")))
        throw CServiceError::unavailable(
            "数据库正被使用（服务器仍在运行？），请先停止使用它的程序，未恢复: " +
            live.filePath().toStdString());
}

QString CDatabaseRestore::installKey(const Plan& plan) {
    if (QFileInfo(plan.checkKeyFile).absoluteFilePath() ==
        QFileInfo(plan.keyFile).absoluteFilePath())
        return QString();
    const CSecretBox key = CSecretKeyFile::read(plan.checkKeyFile);
    QString previous;
    if (CSecretKeyFile::exists(plan.keyFile) &&
        CSecretKeyFile::read(plan.keyFile).key() != key.key()) {
        const QFileInfo key(plan.keyFile);
        previous = CDataDirectory::timedName(
            key.absolutePath(), key.fileName() + QStringLiteral(".before-restore-"), QString());
        if (!QFile::rename(plan.keyFile, previous))
            throw systemFailure("无法保留原密钥文件", plan.keyFile);
    }
    CSecretKeyFile::write(plan.keyFile, key);
    return previous;
}

std::unique_ptr<CDatabase> CDatabaseRestore::open(const QString& dataDir, const QString& url) {
    CServiceOptions options;
    options.dataDir = dataDir;
    options.dbUrl = url;
    // Never waits for another program's lock: the database is in use, and the restore stops.
    options.busyTimeoutMs = 0;
    QString error;
    std::unique_ptr<CDatabase> database = CDatabase::create(options, &error);
    if (!database)
        throw CServiceError::unavailable(error.toStdString());
    return database;
}
