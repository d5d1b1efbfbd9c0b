#pragma once

#include <QElapsedTimer>
#include <QJsonObject>
#include <QSqlDatabase>
#include <QString>
#include <boost/shared_ptr.hpp>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <vector>

#include "CAuditTrail.h"
#include "CCaller.h"
#include "CProbeTargets.h"
#include "CServiceOptions.h"
#include "CSettingsCache.h"
#include "Hlx/CAuditEntry.h"
#include "Hlx/CAuditFilter.h"
#include "Hlx/CProbeResult.h"
#include "Hlx/IDataServiceBackend.h"
#include "Hlx/IQuotesAdmin.h"
#include "rkservice/COrinQuoterSourceInfo.h"
#include "rkservice/CUserInfo.h"

class CAccountStore;
class CChangeFeed;
class CDatabase;
class CImportBackups;
class CImportGeneration;
class CSecretKeys;
class CProbeThrottle;
class CSourceProber;

// The platform's data service over a SQLite file or a PostgreSQL database, and the one facade
// of every call: it checks the caller's rights (CAccessPolicy, on the stored rows), runs the
// change in one transaction of the stores and writes its audit entry in the same transaction. A
// refused change is recorded in a transaction of its own. Every call answers with its outcome,
// a failure's kind saying why. Thread-safe; each worker thread uses its own connection.
class CQuotesService {
public:
    // Opens (creating, migrating and seeding as needed) the database the options name. Null with
    // *error set when it cannot be used.
    static boost::shared_ptr<CQuotesService> open(const CServiceOptions& options, QString* error);
    // Where the console and quotesctl keep the database by default.
    static QString defaultDataDir();

    ~CQuotesService();

    // From the cache: the sub-systems (first = default) and the login-type settings.
    std::vector<Hlx::SubsystemInfo> subsystems() const;
    bool hasClientLoginTypeAuth(int loginType) const;
    std::map<int, bool> loginTypeAuth() const;

    // A request of the client centre, answered on the calling thread. A source's password is
    // read only for a caller who may modify the source; others receive it empty.
    utils::RKError querySync(const CCaller& caller, const Hlx::CRequestTarget& target,
                             const rkservice::COrinQueryDataReq& request,
                             std::vector<rkservice::IDataPtr>* datas);
    utils::RKError operateSync(const CCaller& caller, const Hlx::CRequestTarget& target,
                               const rkservice::COperateDataReq& request,
                               bson::BSONObj* result = nullptr);
    // Changes the fields the patch names of one source: reads it, applies the patch and writes
    // it back in one transaction, with the rights and checks of a modify. A patch that names no
    // field is refused.
    utils::RKError modifySource(const CCaller& caller, int id, const Hlx::CSourcePatch& patch);
    // A source's history from the audit trail (also of a deleted source), and its restore to
    // the fields an entry of it left: a modify with its rights (an add for a deleted source, with
    // its former id) checked against the stored revision unless revision is 0, recorded as
    // "restore" with the entry. The trail keeps no password: the stored one stays, a source
    // added again has none.
    utils::RKError sourceHistory(const CCaller& caller, int id, Hlx::CSourceHistory* history);
    utils::RKError restoreSource(const CCaller& caller, int id, long long entryId,
                                 long long revision, long long* written);

    // The platform's users, by name.
    utils::RKError users(const CCaller& caller, std::vector<rkservice::CUserInfoPtr>* users);
    // Replaces the sub-systems (first = default). Refused when a removed one still holds sources.
    utils::RKError setSubsystems(const CCaller& caller,
                                 const std::vector<Hlx::SubsystemInfo>& subsystems);
    // Whether clients count as logged in with the login type (0: plain product names).
    utils::RKError setLoginTypeAuth(const CCaller& caller, int loginType, bool granted);

    // The whole content as one JSON document, and its replacement by one (checked first, applied
    // all or nothing), with a dry run or a backup file of the caller's choosing; the report
    // (may be null) counts the changes per section and names the backup.
    // An export is recorded, with whether it carries secrets; the Level-2 token in it is masked
    // for a caller who may not read it.
    utils::RKError exportDocument(const CCaller& caller, QJsonObject* document,
                                  const Hlx::CExportOptions& options = Hlx::CExportOptions());
    utils::RKError importDocument(const CCaller& caller, const QJsonObject& document,
                                  const Hlx::CImportOptions& options, Hlx::CImportReport* report);

    // Accounts, with the administrator right; never a password or hash in what they return.
    utils::RKError accounts(const CCaller& caller, std::vector<Hlx::CAdminAccount>* accounts);
    utils::RKError setPassword(const CCaller& caller, const std::string& name,
                               const std::string& password);
    utils::RKError setAccountEnabled(const CCaller& caller, const std::string& name, bool enabled);
    utils::RKError setRights(const CCaller& caller, const std::string& name,
                             const std::set<int>& rights);
    // Clears failed-login counters: of the account, of the address, or of the pair.
    utils::RKError unlockLogins(const CCaller& caller, const std::string& name,
                                const std::string& address);

