// quotesd's certificates as an administrator meets them: init makes a private authority whose
// certificate desktops trust (published world-readable, the data directory stays private),
// cert renew gives the running server a new certificate without a restart or anything new on
// the desktops, cert show says what is served, and a server set up by an earlier release
// (self-signed) keeps working until cert migrate gives it an authority.
#include <grpcpp/grpcpp.h>
#include <sys/stat.h>
#include <unistd.h>
#include <QDir>
#include <QRegularExpression>
#include <QtTest>

#include "CRemoteAdmin.h"
#include "CTlsIdentity.h"
#include "QuotesctlRun.h"
#include "QuotesdProcess.h"
#include "TlsProbe.h"
#include "quotes.grpc.pb.h"

namespace {

const QString kPassword = QStringLiteral("admin-password-1");
const int kReloadTimeoutMs = 20000;

int fileMode(const QString& path) {
    struct stat info = {};
    if (::lstat(QFile::encodeName(path).constData(), &info) != 0)
        return -1;
    return static_cast<int>(info.st_mode & 07777);
}

QByteArray readFile(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// Writes a file of the server's as its owner would (the server runs as nobody under root).
bool writeServerFile(const QString& path, const QByteArray& bytes, const QString& ownerOf) {
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate) || file.write(bytes) != bytes.size())
        return false;
    file.close();
    struct stat owner = {};
    return ::stat(QFile::encodeName(ownerOf).constData(), &owner) == 0 &&
           ::chmod(QFile::encodeName(path).constData(), 0600) == 0 &&
           ::chown(QFile::encodeName(path).constData(), owner.st_uid, owner.st_gid) == 0;
}

bool logsIn(const QuotesdProcess& server, const QByteArray& trusted) {
    CRemoteAdmin admin({server.address().toStdString()}, trusted.toStdString(),
                       std::chrono::seconds(5));
    const utils::RKError login = admin.login("admin", kPassword.toStdString());
    if (!login.isSuccess())
        qWarning("%s", login.errorMsg().c_str());
    return login.isSuccess();
}

QString servedFingerprint(const QuotesdProcess& server) {
    return CTlsIdentity::fingerprintOf(server.servedCertificatePem());
}

}  // namespace

class TestQuotesdCerts : public QObject {
    Q_OBJECT
private:
    QuotesdProcess m_server;
    QuotesdProcess m_legacy;
    QString m_initOutput;

    QString dataFile(const QuotesdProcess& server, const char* name) const {
        return QDir(server.dataDir()).filePath(QLatin1String(name));
    }

    int cert(const QuotesdProcess& server, const QStringList& arguments, QString* output) const {
        return server.run(QStringList{QStringLiteral("cert")} + arguments +
                              QStringList{QStringLiteral("--data"), server.dataDir()},
                          QByteArray(), output);
    }

    // A server as an earlier release set it up: a self-signed certificate in the data
    // directory, no authority, nothing published.
    bool setUpLegacy(QString* output) {
        if (!m_legacy.init(kPassword, output))
            return false;
        const CTlsIdentity old = CTlsIdentity::create();
        const QString data = m_legacy.dataDir();
        return writeServerFile(dataFile(m_legacy, "quotesd.key"), old.privateKeyPem(), data) &&
               writeServerFile(dataFile(m_legacy, "quotesd.crt"), old.certificatePem(), data) &&
               QFile::remove(dataFile(m_legacy, "ca.key")) &&
               QDir(m_legacy.publicDir()).removeRecursively();
    }

private slots:
    void initTestCase() {
        QVERIFY2(m_server.init(kPassword, &m_initOutput), qPrintable(m_initOutput));
        QVERIFY2(m_server.start({QStringLiteral("--certificate-check-s"), QStringLiteral("1")}),
                 qPrintable(m_server.log()));
    }

    void cleanupTestCase() {
        if (m_server.isRunning())
            QCOMPARE(m_server.stop(), 0);
        if (m_legacy.isRunning())
            QCOMPARE(m_legacy.stop(), 0);
    }

