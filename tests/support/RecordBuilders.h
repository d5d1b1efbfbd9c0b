#pragma once

#include <boost/make_shared.hpp>
#include <string>
#include <vector>

#include "rkservice/CGlobalFeaturePermissionInfo.h"
#include "rkservice/CLevel2Token.h"
#include "rkservice/COrinBrokerInfo.h"
#include "rkservice/COrinPlatformInfo.h"
#include "rkservice/COrinQuoterSourceInfo.h"

// Small builders of the records tests script answers with.
namespace RecordBuilders {

inline boost::shared_ptr<rkservice::COrinQuoterSourceInfo> source(
    int id, int platformId, int tradeType, const std::string& address = "10.0.0.1", int port = 8000,
    const std::string& tag = "sys1") {
    auto record = boost::make_shared<rkservice::COrinQuoterSourceInfo>();
    record->m_nId = id;
    record->m_nPlatformId = platformId;
    record->m_nTradeType = tradeType;
    record->m_strAddress = address;
    record->m_nPort = port;
    record->m_strUserName = "user" + std::to_string(id);
    record->m_strPassword = "pw" + std::to_string(id);
    record->setSystemTag(tag);
    return record;
}

// A futures source that references a broker and one of its server groups.
inline boost::shared_ptr<rkservice::COrinQuoterSourceInfo> brokerSource(
    int id, int platformId, int brokerId, int groupId, int tradeType,
    const std::string& tag = "sys1") {
    auto record = boost::make_shared<rkservice::COrinQuoterSourceInfo>();
    record->m_nId = id;
    record->m_nPlatformId = platformId;
    record->m_nBrokerId = brokerId;
    record->m_nServerGroupId = groupId;
    record->m_nTradeType = tradeType;
    record->setSystemTag(tag);
    return record;
}

inline rkservice::COrinServerGroupPtr group(int id, const std::string& name,
                                            const std::vector<std::string>& addresses) {
    auto entry = boost::make_shared<rkservice::COrinServerGroup>();
    entry->serverGroupId = id;
    entry->serverGroupName = name;
    entry->serverAddresses = addresses;
    return entry;
}

inline boost::shared_ptr<rkservice::COrinBrokerInfo> broker(
    int platformId, const std::string& key, const std::string& name,
    const std::vector<rkservice::COrinServerGroupPtr>& groups,
    const std::string& platformName = "期货平台", const std::string& tag = "sys1") {
    auto record = boost::make_shared<rkservice::COrinBrokerInfo>();
    record->platformId = platformId;
    record->platformName = platformName;
    record->brokerKey = key;
    record->brokerName = name;
    record->serverGroups = groups;
    record->setSystemTag(tag);
    return record;
}

inline boost::shared_ptr<rkservice::COrinPlatformInfo> platform(int id, const std::string& name) {
    auto record = boost::make_shared<rkservice::COrinPlatformInfo>();
    record->platformId = id;
    record->platformName = name;
    return record;
}

inline boost::shared_ptr<rkservice::CLevel2Token> token(const std::string& text) {
    auto record = boost::make_shared<rkservice::CLevel2Token>();
    record->token = text;
    return record;
}

}  // namespace RecordBuilders
