#pragma once

#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QString>
#include <functional>
#include <memory>
#include <mutex>
#include <set>
#include <string>

#include "CServiceOptions.h"

class CSecretBox;

// The service's database: SQLite in one file or PostgreSQL, with one Qt SQL connection per
// thread (a Qt SQL connection may only be used by the thread that opened it).
class CDatabase {
public:
    enum Engine { SQLite, PostgreSQL };

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

    // Runs work in one transaction on this thread's connection: commits when it returns, rolls
    // back when it throws (and rethrows). A write transaction takes the write lock first, so two
    // writers queue instead of failing halfway.
    void transact(bool write, const std::function<void(QSqlDatabase&)>& work);

    // Executes a prepared query or throws CServiceError with the operator's text for its error.
    void exec(QSqlQuery& query) const;
    void exec(QSqlDatabase& db, const QString& sql) const;
    // The operator's text (Chinese, UTF-8) for a database error.
    std::string describe(const QSqlError& error) const;

    // Called when a thread that holds a connection ends.
    void forgetConnection(const QString& name);

    // The box that seals the stored secrets; throws CServiceError before one is set.
    std::shared_ptr<const CSecretBox> secrets() const;
    void setSecrets(std::shared_ptr<const CSecretBox> box);

private:
    CDatabase() = default;
    void configure(QSqlDatabase& db) const;
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

    std::mutex m_mutex;
    std::set<QString> m_names;
    // Writers of this process, one at a time (SQLite).
    std::mutex m_writeMutex;
    mutable std::mutex m_secretsMutex;
    std::shared_ptr<const CSecretBox> m_secrets;
};
