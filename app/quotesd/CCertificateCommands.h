#pragma once

#include <QString>
#include <QStringList>

#include "CCertificateFiles.h"
#include "CDaemonOptions.h"

class CTlsIdentity;

// quotesd's certificates: init's private authority and the server certificate it signs, and
// the commands of quotesd cert (renew, show, migrate).
//
// A renewal signs a new key and certificate from the same authority; desktops trust the
// authority, so they notice nothing, and the running server serves the new pair to new
// connections within its check interval. A server set up by an earlier release (a self-signed
// certificate that desktops pin) keeps working until cert migrate gives it an authority.
class CCertificateCommands {
public:
    explicit CCertificateCommands(const CDaemonOptions& options);

    const CCertificateFiles& files() const { return m_files; }
    // What init does for certificates (the data and public directories prepared): a new authority
    // and a server certificate for the host names, or the given pair; the root desktops trust
    // published. Says on standard output what to copy and which fingerprint to check.
    bool setUp(QString* error) const;
    // quotesd cert ACTION: an exit code of CQuotesDaemon.
    int run() const;

private:
    int renew() const;
    int show() const;
    int migrate() const;
    // The served pair, or null with the reason said.
    CTlsIdentity served() const;
    // The authority that signed the served chain, with its key (--ca-key or DIR/ca.key).
    CTlsIdentity authorityOf(const CTlsIdentity& served, QString* error) const;
    // The names a new certificate gets: --host, else the served certificate's.
    QStringList hostNames(const CTlsIdentity& served) const;
    // Writes a new served pair and says what it is.
    bool install(const CTlsIdentity& identity, QString* error) const;
    int fail(const QString& message) const;

    CDaemonOptions m_options;
    CCertificateFiles m_files;
};
