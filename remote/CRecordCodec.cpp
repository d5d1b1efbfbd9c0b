#include "CRecordCodec.h"

#include "model/CProbeVocabulary.h"

#include <QJsonDocument>
#include <QString>
#include <QStringList>
#include <boost/make_shared.hpp>
#include <climits>
#include <typeinfo>

#include "CCodecChecks.h"
#include "rkservice/CGlobalFeaturePermissionInfo.h"
#include "rkservice/CLevel2Token.h"
#include "rkservice/COrinBrokerInfo.h"
#include "rkservice/COrinPlatformInfo.h"
#include "rkservice/COrinQuoterSourceInfo.h"
#include "rkservice/CUserInfo.h"
#include "rkservice/DataTypeIds.h"

using google::protobuf::int64;
using utils::RKError;

namespace {

using Checks = CCodecChecks;

// ---- records to messages

void encodeSource(const rkservice::COrinQuoterSourceInfo& in, quotes::v1::QuoteSource* out,
                  Checks* c) {
    out->set_id(in.m_nId);
    out->set_platform_id(in.m_nPlatformId);
    out->set_broker_id(in.m_nBrokerId);
    out->set_server_group_id(in.m_nServerGroupId);
    out->set_address(c->text(in.m_strAddress, "quote_source.address"));
    out->set_port(in.m_nPort);
    out->set_user_name(c->text(in.m_strUserName, "quote_source.user_name"));
    out->set_password(c->text(in.m_strPassword, "quote_source.password"));
    out->set_trade_type(in.m_nTradeType);
    out->set_markets(c->text(in.m_strMarkets, "quote_source.markets"));
}

void encodeBroker(const rkservice::COrinBrokerInfo& in, quotes::v1::Broker* out, Checks* c) {
    out->set_platform_id(in.platformId);
    out->set_platform_name(c->text(in.platformName, "broker.platform_name"));
    out->set_broker_key(c->text(in.brokerKey, "broker.broker_key"));
    out->set_broker_name(c->text(in.brokerName, "broker.broker_name"));
    for (const rkservice::COrinServerGroupPtr& group : in.serverGroups) {
        if (!group) {
            c->fail("经纪商记录中有空的服务器组");
            return;
        }
        quotes::v1::ServerGroup* message = out->add_server_groups();
        message->set_id(group->serverGroupId);
        message->set_name(c->text(group->serverGroupName, "server_group.name"));
        for (const std::string& address : group->serverAddresses)
            message->add_addresses(c->text(address, "server_group.addresses"));
    }
}

void encodePlatform(const rkservice::COrinPlatformInfo& in, quotes::v1::Platform* out, Checks* c) {
    out->set_platform_id(in.platformId);
    out->set_platform_name(c->text(in.platformName, "platform.platform_name"));
}

void encodePermission(const rkservice::CGlobalFeaturePermissionInfo& in,
                      quotes::v1::GlobalPermission* out, Checks* c) {
    if (!in.m_wholeQuote)
        return;
    auto* markets = out->mutable_whole_quote()->mutable_markets();
    for (const auto& flag : in.m_wholeQuote->flags())
        (*markets)[c->text(flag.first, "whole_quote.markets")] = flag.second;
}

void encodeUser(const rkservice::CUserInfo& in, quotes::v1::User* out, Checks* c) {
    out->set_name(c->text(in.m_strName, "user.name"));
    for (int right : in.m_rights)
        out->add_rights(right);
    out->set_system_id(in.m_nSystemId);
}

// ---- messages to records

rkservice::IDataPtr decodeSource(const quotes::v1::QuoteSource& in, Checks* c) {
    auto out = boost::make_shared<rkservice::COrinQuoterSourceInfo>();
    out->m_nId = c->narrow(in.id(), "quote_source.id");
    out->m_nPlatformId = c->narrow(in.platform_id(), "quote_source.platform_id");
    out->m_nBrokerId = c->narrow(in.broker_id(), "quote_source.broker_id");
    out->m_nServerGroupId = c->narrow(in.server_group_id(), "quote_source.server_group_id");
    out->m_strAddress = in.address();
    out->m_nPort = c->narrow(in.port(), "quote_source.port");
    out->m_strUserName = in.user_name();
    out->m_strPassword = in.password();
    out->m_nTradeType = c->narrow(in.trade_type(), "quote_source.trade_type");
    out->m_strMarkets = in.markets();
    return out;
}

rkservice::IDataPtr decodeBroker(const quotes::v1::Broker& in, Checks* c) {
    auto out = boost::make_shared<rkservice::COrinBrokerInfo>();
    out->platformId = c->narrow(in.platform_id(), "broker.platform_id");
    out->platformName = in.platform_name();
    out->brokerKey = in.broker_key();
    out->brokerName = in.broker_name();
    for (const quotes::v1::ServerGroup& message : in.server_groups()) {
        auto group = boost::make_shared<rkservice::COrinServerGroup>();
        group->serverGroupId = c->narrow(message.id(), "server_group.id");
        group->serverGroupName = message.name();
        group->serverAddresses.assign(message.addresses().begin(), message.addresses().end());
        out->serverGroups.push_back(group);
    }
    return out;
}

rkservice::IDataPtr decodePlatform(const quotes::v1::Platform& in, Checks* c) {
    auto out = boost::make_shared<rkservice::COrinPlatformInfo>();
    out->platformId = c->narrow(in.platform_id(), "platform.platform_id");
    out->platformName = in.platform_name();
    return out;
}

rkservice::IDataPtr decodePermission(const quotes::v1::GlobalPermission& in) {
    auto out = boost::make_shared<rkservice::CGlobalFeaturePermissionInfo>();
    if (!in.has_whole_quote()) {
        out->m_wholeQuote.reset();
        return out;
    }
    for (const auto& flag : in.whole_quote().markets())
        out->m_wholeQuote->setEnabled(flag.first, flag.second);
    return out;
}

rkservice::IDataPtr decodeToken(const quotes::v1::Level2Token& in) {
    auto out = boost::make_shared<rkservice::CLevel2Token>();
    out->token = in.token();
    return out;
}

rkservice::IDataPtr decodeUser(const quotes::v1::User& in, Checks* c) {
    auto out = boost::make_shared<rkservice::CUserInfo>();
    out->m_strName = in.name();
    for (int64 right : in.rights())
        out->m_rights.insert(c->narrow(right, "user.rights"));
    out->m_nSystemId = c->narrow(in.system_id(), "user.system_id");
    return out;
}

RKError unknownDataType(int64 dataType) {
    return RKError::fail(utils::ErrorKind::Invalid, "未知的数据类型: " + std::to_string(dataType));
}

}  // namespace

