#pragma once

#include <QElapsedTimer>
#include <atomic>
#include <boost/shared_ptr.hpp>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>

#include "CAccount.h"
#include "CCaller.h"
#include "quotes.grpc.pb.h"

class CLoginManager;
class CQuotesService;

// quotesd's side of the protocol: a thin transport over the data service. Every call but Login
// and Ping authenticates its token first; the service then checks the account's rights on the
// stored data (CAccessPolicy), so nothing here decides what an account may do.
class CAdminServer final : public quotes::v1::QuotesAdmin::Service {
public:
    CAdminServer(boost::shared_ptr<CQuotesService> service, CLoginManager& logins);

    // From now on every new call is refused; waits until the calls already running have
    // finished, or the timeout has passed. True when none is left.
    bool drain(std::chrono::milliseconds timeout);

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
    grpc::Status SetSubsystems(grpc::ServerContext* context,
                               const quotes::v1::SetSubsystemsRequest* request,
                               quotes::v1::AdminReply* reply) override;
    grpc::Status SetLoginTypeAuth(grpc::ServerContext* context,
                                  const quotes::v1::SetLoginTypeAuthRequest* request,
                                  quotes::v1::AdminReply* reply) override;
    grpc::Status CheckIntegrity(grpc::ServerContext* context,
                                const quotes::v1::CheckIntegrityRequest* request,
                                quotes::v1::AdminReply* reply) override;
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

    grpc::Status Audit(grpc::ServerContext* context, const quotes::v1::AuditRequest* request,
                       quotes::v1::AuditReply* reply) override;
    grpc::Status PruneAudit(grpc::ServerContext* context,
                            const quotes::v1::PruneAuditRequest* request,
                            quotes::v1::PruneAuditReply* reply) override;

    // Streams the changes committed from now on to a logged-in client, until the client goes,
    // its login ends or the server stops.
    grpc::Status Events(grpc::ServerContext* context, const quotes::v1::EventsRequest* request,
                        grpc::ServerWriter<quotes::v1::Event>* writer) override;
    // How often a stream checks that its login still lives, and waits for changes at most.
    static constexpr int kStreamLoginCheckMs = 5000;
    static constexpr int kStreamWaitMs = 200;

    // The peer's address without its port ("ipv4:127.0.0.1:5000" -> "127.0.0.1").
    static std::string peerAddress(const std::string& peer);

private:
    // The account behind the call's token; a non-OK status when there is none (or the server
    // is stopping).
    grpc::Status authenticate(grpc::ServerContext* context, CCaller* caller, CAccount* account);
    grpc::Status refusing() const;
    // Runs a call of a logged-in account: counted for a stop's drain, refused without a valid
    // token before the work sees it.
    template <class Work>
    grpc::Status asAccount(grpc::ServerContext* context, Work work) {
        const CallScope scope(this);
        CCaller caller = CCaller::user(std::string(), {});
        const grpc::Status status = authenticate(context, &caller, nullptr);
        return status.ok() ? work(caller) : status;
    }
    // Runs an administrative call of the service for the call's account; its outcome in reply.
    grpc::Status administer(grpc::ServerContext* context, quotes::v1::AdminReply* reply,
                            const std::function<bool(const CCaller&, QString*)>& change);

    // Counts a call from its start to its end, so that a stop can wait for the calls in flight.
    class CallScope {
    public:
        explicit CallScope(CAdminServer* server);
        ~CallScope();

    private:
        CAdminServer* m_server;
    };

    boost::shared_ptr<CQuotesService> m_service;
    CLoginManager& m_logins;
    QElapsedTimer m_started;
    std::atomic<bool> m_refusing{false};
    std::mutex m_callMutex;
    std::condition_variable m_callsDone;
    int m_inFlight = 0;
};
