#include "Hlx/CUserManager.h"

#include <boost/make_shared.hpp>

namespace Hlx {

CUserManager* CUserManager::instance() {
    static CUserManager* manager = new CUserManager;
    return manager;
}

CUserManager::CUserManager() : m_user(boost::make_shared<rkservice::CUserInfo>()) {}

rkservice::CUserInfoPtr CUserManager::getUserInfoPtr() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_user;
}

bool CUserManager::checkUserAuth(int right) const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_user && m_user->m_rights.count(right) > 0;
}

void CUserManager::setGlobalPermissionInfo(const rkservice::CGlobalFeaturePermissionInfoPtr& info) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_permission = info;
}

rkservice::CGlobalFeaturePermissionInfoPtr CUserManager::getGlobalPermissionInfo() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_permission;
}

void CUserManager::setCurrentUser(const rkservice::CUserInfoPtr& user) {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_user = user ? user : boost::make_shared<rkservice::CUserInfo>();
    }
    emit currentUserChanged();
}

}  // namespace Hlx