// ---- records

RKError CRecordCodec::encodeRecord(const rkservice::IData& data, quotes::v1::Record* out) {
    out->Clear();
    Checks c;
    out->set_system_tag(c.text(data.getSystemTag(), "system_tag"));
    out->set_revision(data.getRevision());
    if (auto* source = dynamic_cast<const rkservice::COrinQuoterSourceInfo*>(&data))
        encodeSource(*source, out->mutable_quote_source(), &c);
    else if (auto* broker = dynamic_cast<const rkservice::COrinBrokerInfo*>(&data))
        encodeBroker(*broker, out->mutable_broker(), &c);
    else if (auto* platform = dynamic_cast<const rkservice::COrinPlatformInfo*>(&data))
        encodePlatform(*platform, out->mutable_platform(), &c);
    else if (auto* permission = dynamic_cast<const rkservice::CGlobalFeaturePermissionInfo*>(&data))
        encodePermission(*permission, out->mutable_global_permission(), &c);
    else if (auto* token = dynamic_cast<const rkservice::CLevel2Token*>(&data))
        out->mutable_level2_token()->set_token(c.text(token->token, "level2_token.token"));
    else if (auto* user = dynamic_cast<const rkservice::CUserInfo*>(&data))
        encodeUser(*user, out->mutable_user(), &c);
    else
        c.fail(std::string("无法发送的记录类型: ") + typeid(data).name());
    return c.error();
}

