#include "CCallCodec.h"

#include <QJsonDocument>
#include <QJsonParseError>
#include <algorithm>
#include <boost/pointer_cast.hpp>
#include <climits>

#include "CCodecChecks.h"
#include "model/CFieldLimits.h"
#include "rkservice/CUserInfo.h"

using utils::RKError;
namespace v1 = quotes::v1;

namespace {

// An account's password: far more than any passphrase, far less than a message.
constexpr int kMaxPasswordBytes = 1024;

// The sources one probe request names: a console names one, quotesctl a few, and "all" reaches
// every source. Each id costs the server a lookup before it answers, so a message full of ids
// (millions fit) would hold a thread for seconds.
constexpr int kMaxProbeIds = 10000;

// An account's name and a password, each bounded.
template <class Request>
RKError credentials(const Request& in, std::tuple<std::string, std::string>* out) {
    CCodecChecks c;
    std::get<0>(*out) = c.name(in.name(), "name");
    std::get<1>(*out) = c.bounded(in.password(), "password", kMaxPasswordBytes);
    return c.error();
}

// Room for the fields around an imported document inside one message.
const int kEnvelopeBytes = 4096;

RKError invalid(const std::string& message) {
    return RKError::fail(utils::ErrorKind::Invalid, message);
}

// The reply of a call: its outputs when it succeeded and they convert, then its outcome (the
// conversion's failure when they do not, with no output left behind).
template <class Reply, class Outputs>
void answer(const RKError& error, Reply* out, Outputs outputs) {
    RKError outcome = error;
    if (outcome.isSuccess()) {
        outcome = outputs();
        if (!outcome.isSuccess())
            out->Clear();
    }
    CRecordCodec::encodeError(outcome, out->mutable_error());
}

// The outcome a reply carries, then its outputs when it succeeded.
template <class Outputs>
RKError outcome(const v1::Error& error, Outputs outputs) {
    const RKError answered = CRecordCodec::decodeError(error);
    return answered.isSuccess() ? outputs() : answered;
}

RKError encodeUser(const rkservice::CUserInfo& user, v1::User* out) {
    v1::Record record;
    const RKError error = CRecordCodec::encodeRecord(user, &record);
    if (error.isSuccess())
        *out = record.user();
    return error;
}

RKError decodeUser(const v1::User& message, rkservice::CUserInfoPtr* user) {
    v1::Record record;
    *record.mutable_user() = message;
    rkservice::IDataPtr data;
    const RKError error = CRecordCodec::decodeRecord(record, &data);
    if (!error.isSuccess())
        return error;
    *user = boost::dynamic_pointer_cast<rkservice::CUserInfo>(data);
    return *user ? RKError::ok() : invalid("服务器返回的账户无效");
}

// Overwrites a secret before its memory is given back.
void wipeText(std::string* secret) {
    std::fill(secret->begin(), secret->end(), '\0');
}

// The results of a probe call into its reply.
RKError encodeProbes(const std::vector<Hlx::CProbeResult>& results, v1::ProbeReply* out) {
    for (const Hlx::CProbeResult& result : results) {
        const RKError encoded = CRecordCodec::encodeProbe(result, out->add_results());
        if (!encoded.isSuccess())
            return encoded;
    }
    return RKError::ok();
}

// Where a history begins, both ways; a value this side does not know reads as "earlier".
v1::HistoryBegin historyBegin(Hlx::CSourceHistory::Begin begin) {
    using Begin = Hlx::CSourceHistory::Begin;
    switch (begin) {
        case Begin::Added:
            return v1::HISTORY_BEGIN_ADDED;
        case Begin::Pruned:
            return v1::HISTORY_BEGIN_PRUNED;
        case Begin::Imported:
            return v1::HISTORY_BEGIN_IMPORTED;
        default:
            return v1::HISTORY_BEGIN_EARLIER;
    }
}

Hlx::CSourceHistory::Begin historyBegin(int begin) {
    using Begin = Hlx::CSourceHistory::Begin;
    switch (begin) {
        case v1::HISTORY_BEGIN_ADDED:
            return Begin::Added;
        case v1::HISTORY_BEGIN_PRUNED:
            return Begin::Pruned;
        case v1::HISTORY_BEGIN_IMPORTED:
            return Begin::Imported;
        default:
            return Begin::Earlier;
    }
}

}  // namespace

