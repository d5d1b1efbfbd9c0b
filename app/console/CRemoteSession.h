#pragma once

#include <QString>
#include <boost/shared_ptr.hpp>

#include "CConsoleSession.h"

class CRemoteAdmin;

// The console's session on quotesd: the login dialog over the remote client; a login makes the
// account the user manager's current user, so the panels are built with the server's rights.
class CRemoteSession {
public:
    static CConsoleSession make(const boost::shared_ptr<CRemoteAdmin>& remote,
                                const QString& servers);
};
