// The record codec: every record and request survives the trip through the wire format with all
// its fields, and what a peer may get wrong is refused rather than turned into records.
#include <QtTest>
#include <boost/make_shared.hpp>
#include <climits>
#include <functional>

#include "CCallCodec.h"
#include "CRecordCodec.h"
#include "Hlx/CSourcePatch.h"
#include "SourceChecks.h"
#include "model/CFieldLimits.h"
#include "rkservice/CGlobalFeaturePermissionInfo.h"
#include "rkservice/CLevel2Token.h"
#include "rkservice/COrinBrokerInfo.h"
#include "rkservice/COrinPlatformInfo.h"
#include "rkservice/COrinQuoterSourceInfo.h"
#include "rkservice/CUserInfo.h"
#include "rkservice/DataTypeIds.h"

using namespace rkservice;

namespace {

const long long kBeyondInt = 1LL << 40;

// Through the bytes, as a peer would receive it.
template <typename Message>
Message overTheWire(const Message& message) {
    std::string bytes;
    if (!message.SerializeToString(&bytes))
        qFatal("cannot serialize");
    Message parsed;
    if (!parsed.ParseFromString(bytes))
        qFatal("cannot parse");
    return parsed;
}

// Encodes, sends and decodes one record; null if any step fails.
IDataPtr roundTrip(const IData& record) {
    quotes::v1::Record message;
    if (!CRecordCodec::encodeRecord(record, &message).isSuccess())
        return IDataPtr();
    IDataPtr decoded;
    if (!CRecordCodec::decodeRecord(overTheWire(message), &decoded).isSuccess())
        return IDataPtr();
    return decoded;
}

boost::shared_ptr<COrinQuoterSourceInfo> fullSource() {
    auto source = boost::make_shared<COrinQuoterSourceInfo>();
    source->m_nId = 101;
    source->m_nPlatformId = 3;
    source->m_nBrokerId = 7;
    source->m_nServerGroupId = 12;
    source->m_strAddress = "10.1.2.3";
    source->m_nPort = 7709;
    source->m_strUserName = "行情用户";
    source->m_strPassword = "p@ss";
    source->m_nTradeType = 4;
    source->m_strMarkets = "SH,SZ";
    source->setSystemTag("sys2");
    return source;
}

boost::shared_ptr<COrinBrokerInfo> fullBroker() {
    auto broker = boost::make_shared<COrinBrokerInfo>();
    broker->platformId = 5;
    broker->platformName = "期货平台";
    broker->brokerKey = "0001_中信";
    broker->brokerName = "中信期货";
    for (int i = 1; i <= 2; ++i) {
        auto group = boost::make_shared<COrinServerGroup>();
        group->serverGroupId = 40 + i;
        group->serverGroupName = "电信" + std::to_string(i);
        group->serverAddresses = {"1.1.1." + std::to_string(i) + ":41205", "2.2.2.2:41213"};
        broker->serverGroups.push_back(group);
    }
    broker->setSystemTag("sys1");
    return broker;
}

boost::shared_ptr<CUserInfo> fullUser() {
    auto user = boost::make_shared<CUserInfo>();
    user->m_strName = "admin";
    user->m_rights = {1, 5, 9, 1200};
    user->m_nSystemId = -1;
    user->setSystemTag("sys3");
    return user;
}

// A record whose one field holds a value no int can.
struct Corruption {
    const char* field;
    std::function<void(quotes::v1::Record*)> apply;
};

std::vector<Corruption> corruptions() {
    return {
        {"quote_source.id",
         [](quotes::v1::Record* r) { r->mutable_quote_source()->set_id(kBeyondInt); }},
        {"quote_source.platform_id",
         [](quotes::v1::Record* r) { r->mutable_quote_source()->set_platform_id(-kBeyondInt); }},
        {"quote_source.broker_id",
         [](quotes::v1::Record* r) { r->mutable_quote_source()->set_broker_id(INT_MAX + 1LL); }},
        {"quote_source.server_group_id",
         [](quotes::v1::Record* r) { r->mutable_quote_source()->set_server_group_id(kBeyondInt); }},
        {"quote_source.port",
         [](quotes::v1::Record* r) { r->mutable_quote_source()->set_port(kBeyondInt); }},
        {"quote_source.trade_type",
         [](quotes::v1::Record* r) { r->mutable_quote_source()->set_trade_type(INT_MIN - 1LL); }},
        {"broker.platform_id",
         [](quotes::v1::Record* r) { r->mutable_broker()->set_platform_id(kBeyondInt); }},
        {"server_group.id",
         [](quotes::v1::Record* r) {
             r->mutable_broker()->add_server_groups()->set_id(kBeyondInt);
         }},
        {"platform.platform_id",
         [](quotes::v1::Record* r) { r->mutable_platform()->set_platform_id(kBeyondInt); }},
        {"user.rights", [](quotes::v1::Record* r) { r->mutable_user()->add_rights(kBeyondInt); }},
        {"user.system_id",
         [](quotes::v1::Record* r) { r->mutable_user()->set_system_id(kBeyondInt); }},
    };
}

}  // namespace