RKError CRecordCodec::decodeRecord(const quotes::v1::Record& in, rkservice::IDataPtr* out) {
    Checks c;
    rkservice::IDataPtr record;
    switch (in.kind_case()) {
        case quotes::v1::Record::kQuoteSource:
            record = decodeSource(in.quote_source(), &c);
            break;
        case quotes::v1::Record::kBroker:
            record = decodeBroker(in.broker(), &c);
            break;
        case quotes::v1::Record::kPlatform:
            record = decodePlatform(in.platform(), &c);
            break;
        case quotes::v1::Record::kGlobalPermission:
            record = decodePermission(in.global_permission());
            break;
        case quotes::v1::Record::kLevel2Token:
            record = decodeToken(in.level2_token());
            break;
        case quotes::v1::Record::kUser:
            record = decodeUser(in.user(), &c);
            break;
        case quotes::v1::Record::KIND_NOT_SET:
            // Also what a record of a newer schema looks like: refused, not dropped.
            return RKError::fail(utils::ErrorKind::Invalid, "未知的记录类型");
    }
    if (!c.ok() || !record)
        return c.ok() ? RKError::fail(utils::ErrorKind::Invalid, "未知的记录类型") : c.error();
    if (in.revision() < 0)
        return RKError::fail(utils::ErrorKind::Invalid,
                             "版本号无效: " + std::to_string(in.revision()));
    record->setSystemTag(in.system_tag());
    record->setRevision(in.revision());
    *out = record;
    return RKError::ok();
}

RKError CRecordCodec::encodeRecords(const rkservice::IDataList& datas, Records* out) {
    out->Clear();
    out->Reserve(static_cast<int>(datas.size()));
    for (const rkservice::IDataPtr& data : datas) {
        if (!data)
            return RKError::fail(utils::ErrorKind::Invalid, "请求中有空的记录");
        const RKError error = encodeRecord(*data, out->Add());
        if (!error.isSuccess())
            return error;
    }
    return RKError::ok();
}

RKError CRecordCodec::decodeRecords(const Records& in, rkservice::IDataList* out) {
    rkservice::IDataList records;
    records.reserve(static_cast<size_t>(in.size()));
    for (const quotes::v1::Record& message : in) {
        rkservice::IDataPtr record;
        const RKError error = decodeRecord(message, &record);
        if (!error.isSuccess())
            return error;
        records.push_back(record);
    }
    out->swap(records);
    return RKError::ok();
}

// ---- requests

RKError CRecordCodec::encodeTarget(const Hlx::CRequestTarget& target, quotes::v1::Target* out) {
    if (target.isCentre()) {
        out->set_centre(true);
        return RKError::ok();
    }
    Checks c;
    out->set_subsystem(c.text(target.subsystemName(), "target.subsystem"));
    return c.error();
}

RKError CRecordCodec::decodeTarget(const quotes::v1::Target& in, Hlx::CRequestTarget* out) {
    switch (in.where_case()) {
        case quotes::v1::Target::kCentre:
            if (!in.centre())
                break;
            *out = Hlx::CRequestTarget::centre();
            return RKError::ok();
        case quotes::v1::Target::kSubsystem:
            *out = Hlx::CRequestTarget::subsystem(in.subsystem());
            return RKError::ok();
        case quotes::v1::Target::WHERE_NOT_SET:
            break;
    }
    return RKError::fail(utils::ErrorKind::Invalid, "请求没有指明目标(数据中心或子系统)");
}

RKError CRecordCodec::encodeQuery(const Hlx::CRequestTarget& target,
                                  const rkservice::COrinQueryDataReq& request,
                                  quotes::v1::QueryRequest* out) {
    if (!isKnownDataType(request.dataType))
        return unknownDataType(request.dataType);
    out->Clear();
    Checks c;
    out->set_data_type(request.dataType);
    out->set_condition(c.text(request.condition, "query.condition"));
    if (!c.ok())
        return c.error();
    return encodeTarget(target, out->mutable_target());
}

RKError CRecordCodec::decodeQuery(const quotes::v1::QueryRequest& in, Hlx::CRequestTarget* target,
                                  rkservice::COrinQueryDataReq* out) {
    if (!isKnownDataType(in.data_type()))
        return unknownDataType(in.data_type());
    const RKError error = decodeTarget(in.target(), target);
    if (!error.isSuccess())
        return error;
    out->dataType = static_cast<int>(in.data_type());
    out->condition = in.condition();
    return RKError::ok();
}

RKError CRecordCodec::encodeOperate(const Hlx::CRequestTarget& target,
                                    const rkservice::COperateDataReq& request,
                                    quotes::v1::OperateRequest* out) {
    if (!isKnownDataType(request.dataType))
        return unknownDataType(request.dataType);
    if (!isKnownOperateType(request.operateType))
        return RKError::fail(utils::ErrorKind::Invalid,
                             "未知的操作类型: " + std::to_string(request.operateType));
    out->Clear();
    out->set_data_type(request.dataType);
    out->set_operate_type(request.operateType);
    const RKError error = encodeTarget(target, out->mutable_target());
    if (!error.isSuccess())
        return error;
    return encodeRecords(request.datas, out->mutable_records());
}

