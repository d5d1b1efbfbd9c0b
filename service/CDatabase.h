#pragma once

#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QString>
#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "CGroupCommit.h"
#include "CServiceError.h"
#include "CServiceOptions.h"

class CStatementWatchdog;
class CSecretBox;
class IServiceObserver;

// The service's database: SQLite in one file or PostgreSQL, with one Qt SQL connection per
// thread (a Qt SQL connection may only be used by the thread that opened it).
class CDatabase {
public:
    enum Engine { SQLite, PostgreSQL };

    // What the operator is told when the database does not answer (a statement that ran out of
    // time, or a token that could not be checked).
    static const char* const kNoResponse;
    // An error number of a write that failed for want of space (or of file size).
    static bool outOfSpace(int systemErrno);

    // Works out the engine and its parameters from the options and prepares the SQLite file
    // (directory, mode 0600); does not connect. Null with *error set when the options are unusable.
    static std::unique_ptr<CDatabase> create(const CServiceOptions& options, QString* error);
    ~CDatabase();

    CDatabase(const CDatabase&) = delete;
    CDatabase& operator=(const CDatabase&) = delete;

    Engine engine() const { return m_engine; }
    // "SQLite /path/quotes.db" or "PostgreSQL db@host:port", never with a password.
    QString description() const;
    // The SQLite file, empty for PostgreSQL.
    QString filePath() const { return m_filePath; }

    // This thread's open connection; throws CServiceError when it cannot be opened.
    QSqlDatabase connection();
    // Closes this thread's connection, so the next request opens a fresh one.
    void dropConnection();

    // Runs work in one transaction: commits when it returns, rolls back when it throws (and
    // rethrows). SQLite writers of this process queue and may commit together: their work then
    // runs on the thread of the first in line, on that thread's connection, each in a savepoint.
    void transact(bool write, const std::function<void(QSqlDatabase&)>& work);

    // Runs the note once the transaction whose work calls this is committed (never when it, or
    // the writer's savepoint, rolls back), on the thread that committed it.
    static void afterCommit(std::function<void()> note);

    // Who watches the statements and commits (metrics, logs); set before serving, cleared
    // (null) before the observer goes. Null: nobody.
    void setObserver(IServiceObserver* observer) { m_observer = observer; }
    IServiceObserver* observer() const { return m_observer; }

    // Executes a prepared query or throws CServiceError with the operator's text for its error.
    void exec(QSqlQuery& query) const;
    void exec(QSqlDatabase& db, const QString& sql) const;
    // The connection options a PostgreSQL connection is opened with (libpq keywords).
    QString connectOptions() const { return m_pgOptions; }
    // The operator's text (Chinese, UTF-8) for a database error; systemErrno, the error number
    // of the system call that failed under it (SQLite), tells a full disk from other I/O errors.
    std::string describe(const QSqlError& error, int systemErrno = 0) const;
    // The error of a failed statement, its kind from the database's code.
    CServiceError failure(const QSqlError& error, int systemErrno = 0) const;

    // SQLite writers of this process queued or running now.
    std::size_t queuedWriters() const { return m_groupCommit.queued(); }

    // Called when a thread that holds a connection ends.
    void forgetConnection(const QString& name);

    // The box that seals the stored secrets; throws CServiceError before one is set.
    std::shared_ptr<const CSecretBox> secrets() const;
    void setSecrets(std::shared_ptr<const CSecretBox> box);

private:
    CDatabase() = default;
    void configure(QSqlDatabase& db) const;
    void runTransaction(const QString& begin, bool write,
                        const std::function<void(QSqlDatabase&)>& work);
    void runBatch(QSqlDatabase& db, const std::vector<CGroupCommit::Job*>& batch);
    bool prepareSqliteFile(const QString& path, bool dataDirectory, QString* error);

    Engine m_engine = SQLite;
    quint64 m_serial = 0;
    QString m_filePath;
    QString m_pgHost;
    int m_pgPort = -1;
    QString m_pgUser;
    QString m_pgPassword;
    QString m_pgDatabase;
    QString m_pgOptions;
    int m_busyTimeoutMs = 5000;
    qint64 m_maxPageCount = 0;
    bool m_synchronousFull = true;

    // PostgreSQL only: bounds each statement.
    std::unique_ptr<CStatementWatchdog> m_watchdog;
    // Runs one statement under the watchdog; exec is the query's own call.
    void run(QSqlQuery& query, const std::function<bool()>& exec) const;

    std::atomic<IServiceObserver*> m_observer{nullptr};
    std::mutex m_mutex;
    std::set<QString> m_names;
    // Writers of this process (SQLite).
    CGroupCommit m_groupCommit;
    mutable std::mutex m_secretsMutex;
    std::shared_ptr<const CSecretBox> m_secrets;
};
