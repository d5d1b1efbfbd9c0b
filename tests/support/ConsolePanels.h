#pragma once

#include <QString>

#include "CPanelCatalogue.h"
#include "model/CTradeTypeTable.h"

// The console's panels by what they show, named as the console's catalogue names them (for the
// console's tests, which link the console).
namespace ConsolePanels {

inline QString sources(int tradeType) {
    return CPanelCatalogue::sourcesPanel(tradeType);
}
inline QString stocks() {
    return sources(Hlx::CTradeTypeTable::kStocks);
}
inline QString futures() {
    return sources(Hlx::CTradeTypeTable::kFutures);
}
inline QString gold() {
    return sources(Hlx::CTradeTypeTable::kGold);
}
inline QString allTypes() {
    return sources(Hlx::CTradeTypeTable::kAll);
}
inline QString level2() {
    return CPanelCatalogue::level2Panel();
}

}  // namespace ConsolePanels
