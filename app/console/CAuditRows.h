#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <vector>

#include "Hlx/CAuditEntry.h"

// What the audit dock shows of an entry, one text per column, and the same rows as CSV.
class CAuditRows {
public:
    enum Column {
        Time,
        Account,
        ClientAddress,
        Subsystem,
        Action,
        DataType,
        Ids,
        Count,  // how many requests the entry stands for (repeated refusals)
        Error,
        ColumnCount,
    };

    static QStringList headers();
    // Times in local time, as the operator reads them.
    static QString cell(const Hlx::CAuditEntry& entry, int column);
    static QString localTime(long long ms);
    // UTC with 'Z' and milliseconds (ISO 8601), unambiguous wherever the file is read.
    static QString isoTime(long long ms);
    // RFC 4180 (CRLF, quoted fields where needed) in UTF-8 with a byte-order mark, so that
    // spreadsheet programs read the Chinese texts.
    static QByteArray csv(const std::vector<Hlx::CAuditEntry>& entries);

private:
    static QString who(const Hlx::CAuditEntry& entry);
    static QString csvLine(const QStringList& fields);
};
