#include "CServedCertificate.h"

#include <grpcpp/security/server_credentials.h>
#include <grpcpp/security/tls_certificate_provider.h>
#include <grpcpp/security/tls_credentials_options.h>

#include <QFile>
#include <QFileInfo>

namespace {

// Roots kept for the self-check: every renewal by one authority adds none, a migration one.
const int kMaxRoots = 8;
const qint64 kDaySeconds = 24 * 3600;

QByteArray readSmallFile(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.read(1 << 20) : QByteArray();
}

}  // namespace

CServedCertificate::CServedCertificate(const QString& keyPath, const QString& chainPath,
                                       std::chrono::seconds checkInterval, QString* error)
    : m_keyPath(QFileInfo(keyPath).absoluteFilePath()),
      m_chainPath(QFileInfo(chainPath).absoluteFilePath()),
      m_interval(checkInterval) {
    m_current = CTlsIdentity::load(m_keyPath, m_chainPath, error);
    if (m_current.isNull())
        return;
    m_files = readSmallFile(m_keyPath) + readSmallFile(m_chainPath);
    m_roots << m_current.rootCertificatePem();
    m_provider = std::make_shared<grpc::experimental::FileWatcherCertificateProvider>(
        m_keyPath.toStdString(), m_chainPath.toStdString(),
        static_cast<unsigned int>(m_interval.count()));
}

CServedCertificate::~CServedCertificate() = default;

bool CServedCertificate::isNull() const {
    return !m_provider;
}

std::shared_ptr<grpc::ServerCredentials> CServedCertificate::credentials() {
    grpc::experimental::TlsServerCredentialsOptions options(m_provider);
    options.watch_identity_key_cert_pairs();
    return grpc::experimental::TlsServerCredentials(options);
}

void CServedCertificate::refresh(const Log& log) {
    std::lock_guard<std::mutex> lock(m_mutex);
    const QByteArray files = readSmallFile(m_keyPath) + readSmallFile(m_chainPath);
    if (files != m_files) {
        m_files = files;
        adopt(log);
    }
    const QDateTime now = QDateTime::currentDateTimeUtc();
    const QString warning = expiryWarning(m_current, now);
    if (!warning.isEmpty() &&
        (!m_lastWarning.isValid() || m_lastWarning.secsTo(now) >= kDaySeconds)) {
        m_lastWarning = now;
        log(warning);
    }
}

void CServedCertificate::adopt(const Log& log) {
    QString error;
    const CTlsIdentity read = CTlsIdentity::load(m_keyPath, m_chainPath, &error);
    if (read.isNull()) {
        // Half written, or broken: the watcher keeps serving the pair it has, and so do we.
        log(QStringLiteral("cannot read the certificate files (%1); the server keeps the "
                           "certificate it serves")
                .arg(error));
        return;
    }
    if (read.fingerprint() == m_current.fingerprint())
        return;
    m_current = read;
    if (!m_roots.contains(read.rootCertificatePem()))
        m_roots << read.rootCertificatePem();
    while (m_roots.size() > kMaxRoots)
        m_roots.removeFirst();
    m_lastWarning = QDateTime();
    log(QStringLiteral("new certificate %1 (SHA-256 %2), valid until %3: new connections get it "
                       "within %4 s")
            .arg(m_chainPath, read.fingerprint(), read.notAfter().toString(Qt::ISODate))
            .arg(m_interval.count()));
}

std::string CServedCertificate::trustedRoots() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    QByteArray roots;
    for (const QByteArray& root : m_roots)
        roots += root;
    return roots.toStdString();
}

std::string CServedCertificate::serverName() const {
    const CTlsIdentity identity = current();
    if (!identity.dnsNames().isEmpty())
        return identity.dnsNames().front().toStdString();
    return identity.ipAddresses().isEmpty() ? std::string()
                                            : identity.ipAddresses().front().toStdString();
}

CTlsIdentity CServedCertificate::current() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_current;
}

int CServedCertificate::daysLeft(const QDateTime& now) const {
    return daysLeft(current(), now);
}

int CServedCertificate::daysLeft(const CTlsIdentity& identity, const QDateTime& now) {
    return daysLeft(identity.notAfter(), now);
}

int CServedCertificate::daysLeft(const QDateTime& notAfter, const QDateTime& now) {
    const qint64 seconds = now.secsTo(notAfter);
    // Rounded down, also below zero: a certificate that ended an hour ago has -1 days.
    return int(seconds >= 0 ? seconds / kDaySeconds
                            : -((-seconds + kDaySeconds - 1) / kDaySeconds));
}

QString CServedCertificate::expiryWarning(const QDateTime& now) const {
    return expiryWarning(current(), now);
}

QString CServedCertificate::expiryWarning(const CTlsIdentity& identity, const QDateTime& now) {
    return expiryWarning(identity.notAfter(), now);
}

QString CServedCertificate::expiryWarning(const QDateTime& notAfter, const QDateTime& now) {
    const int days = daysLeft(notAfter, now);
    const QString end = notAfter.toString(Qt::ISODate);
    if (days < 0)
        return QStringLiteral(
                   "the server certificate expired on %1: renew it with quotesd cert "
                   "renew")
            .arg(end);
    if (days > kWarningDays)
        return QString();
    return QStringLiteral(
               "the server certificate expires on %1 (in %2 days): renew it with "
               "quotesd cert renew")
        .arg(end)
        .arg(days);
}