    void initPublishesTheAuthorityDesktopsTrust() {
        const QByteArray authority = m_server.certificatePem();
        QVERIFY(!authority.isEmpty());
        const QString fingerprint = CTlsIdentity::fingerprintOf(authority);
        QVERIFY2(m_initOutput.contains(QStringLiteral("SHA-256 fingerprint ") + fingerprint),
                 qPrintable(m_initOutput));
        QVERIFY2(m_initOutput.contains(m_server.publicDir() + QStringLiteral("/ca.crt")),
                 qPrintable(m_initOutput));
        QCOMPARE(fileMode(m_server.publicDir()), 0755);
        QCOMPARE(fileMode(m_server.publicDir() + QStringLiteral("/ca.crt")), 0644);
        // The chain served ends with the published authority.
        QCOMPARE(CTlsIdentity::certificatesOf(m_server.servedCertificatePem()).last(), authority);
    }

    void dataDirectoryStaysPrivate() {
        QCOMPARE(fileMode(m_server.dataDir()), 0700);
        const QDir data(m_server.dataDir());
        const QStringList files = data.entryList(QDir::Files | QDir::Hidden);
        QVERIFY(files.contains(QStringLiteral("ca.key")));
        QVERIFY(files.contains(QStringLiteral("quotesd.crt")));
        for (const QString& name : files)
            QVERIFY2(fileMode(data.filePath(name)) == 0600, qPrintable(name));
        // Nothing was too wide for the first start to narrow.
        QVERIFY2(!m_server.log().contains(QStringLiteral("权限过宽")), qPrintable(m_server.log()));
    }

    void serverCertificateIsValid397DaysForTheHosts() {
        QString output;
        QCOMPARE(cert(m_server, {QStringLiteral("show")}, &output), 0);
        QVERIFY2(output.contains(QStringLiteral("names: localhost, 127.0.0.1")),
                 qPrintable(output));
        QVERIFY2(output.contains(servedFingerprint(m_server)), qPrintable(output));
        QVERIFY2(output.contains(CTlsIdentity::fingerprintOf(m_server.certificatePem())),
                 qPrintable(output));
        const QDateTime end = QDateTime::currentDateTimeUtc().addDays(397);
        QVERIFY2(output.contains(end.toString(QStringLiteral("yyyy-MM-dd"))) ||
                     output.contains(end.addDays(-1).toString(QStringLiteral("yyyy-MM-dd"))),
                 qPrintable(output));
        QVERIFY2(output.contains(QStringLiteral("396 days left")) ||
                     output.contains(QStringLiteral("397 days left")),
                 qPrintable(output));
        QVERIFY(!output.contains(QStringLiteral("warning")));
    }

    void desktopTrustingTheAuthorityLogsIn() {
        QVERIFY(logsIn(m_server, m_server.certificatePem()));
    }

    void pingSaysWhenTheCertificateEnds() {
        grpc::SslCredentialsOptions tls;
        tls.pem_root_certs = m_server.certificatePem().toStdString();
        const auto stub = quotes::v1::QuotesAdmin::NewStub(
            grpc::CreateChannel(m_server.address().toStdString(), grpc::SslCredentials(tls)));
        grpc::ClientContext context;
        context.set_deadline(std::chrono::system_clock::now() + std::chrono::seconds(10));
        quotes::v1::PingReply reply;
        const grpc::Status status = stub->Ping(&context, quotes::v1::PingRequest(), &reply);
        QVERIFY2(status.ok(), status.error_message().c_str());
        const CTlsIdentity served = CTlsIdentity::fromPem(
            readFile(dataFile(m_server, "quotesd.key")), m_server.servedCertificatePem());
        QCOMPARE(reply.certificate_expires_ms(), served.notAfter().toMSecsSinceEpoch());
    }

