#include "CDatabase.h"

#include <fcntl.h>
#include <sqlite3.h>
#include <unistd.h>

#include <QDir>
#include <QFileInfo>
#include <QSqlDriver>
#include <QUrl>
#include <QUrlQuery>
#include <QVariant>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <map>

#include "CCommitNotes.h"
#include "CDataDirectory.h"
#include "CDatabaseUrl.h"
#include "CSecretBox.h"
#include "CServiceError.h"
#include "CStatementWatchdog.h"
#include "IServiceObserver.h"

namespace {

std::atomic<quint64> g_nextSerial{1};
// The advisory lock of the service's PostgreSQL writers ("QUOTES" in ASCII).
const qint64 kWriterLock = 0x51554f544553;
std::atomic<quint64> g_nextConnection{1};

// Databases still alive, by serial: a thread that ends closes its connections only of these.
std::mutex g_registryMutex;
std::map<quint64, CDatabase*> g_live;

// The connections this thread opened, by database serial.
struct ThreadConnections {
    std::map<quint64, QString> names;
    ~ThreadConnections() {
        std::lock_guard<std::mutex> lock(g_registryMutex);
        for (const auto& entry : names) {
            auto it = g_live.find(entry.first);
            if (it != g_live.end())
                it->second->forgetConnection(entry.second);
        }
    }
};

thread_local ThreadConnections t_connections;

// Removing a connection closes it; this also works from a thread other than its own, as when
// the service goes away while worker threads still hold connections.
void closeAndRemove(const QString& name) {
    QSqlDatabase::removeDatabase(name);
}

// The error number of the last system call that failed on SQLite's connection under a Qt
// SQLite driver, 0 for any other driver. SQLite reports a full disk met while it maps or extends
// its shared-memory file, or creates its journal, as an I/O error; the system call says why.
int sqliteSystemErrno(const QSqlDriver* driver) {
    if (!driver)
        return 0;
    const QVariant handle = driver->handle();
    if (!handle.isValid() || qstrcmp(handle.typeName(), "sqlite3*") != 0)
        return 0;
    sqlite3* connection = *static_cast<sqlite3* const*>(handle.constData());
    return connection ? sqlite3_system_errno(connection) : 0;
}

// The libpq connection under a Qt PostgreSQL driver; null for any other driver.
pg_conn* pgConnection(const QSqlDriver* driver) {
    if (!driver)
        return nullptr;
    const QVariant handle = driver->handle();
    if (!handle.isValid() || qstrcmp(handle.typeName(), "PGconn*") != 0)
        return nullptr;
    return *static_cast<pg_conn* const*>(handle.constData());
}

bool containsAny(const QString& text, std::initializer_list<const char*> needles) {
    for (const char* needle : needles) {
        if (text.contains(QLatin1String(needle), Qt::CaseInsensitive))
            return true;
    }
    return false;
}

}  // namespace

const char* const CDatabase::kNoResponse = "数据库无响应";

bool CDatabase::outOfSpace(int systemErrno) {
    return systemErrno == ENOSPC || systemErrno == EDQUOT || systemErrno == EFBIG;
}

std::unique_ptr<CDatabase> CDatabase::create(const CServiceOptions& options, QString* error) {
    std::unique_ptr<CDatabase> db(new CDatabase);
    db->m_serial = g_nextSerial++;
    db->m_busyTimeoutMs = options.busyTimeoutMs > 0 ? options.busyTimeoutMs : 0;
    db->m_maxPageCount = options.maxPageCount;
    db->m_synchronousFull = options.synchronousFull;

    CDatabaseUrl location;
    if (!CDatabaseUrl::parse(options.dbUrl, options.dataDir, &location, error))
        return nullptr;
    const QString driver = location.postgres ? QStringLiteral("QPSQL") : QStringLiteral("QSQLITE");
    if (!QSqlDatabase::isDriverAvailable(driver)) {
        *error = location.postgres
                     ? QStringLiteral("缺少 PostgreSQL 数据库驱动 (QPSQL)，请安装 libqt5sql5-psql")
                     : QStringLiteral("缺少 SQLite 数据库驱动 (QSQLITE)，请安装 libqt5sql5-sqlite");
        return nullptr;
    }
    if (location.postgres) {
        db->m_engine = PostgreSQL;
        db->m_pgHost = location.host;
        db->m_pgPort = location.port;
        db->m_pgUser = location.user;
        db->m_pgPassword = location.password;
        db->m_pgDatabase = location.database;
        db->m_pgOptions = location.options;
        if (options.statementTimeoutMs > 0)
            db->m_watchdog.reset(
                new CStatementWatchdog(std::chrono::milliseconds(options.statementTimeoutMs),
                                       std::chrono::milliseconds(qMax(options.cancelGraceMs, 0))));
    } else if (!db->prepareSqliteFile(location.filePath, location.inDataDirectory, error)) {
        return nullptr;
    }
    std::lock_guard<std::mutex> lock(g_registryMutex);
    g_live[db->m_serial] = db.get();
    return db;
}

