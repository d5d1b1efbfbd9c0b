#pragma once

// Helpers shared by the service tests: a service in a temporary directory and requests sent
// through the client centre, waited for on the test thread.

#include <QTemporaryDir>
#include <QtTest>
#include <boost/make_shared.hpp>
#include <future>
#include <string>
#include <vector>

#include "CEmbeddedBackends.h"
#include "CQuotesService.h"
#include "Hlx/COrinClientCenter.h"
#include "rkservice/CGlobalFeaturePermissionInfo.h"
#include "rkservice/CLevel2Token.h"
#include "rkservice/COrinBrokerInfo.h"
#include "rkservice/COrinPlatformInfo.h"
#include "rkservice/COrinQuoterSourceInfo.h"
#include "rkservice/DataTypeIds.h"

namespace svctest {

struct QueryResult {
    utils::RKError error;
    std::vector<rkservice::IDataPtr> datas;
};

struct OperateResult {
    utils::RKError error;
    bson::BSONObj result;
};

// Sends a query to the centre (empty name) or to a sub-system's client and waits for it.
inline QueryResult query(int dataType, const std::string& condition,
                         const std::string& subsystem = std::string(), bool centre = true) {
    auto request = boost::make_shared<rkservice::COrinQueryDataReq>();
    request->dataType = dataType;
    request->condition = condition;
    auto promise = std::make_shared<std::promise<QueryResult>>();
    Hlx::QueryCallback callback = [promise](const utils::RKError& error,
                                            const std::vector<rkservice::IDataPtr>& datas, int,
                                            bson::BSONObj) {
        promise->set_value({error, datas});
    };
    if (centre && subsystem.empty())
        Hlx::COrinClientCenter::instance()->queryData_async(request, callback, false);
    else
        Hlx::COrinClientCenter::instance()->getClientByName(subsystem)->queryData_async(
            request, callback, false);
    return promise->get_future().get();
}

inline QueryResult queryAt(int dataType, const std::string& condition,
                           const std::string& subsystem) {
    return query(dataType, condition, subsystem, false);
}

inline OperateResult operate(int dataType, int operateType,
                             const std::vector<rkservice::IDataPtr>& datas,
                             const std::string& subsystem = std::string()) {
    auto request = boost::make_shared<rkservice::COperateDataReq>();
    request->dataType = dataType;
    request->operateType = operateType;
    request->datas = datas;
    auto promise = std::make_shared<std::promise<OperateResult>>();
    Hlx::OperateCallback callback = [promise](const utils::RKError& error, bson::BSONObj result) {
        promise->set_value({error, result});
    };
    if (subsystem.empty())
        Hlx::COrinClientCenter::instance()->operateData_async(request, callback, false);
    else
        Hlx::COrinClientCenter::instance()->getClientByName(subsystem)->operateData_async(
            request, callback, false);
    return promise->get_future().get();
}

// A source as the stock dialog sends it.
inline rkservice::COrinQuoterSourceInfoPtr stockSource(int platform, int tradeType,
                                                       const std::string& address, int port,
                                                       const std::string& user = "user",
                                                       const std::string& password = "pass") {
    auto source = boost::make_shared<rkservice::COrinQuoterSourceInfo>();
    source->m_nPlatformId = platform;
    source->m_nTradeType = tradeType;
    source->m_strAddress = address;
    source->m_nPort = port;
    source->m_strUserName = user;
    source->m_strPassword = password;
    return source;
}

// A source as the future dialog sends it.
inline rkservice::COrinQuoterSourceInfoPtr futureSource(int platform, int tradeType, int broker,
                                                        int group) {
    auto source = boost::make_shared<rkservice::COrinQuoterSourceInfo>();
    source->m_nPlatformId = platform;
    source->m_nTradeType = tradeType;
    source->m_nBrokerId = broker;
    source->m_nServerGroupId = group;
    return source;
}

// A delete record as the panels send it.
inline rkservice::COrinQuoterSourceInfoPtr deleteRecord(int id, int tradeType = 2,
                                                        int platform = 10000) {
    auto source = boost::make_shared<rkservice::COrinQuoterSourceInfo>();
    source->m_nId = id;
    source->m_nTradeType = tradeType;
    source->m_nPlatformId = platform;
    return source;
}

inline std::vector<rkservice::IDataPtr> list(std::initializer_list<rkservice::IDataPtr> items) {
    return std::vector<rkservice::IDataPtr>(items);
}

template <class T>
std::vector<boost::shared_ptr<T>> as(const std::vector<rkservice::IDataPtr>& datas) {
    std::vector<boost::shared_ptr<T>> result;
    for (const auto& data : datas) {
        auto typed = boost::dynamic_pointer_cast<T>(data);
        if (typed)
            result.push_back(typed);
    }
    return result;
}

inline QString errorText(const utils::RKError& error) {
    return QString::fromStdString(error.errorMsg());
}

}  // namespace svctest
