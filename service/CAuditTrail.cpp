#include "CAuditTrail.h"

#include <QDateTime>
#include <QJsonArray>
#include <QJsonDocument>
#include <QSqlQuery>
#include <QStringList>
#include <QVariant>
#include <set>

#include "CAccountStore.h"
#include "CCaller.h"
#include "CDatabase.h"
#include "CServiceError.h"
#include "model/CAuditVocabulary.h"
#include "rkservice/DataTypeIds.h"

namespace {

// Never null: a null QString binds as NULL, which the columns refuse.
QString text(const std::string& value) {
    return value.empty() ? QStringLiteral("") : QString::fromStdString(value);
}

QString json(const QJsonObject& object) {
    return object.isEmpty()
               ? QStringLiteral("")
               : QString::fromUtf8(QJsonDocument(object).toJson(QJsonDocument::Compact));
}

QJsonObject object(const QVariant& value) {
    return QJsonDocument::fromJson(value.toString().toUtf8()).object();
}

const QString kColumns = QStringLiteral(
    "id, time_ms, account, os_user, local, client_address, subsystem, action, data_type, ids, "
    "error, summary, session");

Hlx::CAuditEntry entryFrom(const QSqlQuery& query) {
    Hlx::CAuditEntry entry;
    entry.id = query.value(0).toLongLong();
    entry.timeMs = query.value(1).toLongLong();
    entry.account = query.value(2).toString().toStdString();
    entry.osUser = query.value(3).toString().toStdString();
    entry.local = query.value(4).toInt() != 0;
    entry.clientAddress = query.value(5).toString().toStdString();
    entry.subsystem = query.value(6).toString().toStdString();
    entry.action = query.value(7).toString().toStdString();
    entry.dataType = query.value(8).toString().toStdString();
    entry.ids = query.value(9).toString().toStdString();
    entry.error = query.value(10).toString().toStdString();
    entry.summary = object(query.value(11));
    entry.session = query.value(12).toString().toStdString();
    return entry;
}

}  // namespace

CAuditTrail::CAuditTrail(CDatabase& database, bool enabled)
    : m_database(database), m_enabled(enabled) {}

CAuditTrail::Entry CAuditTrail::entry(const std::string& action, const std::string& dataType,
                                      const std::string& subsystem) {
    Entry result;
    result.action = action;
    result.dataType = dataType;
    result.subsystem = subsystem;
    return result;
}

void CAuditTrail::write(QSqlDatabase& db, const CCaller& caller, Entry entry) const {
    if (!m_enabled)
        return;
    entry.timeMs = QDateTime::currentMSecsSinceEpoch();
    entry.account = caller.name();
    entry.osUser = caller.osUser();
    entry.local = caller.isLocal();
    entry.clientAddress = caller.clientAddress();
    entry.session = caller.session();
    const long long id = insertEntry(db, entry);
    insertDetails(db, id, entry);
    if (entry.error.empty())
        announce(db, id);
}

void CAuditTrail::announce(QSqlDatabase& db, long long entryId) const {
    // Delivered at commit and only then, so a listener never hears of a change rolled back.
    if (m_database.engine() != CDatabase::PostgreSQL)
        return;
    QSqlQuery notify(db);
    notify.prepare(QStringLiteral("SELECT pg_notify(?, ?)"));
    notify.addBindValue(QString::fromLatin1(kChangeChannel));
    notify.addBindValue(QString::number(entryId));
    m_database.exec(notify);
}

void CAuditTrail::refused(const CCaller& caller, Entry entry, const std::string& error) const {
    if (!m_enabled)
        return;
    entry.error = error.empty() ? std::string("未知错误") : error;
    // A refused change leaves no details: what it asked for may hold a secret.
    entry.details.clear();
    try {
        m_database.transact(true, [&](QSqlDatabase& db) { write(db, caller, entry); });
    } catch (const std::exception& e) {
        qWarning("audit trail: a refusal could not be recorded: %s", e.what());
    }
}