class TestCodec : public QObject {
    Q_OBJECT
private slots:
    // Names are bounded by the user-name limit before the service or the audit trail sees them.
    void loginNameBoundedByTheUserNameLimit() {
        quotes::v1::LoginRequest request;
        request.set_password("password");
        std::tuple<std::string, std::string> credentials;
        request.set_name(std::string(75, 'n'));
        QVERIFY(CCallCodec::decode(request, &credentials).isSuccess());
        QCOMPARE(std::get<0>(credentials), std::string(75, 'n'));
        request.set_name(std::string(76, 'n'));
        const utils::RKError refused = CCallCodec::decode(request, &credentials);
        QCOMPARE(refused.kind(), utils::ErrorKind::Invalid);
        request.set_name("admin");
        request.set_password(std::string(2048, 'p'));
        QVERIFY(!CCallCodec::decode(request, &credentials).isSuccess());
        // The same bound for every name an administration call carries.
        quotes::v1::SetAccountEnabledRequest enable;
        enable.set_name(std::string(1024, 'n'));
        std::tuple<std::string, bool> enabled;
        QVERIFY(!CCallCodec::decode(enable, &enabled).isSuccess());
        quotes::v1::UnlockLoginsRequest unlock;
        unlock.set_name(std::string(76, 'n'));
        std::tuple<std::string, std::string> pair;
        QVERIFY(!CCallCodec::decode(unlock, &pair).isSuccess());
        quotes::v1::AuditRequest audit;
        audit.set_account(std::string(76, 'n'));
        std::tuple<Hlx::CAuditFilter, Hlx::CAuditPage> page;
        QVERIFY(!CCallCodec::decode(audit, &page).isSuccess());
    }

    // A probe names at most 10,000 sources: each costs the server a lookup.
    void probeIdsBounded() {
        quotes::v1::ProbeSourcesRequest request;
        for (int i = 0; i < 10000; ++i)
            request.add_ids(1);
        CCallCodec::ProbeParams params;
        QVERIFY(CCallCodec::decode(request, &params).isSuccess());
        QCOMPARE(int(std::get<0>(params).size()), 10000);
        request.add_ids(1);
        QCOMPARE(CCallCodec::decode(request, &params).kind(), utils::ErrorKind::Invalid);
    }

    void cutNeverSplitsACharacter() {
        const std::string chinese = "行情源";  // three bytes each
        QCOMPARE(Hlx::CFieldLimits::cut(chinese, 9), chinese);
        QCOMPARE(Hlx::CFieldLimits::cut(chinese, 8), std::string("行情"));
        QCOMPARE(Hlx::CFieldLimits::cut(chinese, 2), std::string());
    }

    void auditCountAndPageTravel() {
        Hlx::CAuditEntry entry;
        entry.id = 7;
        entry.count = 42;
        quotes::v1::AuditReply reply;
        CCallCodec::encode(utils::RKError::ok(),
                           std::make_tuple(Hlx::CAuditFilter(), Hlx::CAuditPage{{entry}, true}),
                           &reply);
        Hlx::CAuditPage page;
        QVERIFY(CCallCodec::decode(reply, &page).isSuccess());
        QVERIFY(page.more);
        QCOMPARE(int(page.entries.size()), 1);
        QCOMPARE(page.entries[0].count, 42LL);
        Hlx::CAuditFilter filter;
        filter.beforeId = 99;
        quotes::v1::AuditRequest request;
        QVERIFY(CCallCodec::encode(filter, &request).isSuccess());
        std::tuple<Hlx::CAuditFilter, Hlx::CAuditPage> decoded;
        QVERIFY(CCallCodec::decode(request, &decoded).isSuccess());
        QCOMPARE(std::get<0>(decoded).beforeId, 99LL);
    }

    void quoteSourceRoundTrips() {
        const auto source = fullSource();
        auto decoded = boost::dynamic_pointer_cast<COrinQuoterSourceInfo>(roundTrip(*source));
        QVERIFY(decoded);
        compareSources(*decoded, *source);
    }

