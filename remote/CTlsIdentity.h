#pragma once

#include <QByteArray>
#include <QDateTime>
#include <QList>
#include <QString>
#include <QStringList>

// A TLS identity: a private key and its certificate, or certificate chain (the first one is the
// key's). quotesd's is a server certificate signed by a private authority of its own, which is an
// identity too (createAuthority, signServer): desktops trust the authority once, so a renewed
// server certificate needs nothing of them. Servers set up by earlier releases have a self-signed
// one (create), which clients pin.
//
// Keys are EC P-256. A server certificate's subjectAltName lists the server's DNS names and IP
// addresses (a client checks the address it dials against them). save() writes the key readable
// by its owner only; load() reads a pair back and refuses a key that does not belong to the
// certificate. A default-constructed identity is null.
class CTlsIdentity {
public:
    static QStringList defaultHostNames() { return {"localhost", "127.0.0.1"}; }
    // How long a server certificate an authority signs is valid: the longest a browser's rules
    // allow, so the same habit of renewing serves both.
    static const int kServerDays = 397;

    // A new key and certificate for the host names (IPv4/IPv6 addresses become IP entries, the
    // rest DNS entries). Null with *error set on failure.
    static CTlsIdentity create(const QStringList& hostNames = defaultHostNames(),
                               QString* error = nullptr);
    // A new authority (valid ten years) that signs server certificates; no host names.
    static CTlsIdentity createAuthority(const QString& name, QString* error = nullptr);
    // A new key and a server certificate valid `days` for the host names, signed by this
    // authority; its certificate PEM is the chain (the server's, then this authority's).
    CTlsIdentity signServer(const QStringList& hostNames, QString* error = nullptr,
                            int days = kServerDays) const;
    // Reads a PEM key and certificate (chain) and checks that they match. Null with *error set
    // otherwise.
    static CTlsIdentity load(const QString& keyPath, const QString& certificatePath,
                             QString* error = nullptr);
    static CTlsIdentity fromPem(const QByteArray& keyPem, const QByteArray& certificatePem,
                                QString* error = nullptr);
    // The PEM certificates of a PEM text, in order.
    static QList<QByteArray> certificatesOf(const QByteArray& pem);
    // The SHA-256 fingerprint of a PEM certificate ("AB:01:..."), empty if it cannot be read.
    static QString fingerprintOf(const QByteArray& certificatePem);

    bool isNull() const { return m_certificatePem.isEmpty(); }

    // Writes both as PEM, each created with mode 0600 under a temporary name and renamed over
    // its path, so no other user can ever read the key, even briefly.
    bool save(const QString& keyPath, const QString& certificatePath,
              QString* error = nullptr) const;
    // Writes the key alone, so (an authority's key kept apart from its certificate).
    bool saveKey(const QString& keyPath, QString* error = nullptr) const;

    const QByteArray& privateKeyPem() const { return m_keyPem; }
    const QByteArray& certificatePem() const { return m_certificatePem; }
    // The chain's last certificate: the authority, or a self-signed certificate itself.
    QByteArray rootCertificatePem() const;
    // Whether the certificate may sign others (an authority's).
    bool isAuthority() const { return m_authority; }
    // A single certificate signed by its own key (servers set up by earlier releases).
    bool isSelfSigned() const;
    // SHA-256 of the certificate (DER), as upper-case hex pairs joined by colons.
    const QString& fingerprint() const { return m_fingerprint; }
    const QStringList& dnsNames() const { return m_dnsNames; }
    const QStringList& ipAddresses() const { return m_ipAddresses; }
    const QDateTime& notBefore() const { return m_notBefore; }
    const QDateTime& notAfter() const { return m_notAfter; }

private:
    static CTlsIdentity make(const QString& commonName, const QStringList& hostNames, int days,
                             const CTlsIdentity* issuer, QString* error);
    // Fills everything but the PEM texts from the certificate; false if it cannot be read.
    bool describe(QString* error);

    QByteArray m_keyPem;
    QByteArray m_certificatePem;
    QString m_fingerprint;
    QStringList m_dnsNames;
    QStringList m_ipAddresses;
    QDateTime m_notBefore;
    QDateTime m_notAfter;
    bool m_authority = false;
};
