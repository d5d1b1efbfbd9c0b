#pragma once

#include <QElapsedTimer>
#include <atomic>
#include <boost/shared_ptr.hpp>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>

#include "CCallCodec.h"
#include "CCaller.h"
#include "CLoginManager.h"
#include "CQuotesService.h"
#include "CServiceCall.h"
#include "CStreamSlots.h"
#include "IAdminObserver.h"
#include "quotes.grpc.pb.h"

// quotesd's side of the protocol: a thin transport over the data service. Every call but Login
// and Ping takes one path (serve): counted for a stop's drain, authenticated by its token, then
// decoded by the codec into the service method's parameters, run by the service for the token's
// account (which checks the rights on the stored data), and encoded into the reply. Nothing here
// decides what an account may do.
class CAdminServer final : public quotes::v1::QuotesAdmin::Service {
public:
    // Event streams open at once: each holds one of the server's threads.
    struct StreamLimits {
        int total = 32;
        int perLogin = 4;
    };

    CAdminServer(boost::shared_ptr<CQuotesService> service, CLoginManager& logins);
    CAdminServer(boost::shared_ptr<CQuotesService> service, CLoginManager& logins,
                 const StreamLimits& streams);

    // Who is told of logins and streams; set before serving. Null: nobody.
    void setObserver(IAdminObserver* observer) { m_observer = observer; }
    // When the served certificate ends (ms since the epoch), for Ping's answer; set before
    // the server starts. A certificate is public, so Ping says it without a login too.
    void setCertificateExpiry(std::function<qint64()> expiresMs) {
        m_certificateExpiry = std::move(expiresMs);
    }

    // From now on every new call is refused; waits until the calls already running have
    // finished, or the timeout has passed. True when none is left.
    bool drain(std::chrono::milliseconds timeout);

    // Without a token.
    grpc::Status Login(grpc::ServerContext* context, const quotes::v1::LoginRequest* request,
                       quotes::v1::LoginReply* reply) override;
    grpc::Status Ping(grpc::ServerContext* context, const quotes::v1::PingRequest* request,
                      quotes::v1::PingReply* reply) override;

    // Streamed.
    grpc::Status Query(grpc::ServerContext* context, const quotes::v1::QueryRequest* request,
                       grpc::ServerWriter<quotes::v1::QueryChunk>* writer) override;
    // The changes committed from now on, until the client goes, its login ends or the server
    // stops.
    grpc::Status Events(grpc::ServerContext* context, const quotes::v1::EventsRequest* request,
                        grpc::ServerWriter<quotes::v1::Event>* writer) override;
    grpc::Status Logout(grpc::ServerContext* context, const quotes::v1::LogoutRequest* request,
                        quotes::v1::LogoutReply* reply) override;