    void sourceWithoutBrokerKeepsItsMarker() {
        COrinQuoterSourceInfo source;
        auto decoded = boost::dynamic_pointer_cast<COrinQuoterSourceInfo>(roundTrip(source));
        QVERIFY(decoded);
        QCOMPARE(decoded->m_nBrokerId, COrinQuoterSourceInfo::kNoBroker);
    }

    void brokerRoundTripsWithServerGroups() {
        const auto broker = fullBroker();
        auto decoded = boost::dynamic_pointer_cast<COrinBrokerInfo>(roundTrip(*broker));
        QVERIFY(decoded);
        QCOMPARE(decoded->platformId, broker->platformId);
        QCOMPARE(decoded->platformName, broker->platformName);
        QCOMPARE(decoded->brokerKey, broker->brokerKey);
        QCOMPARE(decoded->brokerName, broker->brokerName);
        QCOMPARE(decoded->getSystemTag(), broker->getSystemTag());
        QCOMPARE(decoded->serverGroups.size(), broker->serverGroups.size());
        for (size_t i = 0; i < broker->serverGroups.size(); ++i) {
            QVERIFY(decoded->serverGroups[i]);
            QCOMPARE(decoded->serverGroups[i]->serverGroupId,
                     broker->serverGroups[i]->serverGroupId);
            QCOMPARE(decoded->serverGroups[i]->serverGroupName,
                     broker->serverGroups[i]->serverGroupName);
            QCOMPARE(decoded->serverGroups[i]->serverAddresses,
                     broker->serverGroups[i]->serverAddresses);
        }
    }

    void platformRoundTrips() {
        COrinPlatformInfo platform;
        platform.platformId = 9;
        platform.platformName = "证券平台";
        platform.setSystemTag("sys1");
        auto decoded = boost::dynamic_pointer_cast<COrinPlatformInfo>(roundTrip(platform));
        QVERIFY(decoded);
        QCOMPARE(decoded->platformId, 9);
        QCOMPARE(decoded->platformName, platform.platformName);
        QCOMPARE(decoded->getSystemTag(), std::string("sys1"));
    }

    void permissionRoundTripsWithEveryMarketFlag() {
        CGlobalFeaturePermissionInfo permission;
        bool enabled = true;
        for (const std::string& market : CWholeQuotedivision::knownMarkets()) {
            permission.m_wholeQuote->setEnabled(market, enabled);
            enabled = !enabled;
        }
        permission.setSystemTag("sys4");
        auto decoded =
            boost::dynamic_pointer_cast<CGlobalFeaturePermissionInfo>(roundTrip(permission));
        QVERIFY(decoded && decoded->m_wholeQuote);
        QVERIFY(*decoded->m_wholeQuote == *permission.m_wholeQuote);
        QCOMPARE(decoded->m_wholeQuote->flags().size(), CWholeQuotedivision::knownMarkets().size());
        QCOMPARE(decoded->getSystemTag(), std::string("sys4"));
    }

    void permissionWithoutWholeQuoteStaysWithout() {
        CGlobalFeaturePermissionInfo permission;
        permission.m_wholeQuote.reset();
        auto decoded =
            boost::dynamic_pointer_cast<CGlobalFeaturePermissionInfo>(roundTrip(permission));
        QVERIFY(decoded);
        QVERIFY(!decoded->m_wholeQuote);
    }

    void level2TokenRoundTrips() {
        CLevel2Token token;
        token.token = "tok-Ω-0123456789";
        token.setSystemTag("sys1");
        auto decoded = boost::dynamic_pointer_cast<CLevel2Token>(roundTrip(token));
        QVERIFY(decoded);
        QCOMPARE(decoded->token, token.token);
        QCOMPARE(decoded->getSystemTag(), std::string("sys1"));
    }

    void userRoundTripsWithRights() {
        const auto user = fullUser();
        auto decoded = boost::dynamic_pointer_cast<CUserInfo>(roundTrip(*user));
        QVERIFY(decoded);
        QCOMPARE(decoded->m_strName, user->m_strName);
        QVERIFY(decoded->m_rights == user->m_rights);
        QCOMPARE(decoded->m_nSystemId, -1);
        QVERIFY(decoded->routesBySystem());
        QCOMPARE(decoded->getSystemTag(), std::string("sys3"));
    }

