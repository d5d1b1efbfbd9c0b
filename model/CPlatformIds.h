#pragma once

namespace Hlx {

// The market-data platform ids, without Qt: the rights table and the data service read them as
// the panels do (CPlatformTable adds the names).
struct CPlatformIds {
    enum : int {
        kKxStocks = 10000,
        kKxStockOptions = 10001,
        kKxNeeq = 10002,
        kKxHgt = 10003,
        kKxSgt = 10004,
        kKxOuterFutures = 15000,
        kKxFutures = 20000,
        kCtpOptionsLive = 25011,
        kCtpOptionsSimulated = 25012,
        kKxGold = 31003,
        kOuter = 32000,
        kKxFuturesOptions = 70000,
    };
};

}  // namespace Hlx