// ---- the server: requests

RKError CCallCodec::decode(const v1::QueryRequest& in, QueryParams* out) {
    return CRecordCodec::decodeQuery(in, &std::get<0>(*out), &std::get<1>(*out));
}

RKError CCallCodec::decode(const v1::OperateRequest& in, OperateParams* out) {
    return CRecordCodec::decodeOperate(in, &std::get<0>(*out), &std::get<1>(*out));
}

RKError CCallCodec::decode(const v1::ModifySourceRequest& in,
                           std::tuple<int, Hlx::CSourcePatch>* out) {
    return CRecordCodec::decodeSourcePatch(in, &std::get<0>(*out), &std::get<1>(*out));
}

RKError CCallCodec::decode(const v1::ProbeSourcesRequest& in, ProbeParams* out) {
    if (in.ids_size() > kMaxProbeIds)
        return RKError::fail(utils::ErrorKind::Invalid,
                             "ids 超过 " + std::to_string(kMaxProbeIds) + " 个：探测全部请用 all");
    std::get<0>(*out).assign(in.ids().begin(), in.ids().end());
    std::get<1>(*out) = in.all();
    return RKError::ok();
}

RKError CCallCodec::decode(const v1::ProbeStatusRequest& in, ProbeStatusParams* out) {
    CCodecChecks c;
    std::get<0>(*out) = c.name(in.subsystem(), "subsystem");
    return c.error();
}

RKError CCallCodec::decode(const v1::ProbeHistoryRequest& in, ProbeHistoryParams* out) {
    CCodecChecks c;
    std::get<0>(*out) = c.bounded(in.address(), "address",
                                  Hlx::CFieldLimits::of(Hlx::CFieldLimit::Address).maxBytes);
    std::get<1>(*out) = in.port();
    std::get<2>(*out) = in.since_ms();
    return c.error();
}

RKError CCallCodec::decode(const v1::SourceHistoryRequest& in,
                           std::tuple<int, Hlx::CSourceHistory>* out) {
    CCodecChecks c;
    std::get<0>(*out) = c.narrow(in.id(), "source_history.id");
    return c.error();
}

RKError CCallCodec::decode(const v1::RestoreSourceRequest& in, RestoreParams* out) {
    CCodecChecks c;
    std::get<0>(*out) = c.narrow(in.id(), "restore_source.id");
    std::get<1>(*out) = in.entry();
    std::get<2>(*out) = in.revision();
    return c.error();
}

RKError CCallCodec::decode(const v1::ExportRequest& in, ExportParams* out) {
    std::get<1>(*out).withoutSecrets = in.without_secrets();
    return RKError::ok();
}

RKError CCallCodec::decode(const v1::ImportRequest& in, ImportParams* out) {
    QJsonParseError parse;
    const QJsonDocument document =
        QJsonDocument::fromJson(QByteArray::fromStdString(in.document()), &parse);
    if (parse.error != QJsonParseError::NoError || !document.isObject())
        return invalid("导入文件不是有效的 JSON: " + parse.errorString().toStdString());
    std::get<0>(*out) = document.object();
    std::get<1>(*out).dryRun = in.dry_run();
    CCodecChecks c;
    for (const std::string& section : in.only_sections())
        std::get<1>(*out).onlySections.push_back(c.text(section, "only_sections"));
    return c.error();
}

RKError CCallCodec::decode(const v1::SetSubsystemsRequest& in, SubsystemList* out) {
    CCodecChecks c;
    std::vector<Hlx::SubsystemInfo>& subsystems = std::get<0>(*out);
    for (const v1::Subsystem& message : in.subsystems())
        subsystems.push_back({c.text(message.name(), "subsystem.name"),
                              c.text(message.display_name(), "subsystem.display_name")});
    return c.error();
}

