#include "Hlx/COrinClient.h"

#include "Hlx/COrinClientCenter.h"

namespace Hlx {

COrinClient::COrinClient(COrinClientCenter* centre, const std::string& name)
    : m_centre(centre), m_name(name) {}

void COrinClient::queryData_async(const rkservice::COrinQueryDataReqPtr& request,
                                  const QueryCallback& callback, bool /*flag*/) {
    m_centre->sendQuery(CRequestTarget::subsystem(m_name), request, callback);
}

void COrinClient::operateData_async(const rkservice::COperateDataReqPtr& request,
                                    const OperateCallback& callback, bool /*flag*/) {
    m_centre->sendOperate(CRequestTarget::subsystem(m_name), request, callback);
}

}  // namespace Hlx
