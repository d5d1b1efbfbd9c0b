#include "CRemoteAdmin.h"

#include <grpcpp/grpcpp.h>

#include <algorithm>
#include <atomic>
#include <map>
#include <mutex>
#include <tuple>

#include "CCallCodec.h"
#include "CRecordCodec.h"
#include "CRemoteEvents.h"
#include "quotes.grpc.pb.h"
#include "rkservice/DataTypeIds.h"

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

using Stub = v1::QuotesAdmin::Stub;
using std::forward_as_tuple;

// How a call travels: a read moves on to the next server when one cannot be reached; a change
// goes to the current server once; an anonymous read needs no login.
enum class Mode { Read, Change, Anonymous };

RKError unreachable(const std::string& message) {
    return RKError::fail(utils::ErrorKind::Unavailable, message);
}

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

// A call refused because the server had no thread (gRPC's own text) or reached one of its
// caps (quotesd's), not because of its size.
bool serverBusy(const grpc::Status& status) {
    const std::string& message = status.error_message();
    return message == "Server Threadpool Exhausted" || message.rfind("服务器繁忙", 0) == 0;
}

std::string seconds(std::chrono::milliseconds duration) {
    const long long ms = duration.count();
    return ms % 1000 == 0 ? std::to_string(ms / 1000)
                          : std::to_string(ms / 1000) + "." + std::to_string(ms % 1000 / 100);
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
            return RKError::fail(utils::ErrorKind::Invalid, "查询结果不完整：服务器未发送结束标记");
        if (!m_answer.isSuccess())
            return m_answer;
        if (m_total != static_cast<long long>(m_records.size()))
            return RKError::fail(utils::ErrorKind::Invalid,
                                 "查询结果不完整：服务器报告 " + std::to_string(m_total) +
                                     " 条，收到 " + std::to_string(m_records.size()) + " 条");
        datas->swap(m_records);
        return RKError::ok();
    }

    bool brokeProtocol() const { return !m_protocol.isSuccess(); }

private:
    bool fail(const std::string& message) {
        m_protocol = RKError::fail(utils::ErrorKind::Invalid, message);
        return false;
    }

    rkservice::IDataList m_records;
    bool m_last = false;
    long long m_total = 0;
    RKError m_answer;
    RKError m_protocol;
};

}  // namespace

// Everything that speaks gRPC: the servers' channels, the calls in flight and the session.
class CRemoteAdmin::Impl {
public:
    using Deadline = std::chrono::system_clock::time_point;
    // One remote call on a stub; outputs are reset by the call itself, as it may be repeated
    // on another server.
    using Rpc = std::function<grpc::Status(Stub*, grpc::ClientContext*)>;
    template <class Request, class Reply>
    using Unary = grpc::Status (Stub::*)(grpc::ClientContext*, const Request&, Reply*);

    struct Endpoint {
        std::string address;
        std::shared_ptr<grpc::Channel> channel;
        std::shared_ptr<Stub> stub;
    };

    Impl(std::vector<std::string> servers, std::string caPem, std::chrono::milliseconds deadline)
        : m_deadline(deadline), m_caPem(std::move(caPem)) {
        for (std::string& address : servers)
            m_endpoints.push_back({std::move(address), nullptr, nullptr});
    }

    // The one path of every unary call: the inputs encoded into the request, sent as its mode
    // says, the reply decoded into the outcome and the outputs; secrets wiped after sending.
    template <class Request, class Reply, class... In, class... Out>
    RKError call(Mode mode, Unary<Request, Reply> method, const std::tuple<In...>& in,
                 Out*... out) {
        Request request;
        RKError error = std::apply(
            [&](const auto&... value) { return CCallCodec::encode(value..., &request); }, in);
        Reply reply;
        if (error.isSuccess())
            error = send(mode, [&](Stub* stub, grpc::ClientContext* context) {
                reply.Clear();
                return (stub->*method)(context, request, &reply);
            });
        CCallCodec::wipe(&request);
        const RKError outcome = error.isSuccess() ? CCallCodec::decode(reply, out...) : error;
        told(Request::descriptor()->name(), outcome);
        return outcome;
    }