RKError CCallCodec::decode(const v1::SetLoginTypeAuthRequest& in, std::tuple<int, bool>* out) {
    std::get<1>(*out) = in.granted();
    return CRecordCodec::decodeLoginType(in.login_type(), &std::get<0>(*out));
}

RKError CCallCodec::decode(const v1::LoginRequest& in, std::tuple<std::string, std::string>* out) {
    return credentials(in, out);
}

RKError CCallCodec::decode(const v1::SetPasswordRequest& in,
                           std::tuple<std::string, std::string>* out) {
    return credentials(in, out);
}

RKError CCallCodec::decode(const v1::UnlockLoginsRequest& in,
                           std::tuple<std::string, std::string>* out) {
    CCodecChecks c;
    std::get<0>(*out) = c.name(in.name(), "name");
    std::get<1>(*out) = c.bounded(in.address(), "address",
                                  Hlx::CFieldLimits::of(Hlx::CFieldLimit::Address).maxBytes);
    return c.error();
}

RKError CCallCodec::decode(const v1::SetAccountEnabledRequest& in,
                           std::tuple<std::string, bool>* out) {
    CCodecChecks c;
    std::get<0>(*out) = c.name(in.name(), "name");
    std::get<1>(*out) = in.enabled();
    return c.error();
}

RKError CCallCodec::decode(const v1::SetRightsRequest& in,
                           std::tuple<std::string, std::set<int>>* out) {
    CCodecChecks c;
    std::get<0>(*out) = c.name(in.name(), "name");
    for (google::protobuf::int64 right : in.rights()) {
        if (right < 0 || right > INT_MAX)
            return invalid("权限编号超出范围: " + std::to_string(right));
        std::get<1>(*out).insert(int(right));
    }
    return c.error();
}

RKError CCallCodec::decode(const v1::AuditRequest& in,
                           std::tuple<Hlx::CAuditFilter, Hlx::CAuditPage>* out) {
    return CRecordCodec::decodeAuditFilter(in, &std::get<0>(*out));
}

RKError CCallCodec::decode(const v1::PruneAuditRequest& in, std::tuple<long long, int>* out) {
    std::get<0>(*out) = in.before_ms();
    return RKError::ok();
}

// ---- the server: replies

void CCallCodec::encode(const RKError& error, const OperateParams& params, v1::OperateReply* out) {
    answer(error, out,
           [&] { return CRecordCodec::encodeResult(std::get<2>(params), out->mutable_result()); });
}

void CCallCodec::encode(const RKError&, const SubsystemList& params, v1::SubsystemsReply* out) {
    // The reply has no outcome of its own: text that cannot travel leaves the list empty, which
    // the client refuses like any list without a default sub-system.
    if (!CRecordCodec::encodeSubsystems(std::get<0>(params), out->mutable_subsystems()).isSuccess())
        out->Clear();
}

void CCallCodec::encode(const RKError&, const LoginTypes& params, v1::LoginTypeAuthReply* out) {
    CRecordCodec::encodeLoginTypeAuth(std::get<0>(params), out->mutable_login_type_auth());
}

void CCallCodec::encode(const RKError& error, const ProbeParams& params, v1::ProbeReply* out) {
    answer(error, out, [&] { return encodeProbes(std::get<2>(params), out); });
}

void CCallCodec::encode(const RKError& error, const ProbeStatusParams& params,
                        v1::ProbeReply* out) {
    answer(error, out, [&] { return encodeProbes(std::get<1>(params), out); });
}

void CCallCodec::encode(const RKError& error, const ProbeHistoryParams& params,
                        v1::ProbeHistoryReply* out) {
    answer(error, out, [&] {
        CCodecChecks c;
        for (const Hlx::CProbeSample& sample : std::get<3>(params)) {
            v1::ProbeSample* message = out->add_samples();
            message->set_time_ms(sample.timeMs);
            message->set_state(c.text(sample.state, "probe.state"));
            message->set_connect_us(sample.connectUs);
            message->set_samples(sample.samples);
        }
        return c.error();
    });
}

void CCallCodec::encode(const RKError& error, const ExportParams& params, v1::ExportReply* out) {
    answer(error, out, [&] {
        out->set_document(
            QJsonDocument(std::get<0>(params)).toJson(QJsonDocument::Compact).toStdString());
        return RKError::ok();
    });
}

