#pragma once

#include <QSqlDatabase>

#include "Hlx/CSourceHistory.h"
#include "rkservice/COrinQuoterSourceInfo.h"

class CAuditTrail;
class CQuoteSourceStore;

// A quote source's history as the audit trail tells it, and the fields an entry of it left the
// source with. Runs inside the caller's transaction.
class CSourceHistoryStore {
public:
    CSourceHistoryStore(const CAuditTrail& trail, const CQuoteSourceStore& sources)
        : m_trail(trail), m_sources(sources) {}

    // The source's entries since its history began (the last import: before it the id named
    // another's source), with where it begins and whether the source is stored now.
    Hlx::CSourceHistory read(QSqlDatabase& db, int id) const;
    // The source as the entry of its history left it, without a password (the trail has none)
    // and without a revision. Refused when the entry is none of the source's history, or
    // deleted it.
    rkservice::COrinQuoterSourceInfo after(QSqlDatabase& db, int id, long long entryId) const;

private:
    // Where the history begins, given its first entry (null when it has none).
    static void placeBeginning(Hlx::CSourceHistory* history, const Hlx::CAuditEntry* first,
                               const Hlx::CAuditEntry& import, const Hlx::CAuditEntry& prune);
    static rkservice::COrinQuoterSourceInfo sourceFrom(int id, const QJsonObject& fields);

    const CAuditTrail& m_trail;
    const CQuoteSourceStore& m_sources;
};
