#include "CAdminServer.h"

#include <QDateTime>
#include <algorithm>

#include "CAuditTrail.h"
#include "CEventStream.h"
#include "CLoginManager.h"
#include "Hlx/QuotesVersion.h"
#include "model/CAuditVocabulary.h"
#include "model/CFieldLimits.h"

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

}  // namespace

CAdminServer::CAdminServer(boost::shared_ptr<CQuotesService> service, CLoginManager& logins)
    : CAdminServer(std::move(service), logins, StreamLimits()) {}

CAdminServer::CAdminServer(boost::shared_ptr<CQuotesService> service, CLoginManager& logins,
                           const StreamLimits& streams)
    : m_service(std::move(service)),
      m_logins(logins),
      m_streamSlots(streams.total, streams.perLogin) {}

grpc::Status CAdminServer::busy(const std::string& what) {
    return grpc::Status(grpc::StatusCode::RESOURCE_EXHAUSTED, "服务器繁忙：" + what);
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

grpc::Status CAdminServer::invalid(const utils::RKError& error) {
    return grpc::Status(grpc::StatusCode::INVALID_ARGUMENT, error.errorMsg());
}

grpc::Status CAdminServer::unauthenticated(grpc::ServerContext* context,
                                           const std::string& message) {
    // Counted per address like refused logins: a client without a valid login, however it
    // calls, grows the trail by a row a minute at most.
    m_service->auditTrail().refusedCall(peerAddress(context->peer()), message);
    return grpc::Status(grpc::StatusCode::UNAUTHENTICATED, message);
}

grpc::Status CAdminServer::authenticate(grpc::ServerContext* context, CCaller* caller,
                                        utils::RKError* unavailable) {
    if (m_refusing)
        return refusing();
    const std::string token = bearerToken(context);
    if (token.empty())
        return unauthenticated(context, "请先登录");
    const CLoginManager::AuthResult result = m_logins.authenticate(token, now());
    // A database that does not answer has not ended the login.
    if (result.reason == CLoginManager::Reason::ServiceError) {
        *unavailable =
            utils::RKError::fail(utils::ErrorKind::Unavailable, result.message.toStdString());
        return grpc::Status::OK;
    }
    if (result.reason == CLoginManager::Reason::TokenExpired)
        m_service->auditTrail().loginEvent(
            CCaller::user(result.expiredName.toStdString(), {}).from(peerAddress(context->peer())),
            CAuditVocabulary::kExpire);
    if (!result.ok())
        return unauthenticated(context, result.message.toStdString());
    *caller = CCaller::user(result.account.name.toStdString(), result.account.rights)
                  .from(peerAddress(context->peer()))
                  .inSession(result.tokenHash);
    return grpc::Status::OK;
}

grpc::Status CAdminServer::Login(grpc::ServerContext* context,
                                 const quotes::v1::LoginRequest* request,
                                 quotes::v1::LoginReply* reply) {
    const CallScope scope(this);
    if (m_refusing)
        return refusing();
    const std::string address = peerAddress(context->peer());
    // Bounded before anything else looks at it: an oversized name is refused, and recorded cut.
    std::tuple<std::string, std::string> credentials;
    const utils::RKError decoded = CCallCodec::decode(*request, &credentials);
    if (!decoded.isSuccess()) {
        m_service->auditTrail().refusedLogin(address, request->name(), decoded.errorMsg());
        tellLogin(Hlx::CFieldLimits::cut(
                      request->name(), Hlx::CFieldLimits::of(Hlx::CFieldLimit::UserName).maxBytes),
                  address, IAdminObserver::LoginOutcome::Refused, decoded.errorMsg());
        return invalid(decoded);
    }
    const std::string& name = std::get<0>(credentials);
    const CLoginManager::LoginResult result =
        m_logins.login(QString::fromStdString(name), std::get<1>(credentials),
                       QString::fromStdString(address), now());
    // The database did not answer: nothing was checked, so nothing is counted or recorded.
    if (result.reason == CLoginManager::Reason::ServiceError) {
        CCallCodec::encode(
            utils::RKError::fail(utils::ErrorKind::Unavailable, result.message.toStdString()),
            CCallCodec::Login(), reply);
        return grpc::Status::OK;
    }
    if (!result.ok())
        return refuseLogin(name, address, result, reply);
    m_service->auditTrail().loginEvent(
        CCaller::user(result.account.name.toStdString(), result.account.rights).from(address),
        CAuditVocabulary::kLogin);
    tellLogin(result.account.name.toStdString(), address, IAdminObserver::LoginOutcome::Ok,
              std::string());
    CCallCodec::Login login;
    login.token = result.token;
    login.account = result.account.userInfo();
    login.subsystems = m_service->subsystems();
    login.loginTypeAuth = m_service->loginTypeAuth();
    CCallCodec::encode(utils::RKError::ok(), login, reply);
    return grpc::Status::OK;
}

grpc::Status CAdminServer::refuseLogin(const std::string& name, const std::string& address,
                                       const CLoginManager::LoginResult& result,
                                       quotes::v1::LoginReply* reply) {
    const std::string refusal = result.message.toStdString();
    const CAuditTrail& trail = m_service->auditTrail();
    trail.refusedLogin(address, name, refusal);
    if (result.failingAddresses > 0)
        reportSpread(name, result.failingAddresses);
    const bool locked = result.reason == CLoginManager::Reason::ThrottledAccount ||
                        result.reason == CLoginManager::Reason::ThrottledAddress;
    tellLogin(name, address,
              locked ? IAdminObserver::LoginOutcome::Locked : IAdminObserver::LoginOutcome::Refused,
              refusal);
    CCallCodec::encode(utils::RKError::fail(utils::ErrorKind::Refused, refusal),
                       CCallCodec::Login(), reply);
    return grpc::Status::OK;
}

void CAdminServer::tellLogin(const std::string& name, const std::string& address,
                             IAdminObserver::LoginOutcome outcome,
                             const std::string& refusal) const {
    if (IAdminObserver* observer = m_observer)
        observer->loginAnswered(name, address, outcome, refusal);
}

void CAdminServer::reportSpread(const std::string& name, int addresses) {
    // Someone guesses this account's password from many places: the account still logs in
    // from a clean address, but the operator should know. Once a minute at most.
    CAuditTrail::Entry report =
        CAuditTrail::entry(CAuditVocabulary::kLogin, CAuditVocabulary::kAccount);
    report.ids = name;
    report.error = "账户从 " + std::to_string(addresses) + " 个地址登录失败";
    if (m_service->auditTrail().aggregated("spread|" + name, CCaller::user(name, {}), report,
                                           std::string()))
        qWarning("quotesd: failed logins of account %s from %d addresses", name.c_str(), addresses);
}

grpc::Status CAdminServer::Ping(grpc::ServerContext* context, const quotes::v1::PingRequest*,
                                quotes::v1::PingReply* reply) {
    const CallScope scope(this);
    if (m_refusing)
        return refusing();
    Hlx::CServiceStatus status;
    // Without a login, only that the server answers and its version: where the database lives
    // is for the logged-in.
    CCaller caller = CCaller::owner();
    utils::RKError unavailable;
    if (!bearerToken(context).empty() && authenticate(context, &caller, &unavailable).ok() &&
        unavailable.isSuccess())
        m_service->status(caller, &status);
    else
        status = {Hlx::quotesVersion(), Hlx::quotesCommit(), std::string(), 0};
    CCallCodec::encode(status, reply);
    if (m_certificateExpiry)
        reply->set_certificate_expires_ms(m_certificateExpiry());
    return grpc::Status::OK;
}

grpc::Status CAdminServer::Logout(grpc::ServerContext* context,
                                  const quotes::v1::LogoutRequest* request,
                                  quotes::v1::LogoutReply* reply) {
    const CallScope scope(this);
    CCaller caller = CCaller::owner();
    utils::RKError unavailable;
    const grpc::Status admitted = admit(context, *request, &caller, &unavailable);
    if (!admitted.ok())
        return admitted;
    if (unavailable.isSuccess() && m_logins.logout(bearerToken(context)))
        m_service->auditTrail().loginEvent(caller, CAuditVocabulary::kLogout);
    CRecordCodec::encodeError(unavailable, reply->mutable_error());
    return grpc::Status::OK;
}

grpc::Status CAdminServer::Query(grpc::ServerContext* context,
                                 const quotes::v1::QueryRequest* request,
                                 grpc::ServerWriter<quotes::v1::QueryChunk>* writer) {
    const CallScope scope(this);
    CCaller caller = CCaller::owner();
    CCallCodec::QueryParams params;
    utils::RKError unavailable;
    const grpc::Status admitted = admit(context, *request, &caller, &params, &unavailable);
    if (!admitted.ok())
        return admitted;
    rkservice::IDataList& datas = std::get<2>(params);
    const utils::RKError error =
        unavailable.isSuccess()
            ? m_service->querySync(caller, std::get<0>(params), std::get<1>(params), &datas)
            : unavailable;
    return streamAnswer(error, datas, writer);
}

grpc::Status CAdminServer::streamAnswer(utils::RKError error, const rkservice::IDataList& datas,
                                        grpc::ServerWriter<quotes::v1::QueryChunk>* writer) const {
    // Chunks of a bounded size, so a large table never makes one oversized message.
    size_t sent = 0;
    quotes::v1::QueryChunk chunk;
    while (error.isSuccess() && sent < datas.size()) {
        chunk.Clear();
        const size_t end = std::min(datas.size(), sent + size_t(CRecordCodec::kMaxChunkRecords));
        for (; sent < end && error.isSuccess(); ++sent)
            error = CRecordCodec::encodeRecord(*datas[sent], chunk.add_records());
        if (!error.isSuccess() || sent == datas.size())
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
}

grpc::Status CAdminServer::Events(grpc::ServerContext* context,
                                  const quotes::v1::EventsRequest* request,
                                  grpc::ServerWriter<quotes::v1::Event>* writer) {
    const CallScope scope(this);
    CCaller caller = CCaller::owner();
    utils::RKError unavailable;
    const grpc::Status admitted = admit(context, *request, &caller, &unavailable);
    if (!admitted.ok())
        return admitted;
    // A stream has no reply to carry it: ABORTED, which the client answers by opening the
    // stream again on the same connection, with its login.
    if (!unavailable.isSuccess())
        return grpc::Status(grpc::StatusCode::ABORTED, unavailable.errorMsg());
    const std::shared_ptr<void> slot = m_streamSlots.take(caller.session());
    if (!slot)
        return busy("实时更新连接过多");
    IAdminObserver* observer = m_observer;
    if (observer)
        observer->eventStreamsChanged(+1);
    const grpc::Status ended = streamEvents(context, caller, writer);
    if (observer)
        observer->eventStreamsChanged(-1);
    return ended;
}

grpc::Status CAdminServer::streamEvents(grpc::ServerContext* context, const CCaller& caller,
                                        grpc::ServerWriter<quotes::v1::Event>* writer) {
    CEventStream stream(m_service->changes());
    // The first, empty event says the stream listens: a client that reconnected knows from it
    // that it may have missed changes.
    if (!writer->Write(quotes::v1::Event()))
        return grpc::Status::OK;
    QElapsedTimer sinceCheck;
    sinceCheck.start();
    while (!context->IsCancelled() && !m_refusing) {
        for (const Hlx::CChangeEvent& change :
             stream.take(std::chrono::milliseconds(kStreamWaitMs))) {
            quotes::v1::Event event;
            // A change whose text cannot travel still tells the client to read everything.
            if (!CRecordCodec::encodeChange(change, caller.session(), &event).isSuccess()) {
                event.Clear();
                event.set_resync(true);
            }
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
}
