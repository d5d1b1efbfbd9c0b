#include "CQuotesDaemon.h"

#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QScopeGuard>
#include <QTextStream>
#include <cstdio>
#include <iostream>
#include <string>
#include <vector>

#include "CAccountStore.h"
#include "CAdminServer.h"
#include "CCaller.h"
#include "CCertificateCommands.h"
#include "CDatabase.h"
#include "CDatabaseProbe.h"
#include "CDatabaseUrl.h"
#include "CGuardedServer.h"
#include "CLoginManager.h"
#include "CPasswordHasher.h"
#include "CProbeAllowList.h"
#include "CQuotesService.h"
#include "CSecretBox.h"
#include "CSecretKeyFile.h"
#include "CServedCertificate.h"
#include "CServerHealth.h"
#include "CServerWatch.h"
#include "CServiceError.h"
#include "CSourceProber.h"
#include "CSystemdNotifier.h"
#include "Hlx/QuotesVersion.h"

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

// SIGTERM, SIGINT and SIGHUP are taken by sigwait, never by a handler: blocked before any
// thread starts, so every thread inherits the mask. SIGHUP's default would end the server at
// once, which systemd under Restart=on-failure takes for a clean exit.
sigset_t servingSignals() {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGTERM);
    sigaddset(&set, SIGINT);
    sigaddset(&set, SIGHUP);
    return set;
}

// How long a database statement may take before the server calls itself unhealthy.
const std::chrono::seconds kDatabaseDeadline(5);

std::vector<std::string> addresses(const QStringList& listen) {
    std::vector<std::string> all;
    for (const QString& address : listen)
        all.push_back(address.toStdString());
    return all;
}

// "127.0.0.1:7461, [::1]:7461": each address with the port it listens on.
QString listening(const QStringList& listen, const std::vector<int>& ports) {
    QStringList all;
    for (int i = 0; i < listen.size(); ++i)
        all << listen[i].left(listen[i].lastIndexOf(QLatin1Char(':')) + 1) +
                   QString::number(ports[size_t(i)]);
    return all.join(QStringLiteral(", "));
}

// Who the server's own commands act as: the owner of its files, recorded in the audit trail as
// the operating-system user (本地), as quotesctl on the database itself is.
CCaller serverOwner() {
    return CCaller::localOwner();
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

int CQuotesDaemon::fail(const QString& message) const {
    say(message);
    return kFailed;
}

CServiceOptions CQuotesDaemon::serviceOptions() const {
    CServiceOptions options;
    options.dataDir = m_options.dataDir;
    options.dbUrl = m_options.dbUrl;
    options.createMissing = m_options.command != CDaemonOptions::Join;
    options.sampleData = m_options.sampleData;
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
    if (m_options.command == CDaemonOptions::Version) {
        std::printf("%s\n", Hlx::quotesVersionLine("quotesd").c_str());
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
        case CDaemonOptions::Cert:
            return CCertificateCommands(m_options).run();
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

int CQuotesDaemon::init() {
    const QString dir = m_options.dataDir;
    const CCertificateCommands certificates(m_options);
    if (certificates.files().isSetUp())
        return fail(
            QStringLiteral("%1 holds a server set up already; nothing was changed").arg(dir));
    QString error;
    if (!prepareDataDir(&error) || !certificates.files().preparePublicDir(&error) ||
        !adoptSecretsKey(&error))
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
    if (!certificates.setUp(&error))
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
    // Before any thread starts (the certificate's watcher is one), so that every thread
    // inherits the mask: a second SIGTERM during the drain, or a SIGHUP, cannot end the process.
    const sigset_t waited = servingSignals();
    pthread_sigmask(SIG_BLOCK, &waited, nullptr);
    QString error;
    const CCertificateFiles files(m_options.dataDir, m_options.publicDir);
    CServedCertificate certificate(files.keyPath(), files.chainPath(),
                                   std::chrono::seconds(m_options.certificateCheckSeconds), &error);
    if (certificate.isNull())
        return fail(QStringLiteral("%1 (run quotesd init first)").arg(error));
    certificate.refresh(say);  // says now when it ends soon
    // Before the service, so that it outlives every thread that tells it something.
    CServerWatch watch(m_options);

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
    if (!watch.watch(
            *service, logins, admin, [&certificate] { return certificate.current().notAfter(); },
            &error))
        return fail(error);
    const auto unwatch = qScopeGuard([&watch] { watch.unwatch(); });
    admin.setCertificateExpiry(
        [&certificate] { return certificate.current().notAfter().toMSecsSinceEpoch(); });

    CGuardedServer server(admin, certificate, limits, say);
    watch.instrument(server);
    if (!server.start(addresses(m_options.listen)))
        return fail(QStringLiteral("cannot listen on %1").arg(m_options.listen.join(", ")));
    const QString serving =
        QStringLiteral("listening on %1 (%2)")
            .arg(listening(m_options.listen, server.ports()), service->databaseDescription());
    say(serving);
    const CSystemdNotifier systemd;
    CDatabaseProbe probe(service->database(), std::chrono::milliseconds(limits.selfCheckMs),
                         kDatabaseDeadline);
    CServerHealth health(server, probe, systemd, serving, say,
                         [&certificate] { return certificate.expiryWarning(); });
    systemd.ready(serving);
    health.update();
    server.guard([&health](bool passed) { health.checked(passed); });

    awaitStop(waited, *service, certificate, systemd, serving);
    systemd.stopping(QStringLiteral("stopping: calls in flight finish"));
    say(QStringLiteral("stopping: calls in flight finish, new ones are refused"));
    server.endGuard();
    server.setServing(false);
    // Our own drain: gRPC's shutdown with a long deadline also waits for idle connections. A
    // call whose handler has returned may still be sending its last answer: a second lets that
    // reach the client.
    if (!admin.drain(std::chrono::seconds(30)))
        say(QStringLiteral("calls still running after 30 s are cancelled"));
    server.stop(std::chrono::seconds(1));
    say(QStringLiteral("stopped"));
    return kOk;
}

void CQuotesDaemon::awaitStop(const sigset_t& waited, CQuotesService& service,
                              CServedCertificate& certificate, const CSystemdNotifier& systemd,
                              const QString& serving) const {
    for (;;) {
        int received = 0;
        sigwait(&waited, &received);
        if (received != SIGHUP)
            return;
        // What a running server can read again: the settings other servers of its database
        // may have changed, and a renewed certificate. Its options take a restart.
        say(
            QStringLiteral("SIGHUP: reading the sub-systems and login-type settings and the "
                           "certificate files again; options take a restart"));
        systemd.reloading();
        certificate.refresh(say);
        const utils::RKError reloaded = service.reloadSettings(serverOwner());
        if (!reloaded.isSuccess())
            say(QStringLiteral("cannot read the settings again: %1")
                    .arg(QString::fromStdString(reloaded.errorMsg())));
        systemd.ready(serving);
    }
}
