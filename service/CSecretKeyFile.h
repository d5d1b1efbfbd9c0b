#pragma once

#include <QString>

#include "CSecretBox.h"

// The file that holds the key of the stored secrets: one line of base64, mode 0600. Every
// process that opens one database needs the same file (copy it to each server of a shared
// PostgreSQL database).
class CSecretKeyFile {
public:
    // The default name of the file in a data directory.
    static QString defaultPath(const QString& directory);

    static bool exists(const QString& path);
    // Throws CServiceError naming the file when it cannot be read or holds no key.
    static CSecretBox read(const QString& path);
    // Writes the key through a temporary file and a rename (the directory is made 0700 when it
    // is missing); throws CServiceError when it cannot.
    static void write(const QString& path, const CSecretBox& box);
    // Like write, but never replaces an existing file: false when one exists already (another
    // process made it first; read that one).
    static bool create(const QString& path, const CSecretBox& box);

private:
    static bool place(const QString& path, const CSecretBox& box, bool replace);
};
