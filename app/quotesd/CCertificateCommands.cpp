#include "CCertificateCommands.h"

#include <QFile>
#include <QFileInfo>
#include <cstdio>

#include "CQuotesDaemon.h"
#include "CServedCertificate.h"
#include "CTlsIdentity.h"

namespace {

void print(const QString& text) {
    std::fputs((text + QLatin1Char('\n')).toLocal8Bit().constData(), stdout);
}

QString until(const CTlsIdentity& identity) {
    const int days = CServedCertificate::daysLeft(identity, QDateTime::currentDateTimeUtc());
    return QStringLiteral("%1 (%2 days left)")
        .arg(identity.notAfter().toString(Qt::ISODate))
        .arg(days);
}

}  // namespace

CCertificateCommands::CCertificateCommands(const CDaemonOptions& options)
    : m_options(options), m_files(options.dataDir, options.publicDir) {}

int CCertificateCommands::fail(const QString& message) const {
    std::fprintf(stderr, "quotesd: %s\n", message.toLocal8Bit().constData());
    return CQuotesDaemon::kFailed;
}

int CCertificateCommands::run() const {
    if (m_options.certAction == QLatin1String("renew"))
        return renew();
    if (m_options.certAction == QLatin1String("migrate"))
        return migrate();
    return show();
}

bool CCertificateCommands::setUp(QString* error) const {
    if (!m_options.certFile.isEmpty()) {
        // A pair of the administrator's own: served as given; desktops trust its chain's root.
        const CTlsIdentity own = CTlsIdentity::load(m_options.keyFile, m_options.certFile, error);
        return !own.isNull() && m_files.publish(own.rootCertificatePem(), error) &&
               install(own, error);
    }
    const CTlsIdentity authority = CTlsIdentity::createAuthority(m_options.hosts.first(), error);
    const CTlsIdentity server =
        authority.isNull() ? CTlsIdentity() : authority.signServer(m_options.hosts, error);
    if (server.isNull() || !authority.saveKey(m_files.authorityKeyPath(), error) ||
        !m_files.publish(authority.certificatePem(), error) || !install(server, error))
        return false;
    print(QStringLiteral("authority key %1 (keep a copy off the server; cert renew needs it)")
              .arg(m_files.authorityKeyPath()));
    return true;
}

bool CCertificateCommands::install(const CTlsIdentity& identity, QString* error) const {
    if (!identity.save(m_files.keyPath(), m_files.chainPath(), error))
        return false;
    print(QStringLiteral("server certificate %1 for %2, valid until %3")
              .arg(m_files.chainPath(),
                   (identity.dnsNames() + identity.ipAddresses()).join(QStringLiteral(", ")),
                   until(identity)));
    print(QStringLiteral("desktops trust %1 (copy it to each: --ca FILE)")
              .arg(m_files.publishedPath()));
    print(QStringLiteral("SHA-256 fingerprint %1")
              .arg(CTlsIdentity::fingerprintOf(identity.rootCertificatePem())));
    return true;
}

CTlsIdentity CCertificateCommands::served() const {
    QString error;
    const CTlsIdentity identity =
        CTlsIdentity::load(m_files.keyPath(), m_files.chainPath(), &error);
    if (identity.isNull())
        fail(QStringLiteral("%1 (run quotesd init first)").arg(error));
    return identity;
}

CTlsIdentity CCertificateCommands::authorityOf(const CTlsIdentity& served, QString* error) const {
    const QString keyPath =
        m_options.caKeyFile.isEmpty() ? m_files.authorityKeyPath() : m_options.caKeyFile;
    QFile key(keyPath);
    if (!key.open(QIODevice::ReadOnly)) {
        *error = QStringLiteral(
                     "the authority's key is not at %1: name it with --ca-key FILE "
                     "(a certificate of your own is renewed by replacing %2 and %3)")
                     .arg(keyPath, m_files.chainPath(), m_files.keyPath());
        return CTlsIdentity();
    }
    QString why;
    const CTlsIdentity authority =
        CTlsIdentity::fromPem(key.read(1 << 20), served.rootCertificatePem(), &why);
    if (authority.isNull() || !authority.isAuthority())
        *error = QStringLiteral("%1 is not the key of the authority that signed %2 (%3)")
                     .arg(keyPath, m_files.chainPath(), why);
    return authority.isAuthority() ? authority : CTlsIdentity();
}