    void renewedCertificateIsServedWithoutRestart() {
        const qint64 pid = m_server.processId();
        const QString before = servedFingerprint(m_server);
        QCOMPARE(TlsProbe::servedFingerprint(m_server.port()), before);
        QString output;
        QCOMPARE(cert(m_server, {QStringLiteral("renew")}, &output), 0);
        const QString renewed = servedFingerprint(m_server);
        QVERIFY(renewed != before);
        QTRY_COMPARE_WITH_TIMEOUT(TlsProbe::servedFingerprint(m_server.port()), renewed,
                                  kReloadTimeoutMs);
        QCOMPARE(m_server.processId(), pid);
        // Desktops keep the file they have.
        QVERIFY(logsIn(m_server, m_server.certificatePem()));
        QTRY_VERIFY(m_server.log().contains(QStringLiteral("new certificate")));
        QVERIFY2(m_server.log().contains(renewed), qPrintable(m_server.log()));
        QVERIFY2(!m_server.log().contains(QStringLiteral("self-check failed")),
                 qPrintable(m_server.log()));
        const QStringList faults = TlsProbe::offerFaults(m_server.port());
        QVERIFY2(faults.isEmpty(), qPrintable(faults.join(QStringLiteral("; "))));
    }

    void renewTakesTheAuthorityKeyFromWhereItIsKept() {
        const QString away = m_server.dataDir() + QStringLiteral("-offline.key");
        QVERIFY(QFile::rename(dataFile(m_server, "ca.key"), away));
        QString output;
        QCOMPARE(cert(m_server, {QStringLiteral("renew")}, &output), 1);
        QVERIFY2(output.contains(QStringLiteral("--ca-key")), qPrintable(output));
        QCOMPARE(cert(m_server, {QStringLiteral("show")}, &output), 0);
        QVERIFY2(output.contains(QStringLiteral("not on this server")), qPrintable(output));
        const QStringList renew{QStringLiteral("renew"),
                                QStringLiteral("--ca-key"),
                                away,
                                QStringLiteral("--host"),
                                QStringLiteral("quotes.example.com"),
                                QStringLiteral("--host"),
                                QStringLiteral("127.0.0.1")};
        QCOMPARE(cert(m_server, renew, &output), 0);
        QCOMPARE(cert(m_server, {QStringLiteral("show")}, &output), 0);
        QVERIFY2(output.contains(QStringLiteral("names: quotes.example.com, 127.0.0.1")),
                 qPrintable(output));
        QVERIFY(QFile::rename(away, dataFile(m_server, "ca.key")));
        // A key of another authority is refused and changes nothing.
        const QString served = servedFingerprint(m_server);
        const CTlsIdentity stranger = CTlsIdentity::createAuthority(QStringLiteral("x"));
        QVERIFY(writeServerFile(away, stranger.privateKeyPem(), m_server.dataDir()));
        QCOMPARE(
            cert(m_server, {QStringLiteral("renew"), QStringLiteral("--ca-key"), away}, &output),
            1);
        QCOMPARE(servedFingerprint(m_server), served);
        QFile::remove(away);
    }

