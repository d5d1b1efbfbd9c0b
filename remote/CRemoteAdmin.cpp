#include "CRemoteAdmin.h"

#include <QJsonDocument>
#include <QJsonParseError>
#include <algorithm>
#include <boost/pointer_cast.hpp>

#include "CRecordCodec.h"
#include "CRemoteEvents.h"

using utils::RKError;
namespace v1 = quotes::v1;

const char* const CRemoteAdmin::kUnreachable = "无法连接服务器";
const char* const CRemoteAdmin::kOutcomeUnknown = "无法确认操作结果，请刷新后检查";
const char* const CRemoteAdmin::kLoginExpired = "登录已过期，请重新登录";
const char* const CRemoteAdmin::kUnsupported = "服务器不支持此操作";
const char* const CRemoteAdmin::kNotLoggedIn = "尚未登录服务器";
const char* const CRemoteAdmin::kClosed = "客户端已关闭";

namespace {

// How often a wait for a connection looks whether the client is shutting down.
const std::chrono::milliseconds kShutdownPoll(50);
// Room for the fields around an imported document inside one message.
const int kEnvelopeBytes = 4096;

// A lost, refused or silent server: the only failures a read may retry elsewhere.
bool isConnectionFailure(const grpc::Status& status) {
    switch (status.error_code()) {
        case grpc::StatusCode::UNAVAILABLE:
        case grpc::StatusCode::DEADLINE_EXCEEDED:
        case grpc::StatusCode::CANCELLED:  // the server went away with the call
            return true;
        default:
            return false;
    }
}

std::string seconds(std::chrono::milliseconds duration) {
    const long long ms = duration.count();
    return ms % 1000 == 0 ? std::to_string(ms / 1000)
                          : std::to_string(ms / 1000) + "." + std::to_string(ms % 1000 / 100);
}

// The account a message describes, decoded by the codec like any other user record.
RKError decodeUser(const v1::User& message, rkservice::CUserInfoPtr* user) {
    v1::Record record;
    *record.mutable_user() = message;
    rkservice::IDataPtr data;
    const RKError error = CRecordCodec::decodeRecord(record, &data);
    if (!error.isSuccess())
        return error;
    *user = boost::dynamic_pointer_cast<rkservice::CUserInfo>(data);
    return *user ? RKError::ok() : RKError::fail("服务器返回的账户无效");
}

v1::User encodeUser(const std::string& name, const std::set<int>& rights, int systemId) {
    v1::User user;
    user.set_name(name);
    for (int right : rights)
        user.add_rights(right);
    user.set_system_id(systemId);
    return user;
}

// Overwrites a secret before its memory is given back.
void wipe(std::string* secret) {
    std::fill(secret->begin(), secret->end(), '\0');
}

// The query's chunks, gathered and checked against the count the last one announces.
class ChunkCollector {
public:
    // False when the stream breaks the protocol (the rest must not be read).
    bool add(const v1::QueryChunk& chunk) {
        if (m_last)
            return fail("查询结果在结束标记之后仍有数据");
        rkservice::IDataList part;
        const RKError decoded = CRecordCodec::decodeRecords(chunk.records(), &part);
        if (!decoded.isSuccess())
            return fail(decoded.errorMsg());
        m_records.insert(m_records.end(), part.begin(), part.end());
        if (chunk.last()) {
            m_last = true;
            m_answer = CRecordCodec::decodeError(chunk.error());
            m_total = chunk.total_count();
        }
        return true;
    }

    // The outcome once the stream ended normally.
    RKError finish(rkservice::IDataList* datas) {
        if (!m_protocol.isSuccess())
            return m_protocol;
        if (!m_last)
            return RKError::fail("查询结果不完整：服务器未发送结束标记");
        if (!m_answer.isSuccess())
            return m_answer;
        if (m_total != static_cast<long long>(m_records.size()))
            return RKError::fail("查询结果不完整：服务器报告 " + std::to_string(m_total) +
                                 " 条，收到 " + std::to_string(m_records.size()) + " 条");
        datas->swap(m_records);
        return RKError::ok();
    }

    bool brokeProtocol() const { return !m_protocol.isSuccess(); }

private:
    bool fail(const std::string& message) {
        m_protocol = RKError::fail(message);
        return false;
    }

    rkservice::IDataList m_records;
    bool m_last = false;
    long long m_total = 0;
    RKError m_answer;
    RKError m_protocol;
};

}  // namespace