    // The call's outcome to the connection log ("SetLoginTypeAuthRequest" told as
    // "SetLoginTypeAuth"); what the client answered itself never reached a server.
    void told(const std::string& request, const RKError& outcome) {
        const std::string& text = outcome.errorMsg();
        if (text == CRemoteAdmin::kNotLoggedIn || text == CRemoteAdmin::kClosed ||
            text == CRemoteAdmin::kLoginExpired)
            return;
        const std::string suffix = "Request";
        const bool named =
            request.size() > suffix.size() &&
            request.compare(request.size() - suffix.size(), suffix.size(), suffix) == 0;
        m_log.answered(named ? request.substr(0, request.size() - suffix.size()) : request,
                       address(), outcome);
    }

    std::string address() const {
        return m_endpoints.empty() ? std::string() : m_endpoints[m_current].address;
    }

    RKError send(Mode mode, const Rpc& rpc) {
        return mode == Mode::Change ? change(rpc) : read(rpc, mode == Mode::Read);
    }

    // Reads: the current server, then the others. Changes: the current server, once.
    RKError read(const Rpc& rpc, bool needsToken);
    RKError change(const Rpc& rpc);
    RKError tryServers(size_t first, const std::string& token, const Rpc& rpc, size_t* answered);
    grpc::Status readFrom(size_t server, const std::string& token, const Rpc& rpc);
    grpc::Status attempt(size_t server, const std::string& token, Deadline deadline,
                         const Rpc& rpc);
    RKError connect(size_t server, Deadline deadline);

    bool admit(bool needsToken, std::string* token, RKError* refusal) const;
    bool track(grpc::ClientContext* context);
    void untrack(grpc::ClientContext* context);

    std::shared_ptr<grpc::Channel> channel(size_t server, std::shared_ptr<Stub>* stub);
    void dropChannel(size_t server);
    std::shared_ptr<grpc::Channel> newChannel(const std::string& address) const;

    RKError failure(size_t server, const grpc::Status& status, const std::string& token);
    std::string unreachableReason(const grpc::Status& status) const;
    void sessionEnded(const std::string& token);
    void cacheSession(const CCallCodec::Login& login, size_t server);
    void cacheSettings(std::vector<Hlx::SubsystemInfo> subsystems, std::map<int, bool> auth);

    const std::chrono::milliseconds m_deadline;
    const std::string m_caPem;
    std::atomic<size_t> m_current{0};
    std::atomic<bool> m_closed{false};

    mutable std::mutex m_channelMutex;
    std::vector<Endpoint> m_endpoints;

    mutable std::mutex m_callMutex;
    std::set<grpc::ClientContext*> m_calls;

    mutable std::mutex m_sessionMutex;
    std::string m_token;
    bool m_expired = false;
    rkservice::CUserInfoPtr m_account;
    std::vector<Hlx::SubsystemInfo> m_subsystems;
    std::map<int, bool> m_loginTypeAuth;
    std::function<void()> m_expiredHandler;
    CConnectionLog m_log;
};

void CRemoteAdmin::Impl::cacheSession(const CCallCodec::Login& login, size_t server) {
    std::lock_guard<std::mutex> lock(m_sessionMutex);
    m_token = login.token;
    m_expired = false;
    m_account = login.account;
    m_subsystems = login.subsystems;
    m_loginTypeAuth = login.loginTypeAuth;
    m_current = server;
}

void CRemoteAdmin::Impl::cacheSettings(std::vector<Hlx::SubsystemInfo> subsystems,
                                       std::map<int, bool> auth) {
    std::lock_guard<std::mutex> lock(m_sessionMutex);
    m_subsystems.swap(subsystems);
    m_loginTypeAuth.swap(auth);
}

