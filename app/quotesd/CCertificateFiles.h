#pragma once

#include <QByteArray>
#include <QString>

// Where quotesd keeps its certificates. The data directory (0700, files 0600) holds the served
// key and chain (quotesd.key, quotesd.crt: the server's certificate, then its authority's) and
// the authority's key (ca.key), which may be moved off the server. The files desktops need (the
// authority's certificate, ca.crt) live in a directory of their own, readable by everyone, so
// that copying them needs no root: by default beside the data directory, DIR-public.
class CCertificateFiles {
public:
    // publicDir empty: the default one.
    CCertificateFiles(const QString& dataDir, const QString& publicDir);

    static QString defaultPublicDir(const QString& dataDir);

    QString keyPath() const;
    QString chainPath() const;
    QString authorityKeyPath() const;
    const QString& publicDir() const { return m_publicDir; }
    QString publishedPath() const;

    // Whether the data directory holds a served key or certificate already.
    bool isSetUp() const;
    // The public directory, made (0755) when absent; an existing one must be ours to write.
    bool preparePublicDir(QString* error) const;
    // Writes the certificate desktops trust into the public directory (0644, whole or not at
    // all).
    bool publish(const QByteArray& rootPem, QString* error) const;

private:
    QString m_dataDir;
    QString m_publicDir;
};