    // One service method each.
    grpc::Status Operate(grpc::ServerContext* context, const quotes::v1::OperateRequest* request,
                         quotes::v1::OperateReply* reply) override {
        return serve(context, request, reply, &CQuotesService::operateSync);
    }
    grpc::Status ModifySource(grpc::ServerContext* context,
                              const quotes::v1::ModifySourceRequest* request,
                              quotes::v1::AdminReply* reply) override {
        return serve(context, request, reply, &CQuotesService::modifySource);
    }
    grpc::Status ProbeSources(grpc::ServerContext* context,
                              const quotes::v1::ProbeSourcesRequest* request,
                              quotes::v1::ProbeReply* reply) override {
        return serve(context, request, reply, &CQuotesService::probeSources);
    }
    grpc::Status ProbeStatus(grpc::ServerContext* context,
                             const quotes::v1::ProbeStatusRequest* request,
                             quotes::v1::ProbeReply* reply) override {
        return serve(context, request, reply, &CQuotesService::probeStatus);
    }
    grpc::Status ProbeHistory(grpc::ServerContext* context,
                              const quotes::v1::ProbeHistoryRequest* request,
                              quotes::v1::ProbeHistoryReply* reply) override {
        return serve(context, request, reply, &CQuotesService::probeHistory);
    }
    grpc::Status SourceHistory(grpc::ServerContext* context,
                               const quotes::v1::SourceHistoryRequest* request,
                               quotes::v1::SourceHistoryReply* reply) override {
        return serve(context, request, reply, &CQuotesService::sourceHistory);
    }
    grpc::Status RestoreSource(grpc::ServerContext* context,
                               const quotes::v1::RestoreSourceRequest* request,
                               quotes::v1::RestoreSourceReply* reply) override {
        return serve(context, request, reply, &CQuotesService::restoreSource);
    }
    grpc::Status Subsystems(grpc::ServerContext* context,
                            const quotes::v1::SubsystemsRequest* request,
                            quotes::v1::SubsystemsReply* reply) override {
        return serve(context, request, reply, &CQuotesService::currentSubsystems);
    }
    grpc::Status LoginTypeAuth(grpc::ServerContext* context,
                               const quotes::v1::LoginTypeAuthRequest* request,
                               quotes::v1::LoginTypeAuthReply* reply) override {
        return serve(context, request, reply, &CQuotesService::currentLoginTypeAuth);
    }
    grpc::Status ExportDocument(grpc::ServerContext* context,
                                const quotes::v1::ExportRequest* request,
                                quotes::v1::ExportReply* reply) override {
        return serve(context, request, reply, &CQuotesService::exportDocument);
    }
    grpc::Status ImportDocument(grpc::ServerContext* context,
                                const quotes::v1::ImportRequest* request,
                                quotes::v1::ImportReply* reply) override {
        return serve(context, request, reply, &CQuotesService::importDocument);
    }
    grpc::Status SetSubsystems(grpc::ServerContext* context,
                               const quotes::v1::SetSubsystemsRequest* request,
                               quotes::v1::AdminReply* reply) override {
        return serve(context, request, reply, &CQuotesService::setSubsystems);
    }
    grpc::Status SetLoginTypeAuth(grpc::ServerContext* context,
                                  const quotes::v1::SetLoginTypeAuthRequest* request,
                                  quotes::v1::AdminReply* reply) override {
        return serve(context, request, reply, &CQuotesService::setLoginTypeAuth);
    }
    grpc::Status CheckIntegrity(grpc::ServerContext* context,
                                const quotes::v1::CheckIntegrityRequest* request,
                                quotes::v1::CheckIntegrityReply* reply) override {
        return serve(context, request, reply, &CQuotesService::checkIntegrity);
    }
    grpc::Status BackupDatabase(grpc::ServerContext* context,
                                const quotes::v1::BackupDatabaseRequest* request,
                                quotes::v1::BackupDatabaseReply* reply) override {
        return serve(context, request, reply, &CQuotesService::backupDatabase);
    }
    grpc::Status ListAccounts(grpc::ServerContext* context,
                              const quotes::v1::ListAccountsRequest* request,
                              quotes::v1::ListAccountsReply* reply) override {
        return serve(context, request, reply, &CQuotesService::accounts);
    }
    grpc::Status SetPassword(grpc::ServerContext* context,
                             const quotes::v1::SetPasswordRequest* request,
                             quotes::v1::AdminReply* reply) override {
        return serve(context, request, reply, &CQuotesService::setPassword);
    }
    grpc::Status SetAccountEnabled(grpc::ServerContext* context,
                                   const quotes::v1::SetAccountEnabledRequest* request,
                                   quotes::v1::AdminReply* reply) override {
        return serve(context, request, reply, &CQuotesService::setAccountEnabled);
    }
    grpc::Status SetRights(grpc::ServerContext* context,
                           const quotes::v1::SetRightsRequest* request,
                           quotes::v1::AdminReply* reply) override {
        return serve(context, request, reply, &CQuotesService::setRights);
    }
    grpc::Status UnlockLogins(grpc::ServerContext* context,
                              const quotes::v1::UnlockLoginsRequest* request,
                              quotes::v1::AdminReply* reply) override {
        return serve(context, request, reply, &CQuotesService::unlockLogins);
    }
    grpc::Status Audit(grpc::ServerContext* context, const quotes::v1::AuditRequest* request,
                       quotes::v1::AuditReply* reply) override {
        return serve(context, request, reply, &CQuotesService::auditPage);
    }
    grpc::Status PruneAudit(grpc::ServerContext* context,
                            const quotes::v1::PruneAuditRequest* request,
                            quotes::v1::PruneAuditReply* reply) override {
        return serve(context, request, reply, &CQuotesService::pruneAudit);
    }

