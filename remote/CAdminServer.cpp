#include "CAdminServer.h"

#include <QDateTime>
#include <QJsonDocument>
#include <QJsonObject>
#include <algorithm>

#include "CAuditTrail.h"
#include "CEventStream.h"
#include "CLoginManager.h"
#include "CQuotesService.h"
#include "CRecordCodec.h"
#include "Hlx/QuotesVersion.h"
#include "model/CAuditVocabulary.h"

namespace {

qint64 now() {
    return QDateTime::currentMSecsSinceEpoch();
}

// The token of "authorization: Bearer <token>", empty when the call carries none.
std::string bearerToken(const grpc::ServerContext* context) {
    const auto& metadata = context->client_metadata();
    const auto found = metadata.find("authorization");
    if (found == metadata.end())
        return std::string();
    const std::string value(found->second.data(), found->second.size());
    const std::string prefix = "Bearer ";
    return value.compare(0, prefix.size(), prefix) == 0 ? value.substr(prefix.size())
                                                        : std::string();
}

void encodeAccount(const CAccount& account, quotes::v1::User* out) {
    out->set_name(account.name.toStdString());
    out->set_system_id(account.systemId);
    for (int right : account.rights)
        out->add_rights(right);
}

grpc::Status invalid(const utils::RKError& error) {
    return grpc::Status(grpc::StatusCode::INVALID_ARGUMENT, error.errorMsg());
}

// Runs a change of the service that reports through a bool and a message.
utils::RKError outcome(bool done, const QString& error) {
    return done ? utils::RKError::ok() : utils::RKError::fail(error.toStdString());
}

}  // namespace

CAdminServer::CAdminServer(boost::shared_ptr<CQuotesService> service, CLoginManager& logins)
    : m_service(std::move(service)), m_logins(logins) {
    m_started.start();
}

std::string CAdminServer::peerAddress(const std::string& peer) {
    // "ipv4:1.2.3.4:5", "ipv6:[::1]:5", "unix:/path".
    const size_t scheme = peer.find(':');
    std::string rest = scheme == std::string::npos ? peer : peer.substr(scheme + 1);
    if (!rest.empty() && rest.front() == '[') {
        const size_t close = rest.find(']');
        return close == std::string::npos ? rest : rest.substr(1, close - 1);
    }
    const size_t port = rest.rfind(':');
    return port == std::string::npos || peer.compare(0, 5, "unix:") == 0 ? rest
                                                                         : rest.substr(0, port);
}

CAdminServer::CallScope::CallScope(CAdminServer* server) : m_server(server) {
    std::lock_guard<std::mutex> lock(m_server->m_callMutex);
    ++m_server->m_inFlight;
}

CAdminServer::CallScope::~CallScope() {
    std::lock_guard<std::mutex> lock(m_server->m_callMutex);
    if (--m_server->m_inFlight == 0)
        m_server->m_callsDone.notify_all();
}

bool CAdminServer::drain(std::chrono::milliseconds timeout) {
    m_refusing = true;
    std::unique_lock<std::mutex> lock(m_callMutex);
    return m_callsDone.wait_for(lock, timeout, [this] { return m_inFlight == 0; });
}

grpc::Status CAdminServer::refusing() const {
    return grpc::Status(grpc::StatusCode::UNAVAILABLE, "服务器正在停止");
}

grpc::Status CAdminServer::authenticate(grpc::ServerContext* context, CCaller* caller,
                                        CAccount* account) {
    if (m_refusing)
        return refusing();
    const std::string token = bearerToken(context);
    if (token.empty())
        return grpc::Status(grpc::StatusCode::UNAUTHENTICATED, "请先登录");
    const CLoginManager::AuthResult result = m_logins.authenticate(token, now());
    if (!result.ok())
        return grpc::Status(grpc::StatusCode::UNAUTHENTICATED, result.message.toStdString());
    *caller = CCaller::user(result.account.name.toStdString(), result.account.rights)
                  .from(peerAddress(context->peer()))
                  .inSession(result.tokenHash);
    if (account)
        *account = result.account;
    return grpc::Status::OK;
}

