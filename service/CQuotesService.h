#pragma once

#include <QJsonObject>
#include <QSqlDatabase>
#include <QString>
#include <boost/shared_ptr.hpp>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <vector>

#include "CAccount.h"
#include "CCaller.h"
#include "CServiceOptions.h"
#include "Hlx/CAuditEntry.h"
#include "Hlx/CAuditFilter.h"
#include "Hlx/IDataServiceBackend.h"
#include "Hlx/IQuotesAdmin.h"
#include "rkservice/COrinQuoterSourceInfo.h"
#include "rkservice/CUserInfo.h"

class CAccountStore;
class CAuditTrail;
class CChangeFeed;
class CDatabase;
class CImportGeneration;

// The platform's data service: answers requests from a SQLite file or a PostgreSQL database,
// checking every change against the caller's rights (CAccessPolicy). Thread-safe; each worker
// thread uses its own connection. CEmbeddedAdmin administers it for a caller.
class CQuotesService {
public:
    // Opens (creating, migrating and seeding as needed) the database the options name. Null with
    // *error set when it cannot be used.
    static boost::shared_ptr<CQuotesService> open(const CServiceOptions& options, QString* error);
    // Where the console and quotesctl keep the database by default.
    static QString defaultDataDir();

    ~CQuotesService();

    // The sub-systems (first = default) and the login-type settings, from the cache.
    std::vector<Hlx::SubsystemInfo> subsystems() const;
    bool hasClientLoginTypeAuth(int loginType) const;

    // A request of the client centre, answered on the calling thread. A source's password is
    // read only by a caller who may modify the source; others receive it empty.
    utils::RKError querySync(const CCaller& caller, const Hlx::CRequestTarget& target,
                             const rkservice::COrinQueryDataReq& request,
                             std::vector<rkservice::IDataPtr>* datas);
    utils::RKError operateSync(const CCaller& caller, const Hlx::CRequestTarget& target,
                               const rkservice::COperateDataReq& request,
                               bson::BSONObj* result = nullptr);

    // Changes the fields the patch names of one source: reads it, applies the patch and writes
    // it back in one transaction, with the rights and checks of a modify. A patch that names no
    // field is refused.
    bool modifySource(const CCaller& caller, int id, const Hlx::CSourcePatch& patch,
                      QString* error = nullptr);

    // "SQLite /path/quotes.db" or "PostgreSQL db@host:port".
    QString databaseDescription() const;
    // The SQLite file, empty for PostgreSQL.
    QString databaseFile() const;
    // The database itself, for the account and login machinery that shares its connections.
    CDatabase& database() const { return *m_database; }
    // Every login type's setting, from the cache.
    std::map<int, bool> loginTypeAuth() const;

    // The platform's users, by name.
    std::vector<rkservice::CUserInfoPtr> users(QString* error = nullptr);

    // Whether clients count as logged in with the login type (0: plain product names). Kept in
    // the database.
    bool setLoginTypeAuth(const CCaller& caller, int loginType, bool granted,
                          QString* error = nullptr);

    // Replaces the sub-systems (first = default). Refused when a removed one still holds sources.
    bool setSubsystems(const CCaller& caller, const std::vector<Hlx::SubsystemInfo>& subsystems,
                       QString* error = nullptr);

    // The whole content as one JSON document, and its replacement by one (checked first, applied
    // all or nothing).
    bool exportDocument(const CCaller& caller, QJsonObject* document, QString* error = nullptr);
    bool importDocument(const CCaller& caller, const QJsonObject& document,
                        QString* error = nullptr);
    // The same with a dry run or a backup file of the caller's choosing; the report counts the
    // changes per section and names the backup.
    bool importDocument(const CCaller& caller, const QJsonObject& document,
                        const Hlx::CImportOptions& options, Hlx::CImportReport* report,
                        QString* error = nullptr);
    // Where a real import keeps the backups of what it replaced; empty when there is no data
    // directory (a PostgreSQL database opened by URL alone).
    QString backupDir() const { return m_backupDir; }

    // Accounts, with the administrator right; never a password or hash in what they return.
    bool accounts(const CCaller& caller, std::vector<CAccount>* accounts, QString* error = nullptr);
    bool setPassword(const CCaller& caller, const QString& name, const std::string& password,
                     QString* error = nullptr);
    bool setAccountEnabled(const CCaller& caller, const QString& name, bool enabled,
                           QString* error = nullptr);
    bool setRights(const CCaller& caller, const QString& name, const std::set<int>& rights,
                   QString* error = nullptr);

