#pragma once

#include <string>

namespace Hlx {

// Where a request goes: to the client centre (every sub-system for a query, the default one
// for an add, the record's own for a modify or delete), or to one named sub-system's client.
class CRequestTarget {
public:
    // The client centre, where a request goes unless it names a sub-system.
    CRequestTarget() : CRequestTarget(std::string(), true) {}
    static CRequestTarget centre() { return CRequestTarget(); }
    static CRequestTarget subsystem(const std::string& name) { return CRequestTarget(name, false); }

    bool isCentre() const { return m_centre; }
    const std::string& subsystemName() const { return m_name; }

private:
    CRequestTarget(std::string name, bool centre) : m_name(std::move(name)), m_centre(centre) {}
    std::string m_name;
    bool m_centre;
};

}  // namespace Hlx