grpc::Status CAdminServer::Login(grpc::ServerContext* context,
                                 const quotes::v1::LoginRequest* request,
                                 quotes::v1::LoginReply* reply) {
    const CallScope scope(this);
    if (m_refusing)
        return refusing();
    const std::string address = peerAddress(context->peer());
    const CLoginManager::LoginResult result =
        m_logins.login(QString::fromStdString(request->name()), request->password(),
                       QString::fromStdString(address), now());
    if (!result.ok()) {
        m_service->auditTrail().refused(
            CCaller::user(request->name(), {}).from(address),
            CAuditTrail::entry(CAuditVocabulary::kLogin, CAuditVocabulary::kSession),
            result.message.toStdString());
        CRecordCodec::encodeError(utils::RKError::fail(result.message.toStdString()),
                                  reply->mutable_error());
        return grpc::Status::OK;
    }
    CRecordCodec::encodeError(utils::RKError::ok(), reply->mutable_error());
    reply->set_token(result.token);
    encodeAccount(result.account, reply->mutable_account());
    CRecordCodec::encodeSubsystems(m_service->subsystems(), reply->mutable_subsystems());
    CRecordCodec::encodeLoginTypeAuth(m_service->loginTypeAuth(), reply->mutable_login_type_auth());
    return grpc::Status::OK;
}

grpc::Status CAdminServer::Logout(grpc::ServerContext* context, const quotes::v1::LogoutRequest*,
                                  quotes::v1::LogoutReply* reply) {
    return asAccount(context, [&](const CCaller&) {
        m_logins.logout(bearerToken(context));
        CRecordCodec::encodeError(utils::RKError::ok(), reply->mutable_error());
        return grpc::Status::OK;
    });
}

grpc::Status CAdminServer::Ping(grpc::ServerContext*, const quotes::v1::PingRequest*,
                                quotes::v1::PingReply* reply) {
    const CallScope scope(this);
    if (m_refusing)
        return refusing();
    reply->set_server_version(Hlx::quotesVersion());
    reply->set_database(m_service->databaseDescription().toStdString());
    reply->set_uptime_seconds(m_started.elapsed() / 1000);
    return grpc::Status::OK;
}

grpc::Status CAdminServer::Events(grpc::ServerContext* context, const quotes::v1::EventsRequest*,
                                  grpc::ServerWriter<quotes::v1::Event>* writer) {
    return asAccount(context, [&](const CCaller& caller) {
        CEventStream stream(m_service->changes());
        // The first, empty event says the stream listens: a client that reconnected knows from
        // it that it may have missed changes.
        if (!writer->Write(quotes::v1::Event()))
            return grpc::Status::OK;
        QElapsedTimer sinceCheck;
        sinceCheck.start();
        while (!context->IsCancelled() && !m_refusing) {
            for (const Hlx::CChangeEvent& change :
                 stream.take(std::chrono::milliseconds(kStreamWaitMs))) {
                quotes::v1::Event event;
                CRecordCodec::encodeChange(change, caller.session(), &event);
                if (!writer->Write(event))
                    return grpc::Status::OK;
            }
            if (sinceCheck.elapsed() >= kStreamLoginCheckMs) {
                // Without counting as a use: an open console alone keeps no login alive.
                if (!m_logins.isLive(caller.session(), now()))
                    return grpc::Status(grpc::StatusCode::UNAUTHENTICATED,
                                        CLoginManager::expiredMessage().toStdString());
                sinceCheck.restart();
            }
        }
        return m_refusing ? refusing() : grpc::Status::CANCELLED;
    });
}

grpc::Status CAdminServer::Query(grpc::ServerContext* context,
                                 const quotes::v1::QueryRequest* request,
                                 grpc::ServerWriter<quotes::v1::QueryChunk>* writer) {
    return asAccount(context, [&](const CCaller& caller) {
        Hlx::CRequestTarget target = Hlx::CRequestTarget::centre();
        rkservice::COrinQueryDataReq query;
        const utils::RKError decoded = CRecordCodec::decodeQuery(*request, &target, &query);
        if (!decoded.isSuccess())
            return invalid(decoded);
        std::vector<rkservice::IDataPtr> datas;
        utils::RKError error = m_service->querySync(caller, target, query, &datas);
        if (!error.isSuccess())
            datas.clear();
        // Chunks of a bounded size, so a large table never makes one oversized message.
        size_t sent = 0;
        quotes::v1::QueryChunk chunk;
        while (error.isSuccess() && sent < datas.size()) {
            chunk.Clear();
            const size_t end =
                std::min(datas.size(), sent + size_t(CRecordCodec::kMaxChunkRecords));
            for (; sent < end && error.isSuccess(); ++sent)
                error = CRecordCodec::encodeRecord(*datas[sent], chunk.add_records());
            if (!error.isSuccess())
                break;
            if (sent == datas.size())
                break;  // the last records go with the closing chunk
            if (!writer->Write(chunk))
                return grpc::Status(grpc::StatusCode::CANCELLED, "客户端已断开");
        }
        if (!error.isSuccess()) {
            chunk.Clear();
            sent = 0;
        }
        chunk.set_last(true);
        CRecordCodec::encodeError(error, chunk.mutable_error());
        chunk.set_total_count(int64_t(sent));
        writer->Write(chunk);
        return grpc::Status::OK;
    });
}

