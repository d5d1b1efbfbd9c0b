#include "CAuditTrail.h"

#include <QDateTime>
#include <QJsonArray>
#include <QJsonDocument>
#include <QSqlQuery>
#include <QStringList>
#include <QVariant>
#include <algorithm>
#include <iterator>
#include <set>

#include "CAccountStore.h"
#include "CCaller.h"
#include "CDatabase.h"
#include "CServiceError.h"
#include "IServiceObserver.h"
#include "model/CAuditVocabulary.h"
#include "model/CFieldLimits.h"
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
    "error, summary, session, occurrences");

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
    entry.count = query.value(13).toLongLong();
    return entry;
}

// About what an entry takes in a message: its texts and its details' JSON.
long long sizeOf(const Hlx::CAuditEntry& entry) {
    std::size_t size = 128 + entry.account.size() + entry.osUser.size() +
                       entry.clientAddress.size() + entry.session.size() + entry.subsystem.size() +
                       entry.action.size() + entry.dataType.size() + entry.ids.size() +
                       entry.error.size() + json(entry.summary).size();
    for (const Hlx::CAuditEntry::Detail& detail : entry.details)
        size +=
            32 + detail.recordId.size() + json(detail.before).size() + json(detail.after).size();
    return static_cast<long long>(size);
}