CRemoteAdmin::CRemoteAdmin(std::vector<std::string> servers, std::string caPem,
                           std::chrono::milliseconds deadline)
    : m_deadline(deadline), m_caPem(std::move(caPem)) {
    for (std::string& address : servers)
        m_endpoints.push_back({std::move(address), nullptr, nullptr});
}

CRemoteAdmin::~CRemoteAdmin() {
    shutdown();
}

// ---- session

RKError CRemoteAdmin::login(const std::string& name, const std::string& password) {
    if (m_closed)
        return RKError::fail(kClosed);
    v1::LoginReply reply;
    const Rpc rpc = [&](Stub* stub, grpc::ClientContext* context) {
        v1::LoginRequest request;
        request.set_name(name);
        request.set_password(password);
        reply.Clear();
        const grpc::Status status = stub->Login(context, request, &reply);
        wipe(request.mutable_password());
        return status;
    };
    size_t server = 0;
    const RKError reached = tryServers(0, std::string(), rpc, &server);
    if (!reached.isSuccess())
        return reached;
    const RKError answer = CRecordCodec::decodeError(reply.error());
    if (!answer.isSuccess())
        return answer;
    const RKError cached = cacheSession(reply, server);
    wipe(reply.mutable_token());
    return cached;
}

RKError CRemoteAdmin::cacheSession(const v1::LoginReply& reply, size_t server) {
    if (reply.token().empty())
        return RKError::fail("服务器未返回会话令牌");
    rkservice::CUserInfoPtr account;
    RKError error = decodeUser(reply.account(), &account);
    std::map<int, bool> auth;
    if (error.isSuccess())
        error = CRecordCodec::decodeLoginTypeAuth(reply.login_type_auth(), &auth);
    if (!error.isSuccess())
        return error;
    std::lock_guard<std::mutex> lock(m_sessionMutex);
    m_token = reply.token();
    m_expired = false;
    m_account = account;
    m_subsystems = CRecordCodec::decodeSubsystems(reply.subsystems());
    m_loginTypeAuth.swap(auth);
    m_current = server;
    return RKError::ok();
}

RKError CRemoteAdmin::logout() {
    v1::LogoutReply reply;
    RKError error = change([&](Stub* stub, grpc::ClientContext* context) {
        return stub->Logout(context, v1::LogoutRequest(), &reply);
    });
    if (error.isSuccess())
        error = CRecordCodec::decodeError(reply.error());
    // The session ends here whatever the server said: the token is not used again.
    std::lock_guard<std::mutex> lock(m_sessionMutex);
    m_token.clear();
    m_expired = false;
    m_account.reset();
    return error;
}

bool CRemoteAdmin::isLoggedIn() const {
    std::lock_guard<std::mutex> lock(m_sessionMutex);
    return !m_token.empty();
}

rkservice::CUserInfoPtr CRemoteAdmin::account() const {
    std::lock_guard<std::mutex> lock(m_sessionMutex);
    return m_account;
}

std::string CRemoteAdmin::currentServer() const {
    return m_endpoints.empty() ? std::string() : m_endpoints[m_current].address;
}

void CRemoteAdmin::setLoginExpiredHandler(std::function<void()> handler) {
    std::lock_guard<std::mutex> lock(m_sessionMutex);
    m_expiredHandler = std::move(handler);
}

RKError CRemoteAdmin::refreshSession() {
    v1::SubsystemsReply subsystems;
    RKError error = read(
        [&](Stub* stub, grpc::ClientContext* context) {
            subsystems.Clear();
            return stub->Subsystems(context, v1::SubsystemsRequest(), &subsystems);
        },
        true);
    v1::LoginTypeAuthReply types;
    if (error.isSuccess())
        error = read(
            [&](Stub* stub, grpc::ClientContext* context) {
                types.Clear();
                return stub->LoginTypeAuth(context, v1::LoginTypeAuthRequest(), &types);
            },
            true);
    std::map<int, bool> auth;
    if (error.isSuccess())
        error = CRecordCodec::decodeLoginTypeAuth(types.login_type_auth(), &auth);
    if (!error.isSuccess())
        return error;
    std::lock_guard<std::mutex> lock(m_sessionMutex);
    m_subsystems = CRecordCodec::decodeSubsystems(subsystems.subsystems());
    m_loginTypeAuth.swap(auth);
    return RKError::ok();
}

