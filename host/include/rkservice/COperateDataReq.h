#pragma once

#include <boost/shared_ptr.hpp>
#include <vector>

#include "rkservice/IData.h"

namespace rkservice {

// A change: the table operated on, the operation and the records it carries.
class COperateDataReq {
public:
    int dataType = 0;
    int operateType = 0;
    std::vector<IDataPtr> datas;
};

typedef boost::shared_ptr<COperateDataReq> COperateDataReqPtr;

}  // namespace rkservice
