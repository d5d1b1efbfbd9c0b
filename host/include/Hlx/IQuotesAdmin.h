#pragma once

#include <QJsonObject>
#include <set>
#include <string>
#include <vector>

#include "Hlx/CAuditEntry.h"
#include "Hlx/CAuditFilter.h"
#include "Hlx/IDataServiceBackend.h"
#include "bson/BSONObj.h"
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
    virtual utils::RKError checkIntegrity() = 0;
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
};

}  // namespace Hlx
