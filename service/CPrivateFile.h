#pragma once

#include <QByteArray>
#include <QString>

// A file only its owner may read (mode 0600), written whole or not at all: the bytes go to a
// temporary file beside it, which is synced and then renamed over the name.
class CPrivateFile {
public:
    // False with *error set (and errno that of the failed step) when any step fails; no
    // partial file remains then.
    static bool write(const QString& path, const QByteArray& bytes, QString* error);
    // Writes all bytes to a descriptor, resuming after interruptions; false on any error.
    static bool writeAll(int fd, const QByteArray& bytes);
};
