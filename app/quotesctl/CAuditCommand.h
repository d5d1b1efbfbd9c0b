#pragma once

#include <QJsonArray>
#include <QList>
#include <QString>
#include <QStringList>
#include <vector>

#include "Hlx/CAuditEntry.h"

class CCtlSession;

// quotesctl's audit and audit prune: the audit trail as a table or as JSON, and its pruning.
class CAuditCommand {
public:
    static void list(CCtlSession& session);
    static void prune(CCtlSession& session);

    // UTC with milliseconds ("2026-11-23T08:00:00.123Z").
    static QString isoUtc(long long ms);
    // The whole trail, newest first, read page by page (no message carries all of it).
    static std::vector<Hlx::CAuditEntry> everything(CCtlSession& session);
    // The action a filter names, or a usage error listing the actions the trail records.
    static std::string knownAction(const QString& action);

    static QJsonArray toJson(const std::vector<Hlx::CAuditEntry>& entries);
    static QStringList header();
    static QList<QStringList> rows(const std::vector<Hlx::CAuditEntry>& entries);
    // Who made the entry: the account, and for a local entry the operating-system user.
    static QString who(const Hlx::CAuditEntry& entry);
};
