#pragma once

#include <log4cxx/level.h>
#include <log4cxx/logger.h>
#include <QStringList>
#include <mutex>

namespace Hlx {

// The host's log centre: whether the library logs at all, and the lines written (kept for
// inspection; the lines also go to log4cxx).
class CLogCenter {
public:
    static CLogCenter* instance();

    bool logEnabled() const;
    void setLogEnabled(bool enabled);

    void record(const std::string& line);
    QStringList recentLines() const;
    void clearRecentLines();

private:
    mutable std::mutex m_mutex;
    bool m_enabled = true;
    QStringList m_lines;
};

}  // namespace Hlx

// Writes a printf-style line through the logger at the level, when the logger takes that level.
void rkStdLogNew(const log4cxx::LoggerPtr& logger, const log4cxx::LevelPtr& level,
                 const char* format, ...) __attribute__((format(printf, 3, 4)));
