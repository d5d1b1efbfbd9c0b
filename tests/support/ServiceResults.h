#pragma once

#include <QString>
#include <QtTest>
#include <string>
#include <vector>

#include "CQuotesService.h"
#include "rkservice/CUserInfo.h"
#include "utils/RKError.h"

// What the tests read of the service's answers.

// The text of a call's failure; empty when it succeeded.
inline QString failureOf(const utils::RKError& result) {
    return result.isSuccess() ? QString() : QString::fromStdString(result.errorMsg());
}

// Fails the test with the call's own text when the call did not succeed.
#define QVERIFY_OK(call)                                                     \
    do {                                                                     \
        const utils::RKError quotesResult = (call);                          \
        QVERIFY2(quotesResult.isSuccess(), quotesResult.errorMsg().c_str()); \
    } while (false)

// The platform's users as the service stores them, asked as the owner; empty when it fails.
inline std::vector<rkservice::CUserInfoPtr> storedUsers(CQuotesService& service) {
    std::vector<rkservice::CUserInfoPtr> users;
    service.users(CCaller::owner(), &users);
    return users;
}

// The stored user of that name; null when there is none.
inline rkservice::CUserInfoPtr storedUser(CQuotesService& service, const std::string& name) {
    for (const rkservice::CUserInfoPtr& user : storedUsers(service)) {
        if (user->m_strName == name)
            return user;
    }
    return nullptr;
}
