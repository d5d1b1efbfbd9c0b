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
    // A platform user with the rights it holds.
    static CCaller user(const std::string& name, const std::set<int>& rights);
    static CCaller user(const rkservice::CUserInfo& user);

    const std::string& name() const { return m_name; }
    bool isOwner() const { return m_owner; }
    bool holds(int right) const;
    // Whether the caller holds at least one of the rights.
    bool holdsAny(const std::vector<int>& rights) const;

private:
    CCaller(std::string name, std::set<int> rights, bool owner);

    std::string m_name;
    std::set<int> m_rights;
    bool m_owner;
};