bool CDatabase::prepareSqliteFile(const QString& path, bool dataDirectory, QString* error) {
    const QFileInfo info(path);
    // The data directory holds the sources' passwords (sealed) and the key that opens them. A
    // file named by its own URL may share its directory: only the database's files are ours.
    if (dataDirectory ? !CDataDirectory::prepare(info.absolutePath(), error)
                      : !CDataDirectory::create(info.absolutePath(), error))
        return false;
    for (const char* suffix : {"", "-wal", "-shm", "-journal"})
        CDataDirectory::tightenFile(info.absoluteFilePath() + QLatin1String(suffix));
    if (info.exists() && !info.isFile()) {
        *error = QStringLiteral("数据库路径不是文件: %1").arg(info.absoluteFilePath());
        return false;
    }
    if (!info.exists()) {
        // Created here with 0600 so that SQLite's journal files inherit the mode.
        const QByteArray native = QFile::encodeName(info.absoluteFilePath());
        const int fd = ::open(native.constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
        if (fd < 0 && errno != EEXIST) {
            *error = QStringLiteral("无法创建数据库文件: %1").arg(info.absoluteFilePath());
            return false;
        }
        if (fd >= 0)
            ::close(fd);
    }
    m_filePath = info.absoluteFilePath();
    return true;
}

std::shared_ptr<const CSecretBox> CDatabase::secrets() const {
    std::lock_guard<std::mutex> lock(m_secretsMutex);
    if (!m_secrets)
        throw CServiceError::unavailable("密钥尚未载入");
    return m_secrets;
}

void CDatabase::setSecrets(std::shared_ptr<const CSecretBox> box) {
    std::lock_guard<std::mutex> lock(m_secretsMutex);
    m_secrets = std::move(box);
}

CDatabase::~CDatabase() {
    std::lock_guard<std::mutex> registry(g_registryMutex);
    g_live.erase(m_serial);
    std::lock_guard<std::mutex> lock(m_mutex);
    for (const QString& name : m_names)
        closeAndRemove(name);
    m_names.clear();
}

QString CDatabase::description() const {
    if (m_engine == SQLite)
        return QStringLiteral("SQLite %1").arg(m_filePath);
    QString where = m_pgHost.isEmpty() ? QStringLiteral("localhost") : m_pgHost;
    if (m_pgPort > 0)
        where += QStringLiteral(":%1").arg(m_pgPort);
    return QStringLiteral("PostgreSQL %1@%2").arg(m_pgDatabase, where);
}

void CDatabase::configure(QSqlDatabase& db) const {
    if (m_engine == SQLite) {
        db.setDatabaseName(m_filePath);
        db.setConnectOptions(QStringLiteral("QSQLITE_BUSY_TIMEOUT=%1").arg(m_busyTimeoutMs));
    } else {
        db.setDatabaseName(m_pgDatabase);
        if (!m_pgHost.isEmpty())
            db.setHostName(m_pgHost);
        if (m_pgPort > 0)
            db.setPort(m_pgPort);
        if (!m_pgUser.isEmpty())
            db.setUserName(m_pgUser);
        if (!m_pgPassword.isEmpty())
            db.setPassword(m_pgPassword);
        db.setConnectOptions(m_pgOptions);
    }
}

QSqlDatabase CDatabase::connection() {
    auto it = t_connections.names.find(m_serial);
    if (it != t_connections.names.end()) {
        {
            QSqlDatabase db = QSqlDatabase::database(it->second, false);
            if (db.isOpen())
                return db;
        }
        dropConnection();
    }
    const QString name =
        QStringLiteral("quotes-service-%1-%2").arg(m_serial).arg(g_nextConnection++);
    std::string failure;
    {
        QSqlDatabase db = QSqlDatabase::addDatabase(
            m_engine == SQLite ? QStringLiteral("QSQLITE") : QStringLiteral("QPSQL"), name);
        configure(db);
        if (!db.open()) {
            failure = describe(db.lastError(), sqliteSystemErrno(db.driver()));
        } else {
            try {
                if (m_engine == SQLite) {
                    exec(db, QStringLiteral("PRAGMA busy_timeout=%1").arg(m_busyTimeoutMs));
                    exec(db, QStringLiteral("PRAGMA foreign_keys=ON"));
                    // Deleted and overwritten content is zeroed, not left in free pages.
                    exec(db, QStringLiteral("PRAGMA secure_delete=ON"));
                    exec(db, QStringLiteral("PRAGMA journal_mode=WAL"));
                    exec(db, m_synchronousFull ? QStringLiteral("PRAGMA synchronous=FULL")
                                               : QStringLiteral("PRAGMA synchronous=NORMAL"));
                    if (m_maxPageCount > 0)
                        exec(db, QStringLiteral("PRAGMA max_page_count=%1").arg(m_maxPageCount));
                } else {
                    exec(db, QStringLiteral("SET lock_timeout = %1").arg(m_busyTimeoutMs));
                }
            } catch (const CServiceError& e) {
                failure = e.what();
            }
        }
        if (failure.empty()) {
            std::lock_guard<std::mutex> lock(m_mutex);
            m_names.insert(name);
            t_connections.names[m_serial] = name;
            return db;
        }
        db.close();
    }
    QSqlDatabase::removeDatabase(name);
    throw CServiceError::unavailable(failure);
}

void CDatabase::dropConnection() {
    auto it = t_connections.names.find(m_serial);
    if (it == t_connections.names.end())
        return;
    const QString name = it->second;
    t_connections.names.erase(it);
    forgetConnection(name);
}

void CDatabase::forgetConnection(const QString& name) {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_names.erase(name))
        closeAndRemove(name);
}

