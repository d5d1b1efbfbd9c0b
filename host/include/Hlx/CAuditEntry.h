#pragma once

#include <QJsonObject>
#include <string>
#include <vector>

namespace Hlx {

// One entry of the audit trail: one request that changed data, or that was refused. Secrets
// (passwords, the Level-2 token) appear only as "******" with whether they changed.
struct CAuditEntry {
    // One record the request touched: its fields before and after (empty when absent).
    struct Detail {
        std::string recordId;
        QJsonObject before;
        QJsonObject after;
    };

    long long id = 0;
    long long timeMs = 0;  // UTC, milliseconds since the epoch
    std::string account;   // the account (server) or the user chosen in the console
    std::string osUser;    // the operating-system user of a local entry
    bool local = false;    // made in this process on the database itself (本地)
    std::string clientAddress;
    // The login (server) or process (embedded) that made it, so a client knows its own changes.
    std::string session;
    std::string subsystem;
    std::string action;
    std::string dataType;
    std::string ids;    // comma-separated
    std::string error;  // empty when the change was made
    // How many requests the entry stands for: repeated refusals within a minute are counted on
    // one entry (per address for logins, per account and action otherwise).
    long long count = 1;
    // What the details do not say: an import's counts and document hash, a prune's date.
    QJsonObject summary;
    std::vector<Detail> details;
};

// One page of the trail, newest first: more tells that older entries match too (read them with
// the filter's beforeId set to the last entry's id).
struct CAuditPage {
    std::vector<CAuditEntry> entries;
    bool more = false;
};

}  // namespace Hlx
