#include "model/CRequestFactory.h"

#include <boost/format.hpp>
#include <boost/make_shared.hpp>

#include "model/CTradeTypeTable.h"

namespace Hlx {

std::string CRequestFactory::queryCondition(int tradeType) {
    if (tradeType == CTradeTypeTable::kAll)
        return std::string();
    return (boost::format("%d") % tradeType).str();
}

rkservice::COrinQueryDataReqPtr CRequestFactory::query(int dataType, const std::string& condition) {
    auto request = boost::make_shared<rkservice::COrinQueryDataReq>();
    request->dataType = dataType;
    request->condition = condition;
    return request;
}

rkservice::COperateDataReqPtr CRequestFactory::operate(int dataType, int operateType) {
    auto request = boost::make_shared<rkservice::COperateDataReq>();
    request->dataType = dataType;
    request->operateType = operateType;
    return request;
}

}  // namespace Hlx
