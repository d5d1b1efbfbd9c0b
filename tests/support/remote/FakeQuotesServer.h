#pragma once

#include <grpcpp/grpcpp.h>

#include <condition_variable>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "CRecordCodec.h"
#include "CTlsIdentity.h"
#include "Hlx/IDataServiceBackend.h"
#include "quotes.grpc.pb.h"
#include "rkservice/IData.h"
#include "utils/RKError.h"

// A quotesd stand-in for client tests: an in-process gRPC server over TLS on 127.0.0.1 with
// scripted answers. It counts every call it receives, can hold calls ("stall", as a server that
// stopped answering) until the test releases them, and can be stopped and started again on the
// same port. Several instances given the same token behave like servers sharing one database.
class FakeQuotesServer : public quotes::v1::QuotesAdmin::Service {
public:
    explicit FakeQuotesServer(const CTlsIdentity& identity);
    ~FakeQuotesServer() override;
    FakeQuotesServer(const FakeQuotesServer&) = delete;
    FakeQuotesServer& operator=(const FakeQuotesServer&) = delete;

    // Listens on a free port the first time, on the same port afterwards.
    bool start();
    // Releases held calls, ends the calls in flight and closes the port.
    void stop();
    bool isRunning() const;
    int port() const { return m_port; }
    std::string address() const { return "127.0.0.1:" + std::to_string(m_port); }

    // Sessions: the token Login hands out and the only one accepted afterwards.
    void addAccount(const std::string& name, const std::string& password,
                    const std::set<int>& rights, int systemId, bool enabled = true);
    void setToken(const std::string& token);
    // Every later call with the token is refused as unauthenticated.
    void expireToken();
    void setSubsystems(const std::vector<Hlx::SubsystemInfo>& subsystems);
    void setLoginTypeAuth(const std::map<int, bool>& auth);

    // How a broken server may end a query's stream.
    enum class StreamFault { None, NoLastChunk, ChunkAfterLast };

    // Data. countOffset is added to the total the last chunk announces.
    void setQueryAnswer(int dataType, const rkservice::IDataList& records,
                        const utils::RKError& error = utils::RKError(), int countOffset = 0);
    void setStreamFault(StreamFault fault);
    void setOperateAnswer(const utils::RKError& error, const std::vector<int>& ids = {});
    void setExportDocument(const std::string& json);
    quotes::v1::OperateRequest lastOperate() const;
    // ModifySource answers as Operate does.
    quotes::v1::ModifySourceRequest lastModify() const;
    std::string lastImport() const;
    // The chunk sizes of the last query answered.
    std::vector<int> lastChunkSizes() const;

    // While stalling, every call waits (after being counted) until released, stopped or
    // cancelled by its client.
    void setStalling(bool stalling);
    int stalledCount() const;

    // Calls received, by method name ("Login", "Query", "Operate", ...).
    int calls(const std::string& method) const;
    int totalCalls() const;

    // quotes::v1::QuotesAdmin::Service
    grpc::Status Login(grpc::ServerContext* context, const quotes::v1::LoginRequest* request,
                       quotes::v1::LoginReply* reply) override;
    grpc::Status Logout(grpc::ServerContext* context, const quotes::v1::LogoutRequest* request,
                        quotes::v1::LogoutReply* reply) override;
    grpc::Status Ping(grpc::ServerContext* context, const quotes::v1::PingRequest* request,
                      quotes::v1::PingReply* reply) override;
    grpc::Status Query(grpc::ServerContext* context, const quotes::v1::QueryRequest* request,
                       grpc::ServerWriter<quotes::v1::QueryChunk>* writer) override;
    grpc::Status Operate(grpc::ServerContext* context, const quotes::v1::OperateRequest* request,
                         quotes::v1::OperateReply* reply) override;
    grpc::Status ModifySource(grpc::ServerContext* context,
                              const quotes::v1::ModifySourceRequest* request,
                              quotes::v1::AdminReply* reply) override;
    grpc::Status Subsystems(grpc::ServerContext* context,
                            const quotes::v1::SubsystemsRequest* request,
                            quotes::v1::SubsystemsReply* reply) override;
    grpc::Status LoginTypeAuth(grpc::ServerContext* context,
                               const quotes::v1::LoginTypeAuthRequest* request,
                               quotes::v1::LoginTypeAuthReply* reply) override;
    grpc::Status ExportDocument(grpc::ServerContext* context,
                                const quotes::v1::ExportRequest* request,
                                quotes::v1::ExportReply* reply) override;
    grpc::Status ImportDocument(grpc::ServerContext* context,
                                const quotes::v1::ImportRequest* request,
                                quotes::v1::ImportReply* reply) override;
    grpc::Status ListAccounts(grpc::ServerContext* context,
                              const quotes::v1::ListAccountsRequest* request,
                              quotes::v1::ListAccountsReply* reply) override;
    grpc::Status SetPassword(grpc::ServerContext* context,
                             const quotes::v1::SetPasswordRequest* request,
                             quotes::v1::AdminReply* reply) override;
    grpc::Status SetAccountEnabled(grpc::ServerContext* context,
                                   const quotes::v1::SetAccountEnabledRequest* request,
                                   quotes::v1::AdminReply* reply) override;
    grpc::Status SetRights(grpc::ServerContext* context,
                           const quotes::v1::SetRightsRequest* request,
                           quotes::v1::AdminReply* reply) override;

private:
    struct AccountEntry {
        std::string password;
        quotes::v1::User user;
        bool enabled = true;
    };
    struct QueryAnswer {
        CRecordCodec::Records records;
        utils::RKError error;
        int countOffset = 0;
    };

    // Counts the call and holds it while stalling; a status other than OK ends the call.
    grpc::Status enter(grpc::ServerContext* context, const std::string& method,
                       bool needsToken = true);
    grpc::Status authorize(const grpc::ServerContext* context) const;
    std::vector<quotes::v1::QueryChunk> chunks(const QueryAnswer& answer, StreamFault fault) const;
    grpc::Status setAccount(const std::string& name, const std::function<void(AccountEntry*)>& edit,
                            quotes::v1::AdminReply* reply);

    const CTlsIdentity m_identity;
    std::unique_ptr<grpc::Server> m_server;
    int m_port = 0;

    mutable std::mutex m_mutex;
    std::condition_variable m_released;
    bool m_stalling = false;
    bool m_stopping = false;
    int m_stalled = 0;
    std::map<std::string, int> m_calls;

    std::string m_token = "token-1";
    bool m_tokenExpired = false;
    std::map<std::string, AccountEntry> m_accounts;
    std::vector<Hlx::SubsystemInfo> m_subsystems;
    std::map<int, bool> m_loginTypeAuth;
    std::map<int, QueryAnswer> m_queryAnswers;
    StreamFault m_streamFault = StreamFault::None;
    utils::RKError m_operateError;
    std::vector<int> m_operateIds;
    std::string m_exportDocument = "{}";
    quotes::v1::OperateRequest m_lastOperate;
    quotes::v1::ModifySourceRequest m_lastModify;
    std::string m_lastImport;
    std::vector<int> m_lastChunkSizes;
};
