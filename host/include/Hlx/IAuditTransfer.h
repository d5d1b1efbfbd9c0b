#pragma once

#include <QJsonObject>
#include <string>
#include <vector>

#include "Hlx/CAuditEntry.h"
#include "Hlx/CAuditFilter.h"
#include "utils/RKError.h"

namespace Hlx {

// What a data service says of itself.
struct CServiceStatus {
    std::string version;
    std::string database;
    long long uptimeMs = 0;
};

// How an import runs. A dry run checks and counts, changing nothing; a real import first writes
// the content it replaces to backupFile, or, when empty, to the data directory of the process
// that holds the database.
struct CImportOptions {
    bool dryRun = false;
    std::string backupFile;
};

// What an import changes in one section of the document: entries before and after, and how many
// of them are new or gone (a changed entry counts as both).
struct CSectionChange {
    std::string section;
    int before = 0;
    int after = 0;
    int added = 0;
    int removed = 0;
};

struct CImportReport {
    std::vector<CSectionChange> sections;
    std::string backupFile;  // where the replaced content was written
};

// The service's records as a whole: the audit trail, export and import, its own checks.
class IAuditTransfer {
public:
    virtual ~IAuditTransfer();

    virtual utils::RKError exportDocument(QJsonObject* document) = 0;
    virtual utils::RKError importDocument(const QJsonObject& document) = 0;
    // With a dry run or a backup of the caller's choosing; where the database is not in this
    // process, only a plain import (the holder writes its own backup) is offered.
    virtual utils::RKError importDocument(const QJsonObject& document,
                                          const CImportOptions& options, CImportReport* report);
    virtual utils::RKError checkIntegrity() = 0;
    virtual utils::RKError status(CServiceStatus* status) = 0;
    // The audit trail, newest first, and the removal of its entries older than a time (both
    // with the administrator right; a prune is itself recorded).
    virtual utils::RKError auditEntries(const CAuditFilter& filter,
                                        std::vector<CAuditEntry>* entries) = 0;
    // One page of it: at most the filter's limit, and never more than one message can carry;
    // more says that older entries match too. By default the entries, more when the limit is
    // reached.
    virtual utils::RKError auditPage(const CAuditFilter& filter, CAuditPage* page);
    virtual utils::RKError pruneAudit(long long beforeMs, int* removed) = 0;
};

}  // namespace Hlx