    // Seals every stored secret under a new key in one transaction and replaces the key file;
    // needs the administrator right. Other processes on the database need the new file.
    utils::RKError rekey(const CCaller& caller);
    // The database's own consistency check (SQLite integrity_check), with the administrator
    // right.
    utils::RKError checkIntegrity(const CCaller& caller,
                                  std::vector<std::string>* keptValues = nullptr);
    // A consistent copy of the live SQLite database, written while others go on writing (to the
    // options' file, or to backup-<time>.db in the data directory), with the administrator
    // right; refused on PostgreSQL. Recorded before the copy is made, so the copy holds its own
    // entry.
    utils::RKError backupDatabase(const CCaller& caller, const Hlx::CBackupOptions& options,
                                  std::string* written);
    // The version, the database and how long this service has been open.
    utils::RKError status(const CCaller& caller, Hlx::CServiceStatus* status);

    // The audit trail, newest first, and its pruning: both need the administrator right; a
    // prune is itself recorded.
    utils::RKError auditEntries(const CCaller& caller, const Hlx::CAuditFilter& filter,
                                std::vector<Hlx::CAuditEntry>* entries);
    // One page: the filter's limit at most, and never more than a message carries.
    utils::RKError auditPage(const CCaller& caller, const Hlx::CAuditFilter& filter,
                             Hlx::CAuditPage* page);
    utils::RKError pruneAudit(const CCaller& caller, long long beforeMs, int* removed);

    // Probes now where the sources with the ids connect (every stored source with all): only
    // stored addresses, never one a request names. Whoever may read the sources may: an address
    // this login had probed within CProbeThrottle::kPeriodMs answers its stored state instead.
    utils::RKError probeSources(const CCaller& caller, const std::vector<int>& ids, bool all,
                                std::vector<Hlx::CProbeResult>* results);
    // The stored state of every address the sources of the sub-system (all when empty) connect
    // to, with those sources; an address not probed yet is not_probed without a time.
    utils::RKError probeStatus(const CCaller& caller, const std::string& subsystem,
                               std::vector<Hlx::CProbeResult>* results);
    // One address's history since sinceMs, oldest first.
    utils::RKError probeHistory(const CCaller& caller, const std::string& address, int port,
                                long long sinceMs, std::vector<Hlx::CProbeSample>* samples);

    // The cached settings as a call answers them.
    utils::RKError currentSubsystems(const CCaller& caller,
                                     std::vector<Hlx::SubsystemInfo>* subsystems);
    utils::RKError currentLoginTypeAuth(const CCaller& caller, std::map<int, bool>* settings);
    // Reads the cached settings again, after another process changed them.
    utils::RKError reloadSettings(const CCaller& caller);

    // The key file of the stored secrets.
    QString keyFile() const;
    // Where a real import keeps the backups of what it replaced; empty when there is no data
    // directory (a PostgreSQL database opened by URL alone).
    QString backupDir() const;
    // "SQLite /path/quotes.db" or "PostgreSQL db@host:port".
    QString databaseDescription() const;
    // The SQLite file, empty for PostgreSQL.
    QString databaseFile() const;
    // The database itself, for the account and login machinery that shares its connections.
    CDatabase& database() const { return *m_database; }
    // For what the service does not see itself (failed logins).
    const CAuditTrail& auditTrail() const { return *m_audit; }
    // The changes committed to the database by anyone, announced as they commit; started on
    // first use.
    CChangeFeed& changes();
    // Reachability: probes on demand, and on a timer once started (CSourceProber::start).
    CSourceProber& prober() { return *m_prober; }

private:
    CQuotesService();

    void initialise(const CServiceOptions& options);
    CSettingsCache::Settings readSettings(QSqlDatabase& db) const;

    // Runs one call: a CServiceError (or any failure) it throws becomes its answer, and a
    // refusal is recorded when refusal names the entry to record.
    utils::RKError answer(const CCaller& caller, const CAuditTrail::Entry* refusal,
                          const std::function<void()>& work);
    // The same for a call that needs the administrator right; what names it in the refusal.
    utils::RKError administer(const CCaller& caller, const std::string& what,
                              const CAuditTrail::Entry* refusal, const std::function<void()>& work);
    // An account change, recorded with the change in its transaction.
    utils::RKError changeAccount(const CCaller& caller, const std::string& what,
                                 const std::string& action, const std::string& name,
                                 const QJsonObject& after,
                                 const std::function<void(CAccountStore&)>& change);

