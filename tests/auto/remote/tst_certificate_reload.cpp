// The certificate a server serves comes from its files while it runs: a server certificate
// renewed from the same authority reaches new connections without a restart, clients that
// trust the authority notice nothing, and the TLS offer stays TLS 1.2/1.3 with AEAD suites.
#include <grpcpp/grpcpp.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>
#include <openssl/x509_vfy.h>
#include <openssl/x509v3.h>
#include <sys/stat.h>
#include <QTemporaryDir>
#include <QtTest>
#include <chrono>
#include <memory>

#include "CServedCertificate.h"
#include "CTlsIdentity.h"
#include "TlsProbe.h"
#include "quotes.grpc.pb.h"

namespace {

const std::chrono::seconds kCallDeadline(10);
const int kReloadTimeoutMs = 15000;

class PingOnlyService : public quotes::v1::QuotesAdmin::Service {
public:
    grpc::Status Ping(grpc::ServerContext*, const quotes::v1::PingRequest*,
                      quotes::v1::PingReply* reply) override {
        reply->set_server_version("test");
        return grpc::Status::OK;
    }
};

int fileMode(const QString& path) {
    struct stat info = {};
    if (::stat(QFile::encodeName(path).constData(), &info) != 0)
        return -1;
    return static_cast<int>(info.st_mode & 07777);
}

// Whether OpenSSL verifies the chain's first certificate against the authority alone, as a
// desktop given ca.crt does (names aside: gRPC checks those).
bool verifiesAgainst(const QByteArray& chainPem, const QByteArray& authorityPem) {
    const auto read = [](const QByteArray& pem) {
        BIO* bio = BIO_new_mem_buf(pem.constData(), pem.size());
        X509* cert = PEM_read_bio_X509(bio, nullptr, nullptr, nullptr);
        BIO_free(bio);
        return cert;
    };
    X509* leaf = read(CTlsIdentity::certificatesOf(chainPem).value(0));
    X509* root = read(authorityPem);
    X509_STORE* store = X509_STORE_new();
    X509_STORE_add_cert(store, root);
    X509_STORE_CTX* context = X509_STORE_CTX_new();
    X509_STORE_CTX_init(context, store, leaf, nullptr);
    X509_STORE_CTX_set_purpose(context, X509_PURPOSE_SSL_SERVER);
    const bool verified = X509_verify_cert(context) == 1;
    X509_STORE_CTX_free(context);
    X509_STORE_free(store);
    X509_free(root);
    X509_free(leaf);
    return verified;
}

}  // namespace

class TestCertificateReload : public QObject {
    Q_OBJECT
private:
    QTemporaryDir m_dir;
    CTlsIdentity m_authority;
    std::unique_ptr<CServedCertificate> m_served;
    PingOnlyService m_service;
    std::unique_ptr<grpc::Server> m_server;
    int m_port = 0;
    QStringList m_log;

    QString path(const char* name) const { return m_dir.filePath(QLatin1String(name)); }

    // A new channel and connection trusting only the authority, as a desktop given ca.crt.
    grpc::Status pingTrustingAuthority() const {
        grpc::SslCredentialsOptions tls;
        tls.pem_root_certs = m_authority.certificatePem().toStdString();
        grpc::ChannelArguments arguments;
        arguments.SetInt(GRPC_ARG_USE_LOCAL_SUBCHANNEL_POOL, 1);
        const auto stub = quotes::v1::QuotesAdmin::NewStub(grpc::CreateCustomChannel(
            "127.0.0.1:" + std::to_string(m_port), grpc::SslCredentials(tls), arguments));
        grpc::ClientContext context;
        context.set_deadline(std::chrono::system_clock::now() + kCallDeadline);
        quotes::v1::PingReply reply;
        return stub->Ping(&context, quotes::v1::PingRequest(), &reply);
    }

    CTlsIdentity serverCertificate(int days = CTlsIdentity::kServerDays) const {
        QString error;
        const CTlsIdentity server =
            m_authority.signServer(CTlsIdentity::defaultHostNames(), &error, days);
        if (server.isNull())
            qWarning("%s", qPrintable(error));
        return server;
    }

