#pragma once

#include <QString>
#include <QtGlobal>

// What each kind of client may hold of quotesd, so that no client, logged in or not, can take
// what the others need: a connection that never finishes its TLS handshake, connections without
// calls, streams of one connection, threads (each with its own database connection), the
// threads of event streams, and the memory of password checks (64 MiB each).
struct CServerLimits {
    qint64 handshakeTimeoutMs = 10 * 1000;
    qint64 idleConnectionMs = 5 * 60 * 1000;
    int streamsPerConnection = 16;
    // Beyond it a call is refused with RESOURCE_EXHAUSTED.
    int maxThreads = 64;
    // At most half the threads, so the other calls always find one.
    int eventStreams = 32;
    int eventStreamsPerLogin = 4;
    int passwordChecks = 4;
    // How often the server calls itself to prove that it still accepts connections.
    qint64 selfCheckMs = 1000;

    // Open files a database connection takes: SQLite in WAL mode opens the file, its -wal and
    // its -shm; PostgreSQL one socket.
    static int filesPerConnection(bool sqlite) { return sqlite ? 3 : 1; }
    // Files neither threads nor connections take: the process's own, the change feed's, logs.
    static constexpr int kReservedFiles = 64;

    // The caps that fit each other; empty when they do, else what is wrong.
    QString conflict() const;
    // Lowers the threads (and the event streams with them) so that their database connections
    // take at most half of fileLimit, leaving the rest for clients' connections. A note for the
    // log when it lowered anything.
    QString fitFiles(qint64 fileLimit, int filesPerThread);
    // The thread files of the budget, for the log.
    int threadFiles(int filesPerThread) const { return maxThreads * filesPerThread; }
};
