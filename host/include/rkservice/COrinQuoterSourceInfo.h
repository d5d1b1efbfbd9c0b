#pragma once

#include <climits>
#include <string>

#include "rkservice/IData.h"

namespace rkservice {

// One quote source (行情源): a market-data server the platform connects to.
class COrinQuoterSourceInfo : public IData {
public:
    // The broker id of a source that belongs to no broker.
    static constexpr int kNoBroker = INT_MAX;

    COrinQuoterSourceInfo() = default;
    COrinQuoterSourceInfo(const COrinQuoterSourceInfo&) = default;
    ~COrinQuoterSourceInfo() override;

    IDataPtr clone() const override;

    int m_nId = 0;
    int m_nPlatformId = 0;
    int m_nBrokerId = kNoBroker;
    int m_nServerGroupId = 0;
    std::string m_strAddress;
    int m_nPort = 0;
    std::string m_strUserName;
    std::string m_strPassword;
    int m_nTradeType = 0;
    std::string m_strMarkets;
};

typedef boost::shared_ptr<COrinQuoterSourceInfo> COrinQuoterSourceInfoPtr;

}  // namespace rkservice
