#include "model/CNameCache.h"

#include "Hlx/COrinClientCenter.h"
#include "model/CPlatformTable.h"
#include "model/CTradeTypeTable.h"

namespace Hlx {

QString CNameCache::platformName(int platformId) {
    auto it = m_platforms.find(platformId);
    if (it == m_platforms.end())
        it = m_platforms.insert(platformId, getPlatformName(platformId));
    return it.value();
}

QString CNameCache::tradeTypeName(int tradeType, int platformId) {
    const quint64 key = (quint64(quint32(tradeType)) << 32) | quint32(platformId);
    auto it = m_tradeTypes.find(key);
    if (it == m_tradeTypes.end())
        it = m_tradeTypes.insert(key, CTradeTypeTable::tradeType2String(tradeType, platformId));
    return it.value();
}

QString CNameCache::serverName(const std::string& systemTag) {
    auto it = m_servers.find(systemTag);
    if (it == m_servers.end())
        it = m_servers
                 .emplace(systemTag,
                          COrinClientCenter::instance()->getServerNameBySystemTag(systemTag))
                 .first;
    return it->second;
}

void CNameCache::clear() {
    m_platforms.clear();
    m_tradeTypes.clear();
    m_servers.clear();
}

}  // namespace Hlx
