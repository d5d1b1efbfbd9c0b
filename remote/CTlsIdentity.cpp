#include "CTlsIdentity.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <openssl/bn.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rand.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>
#include <unistd.h>
#include <QFile>
#include <QRegularExpression>
#include <cerrno>
#include <cstring>
#include <memory>

namespace {

// A self-signed server certificate (servers set up by earlier releases, and tests).
const int kValidDays = 730;
// Desktops trust the authority once; it outlives many server certificates.
const int kAuthorityDays = 3650;
// Backdated a little so that a client whose clock runs slightly behind accepts a fresh
// certificate.
const long kBackdateSeconds = 3600;
// Larger PEM files are not key or certificate files of ours.
const qint64 kMaxPemSize = 1 << 20;

template <typename T, void (*Free)(T*)>
struct Deleter {
    void operator()(T* p) const { Free(p); }
};
typedef std::unique_ptr<EVP_PKEY, Deleter<EVP_PKEY, EVP_PKEY_free>> KeyPtr;
typedef std::unique_ptr<X509, Deleter<X509, X509_free>> CertPtr;
typedef std::unique_ptr<BIO, Deleter<BIO, BIO_free_all>> BioPtr;
typedef std::unique_ptr<GENERAL_NAMES, Deleter<GENERAL_NAMES, GENERAL_NAMES_free>> NamesPtr;
typedef std::unique_ptr<BIGNUM, Deleter<BIGNUM, BN_free>> BigNumPtr;

bool fail(QString* error, const QString& message) {
    if (error)
        *error = message;
    return false;
}

// The message with OpenSSL's reason appended; empties OpenSSL's error queue.
QString withOpenSslReason(const QString& message) {
    const unsigned long code = ERR_peek_last_error();
    char reason[256] = {};
    if (code)
        ERR_error_string_n(code, reason, sizeof reason);
    ERR_clear_error();
    return code ? message + QStringLiteral(": ") + QString::fromLatin1(reason) : message;
}

// Never prompts on the terminal for the password of an encrypted key: such a key is refused.
int noPassword(char*, int, int, void*) {
    return 0;
}

QByteArray bioBytes(BIO* bio) {
    char* data = nullptr;
    const long size = BIO_get_mem_data(bio, &data);
    return QByteArray(data, static_cast<int>(size));
}

BioPtr readBio(const QByteArray& bytes) {
    return BioPtr(BIO_new_mem_buf(bytes.constData(), bytes.size()));
}

// The 4 or 16 bytes of an IPv4/IPv6 address text; empty for anything else.
QByteArray ipAddressBytes(const QString& name) {
    const QByteArray text = name.toLatin1();
    unsigned char bytes[16];
    if (inet_pton(AF_INET, text.constData(), bytes) == 1)
        return QByteArray(reinterpret_cast<const char*>(bytes), 4);
    if (inet_pton(AF_INET6, text.constData(), bytes) == 1)
        return QByteArray(reinterpret_cast<const char*>(bytes), 16);
    return QByteArray();
}

QString ipAddressText(const ASN1_OCTET_STRING* bytes) {
    char text[INET6_ADDRSTRLEN] = {};
    const int size = ASN1_STRING_length(bytes);
    const int family = size == 4 ? AF_INET : size == 16 ? AF_INET6 : 0;
    if (!family || !inet_ntop(family, ASN1_STRING_get0_data(bytes), text, sizeof text))
        return QString();
    return QString::fromLatin1(text);
}

bool isDnsName(const QString& name) {
    static const QRegularExpression pattern(QStringLiteral(
        "^(\\*\\.)?([A-Za-z0-9]([A-Za-z0-9-]{0,61}[A-Za-z0-9])?)(\\.[A-Za-z0-9]([A-Za-z0-9-]{0,61}"
        "[A-Za-z0-9])?)*$"));
    return name.size() <= 253 && pattern.match(name).hasMatch();
}

bool addName(GENERAL_NAMES* names, int type, const QByteArray& value) {
    ASN1_STRING* content =
        ASN1_STRING_type_new(type == GEN_DNS ? V_ASN1_IA5STRING : V_ASN1_OCTET_STRING);
    GENERAL_NAME* name = GENERAL_NAME_new();
    if (!content || !name || !ASN1_STRING_set(content, value.constData(), value.size())) {
        ASN1_STRING_free(content);
        GENERAL_NAME_free(name);
        return false;
    }
    GENERAL_NAME_set0_value(name, type, content);
    if (!sk_GENERAL_NAME_push(names, name)) {
        GENERAL_NAME_free(name);
        return false;
    }
    return true;
}

bool addSubjectAltNames(X509* cert, const QStringList& hostNames, QString* error) {
    NamesPtr names(sk_GENERAL_NAME_new_null());
    if (!names)
        return fail(error, withOpenSslReason(QStringLiteral("无法生成证书")));
    for (const QString& host : hostNames) {
        const QByteArray ip = ipAddressBytes(host);
        bool added = false;
        if (!ip.isEmpty())
            added = addName(names.get(), GEN_IPADD, ip);
        else if (isDnsName(host))
            added = addName(names.get(), GEN_DNS, host.toLatin1());
        else
            return fail(error, QStringLiteral("不是有效的主机名或 IP 地址: %1").arg(host));
        if (!added)
            return fail(error, withOpenSslReason(QStringLiteral("无法生成证书")));
    }
    if (X509_add1_ext_i2d(cert, NID_subject_alt_name, names.get(), 0, X509V3_ADD_DEFAULT) != 1)
        return fail(error, withOpenSslReason(QStringLiteral("无法生成证书")));
    return true;
}

bool setRandomSerial(X509* cert) {
    unsigned char bytes[16];
    if (RAND_bytes(bytes, sizeof bytes) != 1)
        return false;
    bytes[0] = static_cast<unsigned char>((bytes[0] & 0x7F) | 0x40);  // positive, 16 bytes
    BigNumPtr serial(BN_bin2bn(bytes, sizeof bytes, nullptr));
    return serial && BN_to_ASN1_INTEGER(serial.get(), X509_get_serialNumber(cert));
}

bool setSubject(X509* cert, const QString& commonName) {
    X509_NAME* name = X509_get_subject_name(cert);
    const QByteArray cn = commonName.toUtf8();
    const auto* bytes = reinterpret_cast<const unsigned char*>(cn.constData());
    return X509_NAME_add_entry_by_txt(name, "O", MBSTRING_UTF8,
                                      reinterpret_cast<const unsigned char*>("quotesd"), -1, -1,
                                      0) == 1 &&
           X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_UTF8, bytes, -1, -1, 0) == 1;
}

