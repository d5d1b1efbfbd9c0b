#include "CQuotesDaemon.h"

#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTextStream>
#include <cstdio>
#include <iostream>
#include <string>

#include "CAccountStore.h"
#include "CAdminServer.h"
#include "CCaller.h"
#include "CDatabase.h"
#include "CDatabaseUrl.h"
#include "CGuardedServer.h"
#include "CLoginManager.h"
#include "CPasswordHasher.h"
#include "CProbeAllowList.h"
#include "CQuotesService.h"
#include "CSecretBox.h"
#include "CSecretKeyFile.h"
#include "CServiceError.h"
#include "CSourceProber.h"
#include "CTlsIdentity.h"

namespace {

const char* const kAdmin = "admin";

void say(const QString& text) {
    std::fprintf(stderr, "quotesd: %s\n", text.toLocal8Bit().constData());
}

// One line of standard input without its line end (a password is never an argument).
std::string readSecretLine() {
    std::string line;
    std::getline(std::cin, line);
    if (!line.empty() && line.back() == '\r')
        line.pop_back();
    return line;
}

// SIGTERM and SIGINT are taken by sigwait, never by a handler: blocked before any thread
// starts, so every thread inherits the mask.
sigset_t stopSignals() {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGTERM);
    sigaddset(&set, SIGINT);
    return set;
}

// Who the server's own commands act as: the owner of its files, recorded in the audit trail as
// the operating-system user (本地), as quotesctl on the database itself is.
CCaller serverOwner() {
    return CCaller::owner().locally(CCaller::operatingSystemUser());
}

// The soft limit of open files raised to the hard one: every connection of a client is a file,
// and the default soft limit (1024) is soon reached. The limit in force after it.
qint64 raiseOpenFileLimit() {
    rlimit files{};
    if (::getrlimit(RLIMIT_NOFILE, &files) != 0)
        return 1024;
    if (files.rlim_cur != files.rlim_max) {
        const rlim_t before = files.rlim_cur;
        files.rlim_cur = files.rlim_max;
        if (::setrlimit(RLIMIT_NOFILE, &files) != 0)
            files.rlim_cur = before;
    }
    return files.rlim_cur == RLIM_INFINITY ? qint64(1) << 20 : qint64(files.rlim_cur);
}

}  // namespace

QString CQuotesDaemon::keyPath(const QString& dataDir) {
    return QDir(dataDir).filePath(QStringLiteral("quotesd.key"));
}

QString CQuotesDaemon::certificatePath(const QString& dataDir) {
    return QDir(dataDir).filePath(QStringLiteral("quotesd.crt"));
}

int CQuotesDaemon::fail(const QString& message) const {
    say(message);
    return kFailed;
}

CServiceOptions CQuotesDaemon::serviceOptions() const {
    CServiceOptions options;
    options.dataDir = m_options.dataDir;
    options.dbUrl = m_options.dbUrl;
    options.createMissing = m_options.command != CDaemonOptions::Join;
    // init has copied a given key into the data directory, where the service looks by default.
    if (m_options.command != CDaemonOptions::Init && m_options.command != CDaemonOptions::Join)
        options.secretsKeyFile = m_options.secretsKeyFile;
    return options;
}

int CQuotesDaemon::run() {
    if (m_options.command == CDaemonOptions::Help) {
        std::fputs(CDaemonOptions::helpText().toLocal8Bit().constData(), stdout);
        return kOk;
    }
    // Files made as root would be unreadable to the server's own user, and a network server
    // must not hold root's rights.
    if (::geteuid() == 0) {
        say(
            QStringLiteral("refusing to run as root; run it as its own user, for example "
                           "sudo -u quotesd quotesd …"));
        return kUsage;
    }
    if (CDatabaseUrl::hasPassword(m_options.dbUrl))
        say(
            QStringLiteral("warning: the --db URL holds a password, which other local users can "
                           "read; use ~/.pgpass or PGPASSFILE instead"));
    switch (m_options.command) {
        case CDaemonOptions::Init:
        case CDaemonOptions::Join:
            return init();
        case CDaemonOptions::ResetPassword:
            return resetPassword();
        default:
            return serve();
    }
}

bool CQuotesDaemon::prepareDataDir(QString* error) const {
    const QString dir = m_options.dataDir;
    if (!QDir().mkpath(dir)) {
        *error = QStringLiteral("cannot create the data directory %1").arg(dir);
        return false;
    }
    if (::chmod(QFile::encodeName(dir).constData(), 0700) != 0) {
        *error = QStringLiteral("cannot restrict the data directory %1 to its owner").arg(dir);
        return false;
    }
    return true;
}

bool CQuotesDaemon::adoptSecretsKey(QString* error) const {
    if (m_options.secretsKeyFile.isEmpty())
        return true;
    const QString own = CSecretKeyFile::defaultPath(m_options.dataDir);
    try {
        const CSecretBox box = CSecretKeyFile::read(m_options.secretsKeyFile);
        if (CSecretKeyFile::exists(own)) {
            if (CSecretKeyFile::read(own).key() == box.key())
                return true;
            *error = QStringLiteral("%1 holds another key already; nothing was changed").arg(own);
            return false;
        }
        CSecretKeyFile::write(own, box);
    } catch (const CServiceError& e) {
        *error = QString::fromStdString(e.what());
        return false;
    }
    return true;
}

bool CQuotesDaemon::writeIdentity(QString* error) const {
    const QString dir = m_options.dataDir;
    CTlsIdentity identity = m_options.certFile.isEmpty()
                                ? CTlsIdentity::create(m_options.hosts, error)
                                : CTlsIdentity::load(m_options.keyFile, m_options.certFile, error);
    if (identity.isNull() || !identity.save(keyPath(dir), certificatePath(dir), error))
        return false;
    std::printf("certificate %s\nSHA-256 fingerprint %s\n",
                certificatePath(dir).toLocal8Bit().constData(),
                identity.fingerprint().toLatin1().constData());
    return true;
}

