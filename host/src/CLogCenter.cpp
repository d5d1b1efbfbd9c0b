#include "Hlx/CLogCenter.h"

#include <cstdarg>
#include <cstdio>
#include <vector>

namespace Hlx {

namespace {
const int kRecentLineLimit = 1000;
}

CLogCenter* CLogCenter::instance() {
    static CLogCenter centre;
    return &centre;
}

bool CLogCenter::logEnabled() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_enabled;
}

void CLogCenter::setLogEnabled(bool enabled) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_enabled = enabled;
}

void CLogCenter::record(const std::string& line) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_lines.append(QString::fromStdString(line));
    while (m_lines.size() > kRecentLineLimit)
        m_lines.removeFirst();
}

QStringList CLogCenter::recentLines() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_lines;
}

void CLogCenter::clearRecentLines() {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_lines.clear();
}

}  // namespace Hlx

void rkStdLogNew(const log4cxx::LoggerPtr& logger, const log4cxx::LevelPtr& level,
                 const char* format, ...) {
    if (!logger || !level || !format || !logger->isEnabledFor(level))
        return;
    va_list args;
    va_start(args, format);
    va_list sizing;
    va_copy(sizing, args);
    const int length = std::vsnprintf(nullptr, 0, format, sizing);
    va_end(sizing);
    std::string line;
    if (length > 0) {
        std::vector<char> buffer(size_t(length) + 1);
        std::vsnprintf(buffer.data(), buffer.size(), format, args);
        line.assign(buffer.data(), size_t(length));
    }
    va_end(args);
    logger->forcedLog(level, line);
    Hlx::CLogCenter::instance()->record(line);
}