// Who signs a new certificate: itself (issuer null) or an authority's key and certificate.
struct Signer {
    X509* certificate = nullptr;
    EVP_PKEY* key = nullptr;
};

// The extensions of an authority's certificate or of a server's; the issuer's key identifier
// lets a client find the authority among its roots.
bool addExtensions(X509* cert, X509* issuer, bool authority) {
    X509V3_CTX context;
    X509V3_set_ctx(&context, issuer, cert, nullptr, nullptr, 0);
    const auto add = [&](int nid, const char* value) {
        X509_EXTENSION* extension = X509V3_EXT_conf_nid(nullptr, &context, nid, value);
        const bool added = extension && X509_add_ext(cert, extension, -1) == 1;
        X509_EXTENSION_free(extension);
        return added;
    };
    if (!add(NID_subject_key_identifier, "hash"))
        return false;
    if (authority)
        return add(NID_basic_constraints, "critical,CA:TRUE,pathlen:0") &&
               add(NID_key_usage, "critical,keyCertSign,cRLSign");
    return add(NID_basic_constraints, "critical,CA:FALSE") &&
           add(NID_ext_key_usage, "serverAuth") &&
           (issuer == cert || add(NID_authority_key_identifier, "keyid:always")) &&
           (issuer == cert || add(NID_key_usage, "critical,digitalSignature"));
}

bool setValidity(X509* cert, int days) {
    return X509_gmtime_adj(X509_getm_notBefore(cert), -kBackdateSeconds) &&
           X509_time_adj_ex(X509_getm_notAfter(cert), days, 0, nullptr);
}

