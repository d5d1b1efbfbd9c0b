#pragma once

#include <map>
#include <vector>

#include "Hlx/CAuditEntry.h"
#include "Hlx/CAuditFilter.h"
#include "Hlx/CChangeEvent.h"
#include "Hlx/CProbeResult.h"
#include "Hlx/CRequestTarget.h"
#include "Hlx/CSourcePatch.h"
#include "Hlx/IDataServiceBackend.h"
#include "Hlx/IQuotesAdmin.h"
#include "bson/BSONObj.h"
#include "quotes.pb.h"
#include "rkservice/COperateDataReq.h"
#include "rkservice/COrinQueryDataReq.h"
#include "rkservice/IData.h"
#include "utils/RKError.h"

// The one place that converts the data service's records and requests to the quotes.v1
// messages and back, so that client and server cannot drift apart.
//
// Decoding trusts nothing from the peer: a record of an unknown kind, an unknown data type or
// operation, or a number that does not fit an int is refused with an error rather than turned
// into a record. Encoding refuses what the peer could not decode (text that is not UTF-8, a
// record class without a message). No call throws; after a failure the output must not be
// used (it may hold part of the conversion).
class CRecordCodec {
public:
    typedef google::protobuf::RepeatedPtrField<quotes::v1::Record> Records;
    typedef google::protobuf::RepeatedPtrField<quotes::v1::Subsystem> Subsystems;
    typedef google::protobuf::Map<google::protobuf::int64, bool> LoginTypeAuth;

    // The most records a query chunk carries: 1000 quote sources with long texts stay near
    // 1 MiB, far below the 16 MiB a server accepts or sends in one message.
    static constexpr int kMaxChunkRecords = 1000;
    static constexpr int kMaxMessageBytes = 16 * 1024 * 1024;

    // One record, with its system tag.
    static utils::RKError encodeRecord(const rkservice::IData& data, quotes::v1::Record* out);
    static utils::RKError decodeRecord(const quotes::v1::Record& in, rkservice::IDataPtr* out);

    // Lists, all or nothing (a null record is refused).
    static utils::RKError encodeRecords(const rkservice::IDataList& datas, Records* out);
    static utils::RKError decodeRecords(const Records& in, rkservice::IDataList* out);

    static utils::RKError encodeTarget(const Hlx::CRequestTarget& target, quotes::v1::Target* out);
    static utils::RKError decodeTarget(const quotes::v1::Target& in, Hlx::CRequestTarget* out);

    static utils::RKError encodeQuery(const Hlx::CRequestTarget& target,
                                      const rkservice::COrinQueryDataReq& request,
                                      quotes::v1::QueryRequest* out);
    static utils::RKError decodeQuery(const quotes::v1::QueryRequest& in,
                                      Hlx::CRequestTarget* target,
                                      rkservice::COrinQueryDataReq* out);

    static utils::RKError encodeOperate(const Hlx::CRequestTarget& target,
                                        const rkservice::COperateDataReq& request,
                                        quotes::v1::OperateRequest* out);
    static utils::RKError decodeOperate(const quotes::v1::OperateRequest& in,
                                        Hlx::CRequestTarget* target,
                                        rkservice::COperateDataReq* out);

    // A patch of one source: the fields it names, and no others.
    static utils::RKError encodeSourcePatch(int id, const Hlx::CSourcePatch& patch,
                                            quotes::v1::ModifySourceRequest* out);
    static utils::RKError decodeSourcePatch(const quotes::v1::ModifySourceRequest& in, int* id,
                                            Hlx::CSourcePatch* out);

    // An error always gets through: a message that is not UTF-8 is sent with its bad bytes
    // replaced.
    static void encodeError(const utils::RKError& error, quotes::v1::Error* out);
    // The error the message carries (not whether decoding worked: it cannot fail).
    static utils::RKError decodeError(const quotes::v1::Error& in);

    // The result fields of an operation: "count" (int) and "ids" (comma-separated ids).
    static utils::RKError encodeResult(const bson::BSONObj& result, quotes::v1::OperateResult* out);
    static utils::RKError decodeResult(const quotes::v1::OperateResult& in, bson::BSONObj* out);

    static utils::RKError encodeSubsystems(const std::vector<Hlx::SubsystemInfo>& subsystems,
                                           Subsystems* out);
    static std::vector<Hlx::SubsystemInfo> decodeSubsystems(const Subsystems& in);

    static void encodeLoginTypeAuth(const std::map<int, bool>& auth, LoginTypeAuth* out);
    static utils::RKError decodeLoginTypeAuth(const LoginTypeAuth& in, std::map<int, bool>* out);
    static utils::RKError decodeLoginType(google::protobuf::int64 in, int* out);

    typedef google::protobuf::RepeatedPtrField<quotes::v1::AuditEntry> AuditEntries;
    static void encodeAuditFilter(const Hlx::CAuditFilter& filter, quotes::v1::AuditRequest* out);
    static utils::RKError decodeAuditFilter(const quotes::v1::AuditRequest& in,
                                            Hlx::CAuditFilter* out);
    static utils::RKError encodeAuditEntries(const std::vector<Hlx::CAuditEntry>& entries,
                                             AuditEntries* out);
    static utils::RKError decodeAuditEntries(const AuditEntries& in,
                                             std::vector<Hlx::CAuditEntry>* out);

    // A change as the server streams it; own when the receiver's session made it.
    static utils::RKError encodeChange(const Hlx::CChangeEvent& change,
                                       const std::string& receiverSession, quotes::v1::Event* out);
    static Hlx::CChangeEvent decodeChange(const quotes::v1::Event& in);

    // Whether the data service knows the data type / the operation.
    // A probe's finding of one address (its texts checked to be UTF-8, its state a known one).
    static utils::RKError encodeProbe(const Hlx::CProbeResult& probe, quotes::v1::ProbeResult* out);
    static utils::RKError decodeProbe(const quotes::v1::ProbeResult& in, Hlx::CProbeResult* out);

    static bool isKnownDataType(google::protobuf::int64 dataType);
    static bool isKnownOperateType(google::protobuf::int64 operateType);
};