void CDatabase::transact(bool write, const std::function<void(QSqlDatabase&)>& work) {
    // SQLite takes one writer at a time and syncs once per commit: writers of this process queue
    // and commit in groups instead of each waiting for its own sync. Other processes still meet
    // the busy timeout.
    if (write && m_engine == SQLite) {
        m_groupCommit.run(work, [this](const std::vector<CGroupCommit::Job*>& batch) {
            runTransaction(QStringLiteral("BEGIN IMMEDIATE"), true,
                           [&](QSqlDatabase& db) { runBatch(db, batch); });
        });
        return;
    }
    runTransaction(QStringLiteral("BEGIN"), write, work);
}

void CDatabase::afterCommit(std::function<void()> note) {
    CCommitNotes::add(std::move(note));
}

void CDatabase::runBatch(QSqlDatabase& db, const std::vector<CGroupCommit::Job*>& batch) {
    if (IServiceObserver* observer = m_observer)
        observer->groupCommitted(batch.size());
    if (batch.size() == 1) {
        (*batch.front()->work)(db);
        return;
    }
    // Each writer in its own savepoint: one that fails leaves the others' changes in place.
    for (CGroupCommit::Job* job : batch) {
        exec(db, QStringLiteral("SAVEPOINT writer"));
        const std::size_t notes = CCommitNotes::mark();
        try {
            (*job->work)(db);
        } catch (...) {
            job->error = std::current_exception();
            CCommitNotes::drop(notes);
            // Some errors (a full disk, an I/O error) end the whole transaction in SQLite: then
            // the batch fails with this error.
            QSqlQuery undo(db);
            if (!undo.exec(QStringLiteral("ROLLBACK TO writer")))
                std::rethrow_exception(job->error);
        }
        exec(db, QStringLiteral("RELEASE writer"));
    }
}

void CDatabase::runTransaction(const QString& begin, bool write,
                               const std::function<void(QSqlDatabase&)>& work) {
    bool broken = false;
    try {
        const bool reused = m_engine == PostgreSQL && t_connections.names.count(m_serial) > 0;
        QSqlDatabase db = connection();
        try {
            exec(db, begin);
        } catch (const CServiceError& e) {
            // A server that does not answer is not retried: the operator would wait twice.
            if (!reused || e.what() == std::string(kNoResponse)) {
                broken = true;
                throw;
            }
            // A connection kept from earlier requests may have died meanwhile (server restart):
            // nothing has happened yet, so start over once on a fresh one.
            db = QSqlDatabase();
            dropConnection();
            db = connection();
            try {
                exec(db, begin);
            } catch (...) {
                broken = true;
                throw;
            }
        }
        try {
            // PostgreSQL writers queue like SQLite's, so no two interleave a check and the write
            // it allows (the lock ends with the transaction). lock_timeout bounds the wait.
            if (write && m_engine == PostgreSQL)
                exec(db, QStringLiteral("SELECT pg_advisory_xact_lock(%1)").arg(kWriterLock));
            const std::size_t notes = CCommitNotes::mark();
            try {
                work(db);
                exec(db, QStringLiteral("COMMIT"));
            } catch (...) {
                CCommitNotes::drop(notes);
                throw;
            }
            CCommitNotes::run(notes);
        } catch (...) {
            QSqlQuery rollback(db);
            // A connection that cannot even roll back is broken (server gone, file gone).
            broken = !rollback.exec(QStringLiteral("ROLLBACK"));
            throw;
        }
    } catch (...) {
        if (broken)
            dropConnection();
        throw;
    }
}

