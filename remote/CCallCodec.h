#pragma once

#include <QJsonObject>
#include <map>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "CRecordCodec.h"
#include "Hlx/IQuotesAdmin.h"
#include "quotes.pb.h"
#include "utils/RKError.h"

// Each call's request and reply, converted in one place on top of CRecordCodec's records, for
// both sides: the server decodes a request into the parameters of the service's method (a tuple,
// see CServiceCall) and encodes its outcome and outputs into the reply; the client encodes its
// inputs into the request and decodes the reply into the outcome and outputs. Every text is
// checked to be UTF-8 and every number to fit; nothing throws.
class CCallCodec {
public:
    // What a login brings the client for its session.
    struct Login {
        std::string token;
        rkservice::CUserInfoPtr account;
        std::vector<Hlx::SubsystemInfo> subsystems;
        std::map<int, bool> loginTypeAuth;
    };

    // ---- the server: requests to the service's parameters

    using QueryParams =
        std::tuple<Hlx::CRequestTarget, rkservice::COrinQueryDataReq, rkservice::IDataList>;
    using OperateParams =
        std::tuple<Hlx::CRequestTarget, rkservice::COperateDataReq, bson::BSONObj>;
    using ImportParams = std::tuple<QJsonObject, Hlx::CImportOptions, Hlx::CImportReport>;
    using SubsystemList = std::tuple<std::vector<Hlx::SubsystemInfo>>;
    using LoginTypes = std::tuple<std::map<int, bool>>;

    static utils::RKError decode(const quotes::v1::QueryRequest& in, QueryParams* out);
    static utils::RKError decode(const quotes::v1::OperateRequest& in, OperateParams* out);
    static utils::RKError decode(const quotes::v1::ModifySourceRequest& in,
                                 std::tuple<int, Hlx::CSourcePatch>* out);
    using ProbeParams = std::tuple<std::vector<int>, bool, std::vector<Hlx::CProbeResult>>;
    using ProbeStatusParams = std::tuple<std::string, std::vector<Hlx::CProbeResult>>;
    using ProbeHistoryParams =
        std::tuple<std::string, int, long long, std::vector<Hlx::CProbeSample>>;
    static utils::RKError decode(const quotes::v1::ProbeSourcesRequest& in, ProbeParams* out);
    static utils::RKError decode(const quotes::v1::ProbeStatusRequest& in, ProbeStatusParams* out);
    static utils::RKError decode(const quotes::v1::ProbeHistoryRequest& in,
                                 ProbeHistoryParams* out);
    static utils::RKError decode(const quotes::v1::SourceHistoryRequest& in,
                                 std::tuple<int, Hlx::CSourceHistory>* out);
    using RestoreParams = std::tuple<int, long long, long long, long long>;
    static utils::RKError decode(const quotes::v1::RestoreSourceRequest& in, RestoreParams* out);
    using ExportParams = std::tuple<QJsonObject, Hlx::CExportOptions>;
    static utils::RKError decode(const quotes::v1::ExportRequest& in, ExportParams* out);
    static utils::RKError decode(const quotes::v1::ImportRequest& in, ImportParams* out);
    static utils::RKError decode(const quotes::v1::SetSubsystemsRequest& in, SubsystemList* out);
    static utils::RKError decode(const quotes::v1::SetLoginTypeAuthRequest& in,
                                 std::tuple<int, bool>* out);
    static utils::RKError decode(const quotes::v1::SetPasswordRequest& in,
                                 std::tuple<std::string, std::string>* out);
    static utils::RKError decode(const quotes::v1::SetAccountEnabledRequest& in,
                                 std::tuple<std::string, bool>* out);
    static utils::RKError decode(const quotes::v1::SetRightsRequest& in,
                                 std::tuple<std::string, std::set<int>>* out);
    // A login's name and password, bounded before anything looks at them.
    static utils::RKError decode(const quotes::v1::LoginRequest& in,
                                 std::tuple<std::string, std::string>* out);
    static utils::RKError decode(const quotes::v1::UnlockLoginsRequest& in,
                                 std::tuple<std::string, std::string>* out);
    static utils::RKError decode(const quotes::v1::AuditRequest& in,
                                 std::tuple<Hlx::CAuditFilter, Hlx::CAuditPage>* out);
    static utils::RKError decode(const quotes::v1::PruneAuditRequest& in,
                                 std::tuple<long long, int>* out);
    // Requests without fields have nothing to decode.
    template <class Params>
    static utils::RKError decode(const quotes::v1::SubsystemsRequest&, Params*) {
        return utils::RKError::ok();
    }
    template <class Params>
    static utils::RKError decode(const quotes::v1::LoginTypeAuthRequest&, Params*) {
        return utils::RKError::ok();
    }
    template <class Params>
    static utils::RKError decode(const quotes::v1::CheckIntegrityRequest&, Params*) {
        return utils::RKError::ok();
    }
    // The server writes the copy where it chooses: no path of the client's reaches it.
    template <class Params>
    static utils::RKError decode(const quotes::v1::BackupDatabaseRequest&, Params*) {
        return utils::RKError::ok();
    }
    template <class Params>
    static utils::RKError decode(const quotes::v1::ListAccountsRequest&, Params*) {
        return utils::RKError::ok();
    }
    template <class Params>
    static utils::RKError decode(const quotes::v1::EventsRequest&, Params*) {
        return utils::RKError::ok();
    }
    template <class Params>
    static utils::RKError decode(const quotes::v1::LogoutRequest&, Params*) {
        return utils::RKError::ok();
    }

