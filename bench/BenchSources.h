#pragma once

#include <boost/make_shared.hpp>
#include <string>

#include "rkservice/COrinQuoterSourceInfo.h"

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