    void serverWarnsOfACertificateEndingSoon() {
        const CTlsIdentity authority = CTlsIdentity::fromPem(readFile(dataFile(m_server, "ca.key")),
                                                             m_server.certificatePem());
        QVERIFY(authority.isAuthority());
        const CTlsIdentity soon =
            authority.signServer(CTlsIdentity::defaultHostNames(), nullptr, 10);
        QVERIFY(writeServerFile(dataFile(m_server, "quotesd.crt"), soon.certificatePem(),
                                m_server.dataDir()));
        QVERIFY(writeServerFile(dataFile(m_server, "quotesd.key"), soon.privateKeyPem(),
                                m_server.dataDir()));
        QTRY_VERIFY_WITH_TIMEOUT(m_server.log().contains(QStringLiteral("expires on")),
                                 kReloadTimeoutMs);
        QString output;
        QCOMPARE(cert(m_server, {QStringLiteral("show")}, &output), 0);
        QVERIFY2(output.contains(QStringLiteral("warning: the server certificate expires on")),
                 qPrintable(output));
        // A monitor's health line says it too, and counts the server as serving. The files were
        // replaced one after the other while the server ran, so a self-check of that moment may
        // have failed: the server serves again at the next one.
        QuotesctlRun health;
        const auto serving = [&] {
            health = QuotesctlRun::start(
                qEnvironmentVariable("QUOTES_BINARY_DIR") + QStringLiteral("/bin/quotesctl"),
                {QStringLiteral("--server"), m_server.address(), QStringLiteral("--ca"),
                 QDir(m_server.publicDir()).filePath(QStringLiteral("ca.crt")),
                 QStringLiteral("health")});
            return health.code == 0;
        };
        QTRY_VERIFY2_WITH_TIMEOUT(serving(), qPrintable(health.out + health.err + m_server.log()),
                                  kReloadTimeoutMs);
        QVERIFY2(health.out.contains("SERVING version") &&
                     health.out.contains("; the server certificate expires on"),
                 health.out.constData());
        QCOMPARE(cert(m_server, {QStringLiteral("renew")}, &output), 0);
    }

    void serverOfAnEarlierReleaseKeepsWorking() {
        QString output;
        QVERIFY2(setUpLegacy(&output), qPrintable(output));
        // Long enough that the server's own check sees the old certificate served after the
        // files changed.
        QVERIFY2(m_legacy.start({QStringLiteral("--certificate-check-s"), QStringLiteral("5")}),
                 qPrintable(m_legacy.log()));
        const QByteArray pinned = m_legacy.servedCertificatePem();
        QVERIFY(logsIn(m_legacy, pinned));
        QCOMPARE(cert(m_legacy, {QStringLiteral("renew")}, &output), 1);
        QVERIFY2(output.contains(QStringLiteral("cert migrate")), qPrintable(output));
        QCOMPARE(cert(m_legacy, {QStringLiteral("show")}, &output), 0);
        QVERIFY2(output.contains(QStringLiteral("self-signed")), qPrintable(output));
    }

    void migrateGivesItAnAuthorityWhileItServes() {
        const QByteArray pinned = m_legacy.servedCertificatePem();
        QString output;
        QCOMPARE(cert(m_legacy, {QStringLiteral("migrate")}, &output), 0);
        const QByteArray authority = m_legacy.certificatePem();
        QVERIFY2(!authority.isEmpty(), qPrintable(output));
        QVERIFY2(output.contains(m_legacy.publicDir() + QStringLiteral("/ca.crt")),
                 qPrintable(output));
        QCOMPARE(fileMode(m_legacy.publicDir() + QStringLiteral("/ca.crt")), 0644);
        QCOMPARE(fileMode(dataFile(m_legacy, "ca.key")), 0600);
        // A desktop given both certificates trusts the server before and after the switch.
        QVERIFY(logsIn(m_legacy, pinned + authority));
        QTRY_COMPARE_WITH_TIMEOUT(TlsProbe::servedFingerprint(m_legacy.port()),
                                  servedFingerprint(m_legacy), kReloadTimeoutMs);
        QVERIFY(logsIn(m_legacy, authority));
        QVERIFY(logsIn(m_legacy, pinned + authority));
        QVERIFY2(!m_legacy.log().contains(QStringLiteral("self-check failed")),
                 qPrintable(m_legacy.log()));
        QVERIFY2(!m_legacy.log().contains(QStringLiteral("listening anew")),
                 qPrintable(m_legacy.log()));
        QCOMPARE(cert(m_legacy, {QStringLiteral("migrate")}, &output), 1);
        QCOMPARE(cert(m_legacy, {QStringLiteral("renew")}, &output), 0);
    }
};

QTEST_GUILESS_MAIN(TestQuotesdCerts)
#include "tst_quotesd_certs.moc"
