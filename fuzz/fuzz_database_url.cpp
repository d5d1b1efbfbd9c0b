// libFuzzer target: the database URL parser (it touches no file and opens no connection).

#include <QString>
#include <cstddef>
#include <cstdint>

#include "CDatabaseUrl.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const QString url = QString::fromUtf8(reinterpret_cast<const char*>(data), int(size));
    CDatabaseUrl location;
    QString error;
    if (CDatabaseUrl::parse(url, QStringLiteral("/nonexistent/data"), &location, &error)) {
        // Something usable was found: a file or a database name, never both.
        if (location.postgres == location.database.isEmpty() ||
            location.postgres != location.filePath.isEmpty())
            __builtin_trap();
    } else if (error.isEmpty()) {
        __builtin_trap();
    }
    CDatabaseUrl::hasPassword(url);
    return 0;
}
