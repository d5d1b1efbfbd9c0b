#pragma once

#include <string>
#include <vector>

#include "Hlx/CProbeResult.h"

namespace Hlx {

// A change someone committed to the platform's data, as the consoles are told of it. The names
// of actions and data types are those of the audit trail (CAuditVocabulary).
struct CChangeEvent {
    // More ids than this are not listed: the event then means "reload everything of its type".
    static constexpr std::size_t kMaxIds = 1000;

    long long entryId = 0;  // the audit entry that records the change
    std::string dataType;
    std::string action;
    std::string subsystem;
    std::string account;  // who made it: the account, or the operating-system user
    std::vector<std::string> ids;
    bool allIds = false;  // too many ids to list: every record of the type may have changed
    bool resync = false;  // changes may have been missed: reload everything
    bool own = false;     // made by this client itself (its login or its process)
    // Nothing changed: a stream to a server listens from now on (sent at each opening; with
    // resync set when it opened again after a failure).
    bool listening = false;
    std::string session;  // the session that made it, where the receiver needs to compare
    // A probe found a new state of an address (data type "probe_status", the action its state):
    // no change anyone made, and no audit entry (entryId 0).
    bool probeChange = false;
    CProbeResult probe;
};

}  // namespace Hlx
