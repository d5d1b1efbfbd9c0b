#include "model/CTradeTypeTable.h"

#include "Hlx/NeeqString.h"
#include "model/CPlatformTable.h"

namespace Hlx {

const std::vector<CTradeTypeInfo>& CTradeTypeTable::all() {
    // id, object name, display name, add right, edit right, delete right, layout id, markets
    static const std::vector<CTradeTypeInfo> table = {
        {kFutures, "ftq", "期货", 10385, 10385, 10387, 1253, ""},
        {kStocks, "stq", "证券", 10937, 10389, 10563, 1254, "SH,SZ"},
        {kFuturesOptions, "foq", "期货期权", 11231, 11231, 10387, 1255, ""},
        {kStockOptions, "soq", "股票期权", 10709, 10711, 10713, 1256, "SHO,SZO"},
        {kHgt, "hgq", "沪港通", 11029, 11031, 11033, 1258, "HGT"},
        {kNeeq, "nwq", "", 11019, 11021, 11023, 1257, "NEEQ"},
        {kGold, "god", "贵金属", 12147, 12149, 12151, 1259, "GOLD"},
        {kOuterFutures, "ofq", "外盘期货", 12353, 12355, 12357, 1260, "YSWP"},
        {kOuterIB, "oiq", "IB外盘", 12361, 12363, 12365, 0, "IB"},
        {kOuterStocks, "osq", "收益互换", 12369, 12370, 12372, 1262, "IB"},
        {kAll, "allq", "全部", 0, 0, 0, 1263, ""},
        {kSgt, "sgq", "深港通", 11222, 11223, 11224, 0, "SGT"},
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

bool CTradeTypeTable::isFuturesType(int tradeType) {
    return tradeType == kFutures || tradeType == kFuturesOptions;
}

bool CTradeTypeTable::isFuturesGroup(int tradeType) {
    return tradeType == kAll || isFuturesType(tradeType);
}

int CTradeTypeTable::storedTradeType(int tradeType) {
    return isFuturesType(tradeType) ? int(kStocks) : tradeType;
}

}  // namespace Hlx
