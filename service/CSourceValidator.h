#pragma once

#include <set>
#include <string>
#include <vector>

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
    // database. With stored, a text equal to the stored one is kept as it is: the rules of a
    // text bind only a change that sets it (earlier releases accepted some that break them).
    static void checkFields(const rkservice::COrinQuoterSourceInfo& source,
                            const rkservice::COrinQuoterSourceInfo* stored = nullptr);
    // Before any right is looked up: a type no right belongs to is a bad request, not a refusal.
    static void checkTradeType(int tradeType);
    static void checkToken(const std::string& token);
    // A port a source connects to, or one a probe's history is asked of: 1 to 65535.
    static void checkPort(int port);
    // Every rule of the texts the source's fields break, each a line naming the source
    // ("行情源 18: 密码不能含控制字符"), in field order, both rules of a field that breaks both;
    // empty when none. The import and the integrity check list stored values so.
    static std::vector<std::string> textFaults(const rkservice::COrinQuoterSourceInfo& source);

private:
    // The rules of a text: within the field's byte limit (Hlx::CFieldLimit::Field) and free of
    // control characters; the first it breaks is thrown, faults lists them all.
    static void checkText(const std::string& value, int field);
    static std::vector<std::string> faults(const std::string& value, int field);
    static void checkEndpoint(const rkservice::COrinQuoterSourceInfo& source);
};
