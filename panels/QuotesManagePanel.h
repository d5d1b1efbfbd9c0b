#pragma once

// The quote-source panels, one per trade type. Each passes its trade type and object name to the
// base panel and adds nothing else (so none needs a meta-object of its own).

#include "panels/CQuotesManagePanel.h"

#define HLX_DECLARE_QUOTES_PANEL(ClassName)                                \
    class PANELQUOTESMANAGE_EXPORT ClassName : public CQuotesManagePanel { \
    public:                                                                \
        explicit ClassName(QWidget* parent);                               \
    };

namespace Hlx {

HLX_DECLARE_QUOTES_PANEL(CFutureQuotesManagePanel)
HLX_DECLARE_QUOTES_PANEL(CStockQuotesManagePanel)
HLX_DECLARE_QUOTES_PANEL(CFtOptionQuotesManagePanel)
HLX_DECLARE_QUOTES_PANEL(COptionQuotesManagePanel)
HLX_DECLARE_QUOTES_PANEL(CHgtQuotesManagePanel)
HLX_DECLARE_QUOTES_PANEL(CNeeqQuotesManagePanel)
HLX_DECLARE_QUOTES_PANEL(CGoldQuotesManagePanel)
HLX_DECLARE_QUOTES_PANEL(COutterFuturesQuotesManagePanel)
HLX_DECLARE_QUOTES_PANEL(COutterIBQuotesManagePanel)
HLX_DECLARE_QUOTES_PANEL(COutterStocksQuotesManagePanel)
HLX_DECLARE_QUOTES_PANEL(CAllTypeQuotesManagePanel)
HLX_DECLARE_QUOTES_PANEL(CSgtQuotesManagePanel)

// Builds the panel of a trade type (null for an id without a panel), for hosts that create
// panels from a list.
PANELQUOTESMANAGE_EXPORT CQuotesManagePanel* createQuotesPanel(int tradeType, QWidget* parent);

}  // namespace Hlx
