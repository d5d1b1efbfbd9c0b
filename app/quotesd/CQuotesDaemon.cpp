#include "CQuotesDaemon.h"

#include <grpcpp/grpcpp.h>
#include <signal.h>
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
#include "CDatabase.h"
#include "CDatabaseUrl.h"
#include "CLoginFailures.h"
#include "CLoginManager.h"
#include "CPasswordHasher.h"
#include "CQuotesService.h"
#include "CRecordCodec.h"
#include "CSecretBox.h"
#include "CSecretKeyFile.h"
#include "CServiceError.h"
#include "CTlsIdentity.h"

namespace {

const char* const kAdmin = "admin";
const int kMaxIdleThreads = 32;

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
            accounts.setPassword(QString::fromLatin1(kAdmin), password);
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
    try {
        // The owner's way back in: the account is enabled too and its failed logins forgotten.
        CAccountStore store(service->database());
        store.setPassword(m_options.account, readSecretLine());
        store.setEnabled(m_options.account, true);
        service->database().transact(true, [&](QSqlDatabase& db) {
            CLoginFailures(service->database(), CLoginFailures::Rule())
                .clear(db, m_options.account, QString());
        });
    } catch (const CServiceError& e) {
        return fail(QString::fromStdString(e.what()));
    }
    return kOk;
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
    CLoginManager::Options loginOptions;
    loginOptions.lockoutBaseMs = m_options.lockoutBaseMs;
    CLoginManager logins(service->database(), loginOptions);
    CAdminServer admin(service, logins);

    grpc::SslServerCredentialsOptions tls;
    tls.pem_key_cert_pairs.push_back(
        {identity.privateKeyPem().toStdString(), identity.certificatePem().toStdString()});
    grpc::ServerBuilder builder;
    int port = 0;
    builder.AddListeningPort(m_options.listen.toStdString(), grpc::SslServerCredentials(tls),
                             &port);
    builder.SetMaxReceiveMessageSize(CRecordCodec::kMaxMessageBytes);
    builder.SetMaxSendMessageSize(CRecordCodec::kMaxMessageBytes);
    // Threads that served a burst of calls stay to poll for the next one instead of ending: each
    // thread holds its own database connection, which is costly to open again.
    builder.SetSyncServerOption(grpc::ServerBuilder::MAX_POLLERS, kMaxIdleThreads);
    builder.RegisterService(&admin);
    const std::unique_ptr<grpc::Server> server = builder.BuildAndStart();
    if (!server || port == 0)
        return fail(QStringLiteral("cannot listen on %1").arg(m_options.listen));
    const QString host = m_options.listen.left(m_options.listen.lastIndexOf(QLatin1Char(':')));
    say(QStringLiteral("listening on %1:%2 (%3)")
            .arg(host)
            .arg(port)
            .arg(service->databaseDescription()));

    int received = 0;
    sigwait(&stops, &received);
    say(QStringLiteral("stopping: calls in flight finish, new ones are refused"));
    // Our own drain: gRPC's shutdown with a long deadline also waits for idle connections. A
    // call whose handler has returned may still be sending its last answer: a second lets that
    // reach the client.
    if (!admin.drain(std::chrono::seconds(30)))
        say(QStringLiteral("calls still running after 30 s are cancelled"));
    server->Shutdown(std::chrono::system_clock::now() + std::chrono::seconds(1));
    server->Wait();
    say(QStringLiteral("stopped"));
    return kOk;
}
