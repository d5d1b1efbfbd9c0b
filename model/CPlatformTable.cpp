#include "model/CPlatformTable.h"

#include "Hlx/COrinClientCenter.h"
#include "model/CTradeTypeTable.h"

namespace Hlx {

namespace {

struct PlatformName {
    int platformId;
    const char* plainName;  // with login type 0
    bool branded;           // otherwise prefixed with "Kx"
};

const PlatformName kNames[] = {
    {CPlatformTable::kKxStocks, "高级行情", true},
    {CPlatformTable::kKxStockOptions, "高级行情", true},
    {CPlatformTable::kKxNeeq, "高级行情", true},
    {CPlatformTable::kKxHgt, "高级行情", true},
    {CPlatformTable::kKxSgt, "高级行情", true},
    {CPlatformTable::kKxOuterFutures, "高级行情", true},
    {CPlatformTable::kKxGold, "高级行情", true},
    {CPlatformTable::kKxFutures, "高级行情-期货", true},
    {CPlatformTable::kKxFuturesOptions, "高级行情-期货期权", true},
    {CPlatformTable::kCtpOptionsLive, "CTP个股期权实盘", false},
    {CPlatformTable::kCtpOptionsSimulated, "CTP个股期权模拟", false},
    {CPlatformTable::kOuter, "", false},
};

struct TradeTypePlatforms {
    int tradeType;
    std::vector<int> platforms;
};

const std::vector<TradeTypePlatforms>& offered() {
    using P = CPlatformTable;
    using T = CTradeTypeTable;
    static const std::vector<TradeTypePlatforms> table = {
        {T::kAll, {P::kKxStocks}},
        {T::kFutures, {P::kKxFutures}},
        {T::kStocks, {P::kKxStocks}},
        {T::kGold, {P::kKxGold}},
        {T::kFuturesOptions, {P::kKxFuturesOptions}},
        {T::kStockOptions, {P::kKxStockOptions, P::kCtpOptionsLive, P::kCtpOptionsSimulated}},
        {T::kHgt, {P::kKxHgt}},
        {T::kOuterStocks, {P::kOuter}},
        {T::kNeeq, {P::kKxNeeq}},
        {T::kSgt, {P::kKxSgt}},
        {T::kOuterFutures, {P::kKxOuterFutures}},
        {T::kOuterIB, {P::kOuter}},
    };
    return table;
}

}  // namespace

QString CPlatformTable::name(int platformId) {
    for (const PlatformName& entry : kNames) {
        if (entry.platformId != platformId)
            continue;
        const QString plain = QString::fromUtf8(entry.plainName);
        if (!entry.branded || COrinClientCenter::instance()->hasClientLoginTypeAuth(0))
            return plain;
        return QStringLiteral("Kx") + plain;
    }
    return QString();
}

std::vector<int> CPlatformTable::platformsFor(int tradeType, bool futuresOnly) {
    if (tradeType == CTradeTypeTable::kStocks && futuresOnly)
        return {kKxFutures};
    for (const TradeTypePlatforms& entry : offered()) {
        if (entry.tradeType == tradeType)
            return entry.platforms;
    }
    return {};
}

std::vector<int> CPlatformTable::knownIds() {
    std::vector<int> ids;
    for (const PlatformName& entry : kNames)
        ids.push_back(entry.platformId);
    return ids;
}

QString getPlatformName(int platformId) {
    return CPlatformTable::name(platformId);
}

}  // namespace Hlx
