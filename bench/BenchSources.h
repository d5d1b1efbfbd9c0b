#pragma once

#include <algorithm>
#include <boost/make_shared.hpp>
#include <string>

#include "CCaller.h"
#include "CQuotesService.h"
#include "Hlx/CRequestTarget.h"
#include "rkservice/COperateDataReq.h"
#include "rkservice/COrinQuoterSourceInfo.h"
#include "rkservice/DataTypeIds.h"

// The n-th stock source of the benches' databases: every one at an address of its own.
inline rkservice::COrinQuoterSourceInfoPtr benchSource(int n) {
    auto s = boost::make_shared<rkservice::COrinQuoterSourceInfo>();
    s->m_nPlatformId = 10000;
    s->m_nTradeType = 2;
    s->m_strAddress = "10." + std::to_string(n / 62500) + "." + std::to_string(n / 250 % 250) +
                      "." + std::to_string(n % 250);
    s->m_nPort = 9000;
    s->m_strUserName = "user" + std::to_string(n);
    s->m_strPassword = "password" + std::to_string(n);
    s->m_strMarkets = "SH,SZ";
    return s;
}

// Adds the sources from..from+count-1 in one request, as the owner; false when refused.
inline bool addBenchSources(CQuotesService& service, int from, int count) {
    rkservice::COperateDataReq request;
    request.dataType = rkservice::kDataQuoteSources;
    request.operateType = rkservice::kOperateAdd;
    for (int n = from; n < from + count; ++n)
        request.datas.push_back(benchSource(n));
    return service.operateSync(CCaller::owner(), Hlx::CRequestTarget::subsystem("sys1"), request)
        .isSuccess();
}

// A database of `sources` sources, added a thousand at a time; false when one was refused.
inline bool fillBenchSources(CQuotesService& service, int sources) {
    for (int from = 0; from < sources; from += 1000) {
        if (!addBenchSources(service, from, std::min(1000, sources - from)))
            return false;
    }
    return true;
}
