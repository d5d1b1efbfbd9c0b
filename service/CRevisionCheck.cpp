#include "CRevisionCheck.h"

#include "CServiceError.h"
#include "model/CRevisionConflicts.h"

void CRevisionCheck::require(long long revision) {
    if (revision <= 0)
        throw CServiceError(CRevisionConflicts::kMissing);
}

void CRevisionCheck::check(long long sent, long long stored, const char* conflict) {
    if (sent != stored)
        throw CServiceError::conflict(conflict);
}

void CRevisionCheck::checkSources(const std::vector<rkservice::COrinQuoterSourceInfoPtr>& sources,
                                  const std::map<int, rkservice::COrinQuoterSourceInfo>& stored) {
    for (const auto& source : sources) {
        const auto row = stored.find(source->m_nId);
        if (row == stored.end())
            continue;
        require(source->getRevision());
        check(source->getRevision(), row->second.getRevision(), CRevisionConflicts::kSource);
    }
}

std::string CRevisionCheck::list(const std::vector<long long>& revisions) {
    std::string text;
    for (long long revision : revisions)
        text += (text.empty() ? "" : ",") + std::to_string(revision);
    return text;
}