void CCallCodec::encode(const RKError& error, const ImportParams& params, v1::ImportReply* out) {
    answer(error, out, [&] {
        CCodecChecks c;
        const Hlx::CImportReport& report = std::get<2>(params);
        for (const Hlx::CSectionChange& change : report.sections) {
            v1::SectionChange* section = out->add_sections();
            section->set_section(c.text(change.section, "section"));
            section->set_before(change.before);
            section->set_after(change.after);
            section->set_added(change.added);
            section->set_removed(change.removed);
        }
        out->set_backup_file(c.text(report.backupFile, "backup_file"));
        for (const std::string& kept : report.keptValues)
            out->add_kept_values(c.text(kept, "kept_values"));
        return c.error();
    });
}

void CCallCodec::encode(const RKError& error, const std::tuple<std::vector<std::string>>& params,
                        v1::CheckIntegrityReply* out) {
    answer(error, out, [&] {
        CCodecChecks c;
        for (const std::string& kept : std::get<0>(params))
            out->add_kept_values(c.text(kept, "kept_values"));
        return c.error();
    });
}

void CCallCodec::encode(const RKError& error,
                        const std::tuple<Hlx::CBackupOptions, std::string>& params,
                        v1::BackupDatabaseReply* out) {
    answer(error, out, [&] {
        CCodecChecks c;
        out->set_file(c.text(std::get<1>(params), "file"));
        return c.error();
    });
}

void CCallCodec::encode(const RKError& error,
                        const std::tuple<std::vector<Hlx::CAdminAccount>>& params,
                        v1::ListAccountsReply* out) {
    answer(error, out, [&] {
        RKError encoded;
        for (const Hlx::CAdminAccount& account : std::get<0>(params)) {
            v1::Account* message = out->add_accounts();
            message->set_enabled(account.enabled);
            if (encoded.isSuccess())
                encoded = encodeUser(*account.user, message->mutable_user());
        }
        return encoded;
    });
}

void CCallCodec::encode(const RKError& error,
                        const std::tuple<Hlx::CAuditFilter, Hlx::CAuditPage>& params,
                        v1::AuditReply* out) {
    answer(error, out, [&] {
        out->set_more(std::get<1>(params).more);
        return CRecordCodec::encodeAuditEntries(std::get<1>(params).entries,
                                                out->mutable_entries());
    });
}

void CCallCodec::encode(const RKError& error, const std::tuple<long long, int>& params,
                        v1::PruneAuditReply* out) {
    answer(error, out, [&] {
        out->set_removed(std::get<1>(params));
        return RKError::ok();
    });
}

void CCallCodec::encode(const RKError& error, const std::tuple<int, Hlx::CSourceHistory>& params,
                        v1::SourceHistoryReply* out) {
    answer(error, out, [&] {
        const Hlx::CSourceHistory& history = std::get<1>(params);
        out->set_id(history.sourceId);
        out->set_exists(history.exists);
        out->set_revision(history.revision);
        out->set_begin(historyBegin(history.begin));
        out->set_begin_ms(history.beginMs);
        out->set_begin_entry(history.beginEntry);
        return CRecordCodec::encodeAuditEntries(history.entries, out->mutable_entries());
    });
}

void CCallCodec::encode(const RKError& error, const RestoreParams& params,
                        v1::RestoreSourceReply* out) {
    answer(error, out, [&] {
        out->set_revision(std::get<3>(params));
        return RKError::ok();
    });
}

void CCallCodec::encode(const RKError& error, const Login& login, v1::LoginReply* out) {
    answer(error, out, [&] {
        out->set_token(login.token);
        RKError encoded = encodeUser(*login.account, out->mutable_account());
        if (encoded.isSuccess())
            encoded = CRecordCodec::encodeSubsystems(login.subsystems, out->mutable_subsystems());
        CRecordCodec::encodeLoginTypeAuth(login.loginTypeAuth, out->mutable_login_type_auth());
        return encoded;
    });
}