    QString resolveTarget(const Hlx::CRequestTarget& target) const;
    // The stored state of each endpoint, with its sources (not_probed when it has none yet).
    std::vector<Hlx::CProbeResult> storedProbes(const CProbeTargets::Endpoints& endpoints) const;
    // The sub-systems a request to the target speaks for: the one it names, or all.
    std::vector<std::string> scopeOf(const QString& subsystem) const;

    std::vector<rkservice::IDataPtr> doQuery(const CCaller& caller,
                                             const Hlx::CRequestTarget& target,
                                             const rkservice::COrinQueryDataReq& request);
    std::vector<rkservice::IDataPtr> querySources(const CCaller& caller, const QString& subsystem,
                                                  const rkservice::COrinQueryDataReq& request);
    std::vector<rkservice::IDataPtr> queryReference(const QString& subsystem,
                                                    const rkservice::COrinQueryDataReq& request);
    std::vector<rkservice::IDataPtr> queryWholeQuote(const QString& subsystem);
    std::vector<rkservice::IDataPtr> queryToken(const CCaller& caller, const QString& subsystem);
    std::vector<rkservice::IDataPtr> queryUsers(const CCaller& caller, const QString& subsystem,
                                                const rkservice::COrinQueryDataReq& request);

    void doOperate(const CCaller& caller, const Hlx::CRequestTarget& target,
                   const rkservice::COperateDataReq& request, bson::BSONObj* result);
    void operateSources(const CCaller& caller, const Hlx::CRequestTarget& target,
                        const rkservice::COperateDataReq& request, bson::BSONObj* result);
    std::vector<int> addSources(const CCaller& caller, const QString& subsystem,
                                const rkservice::COperateDataReq& request,
                                const std::vector<rkservice::COrinQuoterSourceInfoPtr>& sources);
    // Answers the new revisions, in the order of the request.
    std::vector<long long> modifySources(
        const CCaller& caller, const QString& subsystem, const rkservice::COperateDataReq& request,
        const std::vector<rkservice::COrinQuoterSourceInfoPtr>& sources);
    void deleteSources(const CCaller& caller, const QString& subsystem,
                       const rkservice::COperateDataReq& request,
                       const std::vector<rkservice::COrinQuoterSourceInfoPtr>& sources);
    // A restore of a stored source, or of a deleted one; each answers the row as written.
    std::map<int, rkservice::COrinQuoterSourceInfo> restoreStored(
        QSqlDatabase& db, const CCaller& caller,
        const std::map<int, rkservice::COrinQuoterSourceInfo>& stored,
        const rkservice::COrinQuoterSourceInfoPtr& source, long long revision) const;
    std::map<int, rkservice::COrinQuoterSourceInfo> restoreDeleted(
        QSqlDatabase& db, const CCaller& caller,
        const rkservice::COrinQuoterSourceInfoPtr& source) const;
    // Each answers the revision it wrote (0 after a delete).
    long long operateToken(const CCaller& caller, const rkservice::COperateDataReq& request);
    // The change of the token, with the stored one as read.
    long long changeToken(QSqlDatabase& db, int op, bool exists, const std::string& stored,
                          const std::string& token, long long revision) const;
    long long operatePermission(const CCaller& caller, const Hlx::CRequestTarget& target,
                                const rkservice::COperateDataReq& request);
    // Writes the entry of a change of sources: the rows before and after it.
    void auditSources(QSqlDatabase& db, const CCaller& caller,
                      const rkservice::COperateDataReq& request, const QString& subsystem,
                      const std::map<int, rkservice::COrinQuoterSourceInfo>& before,
                      const std::map<int, rkservice::COrinQuoterSourceInfo>& after) const;
    // Records the migration of an earlier release's database (schema from), and the sealing of
    // its secrets when they were stored in clear.
    void auditUpgrade(QSqlDatabase& db, int from) const;
    // How many sources' passwords and tokens are sealed: a sealing entry's summary.
    QJsonObject sealedCounts(QSqlDatabase& db) const;
    // Every rule of today a stored source breaks (CSourceValidator::textFaults).
    std::vector<std::string> storedFaults(QSqlDatabase& db) const;
    void runImport(const CCaller& caller, const QJsonObject& document,
                   const Hlx::CImportOptions& options, Hlx::CImportReport* report,
                   CAuditTrail::Entry* entry);

    std::unique_ptr<CDatabase> m_database;
    std::unique_ptr<CAuditTrail> m_audit;
    std::unique_ptr<CImportGeneration> m_generations;
    std::unique_ptr<CSecretKeys> m_keys;
    std::unique_ptr<CImportBackups> m_backups;
    CSettingsCache m_settings;
    QElapsedTimer m_opened;
    std::mutex m_changesMutex;
    // Last, so that it stops before the database it reads goes away.
    std::unique_ptr<CChangeFeed> m_changes;
    std::unique_ptr<CProbeThrottle> m_probeThrottle;
    // After the feed, so that its thread stops first of all.
    std::unique_ptr<CSourceProber> m_prober;
};