RKError CRecordCodec::decodeOperate(const quotes::v1::OperateRequest& in,
                                    Hlx::CRequestTarget* target, rkservice::COperateDataReq* out) {
    if (!isKnownDataType(in.data_type()))
        return unknownDataType(in.data_type());
    if (!isKnownOperateType(in.operate_type()))
        return RKError::fail(utils::ErrorKind::Invalid,
                             "未知的操作类型: " + std::to_string(in.operate_type()));
    RKError error = decodeTarget(in.target(), target);
    if (error.isSuccess())
        error = decodeRecords(in.records(), &out->datas);
    if (!error.isSuccess())
        return error;
    out->dataType = static_cast<int>(in.data_type());
    out->operateType = static_cast<int>(in.operate_type());
    return RKError::ok();
}

// ---- a source patch

RKError CRecordCodec::encodeSourcePatch(int id, const Hlx::CSourcePatch& patch,
                                        quotes::v1::ModifySourceRequest* out) {
    out->Clear();
    out->set_id(id);
    quotes::v1::SourcePatch* p = out->mutable_patch();
    Checks c;
    if (patch.platformId)
        p->set_platform_id(*patch.platformId);
    if (patch.brokerId)
        p->set_broker_id(*patch.brokerId);
    if (patch.serverGroupId)
        p->set_server_group_id(*patch.serverGroupId);
    if (patch.address)
        p->set_address(c.text(*patch.address, "source_patch.address"));
    if (patch.port)
        p->set_port(*patch.port);
    if (patch.userName)
        p->set_user_name(c.text(*patch.userName, "source_patch.user_name"));
    if (patch.password)
        p->set_password(c.text(*patch.password, "source_patch.password"));
    if (patch.tradeType)
        p->set_trade_type(*patch.tradeType);
    if (patch.markets)
        p->set_markets(c.text(*patch.markets, "source_patch.markets"));
    if (patch.ifRevision)
        out->set_if_revision(*patch.ifRevision);
    return c.error();
}

RKError CRecordCodec::decodeSourcePatch(const quotes::v1::ModifySourceRequest& in, int* id,
                                        Hlx::CSourcePatch* out) {
    Checks c;
    *id = c.narrow(in.id(), "modify_source.id");
    const quotes::v1::SourcePatch& p = in.patch();
    *out = Hlx::CSourcePatch();
    if (p.has_platform_id())
        out->platformId = c.narrow(p.platform_id(), "source_patch.platform_id");
    if (p.has_broker_id())
        out->brokerId = c.narrow(p.broker_id(), "source_patch.broker_id");
    if (p.has_server_group_id())
        out->serverGroupId = c.narrow(p.server_group_id(), "source_patch.server_group_id");
    if (p.has_address())
        out->address = p.address();
    if (p.has_port())
        out->port = c.narrow(p.port(), "source_patch.port");
    if (p.has_user_name())
        out->userName = p.user_name();
    if (p.has_password())
        out->password = p.password();
    if (p.has_trade_type())
        out->tradeType = c.narrow(p.trade_type(), "source_patch.trade_type");
    if (p.has_markets())
        out->markets = p.markets();
    if (in.has_if_revision()) {
        if (in.if_revision() < 1)
            c.fail("版本号无效: " + std::to_string(in.if_revision()));
        out->ifRevision = in.if_revision();
    }
    return c.error();
}

// ---- answers

namespace {

// The kinds by their wire names; the same order on both sides.
const std::pair<utils::ErrorKind, quotes::v1::ErrorKind> kErrorKinds[] = {
    {utils::ErrorKind::None, quotes::v1::ERROR_KIND_UNSPECIFIED},
    {utils::ErrorKind::Refused, quotes::v1::ERROR_KIND_REFUSED},
    {utils::ErrorKind::Invalid, quotes::v1::ERROR_KIND_INVALID},
    {utils::ErrorKind::NotFound, quotes::v1::ERROR_KIND_NOT_FOUND},
    {utils::ErrorKind::Conflict, quotes::v1::ERROR_KIND_CONFLICT},
    {utils::ErrorKind::Unavailable, quotes::v1::ERROR_KIND_UNAVAILABLE},
};

}  // namespace

