#pragma once

#include <map>
#include <string>
#include <vector>

#include "rkservice/COrinQuoterSourceInfo.h"

// The check of optimistic concurrency: a modify or delete names the revision it read, and one
// that is not the stored revision is refused as a conflict, in the transaction that read the
// stored one, before anything changes.
class CRevisionCheck {
public:
    // A modify or delete through Operate must name a revision (adds and patches need none).
    static void require(long long revision);
    // Refuses with the conflict text when the revision sent is not the stored one.
    static void check(long long sent, long long stored, const char* conflict);
    // Every source a modify or delete names, against the stored rows by id (each must name a
    // revision); ids not stored are left to the change, which names them. A batch with one
    // stale row is refused whole.
    static void checkSources(const std::vector<rkservice::COrinQuoterSourceInfoPtr>& sources,
                             const std::map<int, rkservice::COrinQuoterSourceInfo>& stored);
    // "3,7": the revisions of a result, in the order given.
    static std::string list(const std::vector<long long>& revisions);
};
