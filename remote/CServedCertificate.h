#pragma once

#include <grpcpp/security/server_credentials.h>

#include <QByteArray>
#include <QDateTime>
#include <QList>
#include <QString>
#include <chrono>
#include <functional>
#include <memory>
#include <mutex>

#include "CTlsIdentity.h"

namespace grpc::experimental {
class CertificateProviderInterface;
}

// The certificate quotesd serves, read from its files for as long as it runs: a renewed
// certificate (quotesd cert renew) reaches new handshakes within the check interval, without a
// restart. gRPC 1.51's SslServerCredentials hold the PEM they were given for good, so the
// credentials are TlsServerCredentials over a FileWatcherCertificateProvider, which reads the
// key and chain again every interval and keeps the pair it has while the files do not match
// (half written). Their TLS versions (1.2 and 1.3) and cipher suites (AEAD only) are gRPC's
// defaults, as with SslServerCredentials.
//
// The server's self-check trusts every root it has seen served here (a migration from a
// self-signed certificate to an authority changes the root while the old one is still served for
// up to an interval). refresh() notes a change of the files and, from 30 days before the end,
// says once a day that the certificate expires.
class CServedCertificate {
public:
    using Log = std::function<void(const QString&)>;
    static const int kWarningDays = 30;

    // Reads the pair once; isNull() when it cannot be read (*error says why).
    CServedCertificate(const QString& keyPath, const QString& chainPath,
                       std::chrono::seconds checkInterval, QString* error = nullptr);
    ~CServedCertificate();
    CServedCertificate(const CServedCertificate&) = delete;
    CServedCertificate& operator=(const CServedCertificate&) = delete;

    bool isNull() const;
    // Credentials for a listening port; every server built from them shares one watcher.
    std::shared_ptr<grpc::ServerCredentials> credentials();

    // Reads the files again when they changed and logs what a change or the coming expiry
    // means for the administrator. Called by the self-check, every second or so.
    void refresh(const Log& log);
    // What the server's own client trusts: the roots of every chain seen, one PEM text.
    std::string trustedRoots() const;
    // A name the certificate holds, for the server's own client to ask for.
    std::string serverName() const;
    CTlsIdentity current() const;
    // Whole days until the certificate ends (negative once it has); for metrics and health.
    int daysLeft(const QDateTime& now = QDateTime::currentDateTimeUtc()) const;
    static int daysLeft(const CTlsIdentity& identity, const QDateTime& now);
    static int daysLeft(const QDateTime& notAfter, const QDateTime& now);
    // Empty, or the warning the log and the health status give from kWarningDays before the end.
    QString expiryWarning(const QDateTime& now = QDateTime::currentDateTimeUtc()) const;
    static QString expiryWarning(const CTlsIdentity& identity, const QDateTime& now);
    // The same for a certificate known by its end alone (a client told it by Ping).
    static QString expiryWarning(const QDateTime& notAfter, const QDateTime& now);

private:
    // Takes the files' pair when it reads and differs from the one held.
    void adopt(const Log& log);

    const QString m_keyPath;
    const QString m_chainPath;
    const std::chrono::seconds m_interval;
    std::shared_ptr<grpc::experimental::CertificateProviderInterface> m_provider;
    mutable std::mutex m_mutex;
    CTlsIdentity m_current;
    QList<QByteArray> m_roots;
    QByteArray m_files;  // the key's and chain's bytes last read
    QDateTime m_lastWarning;
};