void CRemoteAdmin::shutdown() {
    std::lock_guard<std::mutex> lock(m_callMutex);
    m_closed = true;
    for (grpc::ClientContext* context : m_calls)
        context->TryCancel();
}

int CRemoteAdmin::callsInFlight() const {
    std::lock_guard<std::mutex> lock(m_callMutex);
    return static_cast<int>(m_calls.size());
}

// ---- accounts

RKError CRemoteAdmin::accounts(std::vector<Account>* accounts) {
    v1::ListAccountsReply reply;
    RKError error = read(
        [&](Stub* stub, grpc::ClientContext* context) {
            reply.Clear();
            return stub->ListAccounts(context, v1::ListAccountsRequest(), &reply);
        },
        true);
    if (error.isSuccess())
        error = CRecordCodec::decodeError(reply.error());
    std::vector<Account> listed;
    for (int i = 0; error.isSuccess() && i < reply.accounts_size(); ++i) {
        Account account;
        error = decodeUser(reply.accounts(i).user(), &account.user);
        account.enabled = reply.accounts(i).enabled();
        listed.push_back(account);
    }
    if (error.isSuccess())
        accounts->swap(listed);
    return error;
}

RKError CRemoteAdmin::administer(const AdminRpc& rpc) {
    v1::AdminReply reply;
    const RKError error = change([&](Stub* stub, grpc::ClientContext* context) {
        reply.Clear();
        return rpc(stub, context, &reply);
    });
    return error.isSuccess() ? CRecordCodec::decodeError(reply.error()) : error;
}

RKError CRemoteAdmin::setPassword(const std::string& name, const std::string& password) {
    return administer([&](Stub* stub, grpc::ClientContext* context, v1::AdminReply* reply) {
        v1::SetPasswordRequest request;
        request.set_name(name);
        request.set_password(password);
        const grpc::Status status = stub->SetPassword(context, request, reply);
        wipe(request.mutable_password());
        return status;
    });
}

RKError CRemoteAdmin::setAccountEnabled(const std::string& name, bool enabled) {
    return administer([&](Stub* stub, grpc::ClientContext* context, v1::AdminReply* reply) {
        v1::SetAccountEnabledRequest request;
        request.set_name(name);
        request.set_enabled(enabled);
        return stub->SetAccountEnabled(context, request, reply);
    });
}

RKError CRemoteAdmin::setRights(const std::string& name, const std::set<int>& rights) {
    return setRights(name, rights, 0);
}

RKError CRemoteAdmin::setRights(const std::string& name, const std::set<int>& rights,
                                int systemId) {
    return administer([&](Stub* stub, grpc::ClientContext* context, v1::AdminReply* reply) {
        const v1::User user = encodeUser(name, rights, systemId);
        v1::SetRightsRequest request;
        request.set_name(user.name());
        *request.mutable_rights() = user.rights();
        request.set_system_id(user.system_id());
        return stub->SetRights(context, request, reply);
    });
}

// ---- Hlx::IQuotesAdmin

RKError CRemoteAdmin::query(const Hlx::CRequestTarget& target,
                            const rkservice::COrinQueryDataReq& request,
                            std::vector<rkservice::IDataPtr>* datas) {
    v1::QueryRequest message;
    const RKError encoded = CRecordCodec::encodeQuery(target, request, &message);
    if (!encoded.isSuccess())
        return encoded;
    std::unique_ptr<ChunkCollector> collector;
    const RKError error = read(
        [&](Stub* stub, grpc::ClientContext* context) {
            collector.reset(new ChunkCollector);
            auto reader = stub->Query(context, message);
            v1::QueryChunk chunk;
            while (reader->Read(&chunk) && collector->add(chunk)) {
            }
            if (!collector->brokeProtocol())
                return reader->Finish();
            // The rest is not read: the answer is already known to be wrong.
            context->TryCancel();
            reader->Finish();
            return grpc::Status::OK;
        },
        true);
    return error.isSuccess() ? collector->finish(datas) : error;
}

RKError CRemoteAdmin::operate(const Hlx::CRequestTarget& target,
                              const rkservice::COperateDataReq& request, bson::BSONObj* result) {
    v1::OperateRequest message;
    const RKError encoded = CRecordCodec::encodeOperate(target, request, &message);
    if (!encoded.isSuccess())
        return encoded;
    v1::OperateReply reply;
    RKError error = change([&](Stub* stub, grpc::ClientContext* context) {
        return stub->Operate(context, message, &reply);
    });
    if (error.isSuccess())
        error = CRecordCodec::decodeError(reply.error());
    if (error.isSuccess() && result && reply.has_result())
        error = CRecordCodec::decodeResult(reply.result(), result);
    return error;
}