// A certificate for the key: an authority's (hostNames empty, named commonName) or a server's
// for the host names, signed by the signer or by the key itself.
CertPtr makeCertificate(EVP_PKEY* key, const QString& commonName, const QStringList& hostNames,
                        int days, Signer signer, QString* error) {
    CertPtr cert(X509_new());
    const bool authority = hostNames.isEmpty();
    X509* issuer = signer.certificate ? signer.certificate : cert.get();
    EVP_PKEY* signingKey = signer.key ? signer.key : key;
    const bool made = cert && X509_set_version(cert.get(), 2) == 1 && setRandomSerial(cert.get()) &&
                      setValidity(cert.get(), days) && setSubject(cert.get(), commonName) &&
                      X509_set_issuer_name(cert.get(), X509_get_subject_name(issuer)) == 1 &&
                      X509_set_pubkey(cert.get(), key) == 1 &&
                      addExtensions(cert.get(), issuer, authority);
    if (!made) {
        fail(error, withOpenSslReason(QStringLiteral("无法生成证书")));
        return CertPtr();
    }
    if (!authority && !addSubjectAltNames(cert.get(), hostNames, error))
        return CertPtr();
    if (X509_sign(cert.get(), signingKey, EVP_sha256()) <= 0) {
        fail(error, withOpenSslReason(QStringLiteral("无法签署证书")));
        return CertPtr();
    }
    return cert;
}

QByteArray keyToPem(EVP_PKEY* key) {
    BioPtr bio(BIO_new(BIO_s_mem()));
    if (!bio ||
        PEM_write_bio_PrivateKey(bio.get(), key, nullptr, nullptr, 0, nullptr, nullptr) != 1)
        return QByteArray();
    return bioBytes(bio.get());
}

QByteArray certificateToPem(X509* cert) {
    BioPtr bio(BIO_new(BIO_s_mem()));
    if (!bio || PEM_write_bio_X509(bio.get(), cert) != 1)
        return QByteArray();
    return bioBytes(bio.get());
}

CertPtr parseCertificate(const QByteArray& pem) {
    BioPtr bio = readBio(pem);
    return CertPtr(bio ? PEM_read_bio_X509(bio.get(), nullptr, noPassword, nullptr) : nullptr);
}

KeyPtr parseKey(const QByteArray& pem) {
    BioPtr bio = readBio(pem);
    return KeyPtr(bio ? PEM_read_bio_PrivateKey(bio.get(), nullptr, noPassword, nullptr) : nullptr);
}

QDateTime toDateTime(const ASN1_TIME* time) {
    struct tm parts = {};
    if (!time || ASN1_TIME_to_tm(time, &parts) != 1)
        return QDateTime();
    return QDateTime(QDate(parts.tm_year + 1900, parts.tm_mon + 1, parts.tm_mday),
                     QTime(parts.tm_hour, parts.tm_min, parts.tm_sec), Qt::UTC);
}

QString fingerprintOfCertificate(X509* cert) {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int size = 0;
    if (X509_digest(cert, EVP_sha256(), digest, &size) != 1)
        return QString();
    const QByteArray bytes(reinterpret_cast<const char*>(digest), static_cast<int>(size));
    return QString::fromLatin1(bytes.toHex(':').toUpper());
}

bool readPemFile(const QString& path, QByteArray* bytes, QString* error) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return fail(error, QStringLiteral("无法读取 %1: %2").arg(path, file.errorString()));
    if (file.size() > kMaxPemSize)
        return fail(error, QStringLiteral("文件过大: %1").arg(path));
    *bytes = file.readAll();
    return true;
}

bool writeAll(int fd, const QByteArray& bytes) {
    const char* data = bytes.constData();
    qint64 left = bytes.size();
    while (left > 0) {
        const ssize_t written = ::write(fd, data, static_cast<size_t>(left));
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            return false;
        data += written;
        left -= written;
    }
    return true;
}

// A new file of mode 0600 next to the key path (mkstemp creates it so), written and synced.
bool writePrivateTemp(const QString& keyPath, const QByteArray& pem, QByteArray* tempPath,
                      QString* error) {
    QByteArray name = QFile::encodeName(keyPath) + ".XXXXXX";
    const int fd = ::mkstemp(name.data());
    if (fd < 0)
        return fail(error, QStringLiteral("无法创建 %1: %2").arg(keyPath, strerror(errno)));
    const bool written = writeAll(fd, pem) && ::fsync(fd) == 0;
    const int writeErrno = errno;
    if (::close(fd) != 0 || !written) {
        ::unlink(name.constData());
        return fail(error, QStringLiteral("无法写入 %1: %2").arg(keyPath, strerror(writeErrno)));
    }
    *tempPath = name;
    return true;
}

