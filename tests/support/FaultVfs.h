#pragma once

#include <QByteArray>
#include <QString>

// A SQLite VFS for fault tests, wrapping the system's default one and made the default of the
// process, so the Qt SQL driver (which uses the same libsqlite3) goes through it too.
// - Write failures: while set, every write to a write-ahead log fails, which makes a commit
//   fail after all its statements succeeded.
// - Waiting writers: it counts the attempts to take a write-ahead log's writer lock that found
//   it held by another connection, so a test can wait until a writer waits.
// - Power cuts: it remembers each file as it stood at its last sync (or when first opened);
//   durableImage() is what a power cut would leave on the disk.
class FaultVfs {
public:
    // Registers the VFS as the default; idempotent.
    static void install();
    static void failLogWrites(bool fail);
    // Attempts (of any connection of the process) to begin writing that found another writer.
    static int busyWriteLocks();
    // How many files were opened through the VFS whose name contains part.
    static int opened(const QString& part);
    // The file's content as of its last sync; false when it never existed through the VFS.
    static bool durableImage(const QString& path, QByteArray* image);
};
