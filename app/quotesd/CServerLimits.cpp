#include "CServerLimits.h"

#include <algorithm>

QString CServerLimits::conflict() const {
    if (eventStreams > maxThreads / 2)
        return QStringLiteral("--max-event-streams may be at most half of --max-threads (%1)")
            .arg(maxThreads / 2);
    if (eventStreamsPerLogin > eventStreams)
        return QStringLiteral("--max-event-streams-per-login may be at most --max-event-streams");
    if (passwordChecks > maxThreads)
        return QStringLiteral("--max-password-checks may be at most --max-threads");
    return QString();
}

QString CServerLimits::fitFiles(qint64 fileLimit, int filesPerThread) {
    const qint64 forThreads = (fileLimit - kReservedFiles) / 2;
    if (threadFiles(filesPerThread) <= forThreads)
        return QString();
    // As few as --max-threads allows at least.
    const int threads = int(std::max<qint64>(4, forThreads / filesPerThread));
    const QString note =
        QStringLiteral("open files limit %1 leaves room for %2 threads, not %3; serving with %2")
            .arg(fileLimit)
            .arg(threads)
            .arg(maxThreads);
    maxThreads = threads;
    eventStreams = std::min(eventStreams, maxThreads / 2);
    eventStreamsPerLogin = std::min(eventStreamsPerLogin, eventStreams);
    passwordChecks = std::min(passwordChecks, maxThreads);
    return note;
}
