#pragma once

#include <string>

namespace Hlx {

// The version of this build, as the project declares it (for example "1.0.0").
const char* quotesVersion();
// The commit the build was made from (git's short hash), "unknown" outside a git tree.
const char* quotesCommit();

// What --version prints: "quotesd 1.0.0 (commit 0123456789ab)".
inline std::string quotesVersionLine(const char* program) {
    return std::string(program) + " " + quotesVersion() + " (commit " + quotesCommit() + ")";
}

}  // namespace Hlx
