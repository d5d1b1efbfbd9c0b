#include "FakeQuotesServer.h"

#include <algorithm>
#include <chrono>

namespace v1 = quotes::v1;

namespace {

// How often a held call looks whether its client gave up.
const std::chrono::milliseconds kCancelPoll(20);

grpc::Status unauthenticated() {
    return grpc::Status(grpc::StatusCode::UNAUTHENTICATED, "session expired");
}

void fill(v1::Error* error, const utils::RKError& from) {
    CRecordCodec::encodeError(from, error);
}

}  // namespace

FakeQuotesServer::FakeQuotesServer(const CTlsIdentity& identity) : m_identity(identity) {}

FakeQuotesServer::~FakeQuotesServer() {
    stop();
}

bool FakeQuotesServer::start() {
    if (m_server)
        return true;
    grpc::SslServerCredentialsOptions options;
    options.pem_key_cert_pairs.push_back(
        {m_identity.privateKeyPem().toStdString(), m_identity.certificatePem().toStdString()});
    grpc::ServerBuilder builder;
    int bound = 0;
    builder.AddListeningPort(address(), grpc::SslServerCredentials(options), &bound);
    builder.SetMaxReceiveMessageSize(CRecordCodec::kMaxMessageBytes);
    builder.SetMaxSendMessageSize(CRecordCodec::kMaxMessageBytes);
    builder.RegisterService(this);
    m_server = builder.BuildAndStart();
    if (!m_server || bound == 0) {
        m_server.reset();
        return false;
    }
    m_port = bound;
    return true;
}

void FakeQuotesServer::stop() {
    if (!m_server)
        return;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_stopping = true;
        m_stalling = false;
    }
    m_released.notify_all();
    m_server->Shutdown(std::chrono::system_clock::now());
    m_server->Wait();
    m_server.reset();
    std::lock_guard<std::mutex> lock(m_mutex);
    m_stopping = false;
}

bool FakeQuotesServer::isRunning() const {
    return bool(m_server);
}

// ---- script

void FakeQuotesServer::addAccount(const std::string& name, const std::string& password,
                                  const std::set<int>& rights, int systemId, bool enabled) {
    AccountEntry entry;
    entry.password = password;
    entry.user.set_name(name);
    for (int right : rights)
        entry.user.add_rights(right);
    entry.user.set_system_id(systemId);
    entry.enabled = enabled;
    std::lock_guard<std::mutex> lock(m_mutex);
    m_accounts[name] = entry;
}

void FakeQuotesServer::setToken(const std::string& token) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_token = token;
    m_tokenExpired = false;
}

void FakeQuotesServer::expireToken() {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_tokenExpired = true;
}

void FakeQuotesServer::setSubsystems(const std::vector<Hlx::SubsystemInfo>& subsystems) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_subsystems = subsystems;
}

void FakeQuotesServer::setLoginTypeAuth(const std::map<int, bool>& auth) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_loginTypeAuth = auth;
}

void FakeQuotesServer::setQueryAnswer(int dataType, const rkservice::IDataList& records,
                                      const utils::RKError& error, int countOffset) {
    QueryAnswer answer;
    CRecordCodec::encodeRecords(records, &answer.records);
    answer.error = error;
    answer.countOffset = countOffset;
    std::lock_guard<std::mutex> lock(m_mutex);
    m_queryAnswers[dataType] = answer;
}

void FakeQuotesServer::setStreamFault(StreamFault fault) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_streamFault = fault;
}

void FakeQuotesServer::setOperateAnswer(const utils::RKError& error, const std::vector<int>& ids) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_operateError = error;
    m_operateIds = ids;
}

void FakeQuotesServer::setExportDocument(const std::string& json) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_exportDocument = json;
}

v1::OperateRequest FakeQuotesServer::lastOperate() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_lastOperate;
}

v1::ModifySourceRequest FakeQuotesServer::lastModify() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_lastModify;
}

std::string FakeQuotesServer::lastImport() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_lastImport;
}

std::vector<int> FakeQuotesServer::lastChunkSizes() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_lastChunkSizes;
}

void FakeQuotesServer::setStalling(bool stalling) {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_stalling = stalling;
    }
    m_released.notify_all();
}

int FakeQuotesServer::stalledCount() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_stalled;
}

int FakeQuotesServer::calls(const std::string& method) const {
    std::lock_guard<std::mutex> lock(m_mutex);
    const auto found = m_calls.find(method);
    return found == m_calls.end() ? 0 : found->second;
}

int FakeQuotesServer::totalCalls() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    int total = 0;
    for (const auto& entry : m_calls)
        total += entry.second;
    return total;
}

// ---- plumbing

grpc::Status FakeQuotesServer::enter(grpc::ServerContext* context, const std::string& method,
                                     bool needsToken) {
    std::unique_lock<std::mutex> lock(m_mutex);
    ++m_calls[method];
    if (m_stalling) {
        ++m_stalled;
        // Polled: a synchronous handler is not told when its client cancels.
        while (m_stalling && !m_stopping && !context->IsCancelled())
            m_released.wait_for(lock, kCancelPoll);
        --m_stalled;
    }
    if (m_stopping)
        return grpc::Status(grpc::StatusCode::UNAVAILABLE, "server stopping");
    if (context->IsCancelled())
        return grpc::Status(grpc::StatusCode::CANCELLED, "cancelled by the client");
    lock.unlock();
    return needsToken ? authorize(context) : grpc::Status::OK;
}

