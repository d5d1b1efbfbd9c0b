#pragma once

#include <QString>
#include <string>
#include <vector>

#include "Hlx/CAuditEntry.h"

namespace Hlx {

// One quote source's history from the audit trail: the changes that touched it, oldest first,
// each entry holding only this source's detail (fields before and after; secrets as "******"
// with whether they changed). The trail keeps no password, so no entry can give one back.
// One field of a detail, before and after (texts as shown; a secret as "******").
struct CFieldChange {
    std::string field;  // the trail's name ("port")
    QString before;     // empty when the record did not exist before
    QString after;      // empty when it does not exist after
    bool changed = false;
};

struct CSourceHistory {
    // Where the history begins.
    enum class Begin {
        Added,     // with the source's own add: the whole life is there
        Earlier,   // the source existed before the trail recorded it
        Pruned,    // older entries were removed by a prune (at beginMs)
        Imported,  // an import replaced every source at beginMs: what came before is another's
    };

    int sourceId = 0;
    bool exists = false;     // whether the source is stored now
    long long revision = 0;  // its stored revision (0 when it does not exist)
    Begin begin = Begin::Earlier;
    long long beginMs = 0;     // the prune's or the import's time
    long long beginEntry = 0;  // the prune's or the import's entry
    std::vector<CAuditEntry> entries;

    // The fields of a source's detail in the order a source shows them, each with whether the
    // entry changed it (a secret by the detail's own flag, since both sides are masked).
    static std::vector<CFieldChange> differences(const CAuditEntry::Detail& detail);
    // The fields a source's detail holds, in that order.
    static const std::vector<std::string>& fieldOrder();
};

}  // namespace Hlx
