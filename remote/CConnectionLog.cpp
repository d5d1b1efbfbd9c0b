#include "CConnectionLog.h"

#include "CRemoteAdmin.h"

namespace {

bool startsWith(const std::string& text, const char* prefix) {
    return text.rfind(prefix, 0) == 0;
}

}  // namespace

void CConnectionLog::setSink(Sink sink) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_sink = std::move(sink);
}

bool CConnectionLog::isConnectionFailure(const utils::RKError& outcome) {
    const std::string& text = outcome.errorMsg();
    return outcome.kind() == utils::ErrorKind::Unavailable &&
           (startsWith(text, CRemoteAdmin::kUnreachable) ||
            startsWith(text, CRemoteAdmin::kOutcomeUnknown));
}

void CConnectionLog::loggedIn(const std::string& server, const std::string& name) {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_lost = false;
    }
    write(Level::Info, "logged in to " + server + " as " + name);
}

void CConnectionLog::loginFailed(const std::string& server, const std::string& name,
                                 const utils::RKError& error) {
    write(Level::Warning, "login to " + server + " as " + name + " failed: " + error.errorMsg());
}

void CConnectionLog::loginExpired(const std::string& server) {
    write(Level::Warning, "login on " + server + " ended: " + CRemoteAdmin::kLoginExpired);
}

void CConnectionLog::answered(const std::string& call, const std::string& server,
                              const utils::RKError& outcome) {
    if (isConnectionFailure(outcome)) {
        bool first = false;
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            first = !m_lost;
            m_lost = true;
        }
        if (first)
            write(Level::Warning,
                  "connection to " + server + " lost (" + call + "): " + outcome.errorMsg());
        return;
    }
    bool restored = false;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        restored = m_lost;
        m_lost = false;
    }
    if (restored)
        write(Level::Info, "connection to " + server + " restored");
    if (outcome.kind() == utils::ErrorKind::Refused || outcome.kind() == utils::ErrorKind::Conflict)
        write(Level::Warning, call + " refused by " + server + ": " + outcome.errorMsg());
}

void CConnectionLog::write(Level level, const std::string& line) {
    Sink sink;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        sink = m_sink;
    }
    if (sink)
        sink(level, line);
}
