#pragma once

#include <QObject>
#include <mutex>

#include "rkservice/CGlobalFeaturePermissionInfo.h"
#include "rkservice/CUserInfo.h"

namespace Hlx {

// The logged-in user and the global feature-permission record (process-wide).
class CUserManager : public QObject {
    Q_OBJECT
public:
    static CUserManager* instance();

    rkservice::CUserInfoPtr getUserInfoPtr() const;
    bool checkUserAuth(int right) const;

    void setGlobalPermissionInfo(const rkservice::CGlobalFeaturePermissionInfoPtr& info);
    rkservice::CGlobalFeaturePermissionInfoPtr getGlobalPermissionInfo() const;

    // Host side: switch the current user.
    void setCurrentUser(const rkservice::CUserInfoPtr& user);

signals:
    void currentUserChanged();

private:
    CUserManager();
    mutable std::mutex m_mutex;
    rkservice::CUserInfoPtr m_user;
    rkservice::CGlobalFeaturePermissionInfoPtr m_permission;
};

}  // namespace Hlx