void CCallCodec::encode(const Hlx::CServiceStatus& status, v1::PingReply* out) {
    CCodecChecks c;
    out->set_server_version(c.text(status.version, "server_version"));
    out->set_commit(c.text(status.commit, "commit"));
    out->set_database(c.text(status.database, "database"));
    out->set_uptime_seconds(status.uptimeMs / 1000);
    if (!c.ok())
        out->clear_database();
}

// ---- the client: requests

RKError CCallCodec::encode(const std::string& name, const std::string& password,
                           v1::LoginRequest* out) {
    CCodecChecks c;
    out->set_name(c.text(name, "name"));
    out->set_password(c.text(password, "password"));
    return c.error();
}

RKError CCallCodec::encode(const Hlx::CRequestTarget& target,
                           const rkservice::COrinQueryDataReq& request, v1::QueryRequest* out) {
    return CRecordCodec::encodeQuery(target, request, out);
}

RKError CCallCodec::encode(const Hlx::CRequestTarget& target,
                           const rkservice::COperateDataReq& request, v1::OperateRequest* out) {
    return CRecordCodec::encodeOperate(target, request, out);
}

RKError CCallCodec::encode(const std::vector<int>& ids, bool all, v1::ProbeSourcesRequest* out) {
    for (int id : ids)
        out->add_ids(id);
    out->set_all(all);
    return RKError::ok();
}

RKError CCallCodec::encode(const std::string& subsystem, v1::ProbeStatusRequest* out) {
    CCodecChecks c;
    out->set_subsystem(c.text(subsystem, "subsystem"));
    return c.error();
}

RKError CCallCodec::encode(const std::string& address, int port, long long sinceMs,
                           v1::ProbeHistoryRequest* out) {
    CCodecChecks c;
    out->set_address(c.text(address, "address"));
    out->set_port(port);
    out->set_since_ms(sinceMs);
    return c.error();
}

RKError CCallCodec::encode(int id, const Hlx::CSourcePatch& patch, v1::ModifySourceRequest* out) {
    return CRecordCodec::encodeSourcePatch(id, patch, out);
}

RKError CCallCodec::encode(int id, v1::SourceHistoryRequest* out) {
    out->set_id(id);
    return RKError::ok();
}

RKError CCallCodec::encode(int id, long long entryId, long long revision,
                           v1::RestoreSourceRequest* out) {
    out->set_id(id);
    out->set_entry(entryId);
    out->set_revision(revision);
    return RKError::ok();
}

RKError CCallCodec::encode(const Hlx::CExportOptions& options, v1::ExportRequest* out) {
    out->set_without_secrets(options.withoutSecrets);
    return RKError::ok();
}

RKError CCallCodec::encode(const QJsonObject& document, const Hlx::CImportOptions& options,
                           v1::ImportRequest* out) {
    // The server keeps its own backups; a path of the client's means nothing there.
    if (!options.backupFile.empty())
        return invalid("指定备份文件只能直接打开数据库时使用；服务器自己保留备份");
    const QByteArray json = QJsonDocument(document).toJson(QJsonDocument::Compact);
    // Refused here rather than by the server, with the reason the operator can act on.
    if (json.size() > CRecordCodec::kMaxMessageBytes - kEnvelopeBytes)
        return invalid("文档过大（" + std::to_string(json.size() / (1024 * 1024)) +
                       " MiB），服务器最多接受 16 MiB");
    out->set_document(json.toStdString());
    out->set_dry_run(options.dryRun);
    for (const std::string& section : options.onlySections)
        out->add_only_sections(section);
    return RKError::ok();
}

RKError CCallCodec::encode(const Hlx::CBackupOptions& options, v1::BackupDatabaseRequest*) {
    if (!options.file.empty())
        return invalid("指定备份文件只能直接打开数据库时使用；服务器把备份写在自己的数据目录");
    return RKError::ok();
}

RKError CCallCodec::encode(const std::vector<Hlx::SubsystemInfo>& subsystems,
                           v1::SetSubsystemsRequest* out) {
    return CRecordCodec::encodeSubsystems(subsystems, out->mutable_subsystems());
}