RKError CRemoteAdmin::Impl::read(const Rpc& rpc, bool needsToken) {
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

RKError CRemoteAdmin::Impl::tryServers(size_t first, const std::string& token, const Rpc& rpc,
                                       size_t* answered) {
    if (m_endpoints.empty())
        return unreachable(std::string(CRemoteAdmin::kUnreachable) + "：未配置服务器地址");
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
    return unreachable(m_closed ? std::string(CRemoteAdmin::kClosed)
                                : CRemoteAdmin::kUnreachable + reasons);
}

// A read found its connection gone (the server restarted since the last call, or the channel
// still remembers a failure): it is repeated once on a new channel within the same deadline,
// so that a server that is back answers at once.
grpc::Status CRemoteAdmin::Impl::readFrom(size_t server, const std::string& token, const Rpc& rpc) {
    const Deadline deadline = std::chrono::system_clock::now() + m_deadline;
    grpc::Status status = attempt(server, token, deadline, rpc);
    if (status.error_code() == grpc::StatusCode::UNAVAILABLE && !m_closed) {
        dropChannel(server);
        status = attempt(server, token, deadline, rpc);
    }
    return status;
}

RKError CRemoteAdmin::Impl::change(const Rpc& rpc) {
    std::string token;
    RKError refusal;
    if (!admit(true, &token, &refusal))
        return refusal;
    if (m_endpoints.empty())
        return unreachable(std::string(CRemoteAdmin::kUnreachable) + "：未配置服务器地址");
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
    const std::string reason = m_closed ? CRemoteAdmin::kClosed : unreachableReason(status);
    return unreachable(std::string(CRemoteAdmin::kOutcomeUnknown) + "（" +
                       m_endpoints[server].address + "：" + reason + "）");
}

grpc::Status CRemoteAdmin::Impl::attempt(size_t server, const std::string& token, Deadline deadline,
                                         const Rpc& rpc) {
    std::shared_ptr<Stub> stub;
    const std::shared_ptr<grpc::Channel> keep = channel(server, &stub);
    grpc::ClientContext context;
    context.set_deadline(deadline);
    if (!token.empty())
        context.AddMetadata("authorization", "Bearer " + token);
    if (!track(&context))
        return grpc::Status(grpc::StatusCode::CANCELLED, CRemoteAdmin::kClosed);
    const grpc::Status status = rpc(stub.get(), &context);
    untrack(&context);
    return status;
}

RKError CRemoteAdmin::Impl::connect(size_t server, Deadline deadline) {
    const std::shared_ptr<grpc::Channel> channel = this->channel(server, nullptr);
    const std::string prefix =
        std::string(CRemoteAdmin::kUnreachable) + " " + m_endpoints[server].address + "：";
    grpc_connectivity_state state = channel->GetState(true);
    while (state != GRPC_CHANNEL_READY) {
        if (m_closed)
            return unreachable(CRemoteAdmin::kClosed);
        if (state == GRPC_CHANNEL_TRANSIENT_FAILURE || state == GRPC_CHANNEL_SHUTDOWN) {
            dropChannel(server);
            return unreachable(prefix + "连接失败（服务器未运行、地址错误或证书不受信任）");
        }
        if (std::chrono::system_clock::now() >= deadline) {
            dropChannel(server);
            return unreachable(prefix + "连接超时（" + seconds(m_deadline) + " 秒）");
        }
        // In short slices, so that shutdown() is noticed at once.
        channel->WaitForStateChange(
            state, std::min(deadline, std::chrono::system_clock::now() + kShutdownPoll));
        state = channel->GetState(true);
    }
    return RKError::ok();
}

bool CRemoteAdmin::Impl::admit(bool needsToken, std::string* token, RKError* refusal) const {
    if (m_closed) {
        *refusal = unreachable(CRemoteAdmin::kClosed);
        return false;
    }
    std::lock_guard<std::mutex> lock(m_sessionMutex);
    *token = m_token;
    if (needsToken && token->empty()) {
        *refusal = RKError::fail(utils::ErrorKind::Refused, m_expired ? CRemoteAdmin::kLoginExpired
                                                                      : CRemoteAdmin::kNotLoggedIn);
        return false;
    }
    return true;
}

bool CRemoteAdmin::Impl::track(grpc::ClientContext* context) {
    std::lock_guard<std::mutex> lock(m_callMutex);
    if (m_closed)
        return false;
    m_calls.insert(context);
    return true;
}

void CRemoteAdmin::Impl::untrack(grpc::ClientContext* context) {
    std::lock_guard<std::mutex> lock(m_callMutex);
    m_calls.erase(context);
}

// ---- channels

std::shared_ptr<grpc::Channel> CRemoteAdmin::Impl::channel(size_t server,
                                                           std::shared_ptr<Stub>* stub) {
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
void CRemoteAdmin::Impl::dropChannel(size_t server) {
    std::lock_guard<std::mutex> lock(m_channelMutex);
    m_endpoints[server].channel.reset();
    m_endpoints[server].stub.reset();
}

std::shared_ptr<grpc::Channel> CRemoteAdmin::Impl::newChannel(const std::string& address) const {
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

RKError CRemoteAdmin::Impl::failure(size_t server, const grpc::Status& status,
                                    const std::string& token) {
    const std::string detail =
        status.error_message().empty() ? std::string() : "：" + status.error_message();
    switch (status.error_code()) {
        case grpc::StatusCode::UNAUTHENTICATED:
            if (token.empty())  // a login refused before it got to check the password
                return RKError::fail(utils::ErrorKind::Refused, "服务器拒绝登录" + detail);
            sessionEnded(token);
            return RKError::fail(utils::ErrorKind::Refused, CRemoteAdmin::kLoginExpired);
        case grpc::StatusCode::PERMISSION_DENIED:
            return RKError::fail(utils::ErrorKind::Refused, "没有权限执行此操作" + detail);
        case grpc::StatusCode::INVALID_ARGUMENT:
            return RKError::fail(utils::ErrorKind::Invalid, "服务器拒绝了无效的请求" + detail);
        case grpc::StatusCode::RESOURCE_EXHAUSTED:
            if (serverBusy(status))
                return RKError::fail(utils::ErrorKind::Unavailable, "服务器繁忙，请稍后重试");
            return RKError::fail(utils::ErrorKind::Invalid,
                                 "请求或应答超过 16 MiB，无法传送" + detail);
        case grpc::StatusCode::UNIMPLEMENTED:
            return RKError::fail(utils::ErrorKind::Invalid, CRemoteAdmin::kUnsupported);
        default:
            if (m_closed)
                return unreachable(CRemoteAdmin::kClosed);
            return unreachable("服务器 " + m_endpoints[server].address + " 出错（" +
                               std::to_string(status.error_code()) + "）" + detail);
    }
}

std::string CRemoteAdmin::Impl::unreachableReason(const grpc::Status& status) const {
    switch (status.error_code()) {
        case grpc::StatusCode::DEADLINE_EXCEEDED:
            return "等待应答超时（" + seconds(m_deadline) + " 秒）";
        case grpc::StatusCode::CANCELLED:
            return "连接中断";
        default:
            return "连接失败或中断：" + status.error_message();
    }
}

void CRemoteAdmin::Impl::sessionEnded(const std::string& token) {
    std::function<void()> handler;
    {
        std::lock_guard<std::mutex> lock(m_sessionMutex);
        if (token.empty() || token != m_token)
            return;
        m_token.clear();
        m_expired = true;
        handler = m_expiredHandler;
    }
    m_log.loginExpired(address());
    if (handler)
        handler();
}

// ---- CRemoteAdmin

CRemoteAdmin::CRemoteAdmin(std::vector<std::string> servers, std::string caPem,
                           std::chrono::milliseconds deadline)
    : d(new Impl(std::move(servers), std::move(caPem), deadline)) {}

CRemoteAdmin::~CRemoteAdmin() {
    shutdown();
}

RKError CRemoteAdmin::login(const std::string& name, const std::string& password) {
    if (d->m_closed)
        return unreachable(kClosed);
    v1::LoginRequest request;
    RKError error = CCallCodec::encode(name, password, &request);
    v1::LoginReply reply;
    size_t server = 0;
    // Always from the first server: a login chooses the server the session stays on.
    if (error.isSuccess())
        error = d->tryServers(
            0, std::string(),
            [&](Stub* stub, grpc::ClientContext* context) {
                reply.Clear();
                return stub->Login(context, request, &reply);
            },
            &server);
    CCallCodec::wipe(&request);
    CCallCodec::Login session;
    if (error.isSuccess())
        error = CCallCodec::decode(reply, &session);
    if (error.isSuccess()) {
        d->cacheSession(session, server);
        d->m_log.loggedIn(d->address(), name);
    } else {
        d->m_log.loginFailed(
            d->m_endpoints.empty() ? std::string() : d->m_endpoints[server].address, name, error);
    }
    std::fill(reply.mutable_token()->begin(), reply.mutable_token()->end(), '\0');
    return error;
}

RKError CRemoteAdmin::logout() {
    const RKError error = d->call(Mode::Change, &Stub::Logout, forward_as_tuple());
    // The session ends here whatever the server said: the token is not used again.
    std::lock_guard<std::mutex> lock(d->m_sessionMutex);
    d->m_token.clear();
    d->m_expired = false;
    d->m_account.reset();
    return error;
}

bool CRemoteAdmin::isLoggedIn() const {
    std::lock_guard<std::mutex> lock(d->m_sessionMutex);
    return !d->m_token.empty();
}

rkservice::CUserInfoPtr CRemoteAdmin::account() const {
    std::lock_guard<std::mutex> lock(d->m_sessionMutex);
    return d->m_account;
}

std::string CRemoteAdmin::currentServer() const {
    return d->m_endpoints.empty() ? std::string() : d->m_endpoints[d->m_current].address;
}

void CRemoteAdmin::setConnectionLog(CConnectionLog::Sink sink) {
    d->m_log.setSink(std::move(sink));
}

void CRemoteAdmin::setLoginExpiredHandler(std::function<void()> handler) {
    std::lock_guard<std::mutex> lock(d->m_sessionMutex);
    d->m_expiredHandler = std::move(handler);
}

RKError CRemoteAdmin::refreshSession() {
    std::vector<Hlx::SubsystemInfo> subsystems;
    std::map<int, bool> auth;
    RKError error = d->call(Mode::Read, &Stub::Subsystems, forward_as_tuple(), &subsystems);
    if (error.isSuccess())
        error = d->call(Mode::Read, &Stub::LoginTypeAuth, forward_as_tuple(), &auth);
    if (error.isSuccess())
        d->cacheSettings(std::move(subsystems), std::move(auth));
    return error;
}

RKError CRemoteAdmin::refreshAccount() {
    const rkservice::CUserInfoPtr current = account();
    if (!current)
        return RKError::fail(utils::ErrorKind::Refused, kNotLoggedIn);
    // The users' records, asked by name: every account may read its own.
    rkservice::COrinQueryDataReq request;
    request.dataType = rkservice::kDataUsers;
    request.condition = current->m_strName;
    std::vector<rkservice::IDataPtr> datas;
    const RKError error = query(Hlx::CRequestTarget::centre(), request, &datas);
    if (!error.isSuccess())
        return error;
    for (const rkservice::IDataPtr& data : datas) {
        auto user = boost::dynamic_pointer_cast<rkservice::CUserInfo>(data);
        if (!user || user->m_strName != current->m_strName)
            continue;
        std::lock_guard<std::mutex> lock(d->m_sessionMutex);
        // Only for the login it was read for, not one made meanwhile.
        if (d->m_account == current)
            d->m_account = user;
        return RKError::ok();
    }
    return RKError::fail(utils::ErrorKind::NotFound, "账户不存在: " + current->m_strName);
}

void CRemoteAdmin::shutdown() {
    std::lock_guard<std::mutex> lock(d->m_callMutex);
    d->m_closed = true;
    for (grpc::ClientContext* context : d->m_calls)
        context->TryCancel();
}

int CRemoteAdmin::callsInFlight() const {
    std::lock_guard<std::mutex> lock(d->m_callMutex);
    return static_cast<int>(d->m_calls.size());
}

// ---- quote data and settings

RKError CRemoteAdmin::query(const Hlx::CRequestTarget& target,
                            const rkservice::COrinQueryDataReq& request,
                            std::vector<rkservice::IDataPtr>* datas) {
    v1::QueryRequest message;
    const RKError encoded = CCallCodec::encode(target, request, &message);
    if (!encoded.isSuccess())
        return encoded;
    std::unique_ptr<ChunkCollector> collector;
    const RKError error = d->read(
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
    const RKError outcome = error.isSuccess() ? collector->finish(datas) : error;
    d->told(v1::QueryRequest::descriptor()->name(), outcome);
    return outcome;
}

RKError CRemoteAdmin::operate(const Hlx::CRequestTarget& target,
                              const rkservice::COperateDataReq& request, bson::BSONObj* result) {
    return d->call(Mode::Change, &Stub::Operate, forward_as_tuple(target, request), result);
}

RKError CRemoteAdmin::modifySource(int id, const Hlx::CSourcePatch& patch) {
    return d->call(Mode::Change, &Stub::ModifySource, forward_as_tuple(id, patch));
}

// A probe changes no data: asked again of the next server when one does not answer.
RKError CRemoteAdmin::probeSources(const std::vector<int>& ids, bool all,
                                   std::vector<Hlx::CProbeResult>* results) {
    return d->call(Mode::Read, &Stub::ProbeSources, forward_as_tuple(ids, all), results);
}

RKError CRemoteAdmin::probeStatus(const std::string& subsystem,
                                  std::vector<Hlx::CProbeResult>* results) {
    return d->call(Mode::Read, &Stub::ProbeStatus, forward_as_tuple(subsystem), results);
}

RKError CRemoteAdmin::probeHistory(const std::string& address, int port, long long sinceMs,
                                   std::vector<Hlx::CProbeSample>* samples) {
    return d->call(Mode::Read, &Stub::ProbeHistory, forward_as_tuple(address, port, sinceMs),
                   samples);
}

RKError CRemoteAdmin::sourceHistory(int id, Hlx::CSourceHistory* history) {
    return d->call(Mode::Read, &Stub::SourceHistory, forward_as_tuple(id), history);
}

RKError CRemoteAdmin::restoreSource(int id, long long entryId, long long revision,
                                    long long* written) {
    return d->call(Mode::Change, &Stub::RestoreSource, forward_as_tuple(id, entryId, revision),
                   written);
}

std::vector<Hlx::SubsystemInfo> CRemoteAdmin::subsystems() const {
    std::lock_guard<std::mutex> lock(d->m_sessionMutex);
    return d->m_subsystems;
}

bool CRemoteAdmin::hasClientLoginTypeAuth(int loginType) const {
    std::lock_guard<std::mutex> lock(d->m_sessionMutex);
    const auto found = d->m_loginTypeAuth.find(loginType);
    return found != d->m_loginTypeAuth.end() && found->second;
}

RKError CRemoteAdmin::setSubsystems(const std::vector<Hlx::SubsystemInfo>& subsystems) {
    const RKError error = d->call(Mode::Change, &Stub::SetSubsystems, forward_as_tuple(subsystems));
    // The cache follows the server; a failed refresh leaves the old one until the next login.
    if (error.isSuccess())
        refreshSession();
    return error;
}

RKError CRemoteAdmin::setLoginTypeAuth(int loginType, bool granted) {
    const RKError error =
        d->call(Mode::Change, &Stub::SetLoginTypeAuth, forward_as_tuple(loginType, granted));
    if (error.isSuccess())
        refreshSession();
    return error;
}

// ---- accounts

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

RKError CRemoteAdmin::accounts(std::vector<Account>* accounts) {
    return d->call(Mode::Read, &Stub::ListAccounts, forward_as_tuple(), accounts);
}

RKError CRemoteAdmin::setPassword(const std::string& name, const std::string& password) {
    return d->call(Mode::Change, &Stub::SetPassword, forward_as_tuple(name, password));
}

RKError CRemoteAdmin::setAccountEnabled(const std::string& name, bool enabled) {
    return d->call(Mode::Change, &Stub::SetAccountEnabled, forward_as_tuple(name, enabled));
}

RKError CRemoteAdmin::unlockLogins(const std::string& name, const std::string& address) {
    return d->call(Mode::Change, &Stub::UnlockLogins, forward_as_tuple(name, address));
}

RKError CRemoteAdmin::setRights(const std::string& name, const std::set<int>& rights) {
    return setRights(name, rights, 0);
}

RKError CRemoteAdmin::setRights(const std::string& name, const std::set<int>& rights,
                                int systemId) {
    return d->call(Mode::Change, &Stub::SetRights, forward_as_tuple(name, rights, systemId));
}

// ---- audit and transfer

RKError CRemoteAdmin::exportDocument(QJsonObject* document, const Hlx::CExportOptions& options) {
    return d->call(Mode::Read, &Stub::ExportDocument, forward_as_tuple(options), document);
}

RKError CRemoteAdmin::importDocument(const QJsonObject& document) {
    Hlx::CImportReport report;
    return importDocument(document, Hlx::CImportOptions(), &report);
}

RKError CRemoteAdmin::importDocument(const QJsonObject& document,
                                     const Hlx::CImportOptions& options,
                                     Hlx::CImportReport* report) {
    // A dry run changes nothing: it may be asked again on another server.
    return d->call(options.dryRun ? Mode::Read : Mode::Change, &Stub::ImportDocument,
                   forward_as_tuple(document, options), report);
}

RKError CRemoteAdmin::checkIntegrity(std::vector<std::string>* keptValues) {
    return d->call(Mode::Read, &Stub::CheckIntegrity, forward_as_tuple(), keptValues);
}

RKError CRemoteAdmin::backupDatabase(const Hlx::CBackupOptions& options, std::string* written) {
    // Writes a file on the server: sent once, like a change.
    return d->call(Mode::Change, &Stub::BackupDatabase, forward_as_tuple(options), written);
}

RKError CRemoteAdmin::status(Hlx::CServiceStatus* status) {
    return d->call(Mode::Anonymous, &Stub::Ping, forward_as_tuple(), status);
}

RKError CRemoteAdmin::auditEntries(const Hlx::CAuditFilter& filter,
                                   std::vector<Hlx::CAuditEntry>* entries) {
    Hlx::CAuditPage page;
    const RKError error = auditPage(filter, &page);
    entries->swap(page.entries);
    return error;
}

RKError CRemoteAdmin::auditPage(const Hlx::CAuditFilter& filter, Hlx::CAuditPage* page) {
    return d->call(Mode::Read, &Stub::Audit, forward_as_tuple(filter), page);
}

RKError CRemoteAdmin::pruneAudit(long long beforeMs, int* removed) {
    return d->call(Mode::Change, &Stub::PruneAudit, forward_as_tuple(beforeMs), removed);
}

// ---- change events

// Once per session, and only for the session the call was made in (not one opened since).
std::shared_ptr<void> CRemoteAdmin::watchChanges(const ChangeHandler& handler) {
    auto opener = [this](size_t attempt, std::shared_ptr<Stub>* stub, std::string* token) {
        RKError refusal;
        if (!d->admit(true, token, &refusal))
            return false;
        const size_t server = (d->m_current + attempt) % d->m_endpoints.size();
        // After a failure, a new channel connects at once instead of waiting out the old one's
        // reconnect backoff.
        if (attempt > 0)
            d->dropChannel(server);
        d->channel(server, stub);
        return true;
    };
    return std::make_shared<CRemoteEvents>(
        opener, handler, [this](const std::string& token) { d->sessionEnded(token); });
}
