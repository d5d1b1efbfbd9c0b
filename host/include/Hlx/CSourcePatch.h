#pragma once

#include <optional>
#include <string>

#include "rkservice/COrinQuoterSourceInfo.h"

namespace Hlx {

// A change of some fields of one quote source: each field set here replaces the stored one, the
// others keep what is stored when the patch is applied. Plain data, so that it can travel to a
// server and be applied there, in the transaction that reads the stored source: a field someone
// else changed meanwhile is never overwritten with what a client read before.
struct CSourcePatch {
    std::optional<int> platformId;
    std::optional<int> tradeType;
    std::optional<int> brokerId;
    std::optional<int> serverGroupId;
    std::optional<std::string> address;
    std::optional<int> port;
    std::optional<std::string> userName;
    std::optional<std::string> password;
    std::optional<std::string> markets;
    // Not a field: when set, the patch applies only while the stored revision is this one.
    std::optional<long long> ifRevision;

    // Whether the patch names no field (a condition alone changes nothing).
    bool isEmpty() const;
    // Sets the fields this patch names; the id and the others stay.
    void applyTo(rkservice::COrinQuoterSourceInfo* source) const;
};

}  // namespace Hlx
