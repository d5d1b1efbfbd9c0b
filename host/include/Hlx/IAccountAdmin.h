#pragma once

#include <set>
#include <string>
#include <vector>

#include "rkservice/CUserInfo.h"
#include "utils/RKError.h"

namespace Hlx {

// An account as the administration lists it: never its password or hash.
struct CAdminAccount {
    rkservice::CUserInfoPtr user;
    bool enabled = true;
};

// The platform's users and their accounts (the administrator right, but for users()).
class IAccountAdmin {
public:
    virtual ~IAccountAdmin();

    virtual utils::RKError users(std::vector<rkservice::CUserInfoPtr>* users) = 0;
    virtual utils::RKError accounts(std::vector<CAdminAccount>* accounts) = 0;
    virtual utils::RKError setPassword(const std::string& name, const std::string& password) = 0;
    virtual utils::RKError setAccountEnabled(const std::string& name, bool enabled) = 0;
    virtual utils::RKError setRights(const std::string& name, const std::set<int>& rights) = 0;
    // Clears the failed-login counters of an account (every address), of an address (every
    // name), or of the one pair when both are given.
    virtual utils::RKError unlockLogins(const std::string& name, const std::string& address) = 0;
};

}  // namespace Hlx
