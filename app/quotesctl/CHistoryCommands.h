#pragma once

#include <QJsonObject>
#include <QString>

#include "Hlx/CSourceHistory.h"

class CCtlSession;

// quotesctl's sources history and sources restore: a source's changes from the audit trail, and
// its return to the fields an entry of them left.
class CHistoryCommands {
public:
    static void history(CCtlSession& session);
    static void restore(CCtlSession& session);

    // Where the history begins, as a line for the operator.
    static QString beginning(const Hlx::CSourceHistory& history);
    static QJsonObject toJson(const Hlx::CSourceHistory& history);
    // "port 9000 -> 9100; password changed": what the entry changed of the source.
    static QString changes(const Hlx::CAuditEntry& entry);
};
