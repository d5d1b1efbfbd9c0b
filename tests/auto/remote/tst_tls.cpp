// The TLS identity of quotesd, and the transport it secures: a gRPC server on the generated
// identity answers a client that pins the certificate, and nobody else.
#include <arpa/inet.h>
#include <grpcpp/grpcpp.h>
#include <netinet/in.h>
#include <openssl/pem.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>
#include <QCryptographicHash>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QtTest>
#include <atomic>
#include <chrono>
#include <memory>

#include "CRecordCodec.h"
#include "CTlsIdentity.h"
#include "TlsProbe.h"
#include "quotes.grpc.pb.h"

namespace {

const int kMaxMessageBytes = CRecordCodec::kMaxMessageBytes;
const std::chrono::seconds kCallDeadline(10);

// Answers Ping only; every other call keeps the generated UNIMPLEMENTED answer.
class PingOnlyService : public quotes::v1::QuotesAdmin::Service {
public:
    grpc::Status Ping(grpc::ServerContext*, const quotes::v1::PingRequest*,
                      quotes::v1::PingReply* reply) override {
        ++pings;
        reply->set_server_version("test");
        reply->set_database("none");
        reply->set_uptime_seconds(1);
        return grpc::Status::OK;
    }

    std::atomic<int> pings{0};
};

// The names a certificate's subjectAltName lists, read with OpenSSL directly.
QStringList subjectAltNames(const QByteArray& pem) {
    BIO* bio = BIO_new_mem_buf(pem.constData(), pem.size());
    X509* cert = PEM_read_bio_X509(bio, nullptr, nullptr, nullptr);
    BIO_free(bio);
    QStringList names;
    auto* general = static_cast<GENERAL_NAMES*>(
        cert ? X509_get_ext_d2i(cert, NID_subject_alt_name, nullptr, nullptr) : nullptr);
    for (int i = 0; general && i < sk_GENERAL_NAME_num(general); ++i) {
        const GENERAL_NAME* name = sk_GENERAL_NAME_value(general, i);
        const unsigned char* data = ASN1_STRING_get0_data(name->d.ia5);
        const int size = ASN1_STRING_length(name->d.ia5);
        if (name->type == GEN_DNS) {
            names << "DNS:" + QString::fromLatin1(reinterpret_cast<const char*>(data), size);
        } else if (name->type == GEN_IPADD) {
            char text[INET6_ADDRSTRLEN] = {};
            inet_ntop(size == 4 ? AF_INET : AF_INET6, data, text, sizeof text);
            names << "IP:" + QString::fromLatin1(text);
        }
    }
    GENERAL_NAMES_free(general);
    X509_free(cert);
    return names;
}

// Days between notBefore and notAfter, read with OpenSSL directly.
int validityDays(const QByteArray& pem) {
    BIO* bio = BIO_new_mem_buf(pem.constData(), pem.size());
    X509* cert = PEM_read_bio_X509(bio, nullptr, nullptr, nullptr);
    BIO_free(bio);
    int days = -1, seconds = 0;
    if (cert)
        ASN1_TIME_diff(&days, &seconds, X509_get0_notBefore(cert), X509_get0_notAfter(cert));
    X509_free(cert);
    return days;
}

// SHA-256 of the DER inside the PEM, computed without OpenSSL.
QString derFingerprint(const QByteArray& pem) {
    QByteArray body = pem;
    body.replace("-----BEGIN CERTIFICATE-----", "").replace("-----END CERTIFICATE-----", "");
    const QByteArray der = QByteArray::fromBase64(body.simplified().replace(" ", ""));
    return QString::fromLatin1(
        QCryptographicHash::hash(der, QCryptographicHash::Sha256).toHex(':').toUpper());
}

int fileMode(const QString& path) {
    struct stat info = {};
    if (::stat(QFile::encodeName(path).constData(), &info) != 0)
        return -1;
    return static_cast<int>(info.st_mode & 07777);
}

}  // namespace

class TestTls : public QObject {
    Q_OBJECT
private:
    QTemporaryDir m_dir;
    CTlsIdentity m_identity;
    CTlsIdentity m_stranger;
    PingOnlyService m_service;
    std::unique_ptr<grpc::Server> m_server;
    int m_port = 0;

    QString path(const char* name) const { return m_dir.filePath(QLatin1String(name)); }

    std::unique_ptr<quotes::v1::QuotesAdmin::Stub> stub(
        const std::shared_ptr<grpc::ChannelCredentials>& credentials) const {
        const std::string target = "127.0.0.1:" + std::to_string(m_port);
        return quotes::v1::QuotesAdmin::NewStub(grpc::CreateChannel(target, credentials));
    }

    std::shared_ptr<grpc::ChannelCredentials> trusting(const CTlsIdentity& identity) const {
        grpc::SslCredentialsOptions options;
        options.pem_root_certs = identity.certificatePem().toStdString();
        return grpc::SslCredentials(options);
    }

