#pragma once

#include <QJsonArray>
#include <QList>
#include <QString>
#include <QStringList>
#include <vector>

#include "Hlx/CAuditEntry.h"

// quotesctl's view of the audit trail: reads its times from the command line and writes its
// entries as a table or as JSON.
class CAuditCommand {
public:
    // An ISO-8601 date or date and time ("2026-11-23", "2026-11-23T08:00:00Z"); without an
    // offset it is local time. False when the text is no such time.
    static bool parseTime(const QString& text, long long* ms);
    // UTC with milliseconds ("2026-11-23T08:00:00.123Z").
    static QString isoUtc(long long ms);

    static QJsonArray toJson(const std::vector<Hlx::CAuditEntry>& entries);
    static QStringList header();
    static QList<QStringList> rows(const std::vector<Hlx::CAuditEntry>& entries);
    // Who made the entry: the account, and for a local entry the operating-system user.
    static QString who(const Hlx::CAuditEntry& entry);
};
