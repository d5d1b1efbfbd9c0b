#include "model/CFanOutTable.h"

#include "model/CPlatformTable.h"
#include "model/CRightsTable.h"
#include "model/CTradeTypeTable.h"

namespace Hlx {

namespace {

// A fanned-out record needs the add right of its own kind, as the service checks it.
CFanOutRow row(int platformId, int tradeType) {
    return {CRightsTable::sourceRights(CRecordAction::Add, tradeType, platformId).front(),
            platformId, tradeType};
}

}  // namespace

const std::vector<CFanOutRow>& CFanOutTable::rows() {
    using P = CPlatformTable;
    using T = CTradeTypeTable;
    // Futures, stocks and futures options share trade type 2 and differ by platform.
    static const std::vector<CFanOutRow> table = {
        row(P::kKxFutures, T::kStocks),
        row(P::kKxStocks, T::kStocks),
        row(P::kKxFuturesOptions, T::kStocks),
        row(P::kKxStockOptions, T::kStockOptions),
        row(P::kKxHgt, T::kHgt),
        row(P::kKxSgt, T::kSgt),
        row(P::kKxNeeq, T::kNeeq),
        row(P::kKxGold, T::kGold),
        row(P::kOuter, T::kOuterIB),
        row(P::kOuter, T::kOuterStocks),
        row(P::kKxOuterFutures, T::kOuterFutures),
    };
    return table;
}

}  // namespace Hlx
