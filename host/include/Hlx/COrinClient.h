#pragma once

#include <boost/shared_ptr.hpp>
#include <string>

#include "Hlx/CRequestTarget.h"
#include "Hlx/DataCallbacks.h"
#include "rkservice/COperateDataReq.h"
#include "rkservice/COrinQueryDataReq.h"

namespace Hlx {

class COrinClientCenter;

// The client of one sub-system: its requests read and write that sub-system's data only.
class COrinClient {
public:
    COrinClient(COrinClientCenter* centre, const std::string& name);

    const std::string& name() const { return m_name; }

    void queryData_async(const rkservice::COrinQueryDataReqPtr& request,
                         const QueryCallback& callback, bool flag);
    void operateData_async(const rkservice::COperateDataReqPtr& request,
                           const OperateCallback& callback, bool flag);

private:
    COrinClientCenter* m_centre;
    std::string m_name;
};

typedef boost::shared_ptr<COrinClient> COrinClientPtr;

}  // namespace Hlx