    void recordListRoundTripsInOrder() {
        const IDataList records = {fullSource(), fullBroker(), fullUser()};
        quotes::v1::QueryChunk chunk;
        QVERIFY(CRecordCodec::encodeRecords(records, chunk.mutable_records()).isSuccess());
        IDataList decoded;
        QVERIFY(CRecordCodec::decodeRecords(overTheWire(chunk).records(), &decoded).isSuccess());
        QCOMPARE(decoded.size(), size_t(3));
        QVERIFY(boost::dynamic_pointer_cast<COrinQuoterSourceInfo>(decoded[0]));
        QVERIFY(boost::dynamic_pointer_cast<COrinBrokerInfo>(decoded[1]));
        QVERIFY(boost::dynamic_pointer_cast<CUserInfo>(decoded[2]));
    }

    void fullChunkStaysFarBelowTheMessageLimit() {
        quotes::v1::QueryChunk chunk;
        for (int i = 0; i < CRecordCodec::kMaxChunkRecords; ++i) {
            auto source = fullSource();
            source->m_strAddress = std::string(255, 'a');
            source->m_strUserName = std::string(255, 'u');
            source->m_strPassword = std::string(255, 'p');
            source->m_strMarkets = std::string(255, 'm');
            QVERIFY(CRecordCodec::encodeRecord(*source, chunk.add_records()).isSuccess());
        }
        chunk.set_last(true);
        chunk.set_total_count(100000);
        CRecordCodec::encodeError(utils::RKError::ok(), chunk.mutable_error());
        QVERIFY(chunk.ByteSizeLong() < size_t(CRecordCodec::kMaxMessageBytes / 8));
    }

    void queryRoundTripsToEitherTarget() {
        COrinQueryDataReq request;
        request.dataType = kDataQuoteSources;
        request.condition = "platform=3 AND 名称 LIKE '%上海%'";
        for (const Hlx::CRequestTarget& target :
             {Hlx::CRequestTarget::centre(), Hlx::CRequestTarget::subsystem("sys2")}) {
            quotes::v1::QueryRequest message;
            QVERIFY(CRecordCodec::encodeQuery(target, request, &message).isSuccess());
            Hlx::CRequestTarget decodedTarget = Hlx::CRequestTarget::subsystem("unset");
            COrinQueryDataReq decoded;
            QVERIFY(CRecordCodec::decodeQuery(overTheWire(message), &decodedTarget, &decoded)
                        .isSuccess());
            QCOMPARE(decoded.dataType, request.dataType);
            QCOMPARE(decoded.condition, request.condition);
            QCOMPARE(decodedTarget.isCentre(), target.isCentre());
            QCOMPARE(decodedTarget.subsystemName(), target.subsystemName());
        }
    }

    void operateRoundTripsWithItsRecords() {
        COperateDataReq request;
        request.dataType = kDataQuoteSources;
        request.operateType = kOperateAdd;
        request.datas = {fullSource(), fullSource()};
        quotes::v1::OperateRequest message;
        QVERIFY(
            CRecordCodec::encodeOperate(Hlx::CRequestTarget::subsystem("sys2"), request, &message)
                .isSuccess());
        Hlx::CRequestTarget target = Hlx::CRequestTarget::centre();
        COperateDataReq decoded;
        QVERIFY(CRecordCodec::decodeOperate(overTheWire(message), &target, &decoded).isSuccess());
        QCOMPARE(decoded.dataType, int(kDataQuoteSources));
        QCOMPARE(decoded.operateType, int(kOperateAdd));
        QVERIFY(!target.isCentre());
        QCOMPARE(target.subsystemName(), std::string("sys2"));
        QCOMPARE(decoded.datas.size(), size_t(2));
        for (const IDataPtr& data : decoded.datas) {
            auto source = boost::dynamic_pointer_cast<COrinQuoterSourceInfo>(data);
            QVERIFY(source);
            compareSources(*source, *fullSource());
        }
    }

    void errorRoundTrips() {
        quotes::v1::Error message;
        CRecordCodec::encodeError(utils::RKError::fail("行情源已存在"), &message);
        utils::RKError decoded = CRecordCodec::decodeError(overTheWire(message));
        QVERIFY(!decoded.isSuccess());
        QCOMPARE(decoded.errorMsg(), std::string("行情源已存在"));
        CRecordCodec::encodeError(utils::RKError::ok(), &message);
        decoded = CRecordCodec::decodeError(overTheWire(message));
        QVERIFY(decoded.isSuccess());
        QVERIFY(decoded.errorMsg().empty());
    }

