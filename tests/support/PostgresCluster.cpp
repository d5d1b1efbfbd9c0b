#include "PostgresCluster.h"

#include <pwd.h>
#include <signal.h>
#include <unistd.h>

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QSqlDatabase>
#include <QTest>

namespace {

const QString kBin = QStringLiteral("/usr/lib/postgresql/15/bin");

}  // namespace

PostgresCluster::~PostgresCluster() {
    if (m_running)
        stop();
}

bool PostgresCluster::startOrSkip() {
    const QString why = start();
    if (why.isEmpty())
        return true;
    if (qEnvironmentVariable("CI") == QLatin1String("true"))
        QTest::qFail(qPrintable(why), __FILE__, __LINE__);
    else
        QTest::qSkip(qPrintable(why), __FILE__, __LINE__);
    return false;
}

QString PostgresCluster::start() {
    if (!QFileInfo(kBin + QStringLiteral("/initdb")).isExecutable())
        return QStringLiteral("PostgreSQL 15 server binaries are not installed");
    if (!QSqlDatabase::isDriverAvailable(QStringLiteral("QPSQL")))
        return QStringLiteral("the Qt PostgreSQL driver (QPSQL) is not installed");
    if (!m_base.isValid())
        return QStringLiteral("no temporary directory");
    if (::geteuid() == 0)
        m_runAs = QStringLiteral("nobody");
    // Servers run as nobody reach the socket through our directory.
    QFile::setPermissions(m_base.path(), QFileDevice::ReadOwner | QFileDevice::WriteOwner |
                                             QFileDevice::ExeOwner | QFileDevice::ReadOther |
                                             QFileDevice::ExeOther | QFileDevice::ReadGroup |
                                             QFileDevice::ExeGroup);
    m_dataDir = m_base.filePath(QStringLiteral("data"));
    m_socketDir = m_base.filePath(QStringLiteral("sock"));
    if (!QDir().mkpath(m_dataDir) || !QDir().mkpath(m_socketDir) || !ownBy(m_dataDir) ||
        !ownBy(m_socketDir))
        return QStringLiteral("cannot prepare the cluster's directories");
    // The socket lives in our own directory, so the port only names it.
    m_port = 20000 + int(QCoreApplication::applicationPid() % 40000);
    if (!tool(QStringLiteral("initdb"),
              {QStringLiteral("-D"), m_dataDir, QStringLiteral("-U"), QStringLiteral("postgres"),
               QStringLiteral("-A"), QStringLiteral("trust"), QStringLiteral("-E"),
               QStringLiteral("UTF8"), QStringLiteral("--locale=C"), QStringLiteral("--no-sync")}))
        return QStringLiteral("initdb failed");
    if (!startServer())
        return QStringLiteral("the PostgreSQL server did not start");
    return QString();
}

QString PostgresCluster::logFile() const {
    return m_base.filePath(QStringLiteral("sock/server.log"));
}

bool PostgresCluster::startServer() {
    m_running = tool(
        QStringLiteral("pg_ctl"),
        {QStringLiteral("-D"), m_dataDir, QStringLiteral("-l"), logFile(), QStringLiteral("-w"),
         QStringLiteral("-t"), QStringLiteral("60"), QStringLiteral("-o"),
         QStringLiteral("-c listen_addresses='' -k %1 -p %2 -c fsync=off %3")
             .arg(m_socketDir)
             .arg(m_port)
             .arg(m_serverOptions),
         QStringLiteral("start")});
    return m_running;
}

bool PostgresCluster::stop() {
    const bool stopped =
        tool(QStringLiteral("pg_ctl"),
             {QStringLiteral("-D"), m_dataDir, QStringLiteral("-m"), QStringLiteral("immediate"),
              QStringLiteral("-w"), QStringLiteral("stop")});
    m_running = !stopped;
    return stopped;
}

namespace {

// The postmaster (first line of postmaster.pid) and its children, from /proc.
QList<pid_t> clusterProcesses(const QString& dataDir) {
    QFile pidFile(QDir(dataDir).filePath(QStringLiteral("postmaster.pid")));
    if (!pidFile.open(QIODevice::ReadOnly))
        return {};
    const pid_t postmaster = pid_t(pidFile.readLine().trimmed().toInt());
    QList<pid_t> all{postmaster};
    for (const QString& entry : QDir(QStringLiteral("/proc")).entryList(QDir::Dirs)) {
        QFile stat(QStringLiteral("/proc/%1/stat").arg(entry));
        if (entry.toInt() <= 0 || !stat.open(QIODevice::ReadOnly))
            continue;
        // pid (comm) state ppid ...: the fields after the command's closing parenthesis.
        const QByteArray line = stat.readAll();
        const QList<QByteArray> fields = line.mid(line.lastIndexOf(')') + 2).split(' ');
        if (fields.size() > 1 && pid_t(fields[1].toInt()) == postmaster)
            all << pid_t(entry.toInt());
    }
    return all;
}

bool signalAll(const QList<pid_t>& processes, int signal) {
    bool all = !processes.isEmpty();
    for (const pid_t pid : processes)
        all = ::kill(pid, signal) == 0 && all;
    return all;
}

}  // namespace

bool PostgresCluster::suspend() {
    return signalAll(clusterProcesses(m_dataDir), SIGSTOP);
}

bool PostgresCluster::resume() {
    return signalAll(clusterProcesses(m_dataDir), SIGCONT);
}

bool PostgresCluster::restart() {
    return startServer();
}

bool PostgresCluster::createDatabase(const QString& name) {
    return tool(QStringLiteral("createdb"),
                {QStringLiteral("-h"), m_socketDir, QStringLiteral("-p"), QString::number(m_port),
                 QStringLiteral("-U"), QStringLiteral("postgres"), name});
}

bool PostgresCluster::sql(const QString& database, const QString& statement) {
    return tool(QStringLiteral("psql"),
                {QStringLiteral("-h"), m_socketDir, QStringLiteral("-p"), QString::number(m_port),
                 QStringLiteral("-U"), QStringLiteral("postgres"), QStringLiteral("-d"), database,
                 QStringLiteral("-c"), statement});
}

QString PostgresCluster::url(const QString& database) const {
    return QStringLiteral("postgresql://postgres@/%1?host=%2&port=%3")
        .arg(database, m_socketDir)
        .arg(m_port);
}

bool PostgresCluster::tool(const QString& name, const QStringList& arguments) {
    QProcess process;
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.setWorkingDirectory(m_base.path());
    const QString program = kBin + QLatin1Char('/') + name;
    if (m_runAs.isEmpty())
        process.start(program, arguments);
    else
        process.start(
            QStringLiteral("runuser"),
            QStringList{QStringLiteral("-u"), m_runAs, QStringLiteral("--"), program} + arguments);
    const bool finished = process.waitForStarted() && process.waitForFinished(120000);
    if (!finished || process.exitStatus() != QProcess::NormalExit || process.exitCode() != 0) {
        qWarning("%s failed: %s", qPrintable(name), process.readAll().constData());
        return false;
    }
    return true;
}

bool PostgresCluster::ownBy(const QString& path) {
    if (m_runAs.isEmpty())
        return true;
    const passwd* account = ::getpwnam(m_runAs.toLocal8Bit().constData());
    return account &&
           ::chown(QFile::encodeName(path).constData(), account->pw_uid, account->pw_gid) == 0;
}