    CServedCertificate::Log collector() {
        return [this](const QString& line) { m_log << line; };
    }

private slots:
    void initTestCase() {
        QVERIFY(m_dir.isValid());
        QString error;
        m_authority = CTlsIdentity::createAuthority(QStringLiteral("localhost"), &error);
        QVERIFY2(!m_authority.isNull(), qPrintable(error));
        QVERIFY2(serverCertificate().save(path("server.key"), path("server.crt"), &error),
                 qPrintable(error));
        m_served = std::make_unique<CServedCertificate>(path("server.key"), path("server.crt"),
                                                        std::chrono::seconds(1), &error);
        QVERIFY2(!m_served->isNull(), qPrintable(error));
        grpc::ServerBuilder builder;
        builder.AddListeningPort("127.0.0.1:0", m_served->credentials(), &m_port);
        builder.RegisterService(&m_service);
        m_server = builder.BuildAndStart();
        QVERIFY(m_server);
        QVERIFY(m_port > 0);
    }

    void cleanupTestCase() {
        if (m_server)
            m_server->Shutdown(std::chrono::system_clock::now() + kCallDeadline);
    }

    void authorityIsACertificateAuthorityWithoutNames() {
        QVERIFY(m_authority.isAuthority());
        QVERIFY(m_authority.dnsNames().isEmpty() && m_authority.ipAddresses().isEmpty());
        QVERIFY(m_authority.notAfter() > QDateTime::currentDateTimeUtc().addYears(9));
        QString error;
        QVERIFY(serverCertificate().signServer(CTlsIdentity::defaultHostNames(), &error).isNull());
        QVERIFY(!error.isEmpty());
    }

    void serverCertificateIsValid397DaysAndChainsToTheAuthority() {
        const CTlsIdentity server = serverCertificate();
        QVERIFY(!server.isAuthority());
        QVERIFY(!server.isSelfSigned());
        QCOMPARE(server.dnsNames(), QStringList{"localhost"});
        QCOMPARE(server.ipAddresses(), QStringList{"127.0.0.1"});
        const qint64 days = server.notBefore().secsTo(server.notAfter()) / 86400;
        QVERIFY2(days == 397, qPrintable(QString::number(days)));
        const QList<QByteArray> chain = CTlsIdentity::certificatesOf(server.certificatePem());
        QCOMPARE(chain.size(), 2);
        QCOMPARE(chain.last(), m_authority.certificatePem());
        QCOMPARE(server.rootCertificatePem(), m_authority.certificatePem());
        QVERIFY(verifiesAgainst(server.certificatePem(), m_authority.certificatePem()));
        // Another authority's certificate does not verify it.
        const CTlsIdentity stranger = CTlsIdentity::createAuthority(QStringLiteral("localhost"));
        QVERIFY(!verifiesAgainst(server.certificatePem(), stranger.certificatePem()));
    }

    void selfSignedCertificateIsItsOwnRoot() {
        const CTlsIdentity old = CTlsIdentity::create();
        QVERIFY(old.isSelfSigned());
        QVERIFY(!old.isAuthority());
        QCOMPARE(old.rootCertificatePem(), old.certificatePem());
    }

    void savedFilesAreReadableByTheirOwnerOnly() {
        QCOMPARE(fileMode(path("server.key")), 0600);
        QCOMPARE(fileMode(path("server.crt")), 0600);
        QString error;
        QVERIFY(m_authority.saveKey(path("ca.key"), &error));
        QCOMPARE(fileMode(path("ca.key")), 0600);
        QFile key(path("ca.key"));
        QVERIFY(key.open(QIODevice::ReadOnly));
        QCOMPARE(key.readAll(), m_authority.privateKeyPem());
    }

    void clientTrustingTheAuthorityPings() {
        const grpc::Status status = pingTrustingAuthority();
        QVERIFY2(status.ok(), status.error_message().c_str());
        QCOMPARE(TlsProbe::servedFingerprint(m_port), m_served->current().fingerprint());
    }

    void offersOnlyTls12And13WithAeadSuites() {
        const QStringList faults = TlsProbe::offerFaults(m_port);
        QVERIFY2(faults.isEmpty(), qPrintable(faults.join(QStringLiteral("; "))));
    }

    void renewedCertificateIsServedWithoutRestart() {
        const QString before = TlsProbe::servedFingerprint(m_port);
        QVERIFY(!before.isEmpty());
        const CTlsIdentity renewed = serverCertificate();
        QString error;
        QVERIFY2(renewed.save(path("server.key"), path("server.crt"), &error), qPrintable(error));
        QTRY_COMPARE_WITH_TIMEOUT(TlsProbe::servedFingerprint(m_port), renewed.fingerprint(),
                                  kReloadTimeoutMs);
        // A desktop that trusts the authority needs nothing new.
        const grpc::Status status = pingTrustingAuthority();
        QVERIFY2(status.ok(), status.error_message().c_str());
        // The offer after the switch is the one before it.
        const QStringList faults = TlsProbe::offerFaults(m_port);
        QVERIFY2(faults.isEmpty(), qPrintable(faults.join(QStringLiteral("; "))));
    }