RKError CRemoteAdmin::modifySource(int id, const Hlx::CSourcePatch& patch) {
    v1::ModifySourceRequest request;
    RKError error = CRecordCodec::encodeSourcePatch(id, patch, &request);
    if (error.isSuccess())
        error = administer([&](Stub* stub, grpc::ClientContext* context, v1::AdminReply* reply) {
            return stub->ModifySource(context, request, reply);
        });
    wipe(request.mutable_patch()->mutable_password());
    return error;
}

std::vector<Hlx::SubsystemInfo> CRemoteAdmin::subsystems() const {
    std::lock_guard<std::mutex> lock(m_sessionMutex);
    return m_subsystems;
}

bool CRemoteAdmin::hasClientLoginTypeAuth(int loginType) const {
    std::lock_guard<std::mutex> lock(m_sessionMutex);
    const auto found = m_loginTypeAuth.find(loginType);
    return found != m_loginTypeAuth.end() && found->second;
}

RKError CRemoteAdmin::users(std::vector<rkservice::CUserInfoPtr>* users) {
    std::vector<Account> listed;
    const RKError error = accounts(&listed);
    if (!error.isSuccess())
        return error;
    users->clear();
    for (const Account& account : listed)
        users->push_back(account.user);
    return error;
}

RKError CRemoteAdmin::setSubsystems(const std::vector<Hlx::SubsystemInfo>& subsystems) {
    v1::SetSubsystemsRequest request;
    const RKError encoded =
        CRecordCodec::encodeSubsystems(subsystems, request.mutable_subsystems());
    if (!encoded.isSuccess())
        return encoded;
    const RKError error =
        administer([&](Stub* stub, grpc::ClientContext* context, v1::AdminReply* reply) {
            return stub->SetSubsystems(context, request, reply);
        });
    // The cache follows the server; a failed refresh leaves the old one until the next login.
    if (error.isSuccess())
        refreshSession();
    return error;
}

RKError CRemoteAdmin::setLoginTypeAuth(int loginType, bool granted) {
    const RKError error =
        administer([&](Stub* stub, grpc::ClientContext* context, v1::AdminReply* reply) {
            v1::SetLoginTypeAuthRequest request;
            request.set_login_type(loginType);
            request.set_granted(granted);
            return stub->SetLoginTypeAuth(context, request, reply);
        });
    if (error.isSuccess())
        refreshSession();
    return error;
}

RKError CRemoteAdmin::checkIntegrity() {
    v1::AdminReply reply;
    const RKError error = read(
        [&](Stub* stub, grpc::ClientContext* context) {
            reply.Clear();
            return stub->CheckIntegrity(context, v1::CheckIntegrityRequest(), &reply);
        },
        true);
    return error.isSuccess() ? CRecordCodec::decodeError(reply.error()) : error;
}

RKError CRemoteAdmin::exportDocument(QJsonObject* document) {
    v1::ExportReply reply;
    RKError error = read(
        [&](Stub* stub, grpc::ClientContext* context) {
            reply.Clear();
            return stub->ExportDocument(context, v1::ExportRequest(), &reply);
        },
        true);
    if (error.isSuccess())
        error = CRecordCodec::decodeError(reply.error());
    if (!error.isSuccess())
        return error;
    QJsonParseError parse;
    const QJsonDocument json =
        QJsonDocument::fromJson(QByteArray::fromStdString(reply.document()), &parse);
    if (parse.error != QJsonParseError::NoError || !json.isObject())
        return RKError::fail("服务器返回的文档无效: " + parse.errorString().toStdString());
    *document = json.object();
    return RKError::ok();
}

RKError CRemoteAdmin::importDocument(const QJsonObject& document) {
    Hlx::CImportReport report;
    return importDocument(document, Hlx::CImportOptions(), &report);
}

