#pragma once

#include <string>

namespace Hlx {

// Which audit entries to read, newest first. Zero times and empty texts do not filter.
struct CAuditFilter {
    long long sinceMs = 0;  // entries at or after
    long long untilMs = 0;  // entries before
    std::string account;
    std::string action;
    int limit = 1000;
    long long beforeId = 0;  // only entries older than this one (0: from the newest)
};

}  // namespace Hlx