long long CAuditTrail::insertEntry(QSqlDatabase& db, const Entry& entry) const {
    const bool postgres = m_database.engine() == CDatabase::PostgreSQL;
    QSqlQuery insert(db);
    insert.prepare(QStringLiteral("INSERT INTO audit_entries (time_ms, account, os_user, local, "
                                  "client_address, subsystem, action, data_type, ids, error, "
                                  "summary, session) VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)") +
                   (postgres ? QStringLiteral(" RETURNING id") : QString()));
    insert.addBindValue(entry.timeMs);
    for (const std::string* value : {&entry.account, &entry.osUser})
        insert.addBindValue(text(*value));
    insert.addBindValue(entry.local ? 1 : 0);
    for (const std::string* value : {&entry.clientAddress, &entry.subsystem, &entry.action,
                                     &entry.dataType, &entry.ids, &entry.error})
        insert.addBindValue(text(*value));
    insert.addBindValue(json(entry.summary));
    insert.addBindValue(text(entry.session));
    m_database.exec(insert);
    if (postgres) {
        if (!insert.next())
            throw CServiceError::unavailable("操作记录写入失败");
        return insert.value(0).toLongLong();
    }
    return insert.lastInsertId().toLongLong();
}

void CAuditTrail::insertDetails(QSqlDatabase& db, long long entryId, const Entry& entry) const {
    QSqlQuery insert(db);
    insert.prepare(
        QStringLiteral("INSERT INTO audit_details (entry_id, ord, record_id, "
                       "before_fields, after_fields) VALUES (?, ?, ?, ?, ?)"));
    int ord = 0;
    for (const Entry::Detail& detail : entry.details) {
        insert.addBindValue(entryId);
        insert.addBindValue(ord++);
        insert.addBindValue(text(detail.recordId));
        insert.addBindValue(json(detail.before));
        insert.addBindValue(json(detail.after));
        m_database.exec(insert);
    }
}

std::vector<CAuditTrail::Entry> CAuditTrail::read(const Hlx::CAuditFilter& filter) const {
    QStringList conditions;
    QVariantList values;
    if (!filter.account.empty()) {
        conditions << QStringLiteral("account = ?");
        values << text(filter.account);
    }
    if (!filter.action.empty()) {
        conditions << QStringLiteral("action = ?");
        values << text(filter.action);
    }
    if (filter.sinceMs > 0) {
        conditions << QStringLiteral("time_ms >= ?");
        values << filter.sinceMs;
    }
    if (filter.untilMs > 0) {
        conditions << QStringLiteral("time_ms < ?");
        values << filter.untilMs;
    }
    const QString where =
        conditions.isEmpty() ? QString() : QStringLiteral(" WHERE ") + conditions.join(" AND ");
    std::vector<Entry> entries;
    m_database.transact(false, [&](QSqlDatabase& db) {
        QSqlQuery query(db);
        query.setForwardOnly(true);
        query.prepare(QStringLiteral("SELECT %1 FROM audit_entries%2 ORDER BY id DESC LIMIT ?")
                          .arg(kColumns, where));
        for (const QVariant& value : values)
            query.addBindValue(value);
        query.addBindValue(filter.limit > 0 ? filter.limit : 1000);
        m_database.exec(query);
        while (query.next())
            entries.push_back(entryFrom(query));
        query.finish();
        readDetails(db, &entries);
    });
    return entries;
}

std::vector<CAuditTrail::Entry> CAuditTrail::changesAfter(QSqlDatabase& db,
                                                          long long afterId) const {
    return readChanges(db, QStringLiteral("id > %1").arg(afterId));
}