RKError CRemoteAdmin::importDocument(const QJsonObject& document,
                                     const Hlx::CImportOptions& options,
                                     Hlx::CImportReport* report) {
    // The server keeps its own backups; a path of the client's means nothing there.
    if (!options.backupFile.empty())
        return RKError::fail("指定备份文件只能直接打开数据库时使用；服务器自己保留备份");
    const QByteArray json = QJsonDocument(document).toJson(QJsonDocument::Compact);
    // Refused here rather than by the server, with the reason the operator can act on.
    if (json.size() > CRecordCodec::kMaxMessageBytes - kEnvelopeBytes)
        return RKError::fail("文档过大（" + std::to_string(json.size() / (1024 * 1024)) +
                             " MiB），服务器最多接受 16 MiB");
    v1::ImportRequest request;
    request.set_document(json.toStdString());
    request.set_dry_run(options.dryRun);
    v1::ImportReply reply;
    // A dry run changes nothing: it may be asked again on another server.
    const Rpc rpc = [&](Stub* stub, grpc::ClientContext* context) {
        reply.Clear();
        return stub->ImportDocument(context, request, &reply);
    };
    const RKError error = options.dryRun ? read(rpc, true) : change(rpc);
    if (!error.isSuccess())
        return error;
    const RKError outcome = CRecordCodec::decodeError(reply.error());
    if (outcome.isSuccess() && report)
        *report = CRecordCodec::decodeImportReport(reply);
    return outcome;
}

RKError CRemoteAdmin::status(Hlx::CServiceStatus* status) {
    v1::PingReply reply;
    const RKError error = read(
        [&](Stub* stub, grpc::ClientContext* context) {
            reply.Clear();
            return stub->Ping(context, v1::PingRequest(), &reply);
        },
        false);
    if (!error.isSuccess())
        return error;
    status->version = reply.server_version();
    status->database = reply.database();
    status->uptimeMs = reply.uptime_seconds() * 1000;
    return RKError::ok();
}

// ---- calls

RKError CRemoteAdmin::read(const Rpc& rpc, bool needsToken) {
    std::string token;
    RKError refusal;
    if (!admit(needsToken, &token, &refusal))
        return refusal;
    size_t answered = 0;
    const RKError error = tryServers(m_current, token, rpc, &answered);
    if (error.isSuccess())
        m_current = answered;
    return error;
}

RKError CRemoteAdmin::tryServers(size_t first, const std::string& token, const Rpc& rpc,
                                 size_t* answered) {
    if (m_endpoints.empty())
        return RKError::fail(std::string(kUnreachable) + "：未配置服务器地址");
    std::string reasons;
    for (size_t i = 0; i < m_endpoints.size() && !m_closed; ++i) {
        const size_t server = (first + i) % m_endpoints.size();
        const grpc::Status status = readFrom(server, token, rpc);
        if (status.ok()) {
            *answered = server;
            return RKError::ok();
        }
        if (m_closed || !isConnectionFailure(status))
            return failure(server, status, token);
        dropChannel(server);
        reasons += (reasons.empty() ? " " : "；") + m_endpoints[server].address + "：" +
                   unreachableReason(status);
    }
    return RKError::fail(m_closed ? std::string(kClosed) : kUnreachable + reasons);
}

// A read found its connection gone (the server restarted since the last call, or the channel
// still remembers a failure): it is repeated once on a new channel within the same deadline,
// so that a server that is back answers at once.
grpc::Status CRemoteAdmin::readFrom(size_t server, const std::string& token, const Rpc& rpc) {
    const Deadline deadline = std::chrono::system_clock::now() + m_deadline;
    grpc::Status status = attempt(server, token, deadline, rpc);
    if (status.error_code() == grpc::StatusCode::UNAVAILABLE && !m_closed) {
        dropChannel(server);
        status = attempt(server, token, deadline, rpc);
    }
    return status;
}

RKError CRemoteAdmin::change(const Rpc& rpc) {
    std::string token;
    RKError refusal;
    if (!admit(true, &token, &refusal))
        return refusal;
    if (m_endpoints.empty())
        return RKError::fail(std::string(kUnreachable) + "：未配置服务器地址");
    const size_t server = m_current;
    const Deadline deadline = std::chrono::system_clock::now() + m_deadline;
    // Connected first, so that a server that cannot be reached is told apart from a change
    // whose answer was lost.
    const RKError reached = connect(server, deadline);
    if (!reached.isSuccess())
        return reached;
    const grpc::Status status = attempt(server, token, deadline, rpc);
    if (status.ok())
        return RKError::ok();
    if (!m_closed && !isConnectionFailure(status))
        return failure(server, status, token);
    dropChannel(server);
    const std::string reason = m_closed ? kClosed : unreachableReason(status);
    return RKError::fail(std::string(kOutcomeUnknown) + "（" + m_endpoints[server].address + "：" +
                         reason + "）");
}

