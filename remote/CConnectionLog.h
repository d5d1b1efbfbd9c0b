#pragma once

#include <functional>
#include <mutex>
#include <string>

#include "utils/RKError.h"

// What a client of quotesd tells its own log about its connection: logins, a server that can no
// longer be reached (once per outage) and reached again, logins that ended, and every call the
// server refused. Quiet without a sink.
class CConnectionLog {
public:
    enum class Level { Info, Warning };
    using Sink = std::function<void(Level level, const std::string& line)>;

    void setSink(Sink sink);

    void loggedIn(const std::string& server, const std::string& name);
    void loginFailed(const std::string& server, const std::string& name,
                     const utils::RKError& error);
    void loginExpired(const std::string& server);
    // The outcome of a call ("SetLoginTypeAuth") answered by (or meant for) the server.
    void answered(const std::string& call, const std::string& server,
                  const utils::RKError& outcome);

    // Whether the outcome says the server could not be reached (or the answer was lost).
    static bool isConnectionFailure(const utils::RKError& outcome);

private:
    void write(Level level, const std::string& line);

    std::mutex m_mutex;
    Sink m_sink;
    bool m_lost = false;
};