std::vector<CAuditTrail::Entry> CAuditTrail::changes(QSqlDatabase& db,
                                                     const std::vector<long long>& ids) const {
    if (ids.empty())
        return {};
    QStringList list;
    for (long long id : ids)
        list << QString::number(id);
    return readChanges(db, QStringLiteral("id IN (%1)").arg(list.join(QLatin1Char(','))));
}

std::vector<CAuditTrail::Entry> CAuditTrail::readChanges(QSqlDatabase& db,
                                                         const QString& where) const {
    std::vector<Entry> entries;
    QSqlQuery query(db);
    query.setForwardOnly(true);
    // The condition is built from numbers and the vocabulary's own names only.
    QStringList reads;
    for (const char* action : CAuditVocabulary::kReadActions)
        reads << QStringLiteral("'%1'").arg(QLatin1String(action));
    query.prepare(QStringLiteral("SELECT %1 FROM audit_entries WHERE %2 AND error = '' AND action "
                                 "NOT IN (%3) ORDER BY id")
                      .arg(kColumns, where, reads.join(QLatin1Char(','))));
    m_database.exec(query);
    while (query.next())
        entries.push_back(entryFrom(query));
    return entries;
}

long long CAuditTrail::lastId(QSqlDatabase& db) const {
    QSqlQuery query(db);
    query.prepare(QStringLiteral("SELECT COALESCE(MAX(id), 0) FROM audit_entries"));
    m_database.exec(query);
    return query.next() ? query.value(0).toLongLong() : 0;
}

void CAuditTrail::readDetails(QSqlDatabase& db, std::vector<Entry>* entries) const {
    if (entries->empty())
        return;
    std::map<long long, Entry*> byId;
    QStringList ids;
    for (Entry& entry : *entries) {
        byId[entry.id] = &entry;
        ids << QString::number(entry.id);
    }
    QSqlQuery query(db);
    query.setForwardOnly(true);
    // The ids are this query's own numbers, never text from a caller.
    query.prepare(QStringLiteral("SELECT entry_id, record_id, before_fields, after_fields FROM "
                                 "audit_details WHERE entry_id IN (%1) ORDER BY entry_id, ord")
                      .arg(ids.join(QLatin1Char(','))));
    m_database.exec(query);
    while (query.next()) {
        Entry* entry = byId[query.value(0).toLongLong()];
        entry->details.push_back({query.value(1).toString().toStdString(), object(query.value(2)),
                                  object(query.value(3))});
    }
}

int CAuditTrail::prune(QSqlDatabase& db, long long beforeMs) const {
    QSqlQuery details(db);
    details.prepare(
        QStringLiteral("DELETE FROM audit_details WHERE entry_id IN (SELECT id FROM "
                       "audit_entries WHERE time_ms < ?)"));
    details.addBindValue(beforeMs);
    m_database.exec(details);
    QSqlQuery entries(db);
    entries.prepare(QStringLiteral("DELETE FROM audit_entries WHERE time_ms < ?"));
    entries.addBindValue(beforeMs);
    m_database.exec(entries);
    return entries.numRowsAffected();
}

QJsonObject CAuditTrail::secret(bool changed) {
    return QJsonObject{{QStringLiteral("value"), QLatin1String(CAuditVocabulary::kMasked)},
                       {QStringLiteral("changed"), changed}};
}

QJsonObject CAuditTrail::sourceFields(const rkservice::COrinQuoterSourceInfo& source) {
    return QJsonObject{
        {QStringLiteral("subsystem"), text(source.getSystemTag())},
        {QStringLiteral("platform_id"), source.m_nPlatformId},
        {QStringLiteral("broker_id"), source.m_nBrokerId},
        {QStringLiteral("server_group_id"), source.m_nServerGroupId},
        {QStringLiteral("address"), text(source.m_strAddress)},
        {QStringLiteral("port"), source.m_nPort},
        {QStringLiteral("user_name"), text(source.m_strUserName)},
        {QStringLiteral("password"), QLatin1String(CAuditVocabulary::kMasked)},
        {QStringLiteral("trade_type"), source.m_nTradeType},
        {QStringLiteral("markets"), text(source.m_strMarkets)},
    };
}