    // Every kind of failure reaches the client as itself; a kind it does not know (a newer
    // server's) is a plain refusal, and a success has none.
    void errorKindsTravel() {
        using utils::ErrorKind;
        for (ErrorKind kind : {ErrorKind::Refused, ErrorKind::Invalid, ErrorKind::NotFound,
                               ErrorKind::Conflict, ErrorKind::Unavailable}) {
            quotes::v1::Error message;
            CRecordCodec::encodeError(utils::RKError::fail(kind, "失败"), &message);
            const utils::RKError decoded = CRecordCodec::decodeError(overTheWire(message));
            QCOMPARE(decoded.kind(), kind);
            QCOMPARE(decoded.errorMsg(), std::string("失败"));
        }
        quotes::v1::Error unknown;
        unknown.set_message("以后的错误");
        unknown.set_kind(static_cast<quotes::v1::ErrorKind>(99));
        QCOMPARE(CRecordCodec::decodeError(overTheWire(unknown)).kind(), ErrorKind::Refused);
        quotes::v1::Error success;
        success.set_success(true);
        success.set_kind(quotes::v1::ERROR_KIND_CONFLICT);
        QCOMPARE(CRecordCodec::decodeError(overTheWire(success)).kind(), ErrorKind::None);
    }

    void errorWithBadTextStillGetsThrough() {
        quotes::v1::Error message;
        CRecordCodec::encodeError(utils::RKError::fail("坏\xff\xfe"), &message);
        const utils::RKError decoded = CRecordCodec::decodeError(overTheWire(message));
        QVERIFY(!decoded.isSuccess());
        QVERIFY(QString::fromStdString(decoded.errorMsg()).startsWith(QStringLiteral("坏")));
    }

    void resultRoundTrips() {
        bson::BSONObj result;
        result.appendInt("count", 3);
        result.appendString("ids", "11,12,13");
        quotes::v1::OperateResult message;
        QVERIFY(CRecordCodec::encodeResult(result, &message).isSuccess());
        QCOMPARE(message.ids_size(), 3);
        bson::BSONObj decoded;
        QVERIFY(CRecordCodec::decodeResult(overTheWire(message), &decoded).isSuccess());
        QCOMPARE(decoded.getIntField("count", -1), 3);
        QCOMPARE(decoded.getStringField("ids"), std::string("11,12,13"));

        bson::BSONObj countOnly;
        countOnly.appendInt("count", 0);
        QVERIFY(CRecordCodec::encodeResult(countOnly, &message).isSuccess());
        QVERIFY(CRecordCodec::decodeResult(overTheWire(message), &decoded).isSuccess());
        QVERIFY(decoded.hasField("count"));
        QVERIFY(!decoded.hasField("ids"));
        QVERIFY(CRecordCodec::encodeResult(bson::BSONObj(), &message).isSuccess());
        QVERIFY(CRecordCodec::decodeResult(overTheWire(message), &decoded).isSuccess());
        QVERIFY(decoded.isEmpty());
    }

    void subsystemsAndLoginTypesRoundTrip() {
        const std::vector<Hlx::SubsystemInfo> subsystems = {{"sys1", "主系统"}, {"sys2", "备用"}};
        quotes::v1::LoginReply reply;
        QVERIFY(CRecordCodec::encodeSubsystems(subsystems, reply.mutable_subsystems()).isSuccess());
        const std::map<int, bool> auth = {{0, true}, {3, false}, {-2, true}};
        CRecordCodec::encodeLoginTypeAuth(auth, reply.mutable_login_type_auth());
        const quotes::v1::LoginReply received = overTheWire(reply);
        const auto decoded = CRecordCodec::decodeSubsystems(received.subsystems());
        QCOMPARE(decoded.size(), size_t(2));
        QCOMPARE(decoded[1].name, std::string("sys2"));
        QCOMPARE(decoded[1].displayName, std::string("备用"));
        std::map<int, bool> decodedAuth;
        QVERIFY(CRecordCodec::decodeLoginTypeAuth(received.login_type_auth(), &decodedAuth)
                    .isSuccess());
        QVERIFY(decodedAuth == auth);
    }

    void keptValuesTravelWithImportAndIntegrity() {
        const std::vector<std::string> kept = {"行情源 2: 密码不能含控制字符",
                                               "行情源 4: 市场不能超过 256 字节"};
        CCallCodec::ImportParams params;
        std::get<2>(params).keptValues = kept;
        quotes::v1::ImportReply imported;
        CCallCodec::encode(utils::RKError::ok(), params, &imported);
        Hlx::CImportReport report;
        QVERIFY(CCallCodec::decode(overTheWire(imported), &report).isSuccess());
        QVERIFY(report.keptValues == kept);
        quotes::v1::CheckIntegrityReply checked;
        CCallCodec::encode(utils::RKError::ok(), std::make_tuple(kept), &checked);
        std::vector<std::string> listed;
        QVERIFY(CCallCodec::decode(overTheWire(checked), &listed).isSuccess());
        QVERIFY(listed == kept);
    }

