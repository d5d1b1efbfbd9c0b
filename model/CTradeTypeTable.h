#pragma once

#include <QString>
#include <vector>

#include "model/PanelQuotesManageGlobal.h"

namespace Hlx {

// What one trade type means for the panels: its names and its saved table layout (the rights of
// its sources are in CRightsTable).
struct CTradeTypeInfo {
    int tradeType;
    const char* objectName;   // of its panel
    const char* displayName;  // empty for NEEQ, whose name the host gives
    int layoutId;
    const char* markets;  // market list of its sources; empty: none
};

// The trade types the panels know, in the order of their panel classes.
class PANELQUOTESMANAGE_EXPORT CTradeTypeTable {
public:
    enum : int {
        kAll = -1,
        kFutures = 1,
        kStocks = 2,
        kGold = 4,
        kFuturesOptions = 5,
        kStockOptions = 6,
        kHgt = 7,
        kOuterStocks = 8,
        kNeeq = 10,
        kSgt = 11,
        kOuterFutures = 16,
        kOuterIB = 1002,
    };

    static const std::vector<CTradeTypeInfo>& all();
    // Null for an id the table does not hold.
    static const CTradeTypeInfo* find(int tradeType);

    // The display name of a trade type; a type-2 source of a futures platform reads as futures.
    static QString tradeType2String(int tradeType, int platformId);

    // Futures and futures options: loaded with their brokers.
    static bool isFuturesType(int tradeType);
    // Futures, futures options and all types: offer the Kx futures add button.
    static bool isFuturesGroup(int tradeType);

    // The stored trade type of a source entered through the stock dialog: futures and futures
    // options fold into 2, told apart by their platform.
    static int storedTradeType(int tradeType);
};

}  // namespace Hlx