void CDatabase::run(QSqlQuery& query, const std::function<bool()>& exec) const {
    CStatementWatchdog::Watch watch(m_watchdog.get(), pgConnection(query.driver()));
    const auto started = std::chrono::steady_clock::now();
    const bool done = exec();
    if (IServiceObserver* observer = m_observer)
        observer->statementRan(std::chrono::steady_clock::now() - started);
    if (done)
        return;
    if (watch.expired())
        throw CServiceError::unavailable(kNoResponse);
    throw failure(query.lastError(), sqliteSystemErrno(query.driver()));
}

void CDatabase::exec(QSqlQuery& query) const {
    run(query, [&query] { return query.exec(); });
}

void CDatabase::exec(QSqlDatabase& db, const QString& sql) const {
    QSqlQuery query(db);
    run(query, [&query, &sql] { return query.exec(sql); });
}

CServiceError CDatabase::failure(const QSqlError& error, int systemErrno) const {
    // A statement the stored data refuses clashes with it; every other failure is the
    // database's (busy, gone, full, broken), which a later try may not meet.
    const QString code = error.nativeErrorCode();
    const bool constraint = m_engine == SQLite ? (code.toInt() & 0xff) == 19  // SQLITE_CONSTRAINT
                                               : code.startsWith(QLatin1String("23"));
    return CServiceError(describe(error, systemErrno),
                         constraint ? utils::ErrorKind::Conflict : utils::ErrorKind::Unavailable);
}

std::string CDatabase::describe(const QSqlError& error, int systemErrno) const {
    QString detail =
        (error.databaseText().isEmpty() ? error.driverText() : error.databaseText()).simplified();
    const QString code = error.nativeErrorCode();
    QString text;
    if (m_engine == SQLite) {
        int primary = code.toInt() & 0xff;
        // An I/O error or a file that cannot be opened for want of space is a full disk.
        if ((primary == 10 || primary == 14 || error.type() == QSqlError::ConnectionError) &&
            outOfSpace(systemErrno)) {
            primary = 13;
            detail.clear();
        }
        switch (primary) {
            case 5:  // SQLITE_BUSY
            case 6:  // SQLITE_LOCKED
                text = QStringLiteral("数据库被占用（已锁定），请稍后重试");
                break;
            case 8:  // SQLITE_READONLY
                text = QStringLiteral("数据库为只读，无法写入");
                break;
            case 10:  // SQLITE_IOERR
                text = QStringLiteral("数据库读写失败");
                break;
            case 11:  // SQLITE_CORRUPT
            case 26:  // SQLITE_NOTADB
                text = QStringLiteral("数据库文件已损坏");
                break;
            case 13:  // SQLITE_FULL
                text = QStringLiteral("数据库空间已满");
                break;
            case 14:  // SQLITE_CANTOPEN
            case 23:  // SQLITE_AUTH
                text = QStringLiteral("无法打开数据库文件");
                break;
            case 19:  // SQLITE_CONSTRAINT
                text = QStringLiteral("记录违反数据约束");
                break;
            default:
                if (error.type() == QSqlError::ConnectionError)
                    text = QStringLiteral("无法打开数据库文件");
                else
                    text = QStringLiteral("数据库操作失败");
        }
    } else {
        if (code == QLatin1String("23505") || code.startsWith(QLatin1String("23")))
            text = QStringLiteral("记录违反数据约束");
        else if (code == QLatin1String("55P03") || code == QLatin1String("40P01") ||
                 code == QLatin1String("40001"))
            text = QStringLiteral("数据库被占用（已锁定），请稍后重试");
        else if (code == QLatin1String("53100"))
            text = QStringLiteral("数据库空间已满");
        else if (code.startsWith(QLatin1String("XX")))
            text = QStringLiteral("数据库文件已损坏");
        else if (error.type() == QSqlError::ConnectionError ||
                 code.startsWith(QLatin1String("08")) || code.startsWith(QLatin1String("57P")) ||
                 containsAny(detail, {"server closed the connection", "no connection to the server",
                                      "could not connect", "terminating connection",
                                      "connection to server"}))
            text = QStringLiteral("无法连接数据库服务器");
        else
            text = QStringLiteral("数据库操作失败");
    }
    if (!detail.isEmpty())
        text += QStringLiteral(": ") + detail;
    return text.toStdString();
}
