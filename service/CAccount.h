#pragma once

#include <QString>
#include <boost/make_shared.hpp>
#include <set>

#include "rkservice/CUserInfo.h"

// An account of the platform as the login machinery sees it; never holds its password or hash.
struct CAccount {
    QString name;
    int systemId = 0;
    std::set<int> rights;
    bool enabled = true;
    bool hasPassword = false;

    // The account as the platform's user records carry it.
    rkservice::CUserInfoPtr userInfo() const {
        auto user = boost::make_shared<rkservice::CUserInfo>();
        user->m_strName = name.toStdString();
        user->m_nSystemId = systemId;
        user->m_rights = rights;
        return user;
    }
};