grpc::Status FakeQuotesServer::authorize(const grpc::ServerContext* context) const {
    const auto& metadata = context->client_metadata();
    const auto found = metadata.find("authorization");
    if (found == metadata.end())
        return unauthenticated();
    const std::string presented(found->second.data(), found->second.size());
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_tokenExpired || presented != "Bearer " + m_token)
        return unauthenticated();
    return grpc::Status::OK;
}

grpc::Status FakeQuotesServer::setAccount(const std::string& name,
                                          const std::function<void(AccountEntry*)>& edit,
                                          v1::AdminReply* reply) {
    std::lock_guard<std::mutex> lock(m_mutex);
    const auto found = m_accounts.find(name);
    if (found == m_accounts.end()) {
        fill(reply->mutable_error(), utils::RKError::fail("账户不存在: " + name));
        return grpc::Status::OK;
    }
    edit(&found->second);
    fill(reply->mutable_error(), utils::RKError::ok());
    return grpc::Status::OK;
}

// ---- the service

grpc::Status FakeQuotesServer::Login(grpc::ServerContext* context, const v1::LoginRequest* request,
                                     v1::LoginReply* reply) {
    const grpc::Status entered = enter(context, "Login", false);
    if (!entered.ok())
        return entered;
    std::lock_guard<std::mutex> lock(m_mutex);
    const auto found = m_accounts.find(request->name());
    if (found == m_accounts.end() || found->second.password != request->password()) {
        fill(reply->mutable_error(), utils::RKError::fail("用户名或密码错误"));
        return grpc::Status::OK;
    }
    if (!found->second.enabled) {
        fill(reply->mutable_error(), utils::RKError::fail("账户已停用"));
        return grpc::Status::OK;
    }
    fill(reply->mutable_error(), utils::RKError::ok());
    m_tokenExpired = false;
    reply->set_token(m_token);
    *reply->mutable_account() = found->second.user;
    CRecordCodec::encodeSubsystems(m_subsystems, reply->mutable_subsystems());
    CRecordCodec::encodeLoginTypeAuth(m_loginTypeAuth, reply->mutable_login_type_auth());
    return grpc::Status::OK;
}

grpc::Status FakeQuotesServer::Logout(grpc::ServerContext* context, const v1::LogoutRequest*,
                                      v1::LogoutReply* reply) {
    const grpc::Status entered = enter(context, "Logout");
    if (!entered.ok())
        return entered;
    fill(reply->mutable_error(), utils::RKError::ok());
    return grpc::Status::OK;
}

grpc::Status FakeQuotesServer::Ping(grpc::ServerContext* context, const v1::PingRequest*,
                                    v1::PingReply* reply) {
    const grpc::Status entered = enter(context, "Ping", false);
    if (!entered.ok())
        return entered;
    reply->set_server_version("fake-" + std::to_string(m_port));
    reply->set_database("memory");
    reply->set_uptime_seconds(42);
    return grpc::Status::OK;
}

grpc::Status FakeQuotesServer::Query(grpc::ServerContext* context, const v1::QueryRequest* request,
                                     grpc::ServerWriter<v1::QueryChunk>* writer) {
    const grpc::Status entered = enter(context, "Query");
    if (!entered.ok())
        return entered;
    QueryAnswer answer;
    StreamFault fault;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        answer = m_queryAnswers[static_cast<int>(request->data_type())];
        fault = m_streamFault;
    }
    std::vector<int> sizes;
    for (const v1::QueryChunk& chunk : chunks(answer, fault)) {
        sizes.push_back(chunk.records_size());
        if (!writer->Write(chunk))
            return grpc::Status(grpc::StatusCode::CANCELLED, "client gone");
    }
    std::lock_guard<std::mutex> lock(m_mutex);
    m_lastChunkSizes = sizes;
    return grpc::Status::OK;
}

// At most kMaxChunkRecords a chunk; the last one (also when there are no records) carries the
// error and the total.
std::vector<v1::QueryChunk> FakeQuotesServer::chunks(const QueryAnswer& answer,
                                                     StreamFault fault) const {
    std::vector<v1::QueryChunk> chunks;
    const int total = answer.records.size();
    int sent = 0;
    do {
        chunks.emplace_back();
        const int count = std::min(CRecordCodec::kMaxChunkRecords, total - sent);
        for (int i = 0; i < count; ++i)
            *chunks.back().add_records() = answer.records.Get(sent + i);
        sent += count;
    } while (sent < total);
    v1::QueryChunk& last = chunks.back();
    if (fault != StreamFault::NoLastChunk) {
        last.set_last(true);
        fill(last.mutable_error(), answer.error);
        last.set_total_count(total + answer.countOffset);
    }
    if (fault == StreamFault::ChunkAfterLast)
        chunks.push_back(chunks.front());
    return chunks;
}