grpc::Status CRemoteAdmin::attempt(size_t server, const std::string& token, Deadline deadline,
                                   const Rpc& rpc) {
    std::shared_ptr<Stub> stub;
    const std::shared_ptr<grpc::Channel> keep = channel(server, &stub);
    grpc::ClientContext context;
    context.set_deadline(deadline);
    if (!token.empty())
        context.AddMetadata("authorization", "Bearer " + token);
    if (!track(&context))
        return grpc::Status(grpc::StatusCode::CANCELLED, kClosed);
    const grpc::Status status = rpc(stub.get(), &context);
    untrack(&context);
    return status;
}

RKError CRemoteAdmin::connect(size_t server, Deadline deadline) {
    const std::shared_ptr<grpc::Channel> channel = this->channel(server, nullptr);
    const std::string prefix = std::string(kUnreachable) + " " + m_endpoints[server].address + "：";
    grpc_connectivity_state state = channel->GetState(true);
    while (state != GRPC_CHANNEL_READY) {
        if (m_closed)
            return RKError::fail(kClosed);
        if (state == GRPC_CHANNEL_TRANSIENT_FAILURE || state == GRPC_CHANNEL_SHUTDOWN) {
            dropChannel(server);
            return RKError::fail(prefix + "连接失败（服务器未运行、地址错误或证书不受信任）");
        }
        if (std::chrono::system_clock::now() >= deadline) {
            dropChannel(server);
            return RKError::fail(prefix + "连接超时（" + seconds(m_deadline) + " 秒）");
        }
        // In short slices, so that shutdown() is noticed at once.
        channel->WaitForStateChange(
            state, std::min(deadline, std::chrono::system_clock::now() + kShutdownPoll));
        state = channel->GetState(true);
    }
    return RKError::ok();
}

bool CRemoteAdmin::admit(bool needsToken, std::string* token, RKError* refusal) const {
    if (m_closed) {
        *refusal = RKError::fail(kClosed);
        return false;
    }
    std::lock_guard<std::mutex> lock(m_sessionMutex);
    *token = m_token;
    if (needsToken && token->empty()) {
        *refusal = RKError::fail(m_expired ? kLoginExpired : kNotLoggedIn);
        return false;
    }
    return true;
}

bool CRemoteAdmin::track(grpc::ClientContext* context) {
    std::lock_guard<std::mutex> lock(m_callMutex);
    if (m_closed)
        return false;
    m_calls.insert(context);
    return true;
}

void CRemoteAdmin::untrack(grpc::ClientContext* context) {
    std::lock_guard<std::mutex> lock(m_callMutex);
    m_calls.erase(context);
}

// ---- channels

std::shared_ptr<grpc::Channel> CRemoteAdmin::channel(size_t server, std::shared_ptr<Stub>* stub) {
    std::lock_guard<std::mutex> lock(m_channelMutex);
    Endpoint& endpoint = m_endpoints[server];
    if (!endpoint.channel) {
        endpoint.channel = newChannel(endpoint.address);
        endpoint.stub = v1::QuotesAdmin::NewStub(endpoint.channel);
    }
    if (stub)
        *stub = endpoint.stub;
    return endpoint.channel;
}

// After a failure the next call starts on a new channel: it connects at once instead of
// waiting out the reconnect backoff of the old one (a restarted server answers the next call).
void CRemoteAdmin::dropChannel(size_t server) {
    std::lock_guard<std::mutex> lock(m_channelMutex);
    m_endpoints[server].channel.reset();
    m_endpoints[server].stub.reset();
}

std::shared_ptr<grpc::Channel> CRemoteAdmin::newChannel(const std::string& address) const {
    grpc::SslCredentialsOptions tls;
    tls.pem_root_certs = m_caPem;  // empty: the system's roots
    grpc::ChannelArguments args;
    args.SetMaxSendMessageSize(CRecordCodec::kMaxMessageBytes);
    args.SetMaxReceiveMessageSize(CRecordCodec::kMaxMessageBytes);
    // Its own connection, not one shared with an older channel to the same address together
    // with that one's backoff.
    args.SetInt(GRPC_ARG_USE_LOCAL_SUBCHANNEL_POOL, 1);
    args.SetInt(GRPC_ARG_INITIAL_RECONNECT_BACKOFF_MS, 100);
    args.SetInt(GRPC_ARG_MIN_RECONNECT_BACKOFF_MS, 100);
    args.SetInt(GRPC_ARG_MAX_RECONNECT_BACKOFF_MS, 1000);
    return grpc::CreateCustomChannel(address, grpc::SslCredentials(tls), args);
}

