#pragma once

#include <QString>
#include <QStringList>
#include <QTemporaryDir>

// A PostgreSQL cluster of the test's own in a temporary directory, on a Unix socket only, run
// as the unprivileged user nobody when the test runs as root (the server refuses root).
class PostgresCluster {
public:
    PostgresCluster() = default;
    ~PostgresCluster();
    PostgresCluster(const PostgresCluster&) = delete;
    PostgresCluster& operator=(const PostgresCluster&) = delete;

    // Server settings beyond the defaults, e.g. "-c log_statement=all"; before start().
    void setServerOptions(const QString& options) { m_serverOptions = options; }
    // Creates and starts the cluster; empty when it runs, else why not.
    QString start();
    // start() for a test case: false when the cluster does not run, after skipping the test
    // (or failing it in CI, where the cluster must start).
    bool startOrSkip();
    // The server's log file.
    QString logFile() const;
    // Stops it at once (as after a crash) / starts it again on the same data.
    bool stop();
    bool restart();
    // SIGSTOP to the server and every process of it (a hung database: connections stay open,
    // statements get no answer) / SIGCONT.
    bool suspend();
    bool resume();
    bool createDatabase(const QString& name);
    // Runs one SQL statement in the database as the superuser.
    bool sql(const QString& database, const QString& statement);

    QString url(const QString& database) const;
    bool isRunning() const { return m_running; }

private:
    bool tool(const QString& name, const QStringList& arguments);
    bool ownBy(const QString& path);
    bool startServer();

    QTemporaryDir m_base;
    QString m_runAs;
    QString m_dataDir;
    QString m_socketDir;
    int m_port = 0;
    QString m_serverOptions;
    bool m_running = false;
};