    // ---- the server: the outcome and the outputs to the reply

    static void encode(const utils::RKError& error, const OperateParams& params,
                       quotes::v1::OperateReply* out);
    static void encode(const utils::RKError& error, const SubsystemList& params,
                       quotes::v1::SubsystemsReply* out);
    static void encode(const utils::RKError& error, const ProbeParams& params,
                       quotes::v1::ProbeReply* out);
    static void encode(const utils::RKError& error, const ProbeStatusParams& params,
                       quotes::v1::ProbeReply* out);
    static void encode(const utils::RKError& error, const ProbeHistoryParams& params,
                       quotes::v1::ProbeHistoryReply* out);
    static void encode(const utils::RKError& error, const LoginTypes& params,
                       quotes::v1::LoginTypeAuthReply* out);
    static void encode(const utils::RKError& error, const ExportParams& params,
                       quotes::v1::ExportReply* out);
    static void encode(const utils::RKError& error, const ImportParams& params,
                       quotes::v1::ImportReply* out);
    static void encode(const utils::RKError& error,
                       const std::tuple<std::vector<std::string>>& params,
                       quotes::v1::CheckIntegrityReply* out);
    static void encode(const utils::RKError& error,
                       const std::tuple<Hlx::CBackupOptions, std::string>& params,
                       quotes::v1::BackupDatabaseReply* out);
    static void encode(const utils::RKError& error,
                       const std::tuple<std::vector<Hlx::CAdminAccount>>& params,
                       quotes::v1::ListAccountsReply* out);
    static void encode(const utils::RKError& error,
                       const std::tuple<Hlx::CAuditFilter, Hlx::CAuditPage>& params,
                       quotes::v1::AuditReply* out);
    static void encode(const utils::RKError& error, const std::tuple<long long, int>& params,
                       quotes::v1::PruneAuditReply* out);
    static void encode(const utils::RKError& error,
                       const std::tuple<int, Hlx::CSourceHistory>& params,
                       quotes::v1::SourceHistoryReply* out);
    static void encode(const utils::RKError& error, const RestoreParams& params,
                       quotes::v1::RestoreSourceReply* out);
    // A change whose reply is its outcome alone.
    template <class Params>
    static void encode(const utils::RKError& error, const Params&, quotes::v1::AdminReply* out) {
        CRecordCodec::encodeError(error, out->mutable_error());
    }
    static void encode(const utils::RKError& error, const Login& login,
                       quotes::v1::LoginReply* out);
    static void encode(const Hlx::CServiceStatus& status, quotes::v1::PingReply* out);

    // ---- the client: inputs to the request

