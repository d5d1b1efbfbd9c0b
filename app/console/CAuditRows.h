#pragma once

#include <QByteArray>
#include <QMap>
#include <QString>
#include <QStringList>
#include <vector>

#include "Hlx/CAuditEntry.h"

// What the audit dock shows of an entry, one text per column, and the same rows as CSV: actions,
// data types and sub-systems as the operator reads them (CAuditNames, the sub-systems' display
// names), never the names the trail stores.
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

    // Display names of the sub-systems by their stored names.
    using SubsystemNames = QMap<QString, QString>;

    static QStringList headers();
    // Times in local time, as the operator reads them.
    static QString cell(const Hlx::CAuditEntry& entry, int column,
                        const SubsystemNames& subsystems = {});
    static QString localTime(long long ms);
    // UTC with 'Z' and milliseconds (ISO 8601), unambiguous wherever the file is read.
    static QString isoTime(long long ms);
    // RFC 4180 (CRLF, quoted fields where needed) in UTF-8 with a byte-order mark, so that
    // spreadsheet programs read the Chinese texts.
    static QByteArray csv(const std::vector<Hlx::CAuditEntry>& entries,
                          const SubsystemNames& subsystems = {});
    // The selected entry's records, each field before and after (the dock's detail pane); a
    // source's as its history shows them.
    static QString details(const Hlx::CAuditEntry& entry, const SubsystemNames& subsystems = {});

private:
    static QString csvLine(const QStringList& fields);
};
