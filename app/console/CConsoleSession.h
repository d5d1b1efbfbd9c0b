#pragma once

#include <QString>
#include <functional>

#include "rkservice/CUserInfo.h"

class QWidget;

// How the console logs in. Empty for the embedded console, whose tool bar chooses any user of
// the database; set for a console on quotesd, whose account and rights come from the server.
struct CConsoleSession {
    QString servers;                      // shown to the operator
    std::function<bool(QWidget*)> login;  // the login dialog; true once logged in
    std::function<void()> logout;         // ends the server's login
    // Reads the account again from the server (its rights may have changed); a network call,
    // never on the user-interface thread. Null when it could not be read.
    std::function<rkservice::CUserInfoPtr()> readAccount;

    bool isRemote() const { return bool(login); }
};
