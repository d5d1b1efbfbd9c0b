#pragma once

#include <QJsonObject>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "Hlx/CAuditEntry.h"
#include "Hlx/CAuditFilter.h"
#include "Hlx/CChangeEvent.h"
#include "Hlx/CSourcePatch.h"
#include "Hlx/IDataServiceBackend.h"
#include "bson/BSONObj.h"
#include "rkservice/COrinQuoterSourceInfo.h"
#include "rkservice/CUserInfo.h"
#include "utils/RKError.h"

namespace Hlx {

// What a data service says of itself.
struct CServiceStatus {
    std::string version;
    std::string database;
    long long uptimeMs = 0;
};

// An account as the administration lists it: never its password or hash.
struct CAdminAccount {
    rkservice::CUserInfoPtr user;
    bool enabled = true;
};

// How an import runs. A dry run checks and counts, changing nothing; a real import first writes
// the content it replaces to backupFile, or, when empty, to the data directory of the process
// that holds the database.
struct CImportOptions {
    bool dryRun = false;
    std::string backupFile;
};

// What an import changes in one section of the document: entries before and after, and how many
// of them are new or gone (a changed entry counts as both).
struct CSectionChange {
    std::string section;
    int before = 0;
    int after = 0;
    int added = 0;
    int removed = 0;
};

struct CImportReport {
    std::vector<CSectionChange> sections;
    std::string backupFile;  // where the replaced content was written
};

// The administration of the platform's data: every call the console and quotesctl make, with the
// embedded service or a remote server behind it, so each command has one code path. Calls answer
// on the calling thread; a refusal or a fault is an RKError with the text the operator sees.
class IQuotesAdmin {
public:
    virtual ~IQuotesAdmin();

    virtual utils::RKError query(const CRequestTarget& target,
                                 const rkservice::COrinQueryDataReq& request,
                                 std::vector<rkservice::IDataPtr>* datas) = 0;
    virtual utils::RKError operate(const CRequestTarget& target,
                                   const rkservice::COperateDataReq& request,
                                   bson::BSONObj* result) = 0;  // result may be null

    // Answered from what the implementation already holds, never with a round trip: the client
    // centre asks them on the user-interface thread.
    virtual std::vector<SubsystemInfo> subsystems() const = 0;
    virtual bool hasClientLoginTypeAuth(int loginType) const = 0;

    virtual utils::RKError users(std::vector<rkservice::CUserInfoPtr>* users) = 0;
    virtual utils::RKError setSubsystems(const std::vector<SubsystemInfo>& subsystems) = 0;
    virtual utils::RKError setLoginTypeAuth(int loginType, bool granted) = 0;
    virtual utils::RKError exportDocument(QJsonObject* document) = 0;
    virtual utils::RKError importDocument(const QJsonObject& document) = 0;
    // With a dry run or a backup of the caller's choosing; where the database is not in this
    // process, only a plain import (the holder writes its own backup) is offered.
    virtual utils::RKError importDocument(const QJsonObject& document,
                                          const CImportOptions& options, CImportReport* report);
    virtual utils::RKError checkIntegrity() = 0;
    // Changes the fields the patch names of one stored source, leaving the others: the read and
    // the write are one transaction of the service, so a change made meanwhile by someone else is
    // never overwritten.
    virtual utils::RKError modifySource(int id, const CSourcePatch& patch) = 0;
    // Accounts (the administrator right).
    virtual utils::RKError accounts(std::vector<CAdminAccount>* accounts) = 0;
    virtual utils::RKError setPassword(const std::string& name, const std::string& password) = 0;
    virtual utils::RKError setAccountEnabled(const std::string& name, bool enabled) = 0;
    virtual utils::RKError setRights(const std::string& name, const std::set<int>& rights) = 0;
    virtual utils::RKError status(CServiceStatus* status) = 0;
    // The audit trail, newest first, and the removal of its entries older than a time (both
    // with the administrator right; a prune is itself recorded).
    virtual utils::RKError auditEntries(const CAuditFilter& filter,
                                        std::vector<CAuditEntry>* entries) = 0;
    virtual utils::RKError pruneAudit(long long beforeMs, int* removed) = 0;

    // Tells handler of every change committed from now on, by anyone, on a thread of the
    // implementation's (never inside this call). Delivery stops when the returned handle is
    // destroyed; its destruction waits for a delivery in progress, so handler must not wait for
    // the thread that destroys it. Null where changes are not announced.
    using ChangeHandler = std::function<void(const CChangeEvent&)>;
    virtual std::shared_ptr<void> watchChanges(const ChangeHandler& handler);
    // Reads again what subsystems() and hasClientLoginTypeAuth() answer from, after someone
    // else changed it.
    virtual utils::RKError reloadSettings();
};

}  // namespace Hlx
