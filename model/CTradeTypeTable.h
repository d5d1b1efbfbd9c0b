#pragma once

#include <QString>
#include <vector>

#include "model/CTradeTypeIds.h"
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
class PANELQUOTESMANAGE_EXPORT CTradeTypeTable : public CTradeTypeIds {
public:
    static const std::vector<CTradeTypeInfo>& all();
    // Null for an id the table does not hold.
    static const CTradeTypeInfo* find(int tradeType);

    // The display name of a trade type; a type-2 source of a futures platform reads as futures.
    static QString tradeType2String(int tradeType, int platformId);

    // The stored trade type of a source entered through the stock dialog: futures and futures
    // options fold into 2, told apart by their platform.
    static int storedTradeType(int tradeType);
};

}  // namespace Hlx
