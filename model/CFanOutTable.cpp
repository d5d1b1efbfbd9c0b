#include "model/CFanOutTable.h"

#include "model/CPlatformTable.h"
#include "model/CTradeTypeTable.h"

namespace Hlx {

const std::vector<CFanOutRow>& CFanOutTable::rows() {
    using P = CPlatformTable;
    using T = CTradeTypeTable;
    // Futures, stocks and futures options share trade type 2 and differ by platform.
    static const std::vector<CFanOutRow> table = {
        {10385, P::kKxFutures, T::kStocks},
        {10937, P::kKxStocks, T::kStocks},
        {11231, P::kKxFuturesOptions, T::kStocks},
        {10709, P::kKxStockOptions, T::kStockOptions},
        {11029, P::kKxHgt, T::kHgt},
        {11222, P::kKxSgt, T::kSgt},
        {11019, P::kKxNeeq, T::kNeeq},
        {12147, P::kKxGold, T::kGold},
        {12361, P::kOuter, T::kOuterIB},
        {12369, P::kOuter, T::kOuterStocks},
        {12353, P::kKxOuterFutures, T::kOuterFutures},
    };
    return table;
}

}  // namespace Hlx
