#include "CSourceHistoryStore.h"

#include "CAuditTrail.h"
#include "CQuoteSourceStore.h"
#include "CServiceError.h"
#include "model/CAuditVocabulary.h"

namespace {

std::string field(const QJsonObject& fields, const char* name) {
    return fields.value(QLatin1String(name)).toString().toStdString();
}

int number(const QJsonObject& fields, const char* name) {
    return fields.value(QLatin1String(name)).toInt();
}

}  // namespace

Hlx::CSourceHistory CSourceHistoryStore::read(QSqlDatabase& db, int id) const {
    using V = CAuditVocabulary;
    Hlx::CSourceHistory history;
    history.sourceId = id;
    const Hlx::CAuditEntry import = m_trail.lastOf(db, V::kImport);
    history.entries = m_trail.recordEntries(db, V::kQuoteSource, std::to_string(id), import.id);
    placeBeginning(&history, history.entries.empty() ? nullptr : &history.entries.front(), import,
                   m_trail.lastOf(db, V::kPrune));
    const auto stored = m_sources.byIds(db, QString(), {id});
    history.exists = !stored.empty();
    history.revision = history.exists ? stored.begin()->second.getRevision() : 0;
    return history;
}

void CSourceHistoryStore::placeBeginning(Hlx::CSourceHistory* history,
                                         const Hlx::CAuditEntry* first,
                                         const Hlx::CAuditEntry& import,
                                         const Hlx::CAuditEntry& prune) {
    using Begin = Hlx::CSourceHistory::Begin;
    if (first && first->action == CAuditVocabulary::kAdd) {
        history->begin = Begin::Added;
    } else if (import.id != 0) {
        history->begin = Begin::Imported;
        history->beginMs = import.timeMs;
        history->beginEntry = import.id;
    } else if (prune.id != 0) {
        history->begin = Begin::Pruned;
        // The prune removed the entries older than this time.
        history->beginMs =
            prune.summary.value(QStringLiteral("before_ms")).toVariant().toLongLong();
        history->beginEntry = prune.id;
    } else {
        history->begin = Begin::Earlier;
    }
}

rkservice::COrinQuoterSourceInfo CSourceHistoryStore::after(QSqlDatabase& db, int id,
                                                            long long entryId) const {
    using V = CAuditVocabulary;
    Hlx::CAuditEntry entry;
    const std::string name = "操作记录 " + std::to_string(entryId);
    if (!m_trail.recordEntry(db, V::kQuoteSource, std::to_string(id), entryId, &entry))
        throw CServiceError::notFound(name + " 不属于行情源 " + std::to_string(id) + " 的历史");
    if (entryId <= m_trail.lastOf(db, V::kImport).id)
        throw CServiceError(name + " 早于之后的导入，已不属于此行情源的历史");
    const QJsonObject& fields = entry.details.front().after;
    if (fields.isEmpty())
        throw CServiceError(name + " 删除了行情源，请选择更早的记录");
    return sourceFrom(id, fields);
}

rkservice::COrinQuoterSourceInfo CSourceHistoryStore::sourceFrom(int id,
                                                                 const QJsonObject& fields) {
    rkservice::COrinQuoterSourceInfo source;
    source.m_nId = id;
    source.setSystemTag(field(fields, "subsystem"));
    source.m_nPlatformId = number(fields, "platform_id");
    source.m_nBrokerId = number(fields, "broker_id");
    source.m_nServerGroupId = number(fields, "server_group_id");
    source.m_strAddress = field(fields, "address");
    source.m_nPort = number(fields, "port");
    source.m_strUserName = field(fields, "user_name");
    source.m_nTradeType = number(fields, "trade_type");
    source.m_strMarkets = field(fields, "markets");
    return source;
}
