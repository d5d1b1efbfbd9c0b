#pragma once

#include <string>

#include "model/PanelQuotesManageGlobal.h"
#include "rkservice/COperateDataReq.h"
#include "rkservice/COrinQueryDataReq.h"

namespace Hlx {

// Builds the requests the panels and dialogs send.
class PANELQUOTESMANAGE_EXPORT CRequestFactory {
public:
    // The query condition of a trade type: its decimal text, empty for all types.
    static std::string queryCondition(int tradeType);

    static rkservice::COrinQueryDataReqPtr query(int dataType, const std::string& condition);
    static rkservice::COperateDataReqPtr operate(int dataType, int operateType);
};

}  // namespace Hlx
