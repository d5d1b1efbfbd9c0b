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
    std::string commit;
    std::string database;
    long long uptimeMs = 0;
};

// How an import runs. A dry run checks and counts, changing nothing; a real import first writes
// the content it replaces to backupFile, or, when empty, to the data directory of the process
// that holds the database.
// What an export leaves out. Without secrets: no source password, no Level-2 token and no
// password hash (an import of such a document keeps the hashes it finds stored).
struct CExportOptions {
    bool withoutSecrets = false;
};

struct CImportOptions {
    bool dryRun = false;
    std::string backupFile;
    // Only these sections of the document replace the stored ones ("brokers", "platforms", …);
    // the others stay as stored. Empty: every section.
    std::vector<std::string> onlySections;
};

// Where an online copy of the database goes: file, or, when empty, the data directory of the
// process that holds the database (which chooses the name).
struct CBackupOptions {
    std::string file;
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
    // Values kept although they break a rule of today (an earlier release accepted them), each
    // with the rule it breaks: "行情源 18: 密码不能含控制字符".
    std::vector<std::string> keptValues;
};

// The service's records as a whole: the audit trail, export and import, its own checks.
class IAuditTransfer {
public:
    virtual ~IAuditTransfer();

    virtual utils::RKError exportDocument(QJsonObject* document,
                                          const CExportOptions& options = CExportOptions()) = 0;
    virtual utils::RKError importDocument(const QJsonObject& document) = 0;
    // With a dry run or a backup of the caller's choosing; where the database is not in this
    // process, only a plain import (the holder writes its own backup) is offered.
    virtual utils::RKError importDocument(const QJsonObject& document,
                                          const CImportOptions& options, CImportReport* report);
    // The database's own check; keptValues: the stored values that break a rule of today, listed
    // as CImportReport's (no failure: they are kept as an earlier release stored them).
    virtual utils::RKError checkIntegrity(std::vector<std::string>* keptValues) = 0;
    // A consistent copy of the live database (SQLite; refused on PostgreSQL, which has
    // pg_dump); written: the path where the holder of the database wrote it. By default
    // refused: not every implementation holds a database.
    virtual utils::RKError backupDatabase(const CBackupOptions& options, std::string* written);
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