    // ---- refusals

    void recordWithoutKindIsRefused() {
        quotes::v1::Record message;
        message.set_system_tag("sys1");
        IDataPtr decoded;
        QVERIFY(!CRecordCodec::decodeRecord(overTheWire(message), &decoded).isSuccess());
        QVERIFY(!decoded);
    }

    void recordOfANewerSchemaIsRefused() {
        // system_tag "s", then field 99 (length-delimited, empty): a kind this schema lacks.
        const std::string bytes("\x0a\x01s\x9a\x06\x00", 6);
        quotes::v1::Record message;
        QVERIFY(message.ParseFromString(bytes));
        IDataPtr decoded;
        const utils::RKError error = CRecordCodec::decodeRecord(message, &decoded);
        QVERIFY(!error.isSuccess());
        QVERIFY(!error.errorMsg().empty());
        QVERIFY(!decoded);
    }

    void numbersBeyondIntAreRefused() {
        for (const Corruption& corruption : corruptions()) {
            quotes::v1::Record message;
            corruption.apply(&message);
            IDataPtr decoded;
            const utils::RKError error = CRecordCodec::decodeRecord(overTheWire(message), &decoded);
            QVERIFY2(!error.isSuccess(), corruption.field);
            QVERIFY2(error.errorMsg().find(corruption.field) != std::string::npos,
                     error.errorMsg().c_str());
            QVERIFY(!decoded);
        }
    }

    void portsOutOfTheirRangeAreLeftToTheService() {
        for (long long port : {-1LL, 70000LL, (long long)INT_MAX, (long long)INT_MIN}) {
            quotes::v1::Record message;
            message.mutable_quote_source()->set_port(port);
            IDataPtr decoded;
            QVERIFY(CRecordCodec::decodeRecord(overTheWire(message), &decoded).isSuccess());
            auto source = boost::dynamic_pointer_cast<COrinQuoterSourceInfo>(decoded);
            QVERIFY(source);
            QCOMPARE((long long)source->m_nPort, port);
        }
    }

    void unknownDataTypesAreRefused() {
        for (long long dataType : {0LL, 12301LL, -676LL, 12300LL + (1LL << 32)}) {
            quotes::v1::QueryRequest query;
            query.set_data_type(dataType);
            query.mutable_target()->set_centre(true);
            Hlx::CRequestTarget target = Hlx::CRequestTarget::centre();
            COrinQueryDataReq request;
            QVERIFY(!CRecordCodec::decodeQuery(overTheWire(query), &target, &request).isSuccess());

            quotes::v1::OperateRequest operate;
            operate.set_data_type(dataType);
            operate.mutable_target()->set_centre(true);
            COperateDataReq change;
            QVERIFY(
                !CRecordCodec::decodeOperate(overTheWire(operate), &target, &change).isSuccess());
        }
    }

    void unknownOperationsAreRefused() {
        for (long long operateType : {-1LL, 4LL, 1LL << 33}) {
            quotes::v1::OperateRequest operate;
            operate.set_data_type(kDataQuoteSources);
            operate.set_operate_type(operateType);
            operate.mutable_target()->set_centre(true);
            Hlx::CRequestTarget target = Hlx::CRequestTarget::centre();
            COperateDataReq change;
            QVERIFY(
                !CRecordCodec::decodeOperate(overTheWire(operate), &target, &change).isSuccess());
        }
    }

    void requestWithoutTargetIsRefused() {
        quotes::v1::QueryRequest query;
        query.set_data_type(kDataQuoteSources);
        Hlx::CRequestTarget target = Hlx::CRequestTarget::centre();
        COrinQueryDataReq request;
        QVERIFY(!CRecordCodec::decodeQuery(overTheWire(query), &target, &request).isSuccess());
        query.mutable_target()->set_centre(false);
        QVERIFY(!CRecordCodec::decodeQuery(overTheWire(query), &target, &request).isSuccess());
    }