QStringList CCertificateCommands::hostNames(const CTlsIdentity& served) const {
    return m_options.hosts.isEmpty() ? served.dnsNames() + served.ipAddresses() : m_options.hosts;
}

int CCertificateCommands::renew() const {
    const CTlsIdentity current = served();
    if (current.isNull())
        return CQuotesDaemon::kFailed;
    if (current.isSelfSigned())
        return fail(QStringLiteral("%1 is self-signed (set up by an earlier release): run quotesd "
                                   "cert migrate first")
                        .arg(m_files.chainPath()));
    QString error;
    const CTlsIdentity authority = authorityOf(current, &error);
    const CTlsIdentity renewed =
        authority.isNull() ? CTlsIdentity() : authority.signServer(hostNames(current), &error);
    if (renewed.isNull() || !install(renewed, &error))
        return fail(error);
    print(
        QStringLiteral("the running server gives new connections the new certificate within "
                       "its --certificate-check-s; desktops need nothing new"));
    return CQuotesDaemon::kOk;
}

int CCertificateCommands::migrate() const {
    const CTlsIdentity current = served();
    if (current.isNull())
        return CQuotesDaemon::kFailed;
    if (!current.isSelfSigned())
        return fail(QStringLiteral("%1 is not self-signed: nothing to migrate (quotesd cert renew "
                                   "renews it)")
                        .arg(m_files.chainPath()));
    QString error;
    const QStringList names = hostNames(current);
    const CTlsIdentity authority =
        names.isEmpty() ? CTlsIdentity() : CTlsIdentity::createAuthority(names.first(), &error);
    const CTlsIdentity server =
        authority.isNull() ? CTlsIdentity() : authority.signServer(names, &error);
    // The served pair last: until it changes, the server and its desktops go on as before.
    const bool done = !server.isNull() && m_files.preparePublicDir(&error) &&
                      authority.saveKey(m_files.authorityKeyPath(), &error) &&
                      m_files.publish(authority.certificatePem(), &error) &&
                      install(server, &error);
    if (!done)
        return fail(error.isEmpty() ? QStringLiteral("the certificate has no names") : error);
    print(QStringLiteral("each desktop needs %1 once, in place of the old quotesd.crt; until then "
                         "a --ca file holding both certificates trusts the server before and "
                         "after the change")
              .arg(m_files.publishedPath()));
    return CQuotesDaemon::kOk;
}

int CCertificateCommands::show() const {
    const CTlsIdentity current = served();
    if (current.isNull())
        return CQuotesDaemon::kFailed;
    print(QStringLiteral("certificate %1").arg(m_files.chainPath()));
    print(QStringLiteral("  names: %1")
              .arg((current.dnsNames() + current.ipAddresses()).join(QStringLiteral(", "))));
    print(QStringLiteral("  SHA-256 fingerprint: %1").arg(current.fingerprint()));
    print(QStringLiteral("  valid from %1 until %2")
              .arg(current.notBefore().toString(Qt::ISODate), until(current)));
    if (current.isSelfSigned()) {
        print(
            QStringLiteral("  self-signed (an earlier release's): quotesd cert migrate gives "
                           "it an authority"));
    } else {
        print(QStringLiteral("authority SHA-256 fingerprint: %1")
                  .arg(CTlsIdentity::fingerprintOf(current.rootCertificatePem())));
        print(QStringLiteral("authority key: %1")
                  .arg(QFileInfo::exists(m_files.authorityKeyPath())
                           ? m_files.authorityKeyPath()
                           : QStringLiteral("not on this server (cert renew --ca-key FILE)")));
    }
    QFile published(m_files.publishedPath());
    print(published.open(QIODevice::ReadOnly)
              ? QStringLiteral("desktops trust %1 (SHA-256 fingerprint %2)")
                    .arg(m_files.publishedPath(),
                         CTlsIdentity::fingerprintOf(published.read(1 << 20)))
              : QStringLiteral("desktops trust: %1 is absent").arg(m_files.publishedPath()));
    const QString warning =
        CServedCertificate::expiryWarning(current, QDateTime::currentDateTimeUtc());
    if (!warning.isEmpty())
        print(QStringLiteral("warning: %1").arg(warning));
    return CQuotesDaemon::kOk;
}
