#include "CAccessPolicy.h"

#include "CCaller.h"
#include "CServiceError.h"

using Hlx::CRecordAction;
using Hlx::CRightsTable;

namespace {

void require(const CCaller& caller, CRecordAction action, int tradeType, int platformId) {
    if (!caller.holdsAny(CRightsTable::sourceRights(action, tradeType, platformId)))
        throw CServiceError::refused(CRightsTable::sourceRefusal(action, tradeType, platformId));
}

}  // namespace

void CAccessPolicy::checkAdd(const CCaller& caller,
                             const std::vector<rkservice::COrinQuoterSourceInfoPtr>& sources) {
    for (const auto& source : sources)
        require(caller, CRecordAction::Add, source->m_nTradeType, source->m_nPlatformId);
}

int CAccessPolicy::storedTradeType(const rkservice::COrinQuoterSourceInfo& incoming,
                                   const CStoredKind& stored) {
    return incoming.m_nTradeType == -1 ? stored.tradeType : incoming.m_nTradeType;
}

void CAccessPolicy::checkModify(const CCaller& caller,
                                const std::vector<rkservice::COrinQuoterSourceInfoPtr>& sources,
                                const std::map<int, CStoredKind>& stored) {
    for (const auto& source : sources) {
        const auto found = stored.find(source->m_nId);
        // A source that does not exist is the store's to report.
        if (found == stored.end())
            continue;
        const CStoredKind& old = found->second;
        require(caller, CRecordAction::Modify, old.tradeType, old.platformId);
        require(caller, CRecordAction::Modify, storedTradeType(*source, old),
                source->m_nPlatformId);
    }
}

void CAccessPolicy::checkDelete(const CCaller& caller, const std::vector<int>& ids,
                                const std::map<int, CStoredKind>& stored) {
    for (int id : ids) {
        const auto found = stored.find(id);
        if (found != stored.end())
            require(caller, CRecordAction::Delete, found->second.tradeType,
                    found->second.platformId);
    }
}

void CAccessPolicy::checkLevel2(const CCaller& caller, CRecordAction action) {
    if (!caller.holds(CRightsTable::level2Right(action)))
        throw CServiceError::refused(CRightsTable::level2Refusal(action));
}

void CAccessPolicy::checkWholeQuote(const CCaller& caller) {
    if (!caller.holds(CRightsTable::kWholeQuoteSave))
        throw CServiceError::refused(CRightsTable::refusal("保存行情全推设置"));
}

void CAccessPolicy::checkAdminister(const CCaller& caller, const std::string& what) {
    if (!caller.holds(CRightsTable::kAdminister))
        throw CServiceError::refused(CRightsTable::refusal(what));
}

bool CAccessPolicy::mayReadPassword(const CCaller& caller,
                                    const rkservice::COrinQuoterSourceInfo& source) {
    return caller.holdsAny(CRightsTable::sourceRights(CRecordAction::Modify, source.m_nTradeType,
                                                      source.m_nPlatformId));
}

bool CAccessPolicy::mayReadToken(const CCaller& caller) {
    return caller.holdsAny(
        {CRightsTable::kLevel2Add, CRightsTable::kLevel2Modify, CRightsTable::kLevel2Delete});
}

bool CAccessPolicy::mayReadUsers(const CCaller& caller) {
    return caller.holds(CRightsTable::kAdminister);
}