RKError CCallCodec::encode(int loginType, bool granted, v1::SetLoginTypeAuthRequest* out) {
    out->set_login_type(loginType);
    out->set_granted(granted);
    return RKError::ok();
}

RKError CCallCodec::encode(const std::string& name, const std::string& password,
                           v1::SetPasswordRequest* out) {
    CCodecChecks c;
    out->set_name(c.text(name, "name"));
    out->set_password(c.text(password, "password"));
    return c.error();
}

RKError CCallCodec::encode(const std::string& name, bool enabled,
                           v1::SetAccountEnabledRequest* out) {
    CCodecChecks c;
    out->set_name(c.text(name, "name"));
    out->set_enabled(enabled);
    return c.error();
}

RKError CCallCodec::encode(const std::string& name, const std::set<int>& rights, int systemId,
                           v1::SetRightsRequest* out) {
    CCodecChecks c;
    out->set_name(c.text(name, "name"));
    for (int right : rights)
        out->add_rights(right);
    out->set_system_id(systemId);
    return c.error();
}

RKError CCallCodec::encode(const std::string& name, const std::string& address,
                           v1::UnlockLoginsRequest* out) {
    CCodecChecks c;
    out->set_name(c.text(name, "name"));
    out->set_address(c.text(address, "address"));
    return c.error();
}

RKError CCallCodec::encode(const Hlx::CAuditFilter& filter, v1::AuditRequest* out) {
    CCodecChecks c;
    CRecordCodec::encodeAuditFilter(filter, out);
    c.text(filter.account, "account");
    c.text(filter.action, "action");
    return c.error();
}

RKError CCallCodec::encode(long long beforeMs, v1::PruneAuditRequest* out) {
    out->set_before_ms(beforeMs);
    return RKError::ok();
}

// ---- the client: replies

RKError CCallCodec::decode(const v1::LoginReply& in, Login* out) {
    return outcome(in.error(), [&] {
        if (in.token().empty())
            return invalid("服务器未返回会话令牌");
        RKError error = decodeUser(in.account(), &out->account);
        if (error.isSuccess())
            error = CRecordCodec::decodeLoginTypeAuth(in.login_type_auth(), &out->loginTypeAuth);
        out->token = in.token();
        out->subsystems = CRecordCodec::decodeSubsystems(in.subsystems());
        return error;
    });
}

RKError CCallCodec::decode(const v1::LogoutReply& in) {
    return CRecordCodec::decodeError(in.error());
}

RKError CCallCodec::decode(const v1::PingReply& in, Hlx::CServiceStatus* out) {
    out->version = in.server_version();
    out->commit = in.commit();
    out->database = in.database();
    out->uptimeMs = in.uptime_seconds() * 1000;
    return RKError::ok();
}

RKError CCallCodec::decode(const v1::OperateReply& in, bson::BSONObj* out) {
    return outcome(in.error(), [&] {
        return out && in.has_result() ? CRecordCodec::decodeResult(in.result(), out)
                                      : RKError::ok();
    });
}

RKError CCallCodec::decode(const v1::AdminReply& in) {
    return CRecordCodec::decodeError(in.error());
}

RKError CCallCodec::decode(const v1::SubsystemsReply& in, std::vector<Hlx::SubsystemInfo>* out) {
    *out = CRecordCodec::decodeSubsystems(in.subsystems());
    return RKError::ok();
}

RKError CCallCodec::decode(const v1::LoginTypeAuthReply& in, std::map<int, bool>* out) {
    return CRecordCodec::decodeLoginTypeAuth(in.login_type_auth(), out);
}

RKError CCallCodec::decode(const v1::ExportReply& in, QJsonObject* out) {
    return outcome(in.error(), [&] {
        QJsonParseError parse;
        const QJsonDocument json =
            QJsonDocument::fromJson(QByteArray::fromStdString(in.document()), &parse);
        if (parse.error != QJsonParseError::NoError || !json.isObject())
            return invalid("服务器返回的文档无效: " + parse.errorString().toStdString());
        *out = json.object();
        return RKError::ok();
    });
}

