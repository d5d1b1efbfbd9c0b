#pragma once

#include <QByteArray>
#include <QDateTime>
#include <QString>
#include <QStringList>

// The TLS identity of quotesd: a private key and the self-signed certificate clients pin.
//
// create() makes an EC P-256 key and a certificate valid for two years whose subjectAltName
// lists the server's DNS names and IP addresses (a client checks the address it dials against
// them). save() writes the key readable by its owner only; load() reads a pair back and refuses
// a key that does not belong to the certificate. A default-constructed identity is null.
class CTlsIdentity {
public:
    static QStringList defaultHostNames() { return {"localhost", "127.0.0.1"}; }

    // A new key and certificate for the host names (IPv4/IPv6 addresses become IP entries, the
    // rest DNS entries). Null with *error set on failure.
    static CTlsIdentity create(const QStringList& hostNames = defaultHostNames(),
                               QString* error = nullptr);
    // Reads a PEM key and certificate and checks that they match. Null with *error set otherwise.
    static CTlsIdentity load(const QString& keyPath, const QString& certificatePath,
                             QString* error = nullptr);
    // The SHA-256 fingerprint of a PEM certificate ("AB:01:..."), empty if it cannot be read.
    static QString fingerprintOf(const QByteArray& certificatePem);

    bool isNull() const { return m_certificatePem.isEmpty(); }

    // Writes both as PEM. The key file is created with mode 0600 under a temporary name and
    // renamed over keyPath, so no other user can ever read it, even briefly.
    bool save(const QString& keyPath, const QString& certificatePath,
              QString* error = nullptr) const;

    const QByteArray& privateKeyPem() const { return m_keyPem; }
    const QByteArray& certificatePem() const { return m_certificatePem; }
    // SHA-256 of the certificate (DER), as upper-case hex pairs joined by colons.
    const QString& fingerprint() const { return m_fingerprint; }
    const QStringList& dnsNames() const { return m_dnsNames; }
    const QStringList& ipAddresses() const { return m_ipAddresses; }
    const QDateTime& notBefore() const { return m_notBefore; }
    const QDateTime& notAfter() const { return m_notAfter; }

private:
    // Fills everything but the PEM texts from the certificate; false if it cannot be read.
    bool describe(QString* error);

    QByteArray m_keyPem;
    QByteArray m_certificatePem;
    QString m_fingerprint;
    QStringList m_dnsNames;
    QStringList m_ipAddresses;
    QDateTime m_notBefore;
    QDateTime m_notAfter;
};
