#include "panels/QuotesManagePanel.h"

#include "model/CTradeTypeTable.h"

namespace Hlx {

namespace {

QString objectNameOf(int tradeType) {
    const CTradeTypeInfo* info = CTradeTypeTable::find(tradeType);
    return info ? QString::fromLatin1(info->objectName) : QString();
}

}  // namespace

#define HLX_DEFINE_QUOTES_PANEL(ClassName, tradeType) \
    ClassName::ClassName(QWidget* parent)             \
        : CQuotesManagePanel(tradeType, objectNameOf(tradeType), parent) {}

HLX_DEFINE_QUOTES_PANEL(CFutureQuotesManagePanel, CTradeTypeTable::kFutures)
HLX_DEFINE_QUOTES_PANEL(CStockQuotesManagePanel, CTradeTypeTable::kStocks)
HLX_DEFINE_QUOTES_PANEL(CFtOptionQuotesManagePanel, CTradeTypeTable::kFuturesOptions)
HLX_DEFINE_QUOTES_PANEL(COptionQuotesManagePanel, CTradeTypeTable::kStockOptions)
HLX_DEFINE_QUOTES_PANEL(CHgtQuotesManagePanel, CTradeTypeTable::kHgt)
HLX_DEFINE_QUOTES_PANEL(CNeeqQuotesManagePanel, CTradeTypeTable::kNeeq)
HLX_DEFINE_QUOTES_PANEL(CGoldQuotesManagePanel, CTradeTypeTable::kGold)
HLX_DEFINE_QUOTES_PANEL(COutterFuturesQuotesManagePanel, CTradeTypeTable::kOuterFutures)
HLX_DEFINE_QUOTES_PANEL(COutterIBQuotesManagePanel, CTradeTypeTable::kOuterIB)
HLX_DEFINE_QUOTES_PANEL(COutterStocksQuotesManagePanel, CTradeTypeTable::kOuterStocks)
HLX_DEFINE_QUOTES_PANEL(CAllTypeQuotesManagePanel, CTradeTypeTable::kAll)
HLX_DEFINE_QUOTES_PANEL(CSgtQuotesManagePanel, CTradeTypeTable::kSgt)

CQuotesManagePanel* createQuotesPanel(int tradeType, QWidget* parent) {
    switch (tradeType) {
        case CTradeTypeTable::kFutures:
            return new CFutureQuotesManagePanel(parent);
        case CTradeTypeTable::kStocks:
            return new CStockQuotesManagePanel(parent);
        case CTradeTypeTable::kFuturesOptions:
            return new CFtOptionQuotesManagePanel(parent);
        case CTradeTypeTable::kStockOptions:
            return new COptionQuotesManagePanel(parent);
        case CTradeTypeTable::kHgt:
            return new CHgtQuotesManagePanel(parent);
        case CTradeTypeTable::kNeeq:
            return new CNeeqQuotesManagePanel(parent);
        case CTradeTypeTable::kGold:
            return new CGoldQuotesManagePanel(parent);
        case CTradeTypeTable::kOuterFutures:
            return new COutterFuturesQuotesManagePanel(parent);
        case CTradeTypeTable::kOuterIB:
            return new COutterIBQuotesManagePanel(parent);
        case CTradeTypeTable::kOuterStocks:
            return new COutterStocksQuotesManagePanel(parent);
        case CTradeTypeTable::kAll:
            return new CAllTypeQuotesManagePanel(parent);
        case CTradeTypeTable::kSgt:
            return new CSgtQuotesManagePanel(parent);
        default:
            return nullptr;
    }
}

}  // namespace Hlx