    grpc::Status ping(quotes::v1::QuotesAdmin::Stub* stub, quotes::v1::PingReply* reply) const {
        grpc::ClientContext context;
        context.set_deadline(std::chrono::system_clock::now() + kCallDeadline);
        return stub->Ping(&context, quotes::v1::PingRequest(), reply);
    }

private slots:
    void initTestCase() {
        QVERIFY(m_dir.isValid());
        QString error;
        m_identity = CTlsIdentity::create(CTlsIdentity::defaultHostNames(), &error);
        QVERIFY2(!m_identity.isNull(), qPrintable(error));
        QVERIFY2(m_identity.save(path("server.key"), path("server.crt"), &error),
                 qPrintable(error));
        m_stranger = CTlsIdentity::create(CTlsIdentity::defaultHostNames(), &error);
        QVERIFY2(!m_stranger.isNull(), qPrintable(error));

        // The server as quotesd runs it: TLS only, on the files just written.
        const CTlsIdentity loaded =
            CTlsIdentity::load(path("server.key"), path("server.crt"), &error);
        QVERIFY2(!loaded.isNull(), qPrintable(error));
        grpc::SslServerCredentialsOptions options;
        options.pem_key_cert_pairs.push_back(
            {loaded.privateKeyPem().toStdString(), loaded.certificatePem().toStdString()});
        grpc::ServerBuilder builder;
        builder.AddListeningPort("127.0.0.1:0", grpc::SslServerCredentials(options), &m_port);
        builder.SetMaxReceiveMessageSize(kMaxMessageBytes);
        builder.RegisterService(&m_service);
        m_server = builder.BuildAndStart();
        QVERIFY(m_server);
        QVERIFY(m_port > 0);
    }

    void cleanupTestCase() {
        if (m_server)
            m_server->Shutdown(std::chrono::system_clock::now() + kCallDeadline);
    }

    void keyFileIsReadableByItsOwnerOnly() {
        QCOMPARE(fileMode(path("server.key")), 0600);
        QVERIFY(QFileInfo(path("server.crt")).size() > 0);
    }

