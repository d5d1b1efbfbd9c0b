#include "CDemoData.h"

#include <QDir>
#include <boost/make_shared.hpp>
#include <string>
#include <vector>

#include "CCaller.h"
#include "CQuotesService.h"
#include "Hlx/CRequestTarget.h"
#include "rkservice/CLevel2Token.h"
#include "rkservice/COperateDataReq.h"
#include "rkservice/COrinQuoterSourceInfo.h"
#include "rkservice/DataTypeIds.h"

namespace {

// A source with an address of its own: platform, trade type, sub-system and connection.
struct DemoSource {
    int platformId;
    int tradeType;
    const char* subsystem;
    const char* address;
    int port;
    const char* user;
};

// A futures source that names a broker's server group instead of an address.
struct DemoBrokerSource {
    int platformId;
    int brokerId;
    int serverGroupId;
    int tradeType;
    const char* subsystem;
};

const DemoSource kSources[] = {
    {10000, 2, "sys1", "192.0.2.11", 7709, "hq_sh01"},
    {10000, 2, "sys2", "198.51.100.11", 7709, "hq_sz01"},
    {10000, 2, "sys1", "2001:db8:10::11", 7711, "hq_v6"},
    {20000, 2, "sys1", "203.0.113.21", 41300, "kx_futures"},
    {70000, 2, "sys2", "203.0.113.22", 41310, "kx_options"},
    {10001, 6, "sys1", "192.0.2.31", 7721, "opt_sh"},
    {25011, 6, "sys1", "192.0.2.32", 7722, "ctp_opt"},
    {25012, 6, "sys2", "198.51.100.33", 7723, "ctp_sim"},
    {10003, 7, "sys1", "192.0.2.41", 7731, "hgt_01"},
    {10004, 11, "sys2", "198.51.100.42", 7732, "sgt_01"},
    {10002, 10, "sys1", "192.0.2.51", 7741, "neeq_01"},
    {31003, 4, "sys1", "203.0.113.61", 7751, "gold_sge"},
    {31003, 4, "sys2", "203.0.113.62", 7751, "gold_bak"},
    {32000, 8, "sys1", "198.51.100.71", 4001, "ib_stocks"},
    {32000, 1002, "sys2", "198.51.100.72", 4002, "ib_outer"},
    {15000, 16, "sys1", "203.0.113.81", 7761, "yswp_01"},
    {15000, 16, "sys2", "2001:db8:20::81", 7762, "yswp_02"},
};

const DemoBrokerSource kBrokerSources[] = {
    {20000, 8060, 1, 1, "sys1"}, {20000, 8070, 2, 1, "sys1"}, {20000, 8080, 1, 1, "sys2"},
    {20001, 8090, 3, 1, "sys1"}, {20001, 8110, 1, 1, "sys2"}, {20002, 8130, 2, 1, "sys2"},
    {70000, 8070, 1, 5, "sys1"}, {70000, 8100, 2, 5, "sys2"}, {70001, 8110, 3, 5, "sys1"},
};

const char kToken[] = "L2demo7f3a9c2e5b1d4086";

bool add(CQuotesService& service, const char* subsystem, int dataType,
         const rkservice::IDataPtr& record, QString* error) {
    rkservice::COperateDataReq request;
    request.dataType = dataType;
    request.operateType = rkservice::kOperateAdd;
    request.datas.push_back(record);
    const Hlx::CRequestTarget target =
        subsystem ? Hlx::CRequestTarget::subsystem(subsystem) : Hlx::CRequestTarget::centre();
    const utils::RKError result = service.operateSync(CCaller::localOwner(), target, request);
    if (!result.isSuccess())
        *error = QString::fromStdString(result.errorMsg());
    return result.isSuccess();
}

boost::shared_ptr<rkservice::COrinQuoterSourceInfo> newSource(int platformId, int tradeType) {
    auto record = boost::make_shared<rkservice::COrinQuoterSourceInfo>();
    record->m_nPlatformId = platformId;
    record->m_nTradeType = tradeType;
    return record;
}

rkservice::IDataPtr sourceRecord(const DemoSource& source) {
    auto record = newSource(source.platformId, source.tradeType);
    record->m_strAddress = source.address;
    record->m_nPort = source.port;
    record->m_strUserName = source.user;
    record->m_strPassword = std::string("Demo") + std::to_string(source.port);
    return record;
}

rkservice::IDataPtr brokerRecord(const DemoBrokerSource& source) {
    auto record = newSource(source.platformId, source.tradeType);
    record->m_nBrokerId = source.brokerId;
    record->m_nServerGroupId = source.serverGroupId;
    return record;
}

}  // namespace

QString CDemoData::defaultDirectory() {
    return QDir(CQuotesService::defaultDataDir()).absolutePath() + QStringLiteral("-demo");
}

bool CDemoData::prepare(const QString& directory, bool reset, bool* fresh, QString* error) {
    QDir dir(directory);
    if (reset && dir.exists() && !dir.removeRecursively()) {
        *error = QStringLiteral("cannot remove %1").arg(directory);
        return false;
    }
    if (!QDir().mkpath(directory)) {
        *error = QStringLiteral("cannot create %1").arg(directory);
        return false;
    }
    *fresh = !dir.exists(QStringLiteral("quotes.db"));
    return true;
}

bool CDemoData::fill(CQuotesService& service, QString* error) {
    for (const DemoSource& source : kSources) {
        if (!add(service, source.subsystem, rkservice::kDataQuoteSources, sourceRecord(source),
                 error))
            return false;
    }
    for (const DemoBrokerSource& source : kBrokerSources) {
        if (!add(service, source.subsystem, rkservice::kDataQuoteSources, brokerRecord(source),
                 error))
            return false;
    }
    auto token = boost::make_shared<rkservice::CLevel2Token>();
    token->token = kToken;
    return add(service, nullptr, rkservice::kDataLevel2Tokens, token, error);
}
