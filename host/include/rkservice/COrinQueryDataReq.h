#pragma once

#include <boost/shared_ptr.hpp>
#include <string>

namespace rkservice {

// A query: what is asked for (data type) and the condition text.
class COrinQueryDataReq {
public:
    int dataType = 0;
    std::string condition;
};

typedef boost::shared_ptr<COrinQueryDataReq> COrinQueryDataReqPtr;

}  // namespace rkservice
