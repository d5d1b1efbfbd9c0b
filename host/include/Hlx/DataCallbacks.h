#pragma once

#include <boost/function.hpp>
#include <vector>

#include "bson/BSONObj.h"
#include "rkservice/IData.h"
#include "utils/RKError.h"

namespace Hlx {

// The answer of a query: outcome, records, record count, extra document.
typedef boost::function<void(const utils::RKError&, const std::vector<rkservice::IDataPtr>&, int,
                             bson::BSONObj)>
    QueryCallback;

// The answer of a change: outcome and extra document.
typedef boost::function<void(const utils::RKError&, bson::BSONObj)> OperateCallback;

}  // namespace Hlx
