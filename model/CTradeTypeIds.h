#pragma once

namespace Hlx {

// The trade-type ids and the rules on them, without Qt: the rights table and the data service
// read them as the panels do (CTradeTypeTable adds the names).
struct CTradeTypeIds {
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

    // Futures and futures options: loaded with their brokers, added through the future dialog.
    // The panels' rule: ((tradeType - 1) & ~4) == 0.
    static constexpr bool isFuturesType(int tradeType) {
        return tradeType == kFutures || tradeType == kFuturesOptions;
    }
    // Futures, futures options and all types: offer the Kx futures add button.
    // The panels' rule: tradeType + 1 in [0, 6] and bit tradeType + 1 of 0x45 set.
    static constexpr bool isFuturesGroup(int tradeType) {
        return tradeType == kAll || isFuturesType(tradeType);
    }
};

}  // namespace Hlx
