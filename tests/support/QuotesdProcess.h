#pragma once

#include <QProcess>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

// A real quotesd on a free loopback port, set up in a temporary directory and run as the
// unprivileged user nobody when the tests run as root (quotesd refuses root).
class QuotesdProcess {
public:
    QuotesdProcess();
    ~QuotesdProcess();
    QuotesdProcess(const QuotesdProcess&) = delete;
    QuotesdProcess& operator=(const QuotesdProcess&) = delete;

    // A PostgreSQL database instead of the SQLite file in the data directory (before init).
    void setDatabaseUrl(const QString& url) { m_dbUrl = url; }
    // Variables of quotesd's environment ("NAME=VALUE"), beyond the few it keeps as nobody.
    void setEnvironment(const QStringList& variables) { m_environment = variables; }
    // The open-file limits (soft, hard) the server starts with; 0: the test's own.
    void setOpenFileLimit(int soft, int hard) {
        m_softFiles = soft;
        m_hardFiles = hard;
    }

    // quotesd with the arguments and standard input; its exit code, -1 when it did not finish.
    int run(const QStringList& arguments, const QByteArray& input = QByteArray(),
            QString* output = nullptr) const;
    // init with admin's password; false with the output in *output when it failed. The database
    // holds the sample brokers (init --sample-data) unless told otherwise.
    bool init(const QString& adminPassword, QString* output = nullptr) const;
    void setSampleData(bool sampleData) { m_sampleData = sampleData; }
    // Prepares a further server for a database that is set up already, with the key of the
    // stored secrets from the given file (none: the server has no key of its own yet).
    bool join(QString* output = nullptr, const QString& secretsKey = QString()) const;
    bool setPassword(const QString& account, const QString& password) const;

    // Serves on 127.0.0.1 on a port of its choosing (or where the arguments' --listen say, the
    // first on 127.0.0.1); waits until it listens.
    bool start(const QStringList& extraArguments = QStringList());
    // SIGTERM, then waits for the exit; the exit code (-1 when it had to be killed).
    int stop();
    void kill();
    // SIGSTOP; true once the process has stopped.
    bool suspend();
    void resume();
    bool isRunning() const;
    qint64 processId() const { return m_server.processId(); }

    QString address() const { return QStringLiteral("127.0.0.1:%1").arg(m_port); }
    int port() const { return m_port; }
    QString dataDir() const;
    // The key of the stored secrets that init made or join copied.
    QString secretsKeyFile() const;
    // The directory of the files desktops need, which init makes beside the data directory.
    QString publicDir() const;
    // What a desktop trusts: the authority's certificate init published (ca.crt).
    QByteArray certificatePem() const;
    // The chain the server serves (its certificate, then the authority's).
    QByteArray servedCertificatePem() const;
    // Everything the server wrote to its standard error so far.
    QString log();

private:
    QStringList command(const QStringList& arguments) const;
    // --data DIR, and --db URL when set.
    QStringList where() const;

    QTemporaryDir m_base;
    bool m_asNobody = false;
    QProcess m_server;
    QString m_log;
    QString m_dbUrl;
    QStringList m_environment;
    bool m_sampleData = true;
    int m_port = 0;
    int m_softFiles = 0;
    int m_hardFiles = 0;
};
