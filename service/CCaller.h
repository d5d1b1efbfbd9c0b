#pragma once

#include <set>
#include <string>
#include <vector>

namespace rkservice {
class CUserInfo;
}

// Who sends a request to the data service: the rights every change is checked against.
class CCaller {
public:
    // The owner of the database (quotesctl on its own file): holds every right, since it could
    // change the file anyway.
    static CCaller owner();
    // The owner acting in this process for the operating-system user, as recorded in the trail.
    static CCaller localOwner();
    // A platform user with the rights it holds.
    static CCaller user(const std::string& name, const std::set<int>& rights);
    static CCaller user(const rkservice::CUserInfo& user);

    // The same caller as the embedded mode records it: acting in this process for the
    // operating-system user.
    CCaller locally(const std::string& osUser) const;
    // The same caller as the server records it: reached from the client address.
    CCaller from(const std::string& clientAddress) const;
    // The same caller within a session: one login on the server (its token's hash), or this
    // process in the embedded mode. Changes carry it, so a client can tell its own from others'.
    CCaller inSession(const std::string& session) const;
    // The operating-system user this process runs as.
    static std::string operatingSystemUser();
    // This process's session: random, fixed for the process's life.
    static const std::string& processSession();

    const std::string& name() const { return m_name; }
    const std::string& osUser() const { return m_osUser; }
    const std::string& clientAddress() const { return m_clientAddress; }
    const std::string& session() const { return m_session; }
    bool isLocal() const { return m_local; }
    bool isOwner() const { return m_owner; }
    bool holds(int right) const;
    // Whether the caller holds at least one of the rights.
    bool holdsAny(const std::vector<int>& rights) const;

private:
    CCaller(std::string name, std::set<int> rights, bool owner);

    std::string m_name;
    std::set<int> m_rights;
    bool m_owner;
    std::string m_osUser;
    std::string m_clientAddress;
    std::string m_session;
    bool m_local = false;
};