    // The revision travels beside the record, as its system tag does, and a result carries the
    // new revisions in order.
    void revisionsTravel() {
        auto source = boost::make_shared<rkservice::COrinQuoterSourceInfo>();
        source->m_nId = 3;
        source->setRevision(42);
        quotes::v1::Record message;
        QVERIFY(CRecordCodec::encodeRecord(*source, &message).isSuccess());
        QCOMPARE(message.revision(), google::protobuf::int64(42));
        rkservice::IDataPtr decoded;
        QVERIFY(CRecordCodec::decodeRecord(overTheWire(message), &decoded).isSuccess());
        QCOMPARE(decoded->getRevision(), 42LL);
        QCOMPARE(decoded->clone()->getRevision(), 42LL);
        message.set_revision(-1);
        QVERIFY(!CRecordCodec::decodeRecord(overTheWire(message), &decoded).isSuccess());

        bson::BSONObj result;
        result.appendInt("count", 2);
        result.appendString("revisions", "3,7");
        quotes::v1::OperateResult encoded;
        QVERIFY(CRecordCodec::encodeResult(result, &encoded).isSuccess());
        QCOMPARE(encoded.revisions_size(), 2);
        bson::BSONObj back;
        QVERIFY(CRecordCodec::decodeResult(overTheWire(encoded), &back).isSuccess());
        QCOMPARE(back.getStringField("revisions"), std::string("3,7"));

        Hlx::CSourcePatch patch;
        patch.port = 1;
        patch.ifRevision = 9;
        quotes::v1::ModifySourceRequest request;
        QVERIFY(CRecordCodec::encodeSourcePatch(3, patch, &request).isSuccess());
        int id = 0;
        Hlx::CSourcePatch decodedPatch;
        QVERIFY(
            CRecordCodec::decodeSourcePatch(overTheWire(request), &id, &decodedPatch).isSuccess());
        QCOMPARE(decodedPatch.ifRevision.value_or(0), 9LL);
    }

    void oneBadRecordRefusesTheWholeChange() {
        quotes::v1::OperateRequest operate;
        operate.set_data_type(kDataQuoteSources);
        operate.set_operate_type(kOperateModify);
        operate.mutable_target()->set_subsystem("sys1");
        operate.add_records()->mutable_quote_source()->set_id(1);
        operate.add_records()->mutable_quote_source()->set_id(kBeyondInt);
        Hlx::CRequestTarget target = Hlx::CRequestTarget::centre();
        COperateDataReq change;
        QVERIFY(!CRecordCodec::decodeOperate(overTheWire(operate), &target, &change).isSuccess());
        QVERIFY(change.datas.empty());
    }

    void resultAndLoginTypesBeyondIntAreRefused() {
        quotes::v1::OperateResult result;
        result.add_ids(kBeyondInt);
        bson::BSONObj decoded;
        QVERIFY(!CRecordCodec::decodeResult(overTheWire(result), &decoded).isSuccess());
        result.Clear();
        result.set_count(-kBeyondInt);
        QVERIFY(!CRecordCodec::decodeResult(overTheWire(result), &decoded).isSuccess());

        quotes::v1::LoginTypeAuthReply reply;
        (*reply.mutable_login_type_auth())[kBeyondInt] = true;
        std::map<int, bool> auth;
        QVERIFY(!CRecordCodec::decodeLoginTypeAuth(overTheWire(reply).login_type_auth(), &auth)
                     .isSuccess());
    }

    void encodingRefusesWhatAPeerCouldNotDecode() {
        quotes::v1::Record message;
        auto source = fullSource();
        source->m_strAddress = "bad\xc3\x28";
        QVERIFY(!CRecordCodec::encodeRecord(*source, &message).isSuccess());

        auto broker = fullBroker();
        broker->serverGroups.push_back(COrinServerGroupPtr());
        QVERIFY(!CRecordCodec::encodeRecord(*broker, &message).isSuccess());

        quotes::v1::QueryChunk chunk;
        QVERIFY(!CRecordCodec::encodeRecords({fullSource(), IDataPtr()}, chunk.mutable_records())
                     .isSuccess());

        COrinQueryDataReq query;
        query.dataType = 4242;
        quotes::v1::QueryRequest queryMessage;
        QVERIFY(!CRecordCodec::encodeQuery(Hlx::CRequestTarget::centre(), query, &queryMessage)
                     .isSuccess());

        COperateDataReq change;
        change.dataType = kDataQuoteSources;
        change.operateType = 17;
        quotes::v1::OperateRequest operateMessage;
        QVERIFY(!CRecordCodec::encodeOperate(Hlx::CRequestTarget::centre(), change, &operateMessage)
                     .isSuccess());

        bson::BSONObj result;
        result.appendString("ids", "1,x");
        quotes::v1::OperateResult resultMessage;
        QVERIFY(!CRecordCodec::encodeResult(result, &resultMessage).isSuccess());
    }