RKError CCallCodec::decode(const v1::ImportReply& in, Hlx::CImportReport* out) {
    return outcome(in.error(), [&] {
        if (!out)
            return RKError::ok();
        out->sections.clear();
        for (const v1::SectionChange& section : in.sections())
            out->sections.push_back({section.section(), section.before(), section.after(),
                                     section.added(), section.removed()});
        out->backupFile = in.backup_file();
        out->keptValues.assign(in.kept_values().begin(), in.kept_values().end());
        return RKError::ok();
    });
}

RKError CCallCodec::decode(const v1::ProbeReply& in, std::vector<Hlx::CProbeResult>* out) {
    return outcome(in.error(), [&] {
        std::vector<Hlx::CProbeResult> results(std::size_t(in.results_size()));
        for (int i = 0; i < in.results_size(); ++i) {
            const RKError decoded = CRecordCodec::decodeProbe(in.results(i), &results[i]);
            if (!decoded.isSuccess())
                return decoded;
        }
        if (out)
            out->swap(results);
        return RKError::ok();
    });
}

RKError CCallCodec::decode(const v1::ProbeHistoryReply& in, std::vector<Hlx::CProbeSample>* out) {
    return outcome(in.error(), [&] {
        CCodecChecks c;
        std::vector<Hlx::CProbeSample> samples;
        for (const v1::ProbeSample& message : in.samples())
            samples.push_back({message.time_ms(), c.text(message.state(), "probe.state"),
                               message.connect_us(), message.samples()});
        if (c.ok() && out)
            out->swap(samples);
        return c.error();
    });
}

RKError CCallCodec::decode(const v1::CheckIntegrityReply& in, std::vector<std::string>* out) {
    return outcome(in.error(), [&] {
        if (out)
            out->assign(in.kept_values().begin(), in.kept_values().end());
        return RKError::ok();
    });
}

RKError CCallCodec::decode(const v1::BackupDatabaseReply& in, std::string* out) {
    return outcome(in.error(), [&] {
        if (out)
            *out = in.file();
        return RKError::ok();
    });
}

RKError CCallCodec::decode(const v1::ListAccountsReply& in, std::vector<Hlx::CAdminAccount>* out) {
    return outcome(in.error(), [&] {
        std::vector<Hlx::CAdminAccount> listed;
        for (const v1::Account& message : in.accounts()) {
            Hlx::CAdminAccount account;
            const RKError error = decodeUser(message.user(), &account.user);
            if (!error.isSuccess())
                return error;
            account.enabled = message.enabled();
            listed.push_back(account);
        }
        out->swap(listed);
        return RKError::ok();
    });
}

RKError CCallCodec::decode(const v1::AuditReply& in, Hlx::CAuditPage* out) {
    return outcome(in.error(), [&] {
        out->more = in.more();
        return CRecordCodec::decodeAuditEntries(in.entries(), &out->entries);
    });
}

RKError CCallCodec::decode(const v1::SourceHistoryReply& in, Hlx::CSourceHistory* out) {
    return outcome(in.error(), [&] {
        CCodecChecks c;
        out->sourceId = c.narrow(in.id(), "source_history.id");
        out->exists = in.exists();
        out->revision = in.revision();
        out->begin = historyBegin(in.begin());
        out->beginMs = in.begin_ms();
        out->beginEntry = in.begin_entry();
        const RKError entries = CRecordCodec::decodeAuditEntries(in.entries(), &out->entries);
        return c.ok() ? entries : c.error();
    });
}

RKError CCallCodec::decode(const v1::RestoreSourceReply& in, long long* out) {
    return outcome(in.error(), [&] {
        *out = in.revision();
        return RKError::ok();
    });
}

RKError CCallCodec::decode(const v1::PruneAuditReply& in, int* out) {
    return outcome(in.error(), [&] {
        *out = int(in.removed());
        return RKError::ok();
    });
}

// ---- secrets

void CCallCodec::wipe(v1::LoginRequest* request) {
    wipeText(request->mutable_password());
}

void CCallCodec::wipe(v1::SetPasswordRequest* request) {
    wipeText(request->mutable_password());
}

void CCallCodec::wipe(v1::ModifySourceRequest* request) {
    wipeText(request->mutable_patch()->mutable_password());
}
