#pragma once

#include <set>
#include <string>

namespace rkservice {
class COrinQuoterSourceInfo;
}

// Checks of single values that need no database; each throws CServiceError with the text
// the operator sees.
class CSourceValidator {
public:
    // The trade types a source may be stored with.
    static const std::set<int>& tradeTypes();
    // The platforms that exist on every installation (the futures platforms of the reference
    // data come on top).
    static const std::set<int>& fixedPlatforms();

    // Dotted IPv4 without leading zeros, or an IPv6 address; taken exactly as given.
    static bool isAddress(const std::string& text);
    // 1 to 100 ASCII letters and digits.
    static bool isToken(const std::string& text);

    // The trade type of a query condition ("%d" of it); false for the empty condition (or -1),
    // which asks for every trade type. Throws on anything else.
    static bool parseCondition(const std::string& condition, int* tradeType);

    // The checks of a source's own fields: trade type, the texts' limits, and either address and
    // port (no broker) or broker and server group ids. Platform, broker and duplicates need the
    // database.
    static void checkFields(const rkservice::COrinQuoterSourceInfo& source);
    // Before any right is looked up: a type no right belongs to is a bad request, not a refusal.
    static void checkTradeType(int tradeType);
    static void checkToken(const std::string& token);

private:
    // Within the field's byte limit (Hlx::CFieldLimit::Field) and free of control characters.
    static void checkText(const std::string& value, int field);
    static void checkEndpoint(const rkservice::COrinQuoterSourceInfo& source);
};