    // How often a stream checks that its login still lives, and waits for changes at most.
    static constexpr int kStreamLoginCheckMs = 5000;
    static constexpr int kStreamWaitMs = 200;

    // The peer's address without its port ("ipv4:127.0.0.1:5000" -> "127.0.0.1").
    static std::string peerAddress(const std::string& peer);
    // The refusal of a call beyond a cap; clients read its text as the server being busy.
    static grpc::Status busy(const std::string& what);

private:
    // Counts a call from its start to its end, so that a stop can wait for the calls in flight.
    class CallScope {
    public:
        explicit CallScope(CAdminServer* server);
        ~CallScope();

    private:
        CAdminServer* m_server;
    };

    // The one path of a call: authenticate, decode, call the service, encode.
    template <class Request, class Reply, class... Args>
    grpc::Status serve(grpc::ServerContext* context, const Request* request, Reply* reply,
                       utils::RKError (CQuotesService::*method)(const CCaller&, Args...)) {
        using Call = CServiceCall<Args...>;
        const CallScope scope(this);
        CCaller caller = CCaller::owner();
        typename Call::Params params;
        utils::RKError unavailable;
        const grpc::Status admitted = admit(context, *request, &caller, &params, &unavailable);
        if (!admitted.ok())
            return admitted;
        const utils::RKError error = unavailable.isSuccess()
                                         ? Call::invoke(*m_service, method, caller, params)
                                         : unavailable;
        CCallCodec::encode(error, params, reply);
        return grpc::Status::OK;
    }

    // The first steps of every call with a token, streams included: the account behind the
    // token, then the request decoded into the parameters. A malformed request is refused as
    // INVALID_ARGUMENT before the service sees it. When the database could not check the
    // token, the status is OK and *unavailable says why: the call answers that in its reply
    // (the kind "unavailable"), so that the client keeps its login and its connection.
    template <class Request, class Params>
    grpc::Status admit(grpc::ServerContext* context, const Request& request, CCaller* caller,
                       Params* params, utils::RKError* unavailable) {
        const grpc::Status authenticated = authenticate(context, caller, unavailable);
        if (!authenticated.ok() || !unavailable->isSuccess())
            return authenticated;
        const utils::RKError decoded = CCallCodec::decode(request, params);
        return decoded.isSuccess() ? grpc::Status::OK : invalid(decoded);
    }

    // The same for a request without fields.
    template <class Request>
    grpc::Status admit(grpc::ServerContext* context, const Request& request, CCaller* caller,
                       utils::RKError* unavailable) {
        std::tuple<> none;
        return admit(context, request, caller, &none, unavailable);
    }

    // The account behind the call's token; a non-OK status when there is none (or the server
    // is stopping); OK with *unavailable set when the database could not tell.
    grpc::Status authenticate(grpc::ServerContext* context, CCaller* caller,
                              utils::RKError* unavailable);
    // UNAUTHENTICATED with the message, the refusal recorded.
    grpc::Status unauthenticated(grpc::ServerContext* context, const std::string& message);
    grpc::Status refusing() const;
    // The loop of an Events call once it holds its slot.
    grpc::Status streamEvents(grpc::ServerContext* context, const CCaller& caller,
                              grpc::ServerWriter<quotes::v1::Event>* writer);
    // A refused login: recorded per address, reported when the account fails from many.
    grpc::Status refuseLogin(const std::string& name, const std::string& address,
                             const CLoginManager::LoginResult& result,
                             quotes::v1::LoginReply* reply);
    void reportSpread(const std::string& name, int addresses);
    void tellLogin(const std::string& name, const std::string& address,
                   IAdminObserver::LoginOutcome outcome, const std::string& refusal) const;
    static grpc::Status invalid(const utils::RKError& error);
    // Writes the answer of a query in chunks of a bounded size.
    grpc::Status streamAnswer(utils::RKError error, const rkservice::IDataList& datas,
                              grpc::ServerWriter<quotes::v1::QueryChunk>* writer) const;

    boost::shared_ptr<CQuotesService> m_service;
    CLoginManager& m_logins;
    CStreamSlots m_streamSlots;
    std::atomic<bool> m_refusing{false};
    std::atomic<IAdminObserver*> m_observer{nullptr};
    std::function<qint64()> m_certificateExpiry;
    std::mutex m_callMutex;
    std::condition_variable m_callsDone;
    int m_inFlight = 0;
};