QString keyPart(const std::string& value) {
    return QString::fromStdString(value).replace(QLatin1Char('|'), QStringLiteral("||"));
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

long long CAuditTrail::write(QSqlDatabase& db, const CCaller& caller, Entry entry) const {
    if (!m_enabled)
        return 0;
    entry.timeMs = QDateTime::currentMSecsSinceEpoch();
    entry.account = caller.name();
    entry.osUser = caller.osUser();
    entry.local = caller.isLocal();
    entry.clientAddress = caller.clientAddress();
    entry.session = caller.session();
    const long long id = insertEntry(db, entry);
    insertDetails(db, id, entry);
    if (changesData(entry))
        announce(db, id);
    entry.id = id;
    noteRecorded(entry, false);
    return id;
}

void CAuditTrail::noteRecorded(const Entry& entry, bool repeat) const {
    IServiceObserver* observer = m_database.observer();
    if (!observer)
        return;
    Entry told = entry;
    told.details.clear();
    CDatabase::afterCommit([observer, told, repeat] { observer->recorded(told, repeat); });
}

bool CAuditTrail::changesData(const Entry& entry) {
    if (!entry.error.empty() || entry.dataType == CAuditVocabulary::kSession)
        return false;
    return std::none_of(std::begin(CAuditVocabulary::kReadActions),
                        std::end(CAuditVocabulary::kReadActions),
                        [&](const char* action) { return entry.action == action; });
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
    const QStringList key = {QStringLiteral("refused"), keyPart(caller.name()),
                             keyPart(caller.osUser()), keyPart(entry.action),
                             keyPart(entry.dataType)};
    aggregated(key.join(QLatin1Char('|')).toStdString(), caller, entry, std::string());
}

bool CAuditTrail::refusedLogin(const std::string& address, const std::string& name,
                               const std::string& error) const {
    return refusedAtAddress("login", address, name, error);
}

bool CAuditTrail::refusedCall(const std::string& address, const std::string& error) const {
    return refusedAtAddress("token", address, std::string(), error);
}

bool CAuditTrail::refusedAtAddress(const char* kind, const std::string& address,
                                   const std::string& name, const std::string& error) const {
    if (!m_enabled)
        return false;
    const std::string cut =
        Hlx::CFieldLimits::cut(name, Hlx::CFieldLimits::of(Hlx::CFieldLimit::UserName).maxBytes);
    Entry refusal = entry(CAuditVocabulary::kLogin, CAuditVocabulary::kSession);
    refusal.error = error;
    return aggregated(std::string(kind) + "|" + keyPart(address).toStdString(),
                      CCaller::user(cut, {}).from(address), refusal, cut);
}

void CAuditTrail::loginEvent(const CCaller& caller, const std::string& action) const {
    if (!m_enabled)
        return;
    try {
        m_database.transact(true, [&](QSqlDatabase& db) {
            write(db, caller, entry(action, CAuditVocabulary::kSession));
        });
    } catch (const std::exception& e) {
        qWarning("audit trail: a login could not be recorded: %s", e.what());
    }
}

bool CAuditTrail::aggregated(const std::string& key, const CCaller& caller, const Entry& entry,
                             const std::string& name) const {
    bool made = false;
    try {
        m_database.transact(true, [&](QSqlDatabase& db) {
            const long long now = QDateTime::currentMSecsSinceEpoch();
            const QString aggregateKey = QString::fromStdString(key);
            const long long repeated = countRepeat(db, aggregateKey, now);
            if (repeated != 0) {
                if (!name.empty())
                    listName(db, repeated, name);
                Entry repeat = entry;
                repeat.id = repeated;
                repeat.timeMs = now;
                repeat.account = caller.name();
                repeat.clientAddress = caller.clientAddress();
                noteRecorded(repeat, true);
                return;
            }
            Entry first = entry;
            if (!name.empty())
                first.summary.insert(QStringLiteral("names"), QJsonArray{text(name)});
            keepAggregate(db, aggregateKey, write(db, caller, first), now);
            made = true;
        });
    } catch (const std::exception& e) {
        qWarning("audit trail: a refusal could not be recorded: %s", e.what());
    }
    return made;
}

long long CAuditTrail::countRepeat(QSqlDatabase& db, const QString& key, long long nowMs) const {
    QSqlQuery find(db);
    find.prepare(QStringLiteral(
        "SELECT entry_id, window_start_ms FROM audit_aggregates WHERE aggregate_key = ?"));
    find.addBindValue(key);
    m_database.exec(find);
    if (!find.next() || nowMs - find.value(1).toLongLong() >= kAggregateWindowMs)
        return 0;
    const long long entryId = find.value(0).toLongLong();
    find.finish();
    QSqlQuery count(db);
    count.prepare(
        QStringLiteral("UPDATE audit_entries SET occurrences = occurrences + 1 WHERE id = ?"));
    count.addBindValue(entryId);
    m_database.exec(count);
    // A pruned entry counts nothing: a new one starts.
    return count.numRowsAffected() == 1 ? entryId : 0;
}

void CAuditTrail::listName(QSqlDatabase& db, long long entryId, const std::string& name) const {
    QSqlQuery read(db);
    read.prepare(QStringLiteral("SELECT summary FROM audit_entries WHERE id = ?"));
    read.addBindValue(entryId);
    m_database.exec(read);
    if (!read.next())
        return;
    QJsonObject summary = object(read.value(0));
    read.finish();
    QJsonArray names = summary.value(QStringLiteral("names")).toArray();
    if (names.size() >= kMaxListedNames || names.contains(text(name)))
        return;
    names.append(text(name));
    summary.insert(QStringLiteral("names"), names);
    QSqlQuery write(db);
    write.prepare(QStringLiteral("UPDATE audit_entries SET summary = ? WHERE id = ?"));
    write.addBindValue(json(summary));
    write.addBindValue(entryId);
    m_database.exec(write);
}

void CAuditTrail::keepAggregate(QSqlDatabase& db, const QString& key, long long entryId,
                                long long nowMs) const {
    // The key's old window and every window that ended go: the table stays as small as the
    // set of clients refused within the last minute.
    QSqlQuery erase(db);
    erase.prepare(QStringLiteral(
        "DELETE FROM audit_aggregates WHERE aggregate_key = ? OR window_start_ms < ?"));
    erase.addBindValue(key);
    erase.addBindValue(nowMs - kAggregateWindowMs);
    m_database.exec(erase);
    QSqlQuery insert(db);
    insert.prepare(
        QStringLiteral("INSERT INTO audit_aggregates (aggregate_key, entry_id, "
                       "window_start_ms) VALUES (?, ?, ?)"));
    insert.addBindValue(key);
    insert.addBindValue(entryId);
    insert.addBindValue(nowMs);
    m_database.exec(insert);
}

long long CAuditTrail::insertEntry(QSqlDatabase& db, const Entry& entry) const {
    const bool postgres = m_database.engine() == CDatabase::PostgreSQL;
    QSqlQuery insert(db);
    insert.prepare(
        QStringLiteral("INSERT INTO audit_entries (time_ms, account, os_user, local, "
                       "client_address, subsystem, action, data_type, ids, error, "
                       "summary, session, occurrences) VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, "
                       "?, ?, ?, ?)") +
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
    insert.addBindValue(std::max(1LL, entry.count));
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

Hlx::CAuditPage CAuditTrail::read(const Hlx::CAuditFilter& filter) const {
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
    if (filter.beforeId > 0) {
        conditions << QStringLiteral("id < ?");
        values << filter.beforeId;
    }
    const int limit = filter.limit > 0 ? filter.limit : 1000;
    const QString where =
        conditions.isEmpty() ? QString() : QStringLiteral(" WHERE ") + conditions.join(" AND ");
    Hlx::CAuditPage page;
    m_database.transact(false, [&](QSqlDatabase& db) {
        QSqlQuery query(db);
        query.setForwardOnly(true);
        query.prepare(QStringLiteral("SELECT %1 FROM audit_entries%2 ORDER BY id DESC LIMIT ?")
                          .arg(kColumns, where));
        for (const QVariant& value : values)
            query.addBindValue(value);
        // One more than asked tells whether the listing stops at the limit.
        query.addBindValue(qint64(limit) + 1);
        m_database.exec(query);
        while (query.next())
            page.entries.push_back(entryFrom(query));
        query.finish();
        page.more = page.entries.size() > std::size_t(limit);
        page.entries.resize(std::min(page.entries.size(), std::size_t(limit)));
        readDetails(db, &page.entries);
    });
    // At least one entry a page, so paging always moves on.
    long long bytes = 0;
    for (std::size_t i = 0; i < page.entries.size(); ++i) {
        bytes += sizeOf(page.entries[i]);
        if (i > 0 && bytes > kPageBytes) {
            page.entries.resize(i);
            page.more = true;
            break;
        }
    }
    return page;
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
    // The condition is built from numbers and the vocabulary's own names only; sessions and
    // reads change no data.
    QStringList reads;
    for (const char* action : CAuditVocabulary::kReadActions)
        reads << QStringLiteral("'%1'").arg(QLatin1String(action));
    query.prepare(QStringLiteral("SELECT %1 FROM audit_entries WHERE %2 AND error = '' AND action "
                                 "NOT IN (%3) AND data_type <> '%4' ORDER BY id")
                      .arg(kColumns, where, reads.join(QLatin1Char(',')),
                           QLatin1String(CAuditVocabulary::kSession)));
    m_database.exec(query);
    while (query.next())
        entries.push_back(entryFrom(query));
    return entries;
}

std::vector<CAuditTrail::Entry> CAuditTrail::recordEntries(QSqlDatabase& db,
                                                           const std::string& dataType,
                                                           const std::string& recordId,
                                                           long long afterId) const {
    return readRecord(db, dataType, recordId, QStringLiteral("d.entry_id > ?"), afterId);
}

bool CAuditTrail::recordEntry(QSqlDatabase& db, const std::string& dataType,
                              const std::string& recordId, long long entryId, Entry* entry) const {
    std::vector<Entry> found =
        readRecord(db, dataType, recordId, QStringLiteral("d.entry_id = ?"), entryId);
    if (found.empty())
        return false;
    *entry = found.front();
    return true;
}

std::vector<CAuditTrail::Entry> CAuditTrail::readRecord(QSqlDatabase& db,
                                                        const std::string& dataType,
                                                        const std::string& recordId,
                                                        const QString& idCondition,
                                                        long long id) const {
    QStringList columns = kColumns.split(QStringLiteral(", "));
    for (QString& column : columns)
        column.prepend(QStringLiteral("e."));
    QSqlQuery query(db);
    query.setForwardOnly(true);
    // The details' index by (record_id, entry_id) finds the record's rows in id order.
    query.prepare(QStringLiteral("SELECT %1, d.before_fields, d.after_fields FROM audit_details "
                                 "d JOIN audit_entries e ON e.id = d.entry_id WHERE d.record_id "
                                 "= ? AND %2 AND e.data_type = ? AND e.error = '' ORDER BY "
                                 "d.entry_id")
                      .arg(columns.join(QStringLiteral(", ")), idCondition));
    query.addBindValue(text(recordId));
    query.addBindValue(id);
    query.addBindValue(text(dataType));
    m_database.exec(query);
    std::vector<Entry> entries;
    while (query.next()) {
        entries.push_back(entryFrom(query));
        entries.back().details.push_back(
            {recordId, object(query.value(14)), object(query.value(15))});
    }
    return entries;
}

CAuditTrail::Entry CAuditTrail::lastOf(QSqlDatabase& db, const std::string& action) const {
    QSqlQuery query(db);
    query.setForwardOnly(true);
    query.prepare(QStringLiteral("SELECT %1 FROM audit_entries WHERE action = ? AND error = '' "
                                 "ORDER BY id DESC LIMIT 1")
                      .arg(kColumns));
    query.addBindValue(text(action));
    m_database.exec(query);
    return query.next() ? entryFrom(query) : Entry();
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
    const int removed = entries.numRowsAffected();
    QSqlQuery aggregates(db);
    aggregates.prepare(QStringLiteral(
        "DELETE FROM audit_aggregates WHERE entry_id NOT IN (SELECT id FROM audit_entries)"));
    m_database.exec(aggregates);
    return removed;
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
