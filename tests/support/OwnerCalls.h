#pragma once

#include <vector>

#include "CCaller.h"
#include "CQuotesService.h"
#include "Hlx/CRequestTarget.h"

// Requests to the service itself (no client centre), as the owner of the database file: for
// tests of what the service stores.
namespace OwnerCalls {

inline utils::RKError operate(CQuotesService& service, int dataType, int operateType,
                              const rkservice::IDataPtr& record) {
    rkservice::COperateDataReq request;
    request.dataType = dataType;
    request.operateType = operateType;
    request.datas.push_back(record);
    return service.operateSync(CCaller::owner(), Hlx::CRequestTarget::centre(), request);
}

inline utils::RKError query(CQuotesService& service, int dataType,
                            std::vector<rkservice::IDataPtr>* datas) {
    rkservice::COrinQueryDataReq request;
    request.dataType = dataType;
    return service.querySync(CCaller::owner(), Hlx::CRequestTarget::centre(), request, datas);
}

}  // namespace OwnerCalls