grpc::Status FakeQuotesServer::Operate(grpc::ServerContext* context,
                                       const v1::OperateRequest* request, v1::OperateReply* reply) {
    const grpc::Status entered = enter(context, "Operate");
    if (!entered.ok())
        return entered;
    std::lock_guard<std::mutex> lock(m_mutex);
    m_lastOperate = *request;
    fill(reply->mutable_error(), m_operateError);
    for (int id : m_operateIds)
        reply->mutable_result()->add_ids(id);
    if (!m_operateIds.empty())
        reply->mutable_result()->set_count(static_cast<int>(m_operateIds.size()));
    return grpc::Status::OK;
}

grpc::Status FakeQuotesServer::ModifySource(grpc::ServerContext* context,
                                            const v1::ModifySourceRequest* request,
                                            v1::AdminReply* reply) {
    const grpc::Status entered = enter(context, "ModifySource");
    if (!entered.ok())
        return entered;
    std::lock_guard<std::mutex> lock(m_mutex);
    m_lastModify = *request;
    fill(reply->mutable_error(), m_operateError);
    return grpc::Status::OK;
}

grpc::Status FakeQuotesServer::Subsystems(grpc::ServerContext* context,
                                          const v1::SubsystemsRequest*,
                                          v1::SubsystemsReply* reply) {
    const grpc::Status entered = enter(context, "Subsystems");
    if (!entered.ok())
        return entered;
    std::lock_guard<std::mutex> lock(m_mutex);
    CRecordCodec::encodeSubsystems(m_subsystems, reply->mutable_subsystems());
    return grpc::Status::OK;
}

grpc::Status FakeQuotesServer::LoginTypeAuth(grpc::ServerContext* context,
                                             const v1::LoginTypeAuthRequest*,
                                             v1::LoginTypeAuthReply* reply) {
    const grpc::Status entered = enter(context, "LoginTypeAuth");
    if (!entered.ok())
        return entered;
    std::lock_guard<std::mutex> lock(m_mutex);
    CRecordCodec::encodeLoginTypeAuth(m_loginTypeAuth, reply->mutable_login_type_auth());
    return grpc::Status::OK;
}

grpc::Status FakeQuotesServer::ExportDocument(grpc::ServerContext* context,
                                              const v1::ExportRequest*, v1::ExportReply* reply) {
    const grpc::Status entered = enter(context, "ExportDocument");
    if (!entered.ok())
        return entered;
    std::lock_guard<std::mutex> lock(m_mutex);
    fill(reply->mutable_error(), utils::RKError::ok());
    reply->set_document(m_exportDocument);
    return grpc::Status::OK;
}

grpc::Status FakeQuotesServer::ImportDocument(grpc::ServerContext* context,
                                              const v1::ImportRequest* request,
                                              v1::ImportReply* reply) {
    const grpc::Status entered = enter(context, "ImportDocument");
    if (!entered.ok())
        return entered;
    std::lock_guard<std::mutex> lock(m_mutex);
    m_lastImport = request->document();
    fill(reply->mutable_error(), utils::RKError::ok());
    return grpc::Status::OK;
}

grpc::Status FakeQuotesServer::ListAccounts(grpc::ServerContext* context,
                                            const v1::ListAccountsRequest*,
                                            v1::ListAccountsReply* reply) {
    const grpc::Status entered = enter(context, "ListAccounts");
    if (!entered.ok())
        return entered;
    std::lock_guard<std::mutex> lock(m_mutex);
    fill(reply->mutable_error(), utils::RKError::ok());
    for (const auto& entry : m_accounts) {
        v1::Account* account = reply->add_accounts();
        *account->mutable_user() = entry.second.user;
        account->set_enabled(entry.second.enabled);
    }
    return grpc::Status::OK;
}

grpc::Status FakeQuotesServer::SetPassword(grpc::ServerContext* context,
                                           const v1::SetPasswordRequest* request,
                                           v1::AdminReply* reply) {
    const grpc::Status entered = enter(context, "SetPassword");
    if (!entered.ok())
        return entered;
    const std::string password = request->password();
    return setAccount(
        request->name(), [&](AccountEntry* entry) { entry->password = password; }, reply);
}

grpc::Status FakeQuotesServer::SetAccountEnabled(grpc::ServerContext* context,
                                                 const v1::SetAccountEnabledRequest* request,
                                                 v1::AdminReply* reply) {
    const grpc::Status entered = enter(context, "SetAccountEnabled");
    if (!entered.ok())
        return entered;
    const bool enabled = request->enabled();
    return setAccount(
        request->name(), [&](AccountEntry* entry) { entry->enabled = enabled; }, reply);
}

grpc::Status FakeQuotesServer::SetRights(grpc::ServerContext* context,
                                         const v1::SetRightsRequest* request,
                                         v1::AdminReply* reply) {
    const grpc::Status entered = enter(context, "SetRights");
    if (!entered.ok())
        return entered;
    return setAccount(
        request->name(),
        [&](AccountEntry* entry) {
            *entry->user.mutable_rights() = request->rights();
            entry->user.set_system_id(request->system_id());
        },
        reply);
}
