#include "model/CTradeTypeTable.h"

#include "Hlx/NeeqString.h"
#include "model/CPlatformTable.h"

namespace Hlx {

const std::vector<CTradeTypeInfo>& CTradeTypeTable::all() {
    // id, object name, display name, layout id, markets
    static const std::vector<CTradeTypeInfo> table = {
        {kFutures, "ftq", "期货", 1253, ""},
        {kStocks, "stq", "证券", 1254, "SH,SZ"},
        {kFuturesOptions, "foq", "期货期权", 1255, ""},
        {kStockOptions, "soq", "股票期权", 1256, "SHO,SZO"},
        {kHgt, "hgq", "沪港通", 1258, "HGT"},
        {kNeeq, "nwq", "", 1257, "NEEQ"},
        {kGold, "god", "贵金属", 1259, "GOLD"},
        {kOuterFutures, "ofq", "外盘期货", 1260, "YSWP"},
        {kOuterIB, "oiq", "IB外盘", 0, "IB"},
        {kOuterStocks, "osq", "收益互换", 1262, "IB"},
        {kAll, "allq", "全部", 1263, ""},
        {kSgt, "sgq", "深港通", 0, "SGT"},
    };
    return table;
}

const CTradeTypeInfo* CTradeTypeTable::find(int tradeType) {
    for (const CTradeTypeInfo& info : all()) {
        if (info.tradeType == tradeType)
            return &info;
    }
    return nullptr;
}

QString CTradeTypeTable::tradeType2String(int tradeType, int platformId) {
    if (tradeType == kStocks) {
        if (platformId == CPlatformTable::kKxFutures)
            return QStringLiteral("期货");
        if (platformId == CPlatformTable::kKxFuturesOptions)
            return QStringLiteral("期货期权");
    }
    if (tradeType == kNeeq)
        return getNeeqString();
    const CTradeTypeInfo* info = find(tradeType);
    return info ? QString::fromUtf8(info->displayName) : QString();
}

int CTradeTypeTable::storedTradeType(int tradeType) {
    return isFuturesType(tradeType) ? int(kStocks) : tradeType;
}

}  // namespace Hlx
