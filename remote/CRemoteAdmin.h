#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "CConnectionLog.h"
#include "Hlx/IQuotesAdmin.h"
#include "rkservice/CUserInfo.h"

// The administration of quotesd over gRPC with TLS, for the console and quotesctl.
//
// Several servers may share one database: login and reads move on to the next server when one
// cannot be reached; a change goes to the current server once and is never resent, because a
// change whose answer was lost may have been applied. Every call has a deadline and answers
// exactly once, on the calling thread. The session (token, account, sub-systems, login types)
// is cached at login, so subsystems() and hasClientLoginTypeAuth() never touch the network.
// Thread-safe: the client centre's workers call it concurrently. gRPC stays in the private
// implementation, so its headers reach only this class's source.
class CRemoteAdmin : public Hlx::IQuotesAdmin {
public:
    // The beginnings of the texts the operator sees (details follow), for callers that react
    // to a kind of failure.
    static const char* const kUnreachable;     // 无法连接服务器
    static const char* const kOutcomeUnknown;  // 无法确认操作结果，请刷新后检查
    static const char* const kLoginExpired;    // 登录已过期，请重新登录
    static const char* const kUnsupported;     // 服务器不支持此操作
    static const char* const kNotLoggedIn;     // 尚未登录服务器
    static const char* const kClosed;          // 客户端已关闭

    using Account = Hlx::CAdminAccount;

    // servers: "host:port", tried in this order. caPem: the certificate (or CA) to trust; empty
    // trusts the system's roots. deadline: of each attempt on one server.
    CRemoteAdmin(std::vector<std::string> servers, std::string caPem,
                 std::chrono::milliseconds deadline = std::chrono::seconds(10));
    ~CRemoteAdmin() override;
    CRemoteAdmin(const CRemoteAdmin&) = delete;
    CRemoteAdmin& operator=(const CRemoteAdmin&) = delete;

    // Session. The password is used for the call only.
    utils::RKError login(const std::string& name, const std::string& password);
    utils::RKError logout();
    bool isLoggedIn() const;
    rkservice::CUserInfoPtr account() const;
    // The server answering now ("host:port").
    std::string currentServer() const;
    // Called once when the server ends the session (expired or logged out elsewhere), on the
    // thread of the call that found out; the next successful login arms it again.
    void setLoginExpiredHandler(std::function<void()> handler);
    // Where the client tells its connection events (logins, a server lost and reached again,
    // logins ended) and the calls the server refused: the console's log file.
    void setConnectionLog(CConnectionLog::Sink sink);
    // Reads the sub-systems and login types again into the cache.
    utils::RKError refreshSession();
    // Reads the logged-in account again (its rights change while the login lasts) into the
    // cache that account() answers from.
    utils::RKError refreshAccount();
    // Cancels every call in flight (each answers at once) and refuses new ones. For quitting.
    void shutdown();
    int callsInFlight() const;

    // Quote data and settings.
    utils::RKError query(const Hlx::CRequestTarget& target,
                         const rkservice::COrinQueryDataReq& request,
                         std::vector<rkservice::IDataPtr>* datas) override;
    utils::RKError operate(const Hlx::CRequestTarget& target,
                           const rkservice::COperateDataReq& request,
                           bson::BSONObj* result) override;
    // Sent once as a patch that the server applies in one transaction.
    utils::RKError modifySource(int id, const Hlx::CSourcePatch& patch) override;
    utils::RKError probeSources(const std::vector<int>& ids, bool all,
                                std::vector<Hlx::CProbeResult>* results) override;
    utils::RKError probeStatus(const std::string& subsystem,
                               std::vector<Hlx::CProbeResult>* results) override;
    utils::RKError probeHistory(const std::string& address, int port, long long sinceMs,
                                std::vector<Hlx::CProbeSample>* samples) override;
    utils::RKError sourceHistory(int id, Hlx::CSourceHistory* history) override;
    utils::RKError restoreSource(int id, long long entryId, long long revision,
                                 long long* written) override;
    std::vector<Hlx::SubsystemInfo> subsystems() const override;
    bool hasClientLoginTypeAuth(int loginType) const override;
    utils::RKError setSubsystems(const std::vector<Hlx::SubsystemInfo>& subsystems) override;
    utils::RKError setLoginTypeAuth(int loginType, bool granted) override;
    utils::RKError reloadSettings() override { return refreshSession(); }

    // Accounts.
    utils::RKError users(std::vector<rkservice::CUserInfoPtr>* users) override;
    utils::RKError accounts(std::vector<Account>* accounts) override;
    utils::RKError setPassword(const std::string& name, const std::string& password) override;
    utils::RKError setAccountEnabled(const std::string& name, bool enabled) override;
    utils::RKError setRights(const std::string& name, const std::set<int>& rights) override;
    utils::RKError setRights(const std::string& name, const std::set<int>& rights, int systemId);
    utils::RKError unlockLogins(const std::string& name, const std::string& address) override;

    // Audit and transfer.
    utils::RKError exportDocument(
        QJsonObject* document, const Hlx::CExportOptions& options = Hlx::CExportOptions()) override;
    utils::RKError importDocument(const QJsonObject& document) override;
    // A dry run, or a real import whose backup the server writes and names; a backup file of
    // the client's choosing is refused.
    utils::RKError importDocument(const QJsonObject& document, const Hlx::CImportOptions& options,
                                  Hlx::CImportReport* report) override;
    utils::RKError checkIntegrity(std::vector<std::string>* keptValues) override;
    utils::RKError backupDatabase(const Hlx::CBackupOptions& options,
                                  std::string* written) override;
    utils::RKError status(Hlx::CServiceStatus* status) override;
    utils::RKError auditEntries(const Hlx::CAuditFilter& filter,
                                std::vector<Hlx::CAuditEntry>* entries) override;
    utils::RKError auditPage(const Hlx::CAuditFilter& filter, Hlx::CAuditPage* page) override;
    utils::RKError pruneAudit(long long beforeMs, int* removed) override;

    // Through an Events call kept open to the current server (reopened on the next one after a
    // failure), with the token of the login at each opening.
    std::shared_ptr<void> watchChanges(const ChangeHandler& handler) override;

private:
    class Impl;
    std::unique_ptr<Impl> d;
};