grpc::Status CAdminServer::Operate(grpc::ServerContext* context,
                                   const quotes::v1::OperateRequest* request,
                                   quotes::v1::OperateReply* reply) {
    return asAccount(context, [&](const CCaller& caller) {
        Hlx::CRequestTarget target = Hlx::CRequestTarget::centre();
        rkservice::COperateDataReq operate;
        const utils::RKError decoded = CRecordCodec::decodeOperate(*request, &target, &operate);
        if (!decoded.isSuccess())
            return invalid(decoded);
        bson::BSONObj result;
        const utils::RKError error = m_service->operateSync(caller, target, operate, &result);
        CRecordCodec::encodeError(error, reply->mutable_error());
        if (error.isSuccess())
            CRecordCodec::encodeResult(result, reply->mutable_result());
        return grpc::Status::OK;
    });
}

grpc::Status CAdminServer::ModifySource(grpc::ServerContext* context,
                                        const quotes::v1::ModifySourceRequest* request,
                                        quotes::v1::AdminReply* reply) {
    return asAccount(context, [&](const CCaller& caller) {
        int id = 0;
        Hlx::CSourcePatch patch;
        const utils::RKError decoded = CRecordCodec::decodeSourcePatch(*request, &id, &patch);
        if (!decoded.isSuccess())
            return invalid(decoded);
        QString error;
        const bool done = m_service->modifySource(caller, id, patch, &error);
        CRecordCodec::encodeError(outcome(done, error), reply->mutable_error());
        return grpc::Status::OK;
    });
}

grpc::Status CAdminServer::Subsystems(grpc::ServerContext* context,
                                      const quotes::v1::SubsystemsRequest*,
                                      quotes::v1::SubsystemsReply* reply) {
    return asAccount(context, [&](const CCaller&) {
        CRecordCodec::encodeSubsystems(m_service->subsystems(), reply->mutable_subsystems());
        return grpc::Status::OK;
    });
}

grpc::Status CAdminServer::LoginTypeAuth(grpc::ServerContext* context,
                                         const quotes::v1::LoginTypeAuthRequest*,
                                         quotes::v1::LoginTypeAuthReply* reply) {
    return asAccount(context, [&](const CCaller&) {
        CRecordCodec::encodeLoginTypeAuth(m_service->loginTypeAuth(),
                                          reply->mutable_login_type_auth());
        return grpc::Status::OK;
    });
}

grpc::Status CAdminServer::ExportDocument(grpc::ServerContext* context,
                                          const quotes::v1::ExportRequest*,
                                          quotes::v1::ExportReply* reply) {
    return asAccount(context, [&](const CCaller& caller) {
        QJsonObject document;
        QString error;
        const bool done = m_service->exportDocument(caller, &document, &error);
        CRecordCodec::encodeError(outcome(done, error), reply->mutable_error());
        if (done)
            reply->set_document(
                QJsonDocument(document).toJson(QJsonDocument::Compact).toStdString());
        return grpc::Status::OK;
    });
}

grpc::Status CAdminServer::ImportDocument(grpc::ServerContext* context,
                                          const quotes::v1::ImportRequest* request,
                                          quotes::v1::ImportReply* reply) {
    return asAccount(context, [&](const CCaller& caller) {
        QJsonParseError parseError;
        const QJsonDocument document =
            QJsonDocument::fromJson(QByteArray::fromStdString(request->document()), &parseError);
        if (parseError.error != QJsonParseError::NoError || !document.isObject()) {
            CRecordCodec::encodeError(utils::RKError::fail("导入文件不是有效的 JSON: " +
                                                           parseError.errorString().toStdString()),
                                      reply->mutable_error());
            return grpc::Status::OK;
        }
        Hlx::CImportOptions options;
        options.dryRun = request->dry_run();
        Hlx::CImportReport report;
        QString error;
        const bool done =
            m_service->importDocument(caller, document.object(), options, &report, &error);
        CRecordCodec::encodeError(outcome(done, error), reply->mutable_error());
        if (done)
            CRecordCodec::encodeImportReport(report, reply);
        return grpc::Status::OK;
    });
}

grpc::Status CAdminServer::SetSubsystems(grpc::ServerContext* context,
                                         const quotes::v1::SetSubsystemsRequest* request,
                                         quotes::v1::AdminReply* reply) {
    return administer(context, reply, [&](const CCaller& caller, QString* error) {
        return m_service->setSubsystems(
            caller, CRecordCodec::decodeSubsystems(request->subsystems()), error);
    });
}