    // Seals every stored secret under a new key in one transaction and replaces the key file;
    // needs the administrator right. Other processes on the database need the new file.
    bool rekey(const CCaller& caller, QString* error = nullptr);
    // The key file of the stored secrets.
    QString keyFile() const;

    // The database's own consistency check (SQLite integrity_check); true when it passes.
    // Needs the administrator right.
    bool checkIntegrity(const CCaller& caller, QString* error = nullptr);

    // The audit trail, newest first, and its pruning: both need the administrator right; a
    // prune is itself recorded.
    bool auditEntries(const CCaller& caller, const Hlx::CAuditFilter& filter,
                      std::vector<Hlx::CAuditEntry>* entries, QString* error = nullptr);
    bool pruneAudit(const CCaller& caller, long long beforeMs, int* removed,
                    QString* error = nullptr);
    // For what the service does not see itself (failed logins).
    const CAuditTrail& auditTrail() const { return *m_audit; }

    // The changes committed to the database by anyone, announced as they commit; started on
    // first use.
    CChangeFeed& changes();
    // Reads the cached settings (sub-systems, login types) again, after another process
    // changed them.
    bool reloadCaches(QString* error = nullptr);

private:
    CQuotesService();

    // What the in-process caches hold, read in a transaction and applied after its commit, so
    // that a change that fails at commit leaves them as they were.
    struct Caches {
        std::vector<Hlx::SubsystemInfo> subsystems;
        std::map<int, bool> loginTypeAuth;
    };

    void initialise(bool seed, bool createMissing);
    Caches readCaches(QSqlDatabase& db) const;
    void applyCaches(const Caches& caches);
    // The backup file of a real import: the caller's, or the next one in the backup directory.
    QString backupTarget(const Hlx::CImportOptions& options) const;
    void writeBackup(const QJsonObject& content, const QString& path) const;
    // Keeps the newest kKeptBackups of the backup directory.
    void pruneBackups() const;
    static const int kKeptBackups = 10;
    static QString keyFilePath(const CServiceOptions& options, const CDatabase& database);
    // Loads the key (creating it for a database that has none yet, version 0 being an empty one)
    // and proves it against the database's check value; throws CServiceError with the operator's
    // text when it fails.
    void unlockSecrets(QSqlDatabase& db, int version);
    QString pendingKeyFile() const;
    QString resolveTarget(const Hlx::CRequestTarget& target) const;
    QString defaultSubsystem() const;
    bool knowsSubsystem(const QString& name) const;

    std::vector<rkservice::IDataPtr> doQuery(const CCaller& caller,
                                             const Hlx::CRequestTarget& target,
                                             const rkservice::COrinQueryDataReq& request);
    void doOperate(const CCaller& caller, const Hlx::CRequestTarget& target,
                   const rkservice::COperateDataReq& request, bson::BSONObj* result);
    void operateSources(const CCaller& caller, const Hlx::CRequestTarget& target,
                        const rkservice::COperateDataReq& request, bson::BSONObj* result);
    void operateToken(const CCaller& caller, const rkservice::COperateDataReq& request);
    void operatePermission(const CCaller& caller, const Hlx::CRequestTarget& target,
                           const rkservice::COperateDataReq& request);
    // Writes the entry of a change of sources: the rows before and after it.
    void auditSources(QSqlDatabase& db, const CCaller& caller,
                      const rkservice::COperateDataReq& request, const QString& subsystem,
                      const std::map<int, rkservice::COrinQuoterSourceInfo>& before,
                      const std::map<int, rkservice::COrinQuoterSourceInfo>& after) const;
    QJsonObject wholeQuote(QSqlDatabase& db, const QString& subsystem) const;
    // Runs an administrative change: refused without the administrator right. A refusal of a
    // change (refusal set) is recorded in the audit trail.
    bool administer(const CCaller& caller, const std::string& what, QString* error,
                    const std::function<void()>& change, const Hlx::CAuditEntry* refusal = nullptr);
    // An account change, recorded with the change in its transaction.
    bool changeAccount(const CCaller& caller, const std::string& what, const std::string& action,
                       const QString& name, const QJsonObject& after,
                       const std::function<void(CAccountStore&)>& change, QString* error);

    std::unique_ptr<CDatabase> m_database;
    std::unique_ptr<CAuditTrail> m_audit;
    std::unique_ptr<CImportGeneration> m_generations;
    QString m_keyFile;
    mutable std::mutex m_cacheMutex;
    std::vector<Hlx::SubsystemInfo> m_subsystems;
    std::map<int, bool> m_loginTypeAuth;
    QString m_backupDir;
    std::mutex m_changesMutex;
    // Last, so that it stops before the database it reads goes away.
    std::unique_ptr<CChangeFeed> m_changes;
};