int CQuotesDaemon::init() {
    const QString dir = m_options.dataDir;
    if (QFileInfo::exists(keyPath(dir)) || QFileInfo::exists(certificatePath(dir)))
        return fail(
            QStringLiteral("%1 holds a server set up already; nothing was changed").arg(dir));
    QString error;
    if (!prepareDataDir(&error) || !adoptSecretsKey(&error))
        return fail(error);
    const boost::shared_ptr<CQuotesService> service =
        CQuotesService::open(serviceOptions(), &error);
    if (!service)
        return fail(error);
    CAccountStore accounts(service->database());
    try {
        const CAccount admin = accounts.account(QString::fromLatin1(kAdmin));
        const bool join = m_options.command == CDaemonOptions::Join;
        if (join && !admin.hasPassword)
            return fail(
                QStringLiteral("the database is not set up yet: run quotesd init on the "
                               "first server"));
        if (!join && admin.hasPassword)
            return fail(
                QStringLiteral("the database is set up already (admin has a password); "
                               "use init --join for a further server"));
        if (!join) {
            const std::string password =
                m_options.generate ? CPasswordHasher::generate() : readSecretLine();
            const utils::RKError set = service->setPassword(serverOwner(), kAdmin, password);
            if (!set.isSuccess())
                return fail(QString::fromStdString(set.errorMsg()));
            if (m_options.generate)
                std::printf("admin password %s\n", password.c_str());
        }
    } catch (const CServiceError& e) {
        return fail(QString::fromStdString(e.what()));
    }
    if (!writeIdentity(&error))
        return fail(error);
    return kOk;
}

int CQuotesDaemon::resetPassword() {
    QString error;
    const boost::shared_ptr<CQuotesService> service =
        CQuotesService::open(serviceOptions(), &error);
    if (!service)
        return fail(error);
    // The owner's way back in: the account is enabled too and its failed logins forgotten.
    const CCaller owner = serverOwner();
    const std::string name = m_options.account.toStdString();
    utils::RKError done = service->setPassword(owner, name, readSecretLine());
    if (done.isSuccess())
        done = service->setAccountEnabled(owner, name, true);
    if (done.isSuccess())
        done = service->unlockLogins(owner, name, std::string());
    return done.isSuccess() ? kOk : fail(QString::fromStdString(done.errorMsg()));
}

CServerLimits CQuotesDaemon::fittedLimits(const CQuotesService& service) const {
    CServerLimits limits = m_options.limits;
    const qint64 files = raiseOpenFileLimit();
    const int perThread =
        CServerLimits::filesPerConnection(service.database().engine() == CDatabase::SQLite);
    const QString note = limits.fitFiles(files, perThread);
    if (!note.isEmpty())
        say(note);
    say(QStringLiteral("open files: %1; up to %2 threads whose database connections take up to "
                       "%3, the rest for connections")
            .arg(files)
            .arg(limits.maxThreads)
            .arg(limits.threadFiles(perThread)));
    return limits;
}

void CQuotesDaemon::startProbing(CQuotesService& service) const {
    // Checked by the command line's parser already.
    if (!m_options.probeAllow.isEmpty())
        service.prober().tcp().setAllowList(CProbeAllowList::parse(m_options.probeAllow));
    if (m_options.probeIntervalS <= 0)
        return;
    service.prober().start(std::chrono::seconds(m_options.probeIntervalS));
    say(QStringLiteral("probing the sources every %1 s (one server per database)")
            .arg(m_options.probeIntervalS));
}

int CQuotesDaemon::serve() {
    QString error;
    const CTlsIdentity identity =
        CTlsIdentity::load(keyPath(m_options.dataDir), certificatePath(m_options.dataDir), &error);
    if (identity.isNull())
        return fail(QStringLiteral("%1 (run quotesd init first)").arg(error));
    const sigset_t stops = stopSignals();
    pthread_sigmask(SIG_BLOCK, &stops, nullptr);

    const boost::shared_ptr<CQuotesService> service =
        CQuotesService::open(serviceOptions(), &error);
    if (!service)
        return fail(error);
    const CServerLimits limits = fittedLimits(*service);
    startProbing(*service);
    CLoginManager::Options loginOptions;
    loginOptions.lockoutBaseMs = m_options.lockoutBaseMs;
    loginOptions.concurrentPasswordChecks = limits.passwordChecks;
    CLoginManager logins(service->database(), loginOptions);
    CAdminServer admin(service, logins, {limits.eventStreams, limits.eventStreamsPerLogin});

    CGuardedServer server(admin, identity, limits, say);
    if (!server.start(m_options.listen.toStdString()))
        return fail(QStringLiteral("cannot listen on %1").arg(m_options.listen));
    const QString host = m_options.listen.left(m_options.listen.lastIndexOf(QLatin1Char(':')));
    say(QStringLiteral("listening on %1:%2 (%3)")
            .arg(host)
            .arg(server.port())
            .arg(service->databaseDescription()));
    server.guard();

    int received = 0;
    sigwait(&stops, &received);
    say(QStringLiteral("stopping: calls in flight finish, new ones are refused"));
    server.endGuard();
    // Our own drain: gRPC's shutdown with a long deadline also waits for idle connections. A
    // call whose handler has returned may still be sending its last answer: a second lets that
    // reach the client.
    if (!admin.drain(std::chrono::seconds(30)))
        say(QStringLiteral("calls still running after 30 s are cancelled"));
    server.stop(std::chrono::seconds(1));
    say(QStringLiteral("stopped"));
    return kOk;
}
