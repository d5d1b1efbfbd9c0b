#include "QuotesdProcess.h"

#include <pwd.h>
#include <signal.h>
#include <unistd.h>

#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QRegularExpression>
#include <QThread>

namespace {

QString program() {
    return qEnvironmentVariable("QUOTES_BINARY_DIR") + QStringLiteral("/bin/quotesd");
}

}  // namespace

QuotesdProcess::QuotesdProcess() {
    m_asNobody = ::geteuid() == 0;
    if (m_asNobody) {
        // The unprivileged server must reach its data directory through ours.
        QFile::setPermissions(m_base.path(), QFileDevice::ReadOwner | QFileDevice::WriteOwner |
                                                 QFileDevice::ExeOwner | QFileDevice::ExeGroup |
                                                 QFileDevice::ExeOther);
        const QString home = m_base.filePath(QStringLiteral("home"));
        QDir().mkpath(home);
        if (const passwd* nobody = ::getpwnam("nobody"))
            ::chown(QFile::encodeName(home).constData(), nobody->pw_uid, nobody->pw_gid);
    } else {
        QDir().mkpath(m_base.filePath(QStringLiteral("home")));
    }
}

QuotesdProcess::~QuotesdProcess() {
    if (isRunning())
        kill();
}

QString QuotesdProcess::dataDir() const {
    return m_base.filePath(QStringLiteral("home/data"));
}

QStringList QuotesdProcess::command(const QStringList& arguments) const {
    QStringList server{program()};
    // env replaces itself with quotesd (after setpriv has reset the environment).
    if (!m_environment.isEmpty())
        server = QStringList{QStringLiteral("env")} + m_environment + server;
    // prlimit replaces itself with quotesd too.
    if (m_hardFiles > 0)
        server = QStringList{QStringLiteral("prlimit"),
                             QStringLiteral("--nofile=%1:%2").arg(m_softFiles).arg(m_hardFiles)} +
                 server;
    if (!m_asNobody)
        return server + arguments;
    // setpriv replaces itself with quotesd, so signals reach the server itself.
    return QStringList{QStringLiteral("setpriv"), QStringLiteral("--reuid=nobody"),
                       QStringLiteral("--regid=nogroup"), QStringLiteral("--clear-groups"),
                       QStringLiteral("--reset-env")} +
           server + arguments;
}

int QuotesdProcess::run(const QStringList& arguments, const QByteArray& input,
                        QString* output) const {
    QProcess process;
    process.setProcessChannelMode(QProcess::MergedChannels);
    QStringList all = command(arguments);
    process.start(all.takeFirst(), all);
    if (!process.waitForStarted())
        return -1;
    process.write(input);
    process.closeWriteChannel();
    const bool finished = process.waitForFinished(120000);
    if (output)
        *output = QString::fromLocal8Bit(process.readAll());
    if (!finished || process.exitStatus() != QProcess::NormalExit)
        return -1;
    return process.exitCode();
}

QStringList QuotesdProcess::where() const {
    QStringList arguments{QStringLiteral("--data"), dataDir()};
    if (!m_dbUrl.isEmpty())
        arguments << QStringLiteral("--db") << m_dbUrl;
    return arguments;
}

bool QuotesdProcess::init(const QString& adminPassword, QString* output) const {
    QStringList arguments = QStringList{QStringLiteral("init")} + where();
    if (m_sampleData)
        arguments << QStringLiteral("--sample-data");
    return run(arguments, adminPassword.toUtf8() + '\n', output) == 0;
}

bool QuotesdProcess::join(QString* output, const QString& secretsKey) const {
    QStringList arguments = QStringList{QStringLiteral("init"), QStringLiteral("--join")} + where();
    if (!secretsKey.isEmpty())
        arguments << QStringLiteral("--secrets-key") << secretsKey;
    return run(arguments, QByteArray(), output) == 0;
}

QString QuotesdProcess::secretsKeyFile() const {
    return QDir(dataDir()).filePath(QStringLiteral("secrets.key"));
}

bool QuotesdProcess::setPassword(const QString& account, const QString& password) const {
    return run(QStringList{QStringLiteral("reset-password"), account} + where(),
               password.toUtf8() + '\n') == 0;
}

bool QuotesdProcess::start(const QStringList& extraArguments) {
    m_port = 0;
    m_log.clear();
    // Each --listen adds an address: a port of the test's own choosing replaces the default.
    const QStringList listen =
        extraArguments.contains(QStringLiteral("--listen"))
            ? QStringList()
            : QStringList{QStringLiteral("--listen"), QStringLiteral("127.0.0.1:0")};
    QStringList all = command(where() + listen + extraArguments);
    m_server.setProcessChannelMode(QProcess::SeparateChannels);
    // The server says where it listens on its standard error.
    m_server.setReadChannel(QProcess::StandardError);
    m_server.start(all.takeFirst(), all);
    if (!m_server.waitForStarted())
        return false;
    static const QRegularExpression listening(QStringLiteral("listening on [0-9.]+:(\\d+)"));
    QDeadlineTimer deadline(60000);
    while (!deadline.hasExpired() && m_server.state() == QProcess::Running) {
        m_server.waitForReadyRead(int(qMax<qint64>(1, deadline.remainingTime())));
        m_log += QString::fromLocal8Bit(m_server.readAllStandardError());
        const QRegularExpressionMatch match = listening.match(m_log);
        if (match.hasMatch()) {
            m_port = match.captured(1).toInt();
            return true;
        }
    }
    return false;
}

int QuotesdProcess::stop() {
    if (!isRunning())
        return -1;
    ::kill(pid_t(m_server.processId()), SIGTERM);
    if (!m_server.waitForFinished(60000)) {
        kill();
        return -1;
    }
    log();
    return m_server.exitStatus() == QProcess::NormalExit ? m_server.exitCode() : -1;
}

void QuotesdProcess::kill() {
    ::kill(pid_t(m_server.processId()), SIGKILL);
    m_server.waitForFinished(60000);
}

// The process's state letter from /proc ("T" when stopped).
static QByteArray processState(qint64 pid) {
    QFile stat(QStringLiteral("/proc/%1/stat").arg(pid));
    if (!stat.open(QIODevice::ReadOnly))
        return QByteArray();
    const QByteArray line = stat.readAll();
    const int close = line.lastIndexOf(')');
    return close < 0 ? QByteArray() : line.mid(close + 2, 1);
}

bool QuotesdProcess::suspend() {
    const qint64 pid = m_server.processId();
    ::kill(pid_t(pid), SIGSTOP);
    // kill() returns before the process has stopped: wait until the kernel says it has.
    QDeadlineTimer deadline(10000);
    while (!deadline.hasExpired()) {
        if (processState(pid) == "T")
            return true;
        QThread::yieldCurrentThread();
    }
    return false;
}

void QuotesdProcess::resume() {
    ::kill(pid_t(m_server.processId()), SIGCONT);
}

bool QuotesdProcess::isRunning() const {
    return m_server.state() != QProcess::NotRunning;
}

QString QuotesdProcess::publicDir() const {
    return dataDir() + QStringLiteral("-public");
}

QByteArray QuotesdProcess::certificatePem() const {
    QFile file(QDir(publicDir()).filePath(QStringLiteral("ca.crt")));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

QByteArray QuotesdProcess::servedCertificatePem() const {
    QFile file(QDir(dataDir()).filePath(QStringLiteral("quotesd.crt")));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

QString QuotesdProcess::log() {
    m_log += QString::fromLocal8Bit(m_server.readAllStandardError());
    return m_log;
}