// The rename keeps the temporary file's mode 0600 even when an older file had another.
bool renameOver(const QByteArray& tempPath, const QString& path, QString* error) {
    if (::rename(tempPath.constData(), QFile::encodeName(path).constData()) == 0)
        return true;
    const int renameErrno = errno;
    ::unlink(tempPath.constData());
    return fail(error, QStringLiteral("无法写入 %1: %2").arg(path, strerror(renameErrno)));
}

}  // namespace

CTlsIdentity CTlsIdentity::create(const QStringList& hostNames, QString* error) {
    if (hostNames.isEmpty()) {
        fail(error, QStringLiteral("证书至少需要一个主机名"));
        return CTlsIdentity();
    }
    return make(hostNames.first(), hostNames, kValidDays, nullptr, error);
}

CTlsIdentity CTlsIdentity::createAuthority(const QString& name, QString* error) {
    return make(QStringLiteral("quotesd CA %1").arg(name), QStringList(), kAuthorityDays, nullptr,
                error);
}

CTlsIdentity CTlsIdentity::signServer(const QStringList& hostNames, QString* error,
                                      int days) const {
    if (hostNames.isEmpty()) {
        fail(error, QStringLiteral("证书至少需要一个主机名"));
        return CTlsIdentity();
    }
    if (!isAuthority()) {
        fail(error, QStringLiteral("不是证书颁发机构的证书，无法签发"));
        return CTlsIdentity();
    }
    return make(hostNames.first(), hostNames, days, this, error);
}

CTlsIdentity CTlsIdentity::make(const QString& commonName, const QStringList& hostNames, int days,
                                const CTlsIdentity* issuer, QString* error) {
    KeyPtr key(EVP_EC_gen("P-256"));
    if (!key) {
        fail(error, withOpenSslReason(QStringLiteral("无法生成私钥")));
        return CTlsIdentity();
    }
    Signer signer;
    const KeyPtr issuerKey = issuer ? parseKey(issuer->m_keyPem) : KeyPtr();
    const CertPtr issuerCert = issuer ? parseCertificate(issuer->m_certificatePem) : CertPtr();
    if (issuer && (!issuerKey || !issuerCert)) {
        fail(error, withOpenSslReason(QStringLiteral("无法读取证书颁发机构的私钥或证书")));
        return CTlsIdentity();
    }
    signer.certificate = issuerCert.get();
    signer.key = issuerKey.get();
    CertPtr cert = makeCertificate(key.get(), commonName, hostNames, days, signer, error);
    if (!cert)
        return CTlsIdentity();
    // A server's chain ends with its authority, so a client that trusts the authority (or,
    // for the server's own check, the chain's last certificate) verifies it.
    const QByteArray chain =
        certificateToPem(cert.get()) + (issuer ? issuer->rootCertificatePem() : QByteArray());
    return fromPem(keyToPem(key.get()), chain, error);
}

CTlsIdentity CTlsIdentity::fromPem(const QByteArray& keyPem, const QByteArray& certificatePem,
                                   QString* error) {
    CTlsIdentity identity;
    identity.m_keyPem = keyPem;
    identity.m_certificatePem = certificatePem;
    KeyPtr key = parseKey(keyPem);
    CertPtr cert = parseCertificate(certificatePem);
    if (!key || !cert) {
        fail(error, withOpenSslReason(key ? QStringLiteral("无法读取证书")
                                          : QStringLiteral("无法读取私钥")));
        return CTlsIdentity();
    }
    if (X509_check_private_key(cert.get(), key.get()) != 1) {
        fail(error, withOpenSslReason(QStringLiteral("私钥与证书不匹配")));
        return CTlsIdentity();
    }
    if (!identity.describe(error))
        return CTlsIdentity();
    return identity;
}

CTlsIdentity CTlsIdentity::load(const QString& keyPath, const QString& certificatePath,
                                QString* error) {
    QByteArray keyPem;
    QByteArray certificatePem;
    if (!readPemFile(keyPath, &keyPem, error) ||
        !readPemFile(certificatePath, &certificatePem, error))
        return CTlsIdentity();
    QString why;
    const CTlsIdentity identity = fromPem(keyPem, certificatePem, &why);
    if (identity.isNull())
        fail(error, QStringLiteral("%1: %2, %3").arg(why, keyPath, certificatePath));
    return identity;
}