    void refreshSaysWhatChangedAndWarnsOnceBeforeTheEnd() {
        QString error;
        QVERIFY(serverCertificate(10).save(path("short.key"), path("short.crt"), &error));
        CServedCertificate served(path("short.key"), path("short.crt"), std::chrono::seconds(1),
                                  &error);
        QVERIFY2(!served.isNull(), qPrintable(error));
        QVERIFY(served.daysLeft() == 9 || served.daysLeft() == 10);
        m_log.clear();
        served.refresh(collector());
        QCOMPARE(m_log.size(), 1);
        QVERIFY2(m_log.first().contains(QStringLiteral("expires on")), qPrintable(m_log.first()));
        served.refresh(collector());
        QCOMPARE(m_log.size(), 1);  // once a day, not every check

        const CTlsIdentity renewed = serverCertificate();
        QVERIFY(renewed.save(path("short.key"), path("short.crt"), &error));
        served.refresh(collector());
        QCOMPARE(m_log.size(), 2);
        QVERIFY2(m_log.last().contains(renewed.fingerprint()), qPrintable(m_log.last()));
        QVERIFY(served.expiryWarning().isEmpty());
        QCOMPARE(served.current().fingerprint(), renewed.fingerprint());
        QVERIFY(served.daysLeft() >= 396);
    }

    void brokenFilesKeepThePairAndAreSaidOnce() {
        QString error;
        QVERIFY(serverCertificate().save(path("broken.key"), path("broken.crt"), &error));
        CServedCertificate served(path("broken.key"), path("broken.crt"), std::chrono::seconds(1),
                                  &error);
        const QString fingerprint = served.current().fingerprint();
        // Another key over the key file: the pair no longer matches, as while half written.
        QVERIFY(CTlsIdentity::create().saveKey(path("broken.key"), &error));
        m_log.clear();
        served.refresh(collector());
        served.refresh(collector());
        QCOMPARE(m_log.size(), 1);
        QVERIFY2(m_log.first().contains(QStringLiteral("keeps")), qPrintable(m_log.first()));
        QCOMPARE(served.current().fingerprint(), fingerprint);
    }

    void trustedRootsKeepEveryRootSeen() {
        QString error;
        const CTlsIdentity old = CTlsIdentity::create();
        QVERIFY(old.save(path("moved.key"), path("moved.crt"), &error));
        CServedCertificate served(path("moved.key"), path("moved.crt"), std::chrono::seconds(1),
                                  &error);
        QCOMPARE(served.trustedRoots(), old.certificatePem().toStdString());
        QVERIFY(serverCertificate().save(path("moved.key"), path("moved.crt"), &error));
        served.refresh([](const QString&) {});
        const std::string roots = served.trustedRoots();
        QVERIFY(roots.find(old.certificatePem().toStdString()) != std::string::npos);
        QVERIFY(roots.find(m_authority.certificatePem().toStdString()) != std::string::npos);
    }

    void expiryWarningStartsThirtyDaysBeforeTheEnd() {
        const CTlsIdentity server = serverCertificate();
        const QDateTime end = server.notAfter();
        QVERIFY(CServedCertificate::expiryWarning(server, end.addDays(-31)).isEmpty());
        const QString soon = CServedCertificate::expiryWarning(server, end.addDays(-30));
        QVERIFY2(soon.contains(QStringLiteral("in 30 days")), qPrintable(soon));
        QVERIFY(soon.contains(QStringLiteral("quotesd cert renew")));
        const QString late = CServedCertificate::expiryWarning(server, end.addSecs(3600));
        QVERIFY2(late.contains(QStringLiteral("expired")), qPrintable(late));
        QCOMPARE(CServedCertificate::daysLeft(server, end.addSecs(3600)), -1);
        QCOMPARE(CServedCertificate::daysLeft(server, end.addDays(-2)), 2);
    }
};

QTEST_GUILESS_MAIN(TestCertificateReload)
#include "tst_certificate_reload.moc"