// ---- failures

RKError CRemoteAdmin::failure(size_t server, const grpc::Status& status, const std::string& token) {
    const std::string detail =
        status.error_message().empty() ? std::string() : "：" + status.error_message();
    switch (status.error_code()) {
        case grpc::StatusCode::UNAUTHENTICATED:
            if (token.empty())  // a login refused before it got to check the password
                return RKError::fail("服务器拒绝登录" + detail);
            sessionEnded(token);
            return RKError::fail(kLoginExpired);
        case grpc::StatusCode::PERMISSION_DENIED:
            return RKError::fail("没有权限执行此操作" + detail);
        case grpc::StatusCode::INVALID_ARGUMENT:
            return RKError::fail("服务器拒绝了无效的请求" + detail);
        case grpc::StatusCode::RESOURCE_EXHAUSTED:
            return RKError::fail("请求或应答超过 16 MiB，无法传送" + detail);
        case grpc::StatusCode::UNIMPLEMENTED:
            return RKError::fail(kUnsupported);
        default:
            if (m_closed)
                return RKError::fail(kClosed);
            return RKError::fail("服务器 " + m_endpoints[server].address + " 出错（" +
                                 std::to_string(status.error_code()) + "）" + detail);
    }
}

std::string CRemoteAdmin::unreachableReason(const grpc::Status& status) const {
    switch (status.error_code()) {
        case grpc::StatusCode::DEADLINE_EXCEEDED:
            return "等待应答超时（" + seconds(m_deadline) + " 秒）";
        case grpc::StatusCode::CANCELLED:
            return "连接中断";
        default:
            return "连接失败或中断：" + status.error_message();
    }
}

// Once per session, and only for the session the call was made in (not one opened since).
std::shared_ptr<void> CRemoteAdmin::watchChanges(const ChangeHandler& handler) {
    auto opener = [this](size_t attempt, std::shared_ptr<Stub>* stub, std::string* token) {
        RKError refusal;
        if (!admit(true, token, &refusal))
            return false;
        const size_t server = (m_current + attempt) % m_endpoints.size();
        // After a failure, a new channel connects at once instead of waiting out the old one's
        // reconnect backoff.
        if (attempt > 0)
            dropChannel(server);
        channel(server, stub);
        return true;
    };
    return std::make_shared<CRemoteEvents>(
        opener, handler, [this](const std::string& token) { sessionEnded(token); });
}

void CRemoteAdmin::sessionEnded(const std::string& token) {
    std::function<void()> handler;
    {
        std::lock_guard<std::mutex> lock(m_sessionMutex);
        if (token.empty() || token != m_token)
            return;
        m_token.clear();
        m_expired = true;
        handler = m_expiredHandler;
    }
    if (handler)
        handler();
}

RKError CRemoteAdmin::auditEntries(const Hlx::CAuditFilter& filter,
                                   std::vector<Hlx::CAuditEntry>* entries) {
    v1::AuditRequest request;
    CRecordCodec::encodeAuditFilter(filter, &request);
    v1::AuditReply reply;
    RKError error = read(
        [&](Stub* stub, grpc::ClientContext* context) {
            reply.Clear();
            return stub->Audit(context, request, &reply);
        },
        true);
    if (error.isSuccess())
        error = CRecordCodec::decodeError(reply.error());
    if (error.isSuccess())
        *entries = CRecordCodec::decodeAuditEntries(reply.entries());
    return error;
}

RKError CRemoteAdmin::pruneAudit(long long beforeMs, int* removed) {
    v1::PruneAuditRequest request;
    request.set_before_ms(beforeMs);
    v1::PruneAuditReply reply;
    RKError error = change([&](Stub* stub, grpc::ClientContext* context) {
        reply.Clear();
        return stub->PruneAudit(context, request, &reply);
    });
    if (error.isSuccess())
        error = CRecordCodec::decodeError(reply.error());
    if (error.isSuccess())
        *removed = int(reply.removed());
    return error;
}