    // A patch crosses with exactly the fields it names: every one of them set, then each one
    // alone, so a field dropped or taken for another shows.
    void sourcePatchRoundTripsWithExactlyItsFields() {
        Hlx::CSourcePatch every;
        every.platformId = 20000;
        every.tradeType = 3;
        every.brokerId = 1001;
        every.serverGroupId = 2;
        every.address = "198.51.100.7";
        every.port = 9100;
        every.userName = "用户";
        every.password = "密码-1";
        every.markets = "SH,SZ";
        const auto roundTrip = [](const Hlx::CSourcePatch& patch, Hlx::CSourcePatch* out) {
            quotes::v1::ModifySourceRequest message;
            int id = 0;
            return CRecordCodec::encodeSourcePatch(77, patch, &message).isSuccess() &&
                   CRecordCodec::decodeSourcePatch(overTheWire(message), &id, out).isSuccess() &&
                   id == 77;
        };
        const auto same = [](const Hlx::CSourcePatch& a, const Hlx::CSourcePatch& b) {
            return a.platformId == b.platformId && a.tradeType == b.tradeType &&
                   a.brokerId == b.brokerId && a.serverGroupId == b.serverGroupId &&
                   a.address == b.address && a.port == b.port && a.userName == b.userName &&
                   a.password == b.password && a.markets == b.markets;
        };
        Hlx::CSourcePatch decoded;
        QVERIFY(roundTrip(every, &decoded));
        QVERIFY(same(decoded, every));
        QVERIFY(roundTrip(Hlx::CSourcePatch(), &decoded));
        QVERIFY(decoded.isEmpty());

        const std::vector<std::function<void(Hlx::CSourcePatch*)>> fields = {
            [&](Hlx::CSourcePatch* p) { p->platformId = every.platformId; },
            [&](Hlx::CSourcePatch* p) { p->tradeType = every.tradeType; },
            [&](Hlx::CSourcePatch* p) { p->brokerId = every.brokerId; },
            [&](Hlx::CSourcePatch* p) { p->serverGroupId = every.serverGroupId; },
            [&](Hlx::CSourcePatch* p) { p->address = every.address; },
            [&](Hlx::CSourcePatch* p) { p->port = every.port; },
            [&](Hlx::CSourcePatch* p) { p->userName = every.userName; },
            [&](Hlx::CSourcePatch* p) { p->password = every.password; },
            [&](Hlx::CSourcePatch* p) { p->markets = every.markets; },
        };
        for (size_t i = 0; i < fields.size(); ++i) {
            Hlx::CSourcePatch one;
            fields[i](&one);
            QVERIFY(roundTrip(one, &decoded));
            QVERIFY2(same(decoded, one), qPrintable(QString::number(i)));
        }
        // Empty values are values: a patch may clear a text or set a number to 0.
        Hlx::CSourcePatch clearing;
        clearing.markets = std::string();
        clearing.port = 0;
        QVERIFY(roundTrip(clearing, &decoded));
        QVERIFY(same(decoded, clearing));
    }

    void sourcePatchNumbersBeyondIntAndBadTextAreRefused() {
        quotes::v1::ModifySourceRequest message;
        message.set_id(1);
        message.mutable_patch()->set_server_group_id(int64_t(INT_MAX) + 1);
        int id = 0;
        Hlx::CSourcePatch decoded;
        const utils::RKError error = CRecordCodec::decodeSourcePatch(message, &id, &decoded);
        QVERIFY(!error.isSuccess());
        QVERIFY2(error.errorMsg().find("source_patch.server_group_id") != std::string::npos,
                 error.errorMsg().c_str());
        message.Clear();
        message.set_id(int64_t(INT_MIN) - 1);
        QVERIFY(!CRecordCodec::decodeSourcePatch(message, &id, &decoded).isSuccess());

        Hlx::CSourcePatch bad;
        bad.userName = "bad\xc3\x28";
        QVERIFY(!CRecordCodec::encodeSourcePatch(1, bad, &message).isSuccess());
    }

    void recordClassWithoutMessageIsRefused() {
        struct Unknown : IData {
            IDataPtr clone() const override { return IDataPtr(); }
        } unknown;
        quotes::v1::Record message;
        QVERIFY(!CRecordCodec::encodeRecord(unknown, &message).isSuccess());
    }
};

QTEST_GUILESS_MAIN(TestCodec)
#include "tst_codec.moc"