    static utils::RKError encode(const std::string& name, const std::string& password,
                                 quotes::v1::LoginRequest* out);
    static utils::RKError encode(const Hlx::CRequestTarget& target,
                                 const rkservice::COrinQueryDataReq& request,
                                 quotes::v1::QueryRequest* out);
    static utils::RKError encode(const Hlx::CRequestTarget& target,
                                 const rkservice::COperateDataReq& request,
                                 quotes::v1::OperateRequest* out);
    static utils::RKError encode(int id, const Hlx::CSourcePatch& patch,
                                 quotes::v1::ModifySourceRequest* out);
    static utils::RKError encode(const std::vector<int>& ids, bool all,
                                 quotes::v1::ProbeSourcesRequest* out);
    static utils::RKError encode(const std::string& subsystem, quotes::v1::ProbeStatusRequest* out);
    static utils::RKError encode(const std::string& address, int port, long long sinceMs,
                                 quotes::v1::ProbeHistoryRequest* out);
    static utils::RKError encode(int id, quotes::v1::SourceHistoryRequest* out);
    static utils::RKError encode(int id, long long entryId, long long revision,
                                 quotes::v1::RestoreSourceRequest* out);
    static utils::RKError encode(const Hlx::CExportOptions& options,
                                 quotes::v1::ExportRequest* out);
    static utils::RKError encode(const QJsonObject& document, const Hlx::CImportOptions& options,
                                 quotes::v1::ImportRequest* out);
    static utils::RKError encode(const std::vector<Hlx::SubsystemInfo>& subsystems,
                                 quotes::v1::SetSubsystemsRequest* out);
    static utils::RKError encode(int loginType, bool granted,
                                 quotes::v1::SetLoginTypeAuthRequest* out);
    static utils::RKError encode(const std::string& name, const std::string& password,
                                 quotes::v1::SetPasswordRequest* out);
    static utils::RKError encode(const std::string& name, bool enabled,
                                 quotes::v1::SetAccountEnabledRequest* out);
    static utils::RKError encode(const std::string& name, const std::set<int>& rights, int systemId,
                                 quotes::v1::SetRightsRequest* out);
    static utils::RKError encode(const std::string& name, const std::string& address,
                                 quotes::v1::UnlockLoginsRequest* out);
    static utils::RKError encode(const Hlx::CAuditFilter& filter, quotes::v1::AuditRequest* out);
    static utils::RKError encode(long long beforeMs, quotes::v1::PruneAuditRequest* out);
    // Requests without fields.
    static utils::RKError encode(quotes::v1::LogoutRequest*) { return utils::RKError::ok(); }
    static utils::RKError encode(quotes::v1::PingRequest*) { return utils::RKError::ok(); }
    static utils::RKError encode(quotes::v1::SubsystemsRequest*) { return utils::RKError::ok(); }
    static utils::RKError encode(quotes::v1::LoginTypeAuthRequest*) { return utils::RKError::ok(); }
    static utils::RKError encode(quotes::v1::CheckIntegrityRequest*) {
        return utils::RKError::ok();
    }
    static utils::RKError encode(quotes::v1::ListAccountsRequest*) { return utils::RKError::ok(); }
    // The server keeps the copy in its own data directory; a path of the client's means
    // nothing there.
    static utils::RKError encode(const Hlx::CBackupOptions& options,
                                 quotes::v1::BackupDatabaseRequest* out);

    // ---- the client: the reply to the outcome and the outputs

    static utils::RKError decode(const quotes::v1::LoginReply& in, Login* out);
    static utils::RKError decode(const quotes::v1::LogoutReply& in);
    static utils::RKError decode(const quotes::v1::PingReply& in, Hlx::CServiceStatus* out);
    static utils::RKError decode(const quotes::v1::OperateReply& in, bson::BSONObj* out);
    static utils::RKError decode(const quotes::v1::AdminReply& in);
    static utils::RKError decode(const quotes::v1::SubsystemsReply& in,
                                 std::vector<Hlx::SubsystemInfo>* out);
    static utils::RKError decode(const quotes::v1::LoginTypeAuthReply& in,
                                 std::map<int, bool>* out);
    static utils::RKError decode(const quotes::v1::ProbeReply& in,
                                 std::vector<Hlx::CProbeResult>* out);
    static utils::RKError decode(const quotes::v1::ProbeHistoryReply& in,
                                 std::vector<Hlx::CProbeSample>* out);
    static utils::RKError decode(const quotes::v1::ExportReply& in, QJsonObject* out);
    static utils::RKError decode(const quotes::v1::ImportReply& in, Hlx::CImportReport* out);
    static utils::RKError decode(const quotes::v1::CheckIntegrityReply& in,
                                 std::vector<std::string>* out);
    static utils::RKError decode(const quotes::v1::BackupDatabaseReply& in, std::string* out);
    static utils::RKError decode(const quotes::v1::ListAccountsReply& in,
                                 std::vector<Hlx::CAdminAccount>* out);
    static utils::RKError decode(const quotes::v1::AuditReply& in, Hlx::CAuditPage* out);
    static utils::RKError decode(const quotes::v1::PruneAuditReply& in, int* out);
    static utils::RKError decode(const quotes::v1::SourceHistoryReply& in,
                                 Hlx::CSourceHistory* out);
    static utils::RKError decode(const quotes::v1::RestoreSourceReply& in, long long* out);

    // Secrets a request carried, overwritten once it is sent.
    static void wipe(quotes::v1::LoginRequest* request);
    static void wipe(quotes::v1::SetPasswordRequest* request);
    static void wipe(quotes::v1::ModifySourceRequest* request);
    template <class Request>
    static void wipe(Request*) {}
};
