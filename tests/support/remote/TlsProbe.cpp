#include "TlsProbe.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>
#include <sys/socket.h>
#include <unistd.h>

#include <QByteArray>
#include <QProcess>

namespace {

// A connected TLS client socket, or -1.
int connectLoopback(int port) {
    const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const timeval timeout = {10, 0};
    ::setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout);
    ::setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &timeout, sizeof timeout);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        ::close(fd);
        return -1;
    }
    return fd;
}

// Runs a handshake and hands the connected SSL to `connected`; the handshake's failure or "".
template <typename Connected>
QString withHandshake(int port, int minVersion, int maxVersion, Connected connected) {
    SSL_CTX* context = SSL_CTX_new(TLS_client_method());
    // The system's defaults forbid old versions in the client too; lift them here.
    SSL_CTX_set_security_level(context, 0);
    SSL_CTX_set_cipher_list(context, "ALL:@SECLEVEL=0");
    SSL_CTX_set_min_proto_version(context, minVersion);
    SSL_CTX_set_max_proto_version(context, maxVersion);
    SSL_CTX_set_verify(context, SSL_VERIFY_NONE, nullptr);
    const int fd = connectLoopback(port);
    QString outcome;
    if (fd < 0) {
        outcome = QStringLiteral("connect failed");
    } else {
        SSL* ssl = SSL_new(context);
        SSL_set_fd(ssl, fd);
        SSL_set_alpn_protos(ssl, reinterpret_cast<const unsigned char*>("\x02h2"), 3);
        if (SSL_connect(ssl) != 1) {
            char reason[256] = "handshake failed";
            if (const unsigned long code = ERR_peek_last_error())
                ERR_error_string_n(code, reason, sizeof reason);
            outcome = QString::fromLatin1(reason);
        } else {
            connected(ssl);
        }
        SSL_free(ssl);
        ::close(fd);
    }
    ERR_clear_error();
    SSL_CTX_free(context);
    return outcome;
}

}  // namespace

QString TlsProbe::handshake(int port, int minVersion, int maxVersion) {
    return withHandshake(port, minVersion, maxVersion, [](SSL*) {});
}

QString TlsProbe::servedFingerprint(int port) {
    QString fingerprint;
    withHandshake(port, TLS1_2_VERSION, TLS1_3_VERSION, [&fingerprint](SSL* ssl) {
        X509* peer = SSL_get1_peer_certificate(ssl);
        unsigned char digest[EVP_MAX_MD_SIZE];
        unsigned int size = 0;
        if (peer && X509_digest(peer, EVP_sha256(), digest, &size) == 1)
            fingerprint = QString::fromLatin1(
                QByteArray(reinterpret_cast<const char*>(digest), int(size)).toHex(':').toUpper());
        X509_free(peer);
    });
    return fingerprint;
}

bool TlsProbe::opensslConnects(int port, const QStringList& arguments) {
    QProcess client;
    client.start(QStringLiteral("openssl"),
                 QStringList{QStringLiteral("s_client"), QStringLiteral("-connect"),
                             QStringLiteral("127.0.0.1:%1").arg(port), QStringLiteral("-alpn"),
                             QStringLiteral("h2"), QStringLiteral("-brief")} +
                     arguments);
    if (!client.waitForStarted())
        return false;
    client.closeWriteChannel();  // end of input: s_client closes once the handshake is done
    if (!client.waitForFinished(20000)) {
        client.kill();
        client.waitForFinished();
        return false;
    }
    const QByteArray said = client.readAllStandardOutput() + client.readAllStandardError();
    return client.exitCode() == 0 && said.contains("CONNECTION ESTABLISHED");
}

QStringList TlsProbe::offerFaults(int port) {
    // The client offers old versions and every cipher it has, so that only the server refuses.
    const QString everything = QStringLiteral("ALL:COMPLEMENTOFALL:@SECLEVEL=0");
    const QString withoutAead = QStringLiteral(
        "ALL:COMPLEMENTOFALL:!AESGCM:!CHACHA20:!AESCCM:"
        "!ARIAGCM:@SECLEVEL=0");
    QStringList faults;
    if (!opensslConnects(port, {QStringLiteral("-tls1_3")}))
        faults << QStringLiteral("TLS 1.3 refused");
    if (!opensslConnects(port, {QStringLiteral("-tls1_2"), QStringLiteral("-cipher"), everything}))
        faults << QStringLiteral("TLS 1.2 refused");
    for (const char* old : {"-tls1", "-tls1_1"}) {
        if (opensslConnects(port,
                            {QString::fromLatin1(old), QStringLiteral("-cipher"), everything}))
            faults << QStringLiteral("%1 accepted").arg(QLatin1String(old));
    }
    // Were any cipher suite without AEAD acceptable, the server would choose it here.
    if (opensslConnects(port, {QStringLiteral("-tls1_2"), QStringLiteral("-cipher"), withoutAead}))
        faults << QStringLiteral("a TLS 1.2 cipher suite without AEAD accepted");
    return faults;
}