grpc::Status CAdminServer::SetLoginTypeAuth(grpc::ServerContext* context,
                                            const quotes::v1::SetLoginTypeAuthRequest* request,
                                            quotes::v1::AdminReply* reply) {
    int loginType = 0;
    const utils::RKError decoded = CRecordCodec::decodeLoginType(request->login_type(), &loginType);
    if (!decoded.isSuccess())
        return invalid(decoded);
    return administer(context, reply, [&](const CCaller& caller, QString* error) {
        return m_service->setLoginTypeAuth(caller, loginType, request->granted(), error);
    });
}

grpc::Status CAdminServer::CheckIntegrity(grpc::ServerContext* context,
                                          const quotes::v1::CheckIntegrityRequest*,
                                          quotes::v1::AdminReply* reply) {
    return administer(context, reply, [&](const CCaller& caller, QString* error) {
        return m_service->checkIntegrity(caller, error);
    });
}

grpc::Status CAdminServer::ListAccounts(grpc::ServerContext* context,
                                        const quotes::v1::ListAccountsRequest*,
                                        quotes::v1::ListAccountsReply* reply) {
    return asAccount(context, [&](const CCaller& caller) {
        std::vector<CAccount> accounts;
        QString error;
        const bool done = m_service->accounts(caller, &accounts, &error);
        for (const CAccount& account : accounts) {
            quotes::v1::Account* out = reply->add_accounts();
            encodeAccount(account, out->mutable_user());
            out->set_enabled(account.enabled);
        }
        CRecordCodec::encodeError(outcome(done, error), reply->mutable_error());
        return grpc::Status::OK;
    });
}

grpc::Status CAdminServer::administer(grpc::ServerContext* context, quotes::v1::AdminReply* reply,
                                      const std::function<bool(const CCaller&, QString*)>& change) {
    return asAccount(context, [&](const CCaller& caller) {
        QString error;
        const bool done = change(caller, &error);
        CRecordCodec::encodeError(outcome(done, error), reply->mutable_error());
        return grpc::Status::OK;
    });
}

grpc::Status CAdminServer::SetPassword(grpc::ServerContext* context,
                                       const quotes::v1::SetPasswordRequest* request,
                                       quotes::v1::AdminReply* reply) {
    return administer(context, reply, [&](const CCaller& caller, QString* error) {
        return m_service->setPassword(caller, QString::fromStdString(request->name()),
                                      request->password(), error);
    });
}

grpc::Status CAdminServer::SetAccountEnabled(grpc::ServerContext* context,
                                             const quotes::v1::SetAccountEnabledRequest* request,
                                             quotes::v1::AdminReply* reply) {
    return administer(context, reply, [&](const CCaller& caller, QString* error) {
        return m_service->setAccountEnabled(caller, QString::fromStdString(request->name()),
                                            request->enabled(), error);
    });
}

grpc::Status CAdminServer::SetRights(grpc::ServerContext* context,
                                     const quotes::v1::SetRightsRequest* request,
                                     quotes::v1::AdminReply* reply) {
    return administer(context, reply, [&](const CCaller& caller, QString* error) {
        std::set<int> rights;
        for (google::protobuf::int64 right : request->rights()) {
            if (right < 0 || right > 0x7fffffff) {
                *error = QStringLiteral("权限编号超出范围: %1").arg(right);
                return false;
            }
            rights.insert(int(right));
        }
        return m_service->setRights(caller, QString::fromStdString(request->name()), rights, error);
    });
}

grpc::Status CAdminServer::Audit(grpc::ServerContext* context,
                                 const quotes::v1::AuditRequest* request,
                                 quotes::v1::AuditReply* reply) {
    Hlx::CAuditFilter filter;
    const utils::RKError decoded = CRecordCodec::decodeAuditFilter(*request, &filter);
    if (!decoded.isSuccess())
        return invalid(decoded);
    return asAccount(context, [&](const CCaller& caller) {
        std::vector<Hlx::CAuditEntry> entries;
        QString error;
        const bool done = m_service->auditEntries(caller, filter, &entries, &error);
        CRecordCodec::encodeAuditEntries(entries, reply->mutable_entries());
        CRecordCodec::encodeError(outcome(done, error), reply->mutable_error());
        return grpc::Status::OK;
    });
}

grpc::Status CAdminServer::PruneAudit(grpc::ServerContext* context,
                                      const quotes::v1::PruneAuditRequest* request,
                                      quotes::v1::PruneAuditReply* reply) {
    return asAccount(context, [&](const CCaller& caller) {
        int removed = 0;
        QString error;
        const bool done = m_service->pruneAudit(caller, request->before_ms(), &removed, &error);
        reply->set_removed(removed);
        CRecordCodec::encodeError(outcome(done, error), reply->mutable_error());
        return grpc::Status::OK;
    });
}