void CAuditTrail::addSourceDetails(Entry* entry,
                                   const std::map<int, rkservice::COrinQuoterSourceInfo>& before,
                                   const std::map<int, rkservice::COrinQuoterSourceInfo>& after) {
    std::set<int> ids;
    for (const auto& row : before)
        ids.insert(row.first);
    for (const auto& row : after)
        ids.insert(row.first);
    for (int id : ids) {
        const auto old = before.find(id);
        const auto now = after.find(id);
        Entry::Detail detail{std::to_string(id), QJsonObject(), QJsonObject()};
        if (old != before.end())
            detail.before = sourceFields(old->second);
        if (now != after.end()) {
            detail.after = sourceFields(now->second);
            const bool changed =
                old == before.end() || old->second.m_strPassword != now->second.m_strPassword;
            detail.after.insert(QStringLiteral("password_changed"), changed);
        }
        entry->details.push_back(detail);
    }
}

std::string CAuditTrail::idList(const std::vector<int>& ids) {
    std::string list;
    for (int id : ids)
        list += (list.empty() ? "" : ",") + std::to_string(id);
    return list;
}

CAuditTrail::Entry CAuditTrail::forRequest(const rkservice::COperateDataReq& request,
                                           const QString& subsystem) {
    using V = CAuditVocabulary;
    static const std::map<int, const char*> dataTypes = {
        {rkservice::kDataQuoteSources, V::kQuoteSource},
        {rkservice::kDataLevel2Tokens, V::kLevel2Token},
        {rkservice::kDataGlobalPermission, V::kWholeQuote},
    };
    static const std::map<int, const char*> actions = {
        {rkservice::kOperateAdd, V::kAdd},
        {rkservice::kOperateModify, V::kModify},
        {rkservice::kOperateDelete, V::kDelete},
        {rkservice::kOperateSaveWholeQuote, V::kSave},
    };
    const auto type = dataTypes.find(request.dataType);
    const auto action = actions.find(request.operateType);
    Entry result =
        entry(action == actions.end() ? std::to_string(request.operateType) : action->second,
              type == dataTypes.end() ? std::to_string(request.dataType) : type->second,
              subsystem.toStdString());
    if (request.dataType == rkservice::kDataQuoteSources) {
        std::vector<int> ids;
        for (const auto& data : request.datas) {
            const auto* source = dynamic_cast<const rkservice::COrinQuoterSourceInfo*>(data.get());
            if (source && request.operateType != rkservice::kOperateAdd)
                ids.push_back(source->m_nId);
        }
        result.ids = idList(ids);
    }
    return result;
}

QJsonObject CAuditTrail::accountFields(const CAccount& account) {
    QJsonArray rights;
    for (int right : account.rights)
        rights.append(right);
    return QJsonObject{
        {QStringLiteral("enabled"), account.enabled},
        {QStringLiteral("rights"), rights},
        {QStringLiteral("password"),
         account.hasPassword ? QLatin1String(CAuditVocabulary::kMasked) : QLatin1String("")}};
}

CAuditTrail::Entry CAuditTrail::accountChange(const CDatabase& database, QSqlDatabase& db,
                                              const std::string& action, const QString& name,
                                              const QJsonObject& after) {
    Entry result = entry(action, CAuditVocabulary::kAccount);
    result.ids = name.toStdString();
    Entry::Detail detail{result.ids, QJsonObject(), QJsonObject()};
    CAccount stored;
    if (CAccountStore::read(database, db, name, &stored, nullptr)) {
        detail.before = accountFields(stored);
        detail.after = detail.before;
        for (auto it = after.begin(); it != after.end(); ++it)
            detail.after.insert(it.key(), it.value());
    }
    result.details.push_back(detail);
    return result;
}