void CRecordCodec::encodeError(const utils::RKError& error, quotes::v1::Error* out) {
    out->set_success(error.isSuccess());
    for (const auto& kind : kErrorKinds) {
        if (kind.first == error.kind())
            out->set_kind(kind.second);
    }
    const std::string& message = error.errorMsg();
    if (CCodecChecks::isUtf8(message)) {
        out->set_message(message);
        return;
    }
    out->set_message(
        QString::fromUtf8(message.data(), static_cast<int>(message.size())).toUtf8().toStdString());
}

RKError CRecordCodec::decodeError(const quotes::v1::Error& in) {
    if (in.success())
        return RKError(true, in.message());
    // A kind this client does not know (or none, from an older server) is a plain refusal.
    for (const auto& kind : kErrorKinds) {
        if (kind.second == in.kind())
            return RKError::fail(kind.first, in.message());
    }
    return RKError::fail(in.message());
}

namespace {

// The numbers of a comma-separated list of a result ("ids", "revisions").
bool parseNumbers(const std::string& list, std::vector<long long>* out) {
    for (const QString& text :
         QString::fromStdString(list).split(QLatin1Char(','), Qt::SkipEmptyParts)) {
        bool isNumber = false;
        out->push_back(text.trimmed().toLongLong(&isNumber));
        if (!isNumber)
            return false;
    }
    return true;
}

}  // namespace

RKError CRecordCodec::encodeResult(const bson::BSONObj& result, quotes::v1::OperateResult* out) {
    // Only the fields clients read are carried; a field added later must be added here.
    out->Clear();
    if (result.hasField("count"))
        out->set_count(result.getIntField("count"));
    std::vector<long long> ids;
    if (!parseNumbers(result.getStringField("ids"), &ids))
        return RKError::fail(utils::ErrorKind::Invalid,
                             "操作结果中的编号无效: " + result.getStringField("ids"));
    for (long long id : ids) {
        if (id < INT_MIN || id > INT_MAX)
            return RKError::fail(utils::ErrorKind::Invalid,
                                 "操作结果中的编号无效: " + std::to_string(id));
        out->add_ids(id);
    }
    std::vector<long long> revisions;
    if (!parseNumbers(result.getStringField("revisions"), &revisions))
        return RKError::fail(utils::ErrorKind::Invalid,
                             "操作结果中的版本号无效: " + result.getStringField("revisions"));
    for (long long revision : revisions)
        out->add_revisions(revision);
    return RKError::ok();
}

RKError CRecordCodec::decodeResult(const quotes::v1::OperateResult& in, bson::BSONObj* out) {
    Checks c;
    bson::BSONObj result;
    if (in.has_count())
        result.appendInt("count", c.narrow(in.count(), "result.count"));
    std::string ids;
    for (int64 id : in.ids())
        ids += (ids.empty() ? "" : ",") + std::to_string(c.narrow(id, "result.ids"));
    if (!ids.empty())
        result.appendString("ids", ids);
    std::string revisions;
    for (int64 revision : in.revisions())
        revisions += (revisions.empty() ? "" : ",") + std::to_string(revision);
    if (!revisions.empty())
        result.appendString("revisions", revisions);
    if (c.ok())
        *out = result;
    return c.error();
}

RKError CRecordCodec::encodeSubsystems(const std::vector<Hlx::SubsystemInfo>& subsystems,
                                       Subsystems* out) {
    out->Clear();
    Checks c;
    for (const Hlx::SubsystemInfo& subsystem : subsystems) {
        quotes::v1::Subsystem* message = out->Add();
        message->set_name(c.text(subsystem.name, "subsystem.name"));
        message->set_display_name(c.text(subsystem.displayName, "subsystem.display_name"));
    }
    return c.error();
}

std::vector<Hlx::SubsystemInfo> CRecordCodec::decodeSubsystems(const Subsystems& in) {
    std::vector<Hlx::SubsystemInfo> subsystems;
    subsystems.reserve(static_cast<size_t>(in.size()));
    for (const quotes::v1::Subsystem& message : in)
        subsystems.push_back({message.name(), message.display_name()});
    return subsystems;
}

void CRecordCodec::encodeLoginTypeAuth(const std::map<int, bool>& auth, LoginTypeAuth* out) {
    out->clear();
    for (const auto& entry : auth)
        (*out)[entry.first] = entry.second;
}

