#include "Hlx/CSourcePatch.h"

namespace Hlx {

namespace {

template <class T>
void assign(const std::optional<T>& value, T* field) {
    if (value)
        *field = *value;
}

}  // namespace

bool CSourcePatch::isEmpty() const {
    return !platformId && !tradeType && !brokerId && !serverGroupId && !address && !port &&
           !userName && !password && !markets;
}

void CSourcePatch::applyTo(rkservice::COrinQuoterSourceInfo* source) const {
    assign(platformId, &source->m_nPlatformId);
    assign(tradeType, &source->m_nTradeType);
    assign(brokerId, &source->m_nBrokerId);
    assign(serverGroupId, &source->m_nServerGroupId);
    assign(address, &source->m_strAddress);
    assign(port, &source->m_nPort);
    assign(userName, &source->m_strUserName);
    assign(password, &source->m_strPassword);
    assign(markets, &source->m_strMarkets);
}

}  // namespace Hlx
