#pragma once

#include <QString>
#include <QStringList>
#include <functional>
#include <map>
#include <vector>

#include "RecordBuilders.h"

// What each seeded role may do to each kind of quote source, written out by hand so that the
// tests never read the production rights table.
namespace RoleExpectations {

// One kind of source, made as the dialogs send it. Four consecutive ports give four different
// broker server groups, as the database keeps one source per group.
struct Kind {
    const char* name;
    std::function<rkservice::COrinQuoterSourceInfoPtr(int port)> make;
};

inline int brokerOf(int port, int first, int second) {
    return port % 4 < 2 ? first : second;
}

inline rkservice::COrinQuoterSourceInfoPtr addressSource(int platform, int tradeType,
                                                         const std::string& address, int port) {
    auto record = RecordBuilders::source(0, platform, tradeType, address, port);
    record->setSystemTag(std::string());
    return record;
}

inline rkservice::COrinQuoterSourceInfoPtr groupSource(int platform, int tradeType, int first,
                                                       int second, int port) {
    auto record = RecordBuilders::brokerSource(0, platform, brokerOf(port, first, second),
                                               port % 2 + 1, tradeType);
    record->setSystemTag(std::string());
    return record;
}

inline const std::vector<Kind>& kinds() {
    static const std::vector<Kind> list = {
        {"stocks", [](int port) { return addressSource(10000, 2, "192.0.2.10", port); }},
        {"futures", [](int port) { return groupSource(20000, 1, 8060, 8080, port); }},
        {"Kx futures", [](int port) { return addressSource(20000, 2, "192.0.2.11", port); }},
        {"futures options", [](int port) { return groupSource(70001, 5, 8100, 8120, port); }},
        {"Kx futures options",
         [](int port) { return addressSource(70000, 2, "192.0.2.12", port); }},
        {"stock options", [](int port) { return addressSource(10001, 6, "192.0.2.13", port); }},
        {"HGT", [](int port) { return addressSource(10003, 7, "192.0.2.14", port); }},
        {"NEEQ", [](int port) { return addressSource(10002, 10, "192.0.2.15", port); }},
        {"gold", [](int port) { return addressSource(31003, 4, "192.0.2.16", port); }},
        {"IB outer", [](int port) { return addressSource(32000, 1002, "192.0.2.17", port); }},
        {"outer futures", [](int port) { return addressSource(15000, 16, "192.0.2.18", port); }},
        {"SGT", [](int port) { return addressSource(10004, 11, "192.0.2.19", port); }},
        {"outer stocks", [](int port) { return addressSource(32000, 8, "192.0.2.20", port); }},
    };
    return list;
}

// Add, modify, delete for each kind above, in that order ('y' allowed, 'n' refused).
inline const std::map<QString, QStringList>& expected() {
    static const std::map<QString, QStringList> table = {
        {"admin",
         {"yyy", "yyy", "yyy", "yyy", "yyy", "yyy", "yyy", "yyy", "yyy", "yyy", "yyy", "yyy",
          "yyy"}},
        {"futures_op",
         {"nnn", "yyy", "yyy", "yyy", "yyy", "nnn", "nnn", "nnn", "nnn", "nnn", "nnn", "nnn",
          "nnn"}},
        {"stock_op",
         {"yyy", "nnn", "nnn", "nnn", "nnn", "nnn", "nnn", "nnn", "nnn", "nnn", "nnn", "nnn",
          "nnn"}},
        {"viewer",
         {"nnn", "nnn", "nnn", "nnn", "nnn", "nnn", "nnn", "nnn", "nnn", "nnn", "nnn", "nnn",
          "nnn"}},
    };
    return table;
}

// The delete record the panels send: platform 20000 goes as trade type 2; the revision is the
// row's, as read.
inline rkservice::COrinQuoterSourceInfoPtr panelDeleteRecord(
    const rkservice::COrinQuoterSourceInfo& of) {
    auto record = boost::make_shared<rkservice::COrinQuoterSourceInfo>();
    record->m_nId = of.m_nId;
    record->setRevision(of.getRevision());
    record->m_nTradeType = of.m_nPlatformId == 20000 ? 2 : of.m_nTradeType;
    record->m_nPlatformId = of.m_nPlatformId;
    return record;
}

}  // namespace RoleExpectations