RKError CRecordCodec::decodeLoginTypeAuth(const LoginTypeAuth& in, std::map<int, bool>* out) {
    Checks c;
    std::map<int, bool> auth;
    for (const auto& entry : in)
        auth[c.narrow(entry.first, "login_type_auth")] = entry.second;
    if (c.ok())
        out->swap(auth);
    return c.error();
}

RKError CRecordCodec::decodeLoginType(int64 in, int* out) {
    Checks c;
    const int loginType = c.narrow(in, "login_type");
    if (c.ok())
        *out = loginType;
    return c.error();
}

bool CRecordCodec::isKnownDataType(int64 dataType) {
    switch (dataType) {
        case rkservice::kDataGlobalPermission:
        case rkservice::kDataBrokers:
        case rkservice::kDataPlatforms:
        case rkservice::kDataQuoteSources:
        case rkservice::kDataLevel2Tokens:
        case rkservice::kDataUsers:
            return true;
        default:
            return false;
    }
}

bool CRecordCodec::isKnownOperateType(int64 operateType) {
    return operateType >= rkservice::kOperateModify && operateType <= rkservice::kOperateDelete;
}

namespace {

std::string compactJson(const QJsonObject& object) {
    return object.isEmpty() ? std::string()
                            : QJsonDocument(object).toJson(QJsonDocument::Compact).toStdString();
}

QJsonObject jsonObject(const std::string& text) {
    return QJsonDocument::fromJson(QByteArray::fromStdString(text)).object();
}

}  // namespace

void CRecordCodec::encodeAuditFilter(const Hlx::CAuditFilter& filter,
                                     quotes::v1::AuditRequest* out) {
    out->set_since_ms(filter.sinceMs);
    out->set_until_ms(filter.untilMs);
    out->set_account(filter.account);
    out->set_action(filter.action);
    out->set_limit(filter.limit);
    out->set_before_id(filter.beforeId);
}

RKError CRecordCodec::decodeAuditFilter(const quotes::v1::AuditRequest& in,
                                        Hlx::CAuditFilter* out) {
    if (in.limit() < 0 || in.limit() > INT_MAX)
        return RKError::fail(utils::ErrorKind::Invalid,
                             "操作记录条数超出范围: " + std::to_string(in.limit()));
    Checks c;
    out->sinceMs = in.since_ms();
    out->untilMs = in.until_ms();
    out->account = c.name(in.account(), "account");
    out->action = c.name(in.action(), "action");
    out->limit = int(in.limit());
    out->beforeId = in.before_id();
    return c.error();
}

RKError CRecordCodec::encodeAuditEntries(const std::vector<Hlx::CAuditEntry>& entries,
                                         AuditEntries* out) {
    Checks c;
    for (const Hlx::CAuditEntry& entry : entries) {
        quotes::v1::AuditEntry* message = out->Add();
        message->set_id(entry.id);
        message->set_time_ms(entry.timeMs);
        message->set_account(c.text(entry.account, "audit.account"));
        message->set_os_user(c.text(entry.osUser, "audit.os_user"));
        message->set_local(entry.local);
        message->set_client_address(c.text(entry.clientAddress, "audit.client_address"));
        message->set_subsystem(c.text(entry.subsystem, "audit.subsystem"));
        message->set_action(c.text(entry.action, "audit.action"));
        message->set_data_type(entry.dataType);
        message->set_ids(c.text(entry.ids, "audit.ids"));
        message->set_error(c.text(entry.error, "audit.error"));
        message->set_count(entry.count);
        message->set_summary_json(compactJson(entry.summary));
        for (const Hlx::CAuditEntry::Detail& detail : entry.details) {
            quotes::v1::AuditDetail* row = message->add_details();
            row->set_record_id(c.text(detail.recordId, "audit.record_id"));
            row->set_before_json(compactJson(detail.before));
            row->set_after_json(compactJson(detail.after));
        }
    }
    return c.error();
}

