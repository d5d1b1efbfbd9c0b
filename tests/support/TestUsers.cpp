#include "TestUsers.h"

#include <boost/make_shared.hpp>

#include "Hlx/CUserManager.h"

namespace TestUsers {

std::set<int> allRights() {
    return {10385, 10937, 11231, 10709, 11029, 11019, 12147, 12361, 12353, 11222, 12369, 10389,
            10563, 10711, 10713, 11031, 11033, 11021, 11023, 12149, 12151, 12363, 12365, 12355,
            12357, 11223, 11224, 12370, 12372, 10387, 11230, 12532, 12534, 12536, 90001, 90002};
}

rkservice::CUserInfoPtr setCurrent(const std::set<int>& rights, bool routeBySystem) {
    auto user = boost::make_shared<rkservice::CUserInfo>();
    user->m_strName = "tester";
    user->m_rights = rights;
    user->m_nSystemId = routeBySystem ? -1 : 0;
    Hlx::CUserManager::instance()->setCurrentUser(user);
    return user;
}

}  // namespace TestUsers