    void keySavedOverAWiderFileBecomesPrivate() {
        const QString key = path("wide.key");
        QFile wide(key);
        QVERIFY(wide.open(QIODevice::WriteOnly));
        wide.close();
        QVERIFY(wide.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ReadGroup |
                                    QFile::ReadOther));
        QCOMPARE(fileMode(key), 0644);
        QString error;
        QVERIFY2(m_identity.save(key, path("wide.crt"), &error), qPrintable(error));
        QCOMPARE(fileMode(key), 0600);
        QVERIFY(QDir(m_dir.path()).entryList({"wide.key.*"}, QDir::Files).isEmpty());
    }

    void certificateNamesTheHosts() {
        const QStringList names = subjectAltNames(m_identity.certificatePem());
        QVERIFY2(names.contains("DNS:localhost"), qPrintable(names.join(' ')));
        QVERIFY2(names.contains("IP:127.0.0.1"), qPrintable(names.join(' ')));
        QCOMPARE(m_identity.dnsNames(), QStringList{"localhost"});
        QCOMPARE(m_identity.ipAddresses(), QStringList{"127.0.0.1"});

        const CTlsIdentity custom =
            CTlsIdentity::create({"quotes.example.com", "10.0.0.7", "::1", "*.desk.example"});
        QVERIFY(!custom.isNull());
        QCOMPARE(
            subjectAltNames(custom.certificatePem()),
            QStringList({"DNS:quotes.example.com", "IP:10.0.0.7", "IP:::1", "DNS:*.desk.example"}));
    }

    void badHostNamesAreRefused() {
        for (const char* bad : {"", "a,DNS:evil.example", "bad host", "ex_ample.com", "1..2"}) {
            QString error;
            QVERIFY2(CTlsIdentity::create({QString::fromLatin1(bad)}, &error).isNull(), bad);
            QVERIFY(!error.isEmpty());
        }
        QString error;
        QVERIFY(CTlsIdentity::create(QStringList(), &error).isNull());
    }

    void certificateIsValidForTwoYearsFromNow() {
        const int days = validityDays(m_identity.certificatePem());
        QVERIFY2(days >= 729 && days <= 731, qPrintable(QString::number(days)));
        const QDateTime now = QDateTime::currentDateTimeUtc();
        QVERIFY(m_identity.notBefore() <= now);
        QVERIFY(m_identity.notAfter() > now.addDays(729));
        QVERIFY(m_identity.notAfter() < now.addDays(731));
    }

    void fingerprintIsColonSeparatedSha256() {
        const QString fingerprint = m_identity.fingerprint();
        QVERIFY2(
            QRegularExpression("^([0-9A-F]{2}:){31}[0-9A-F]{2}$").match(fingerprint).hasMatch(),
            qPrintable(fingerprint));
        QCOMPARE(fingerprint, derFingerprint(m_identity.certificatePem()));
        QCOMPARE(CTlsIdentity::fingerprintOf(m_identity.certificatePem()), fingerprint);
        QVERIFY(m_stranger.fingerprint() != fingerprint);
        QVERIFY(CTlsIdentity::fingerprintOf("not a certificate").isEmpty());
    }

    void loadReadsBackTheSamePair() {
        QString error;
        const CTlsIdentity loaded =
            CTlsIdentity::load(path("server.key"), path("server.crt"), &error);
        QVERIFY2(!loaded.isNull(), qPrintable(error));
        QCOMPARE(loaded.fingerprint(), m_identity.fingerprint());
        QCOMPARE(loaded.privateKeyPem(), m_identity.privateKeyPem());
        QCOMPARE(loaded.dnsNames(), m_identity.dnsNames());
        QCOMPARE(loaded.notAfter(), m_identity.notAfter());
    }

    void loadRefusesAKeyOfAnotherCertificate() {
        QString error;
        QVERIFY(m_stranger.save(path("stranger.key"), path("stranger.crt"), &error));
        QVERIFY(CTlsIdentity::load(path("stranger.key"), path("server.crt"), &error).isNull());
        QVERIFY(!error.isEmpty());
        error.clear();
        QVERIFY(CTlsIdentity::load(path("missing.key"), path("server.crt"), &error).isNull());
        QVERIFY(!error.isEmpty());
        error.clear();
        QVERIFY(CTlsIdentity::load(path("server.crt"), path("server.crt"), &error).isNull());
        QVERIFY(!error.isEmpty());
    }

    void clientPinningTheCertificateCanPing() {
        auto client = stub(trusting(m_identity));
        quotes::v1::PingReply reply;
        const int before = m_service.pings;
        const grpc::Status status = ping(client.get(), &reply);
        QVERIFY2(status.ok(), status.error_message().c_str());
        QCOMPARE(reply.server_version(), std::string("test"));
        QCOMPARE(m_service.pings.load(), before + 1);
    }

    void plaintextClientIsRefused() {
        auto client = stub(grpc::InsecureChannelCredentials());
        quotes::v1::PingReply reply;
        const int before = m_service.pings;
        const grpc::Status status = ping(client.get(), &reply);
        QVERIFY(!status.ok());
        QCOMPARE(status.error_code(), grpc::StatusCode::UNAVAILABLE);
        QCOMPARE(m_service.pings.load(), before);
    }

    void clientTrustingAnotherCertificateIsRefused() {
        auto client = stub(trusting(m_stranger));
        quotes::v1::PingReply reply;
        const int before = m_service.pings;
        const grpc::Status status = ping(client.get(), &reply);
        QVERIFY(!status.ok());
        QCOMPARE(status.error_code(), grpc::StatusCode::UNAVAILABLE);
        QCOMPARE(m_service.pings.load(), before);
    }

    void messagesOver16MiBAreRefused() {
        auto client = stub(trusting(m_identity));
        const auto import = [&client](int bytes) {
            quotes::v1::ImportRequest request;
            request.set_document(std::string(static_cast<size_t>(bytes), '{'));
            quotes::v1::ImportReply reply;
            grpc::ClientContext context;
            context.set_deadline(std::chrono::system_clock::now() + kCallDeadline);
            return client->ImportDocument(&context, request, &reply);
        };
        // Under the limit the call reaches the service (which does not implement it here).
        QCOMPARE(import(kMaxMessageBytes - 1024).error_code(), grpc::StatusCode::UNIMPLEMENTED);
        QCOMPARE(import(kMaxMessageBytes + 1024).error_code(),
                 grpc::StatusCode::RESOURCE_EXHAUSTED);
    }

    // gRPC 1.51's C++ credentials cannot set a minimum TLS version; its default (and the
    // system's OpenSSL policy) is TLS 1.2. Check that the server holds to it.
    void serverRefusesTlsOlderThan12() {
        QCOMPARE(TlsProbe::handshake(m_port, TLS1_2_VERSION, TLS1_2_VERSION), QString());
        QCOMPARE(TlsProbe::handshake(m_port, TLS1_3_VERSION, TLS1_3_VERSION), QString());
        const QString old = TlsProbe::handshake(m_port, TLS1_VERSION, TLS1_1_VERSION);
        // The server drops the connection; the client itself was willing (it would have said
        // "no protocols available" otherwise).
        QVERIFY(!old.isEmpty());
        QVERIFY2(!old.contains("no protocols available"), qPrintable(old));
    }
};

QTEST_GUILESS_MAIN(TestTls)
#include "tst_tls.moc"