RKError CRecordCodec::decodeAuditEntries(const AuditEntries& in,
                                         std::vector<Hlx::CAuditEntry>* out) {
    Checks c;
    std::vector<Hlx::CAuditEntry> entries;
    for (const quotes::v1::AuditEntry& message : in) {
        Hlx::CAuditEntry entry;
        entry.id = message.id();
        entry.timeMs = message.time_ms();
        entry.account = c.text(message.account(), "audit.account");
        entry.osUser = c.text(message.os_user(), "audit.os_user");
        entry.local = message.local();
        entry.clientAddress = c.text(message.client_address(), "audit.client_address");
        entry.subsystem = c.text(message.subsystem(), "audit.subsystem");
        entry.action = c.text(message.action(), "audit.action");
        entry.dataType = message.data_type();
        entry.ids = c.text(message.ids(), "audit.ids");
        entry.error = c.text(message.error(), "audit.error");
        entry.count = message.count() > 0 ? message.count() : 1;
        entry.summary = jsonObject(message.summary_json());
        for (const quotes::v1::AuditDetail& row : message.details())
            entry.details.push_back({c.text(row.record_id(), "audit.record_id"),
                                     jsonObject(row.before_json()), jsonObject(row.after_json())});
        entries.push_back(entry);
    }
    if (c.ok())
        out->swap(entries);
    return c.error();
}

RKError CRecordCodec::encodeChange(const Hlx::CChangeEvent& change,
                                   const std::string& receiverSession, quotes::v1::Event* out) {
    Checks c;
    out->set_entry_id(change.entryId);
    out->set_data_type(change.dataType);
    out->set_action(c.text(change.action, "event.action"));
    out->set_subsystem(c.text(change.subsystem, "event.subsystem"));
    out->set_account(c.text(change.account, "event.account"));
    for (const std::string& id : change.ids)
        out->add_ids(c.text(id, "event.ids"));
    out->set_all_ids(change.allIds);
    out->set_resync(change.resync);
    if (change.probeChange) {
        const RKError probe = encodeProbe(change.probe, out->mutable_probe());
        if (!probe.isSuccess())
            return probe;
    }
    // The session itself (a token's hash) stays on the server.
    out->set_own(!receiverSession.empty() && change.session == receiverSession);
    return c.error();
}

Hlx::CChangeEvent CRecordCodec::decodeChange(const quotes::v1::Event& in) {
    // A text that is not UTF-8 is passed over: the event then means every record.
    Checks c;
    Hlx::CChangeEvent change;
    change.entryId = in.entry_id();
    change.dataType = in.data_type();
    change.action = c.text(in.action(), "event.action");
    change.subsystem = c.text(in.subsystem(), "event.subsystem");
    change.account = c.text(in.account(), "event.account");
    // More ids than announced are a peer's fault: the change then means every record.
    change.allIds = in.all_ids() || std::size_t(in.ids_size()) > Hlx::CChangeEvent::kMaxIds;
    if (!change.allIds)
        change.ids.assign(in.ids().begin(), in.ids().end());
    for (const std::string& id : change.ids)
        c.text(id, "event.ids");
    change.resync = in.resync();
    change.own = in.own();
    // A probe's finding that does not convert is passed over like an unreadable text.
    change.probeChange = in.has_probe() && decodeProbe(in.probe(), &change.probe).isSuccess();
    if (!c.ok()) {
        change.allIds = true;
        change.ids.clear();
        change.subsystem.clear();
        change.account.clear();
        change.action.clear();
    }
    return change;
}

RKError CRecordCodec::encodeProbe(const Hlx::CProbeResult& probe, quotes::v1::ProbeResult* out) {
    Checks c;
    out->set_address(c.text(probe.address, "probe.address"));
    out->set_port(probe.port);
    out->set_state(c.text(probe.state, "probe.state"));
    out->set_connect_us(probe.connectUs);
    out->set_error(c.text(probe.error, "probe.error"));
    out->set_since_ms(probe.sinceMs);
    out->set_checked_ms(probe.checkedMs);
    for (int id : probe.sourceIds)
        out->add_source_ids(id);
    return c.error();
}

RKError CRecordCodec::decodeProbe(const quotes::v1::ProbeResult& in, Hlx::CProbeResult* out) {
    Checks c;
    Hlx::CProbeResult probe;
    probe.address = c.text(in.address(), "probe.address");
    probe.port = in.port();
    probe.state = c.text(in.state(), "probe.state");
    if (c.ok() && !CProbeVocabulary::known(probe.state.c_str()))
        c.fail("未知的探测状态: " + probe.state);
    probe.connectUs = in.connect_us();
    probe.error = c.text(in.error(), "probe.error");
    probe.sinceMs = in.since_ms();
    probe.checkedMs = in.checked_ms();
    probe.sourceIds.assign(in.source_ids().begin(), in.source_ids().end());
    if (c.ok())
        *out = probe;
    return c.error();
}