QList<QByteArray> CTlsIdentity::certificatesOf(const QByteArray& pem) {
    static const QByteArray end("-----END CERTIFICATE-----");
    QList<QByteArray> certificates;
    int from = 0;
    for (int begin = pem.indexOf("-----BEGIN CERTIFICATE-----"); begin >= 0;
         begin = pem.indexOf("-----BEGIN CERTIFICATE-----", from)) {
        const int stop = pem.indexOf(end, begin);
        if (stop < 0)
            break;
        from = stop + end.size();
        certificates << pem.mid(begin, from - begin) + '\n';
    }
    return certificates;
}

QByteArray CTlsIdentity::rootCertificatePem() const {
    const QList<QByteArray> chain = certificatesOf(m_certificatePem);
    return chain.isEmpty() ? QByteArray() : chain.last();
}

bool CTlsIdentity::isSelfSigned() const {
    const QList<QByteArray> chain = certificatesOf(m_certificatePem);
    CertPtr cert = chain.size() == 1 ? parseCertificate(chain.first()) : CertPtr();
    const bool self = cert && X509_check_issued(cert.get(), cert.get()) == X509_V_OK;
    ERR_clear_error();
    return self;
}

QString CTlsIdentity::fingerprintOf(const QByteArray& certificatePem) {
    CertPtr cert = parseCertificate(certificatePem);
    ERR_clear_error();
    return cert ? fingerprintOfCertificate(cert.get()) : QString();
}

bool CTlsIdentity::save(const QString& keyPath, const QString& certificatePath,
                        QString* error) const {
    if (isNull())
        return fail(error, QStringLiteral("没有可保存的证书"));
    // Both private (the certificate too: the data directory holds 0600 files only, and copies
    // for desktops are published elsewhere). The certificate first, the key last: a server that
    // reads the pair in between finds them unmatched and keeps the pair it has.
    QByteArray keyTemp;
    QByteArray certificateTemp;
    if (!writePrivateTemp(keyPath, m_keyPem, &keyTemp, error))
        return false;
    if (!writePrivateTemp(certificatePath, m_certificatePem, &certificateTemp, error)) {
        ::unlink(keyTemp.constData());
        return false;
    }
    if (!renameOver(certificateTemp, certificatePath, error)) {
        ::unlink(keyTemp.constData());
        return false;
    }
    return renameOver(keyTemp, keyPath, error);
}

bool CTlsIdentity::saveKey(const QString& keyPath, QString* error) const {
    if (isNull())
        return fail(error, QStringLiteral("没有可保存的私钥"));
    QByteArray keyTemp;
    return writePrivateTemp(keyPath, m_keyPem, &keyTemp, error) &&
           renameOver(keyTemp, keyPath, error);
}

bool CTlsIdentity::describe(QString* error) {
    CertPtr cert = parseCertificate(m_certificatePem);
    if (!cert)
        return fail(error, withOpenSslReason(QStringLiteral("无法读取证书")));
    m_fingerprint = fingerprintOfCertificate(cert.get());
    m_authority = X509_check_ca(cert.get()) != 0;
    m_notBefore = toDateTime(X509_get0_notBefore(cert.get()));
    m_notAfter = toDateTime(X509_get0_notAfter(cert.get()));
    m_dnsNames.clear();
    m_ipAddresses.clear();
    NamesPtr names(static_cast<GENERAL_NAMES*>(
        X509_get_ext_d2i(cert.get(), NID_subject_alt_name, nullptr, nullptr)));
    for (int i = 0; names && i < sk_GENERAL_NAME_num(names.get()); ++i) {
        const GENERAL_NAME* name = sk_GENERAL_NAME_value(names.get(), i);
        if (name->type == GEN_DNS)
            m_dnsNames << QString::fromLatin1(
                reinterpret_cast<const char*>(ASN1_STRING_get0_data(name->d.dNSName)),
                ASN1_STRING_length(name->d.dNSName));
        else if (name->type == GEN_IPADD)
            m_ipAddresses << ipAddressText(name->d.iPAddress);
    }
    ERR_clear_error();
    if (m_fingerprint.isEmpty() || !m_notBefore.isValid() || !m_notAfter.isValid())
        return fail(error, QStringLiteral("无法读取证书的指纹或有效期"));
    return true;
}
