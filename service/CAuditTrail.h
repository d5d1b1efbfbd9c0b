#pragma once

#include <QJsonObject>
#include <QSqlDatabase>
#include <QString>
#include <map>
#include <string>
#include <vector>

#include "CAccount.h"
#include "Hlx/CAuditEntry.h"
#include "Hlx/CAuditFilter.h"
#include "rkservice/COperateDataReq.h"
#include "rkservice/COrinQuoterSourceInfo.h"

class CCaller;
class CDatabase;

// The audit trail: who changed what, and which requests were refused. The one place that
// builds and writes entries; the changes call it inside their own transaction, so an entry
// exists exactly when its change does. Nothing but prune removes entries.
class CAuditTrail {
public:
    using Entry = Hlx::CAuditEntry;

    CAuditTrail(CDatabase& database, bool enabled);

    // A new entry of the action on the data type in the sub-system.
    static Entry entry(const std::string& action, const std::string& dataType,
                       const std::string& subsystem = std::string());

    // Writes the entry with the caller and the time, within the change's transaction; its id.
    long long write(QSqlDatabase& db, const CCaller& caller, Entry entry) const;
    // Records a refused or failed request in a transaction of its own; never throws, since the
    // caller is already answering with the error. Repeats of the caller's action (on the same
    // data type) within a minute count on the entry of the first, so no client grows the trail
    // by more than a few rows a minute.
    void refused(const CCaller& caller, Entry entry, const std::string& error) const;
    // A refused login, counted on one entry per address a minute whatever names it tries; the
    // entry lists the names (cut to the user-name limit). True when it made a new entry.
    bool refusedLogin(const std::string& address, const std::string& name,
                      const std::string& error) const;
    // A call without a valid login: counted per address like refused logins, on an entry of
    // its own.
    bool refusedCall(const std::string& address, const std::string& error) const;
    // An event of a login (its start, end or expiry): a row of its own, never announced.
    void loginEvent(const CCaller& caller, const std::string& action) const;
    // Writes the entry unless an entry of the key younger than a minute exists; that one then
    // counts one more (and lists the name, when given). True when it made a new entry.
    bool aggregated(const std::string& key, const CCaller& caller, const Entry& entry,
                    const std::string& name) const;

    // Newest first, a page: at most the filter's limit and about kPageBytes of entries.
    Hlx::CAuditPage read(const Hlx::CAuditFilter& filter) const;
    // What one page of entries may hold, well below the message limit.
    static constexpr long long kPageBytes = 8 * 1024 * 1024;
    // How long repeats count on one entry, and how many names a login entry lists.
    static constexpr long long kAggregateWindowMs = 60 * 1000;
    static constexpr int kMaxListedNames = 20;
    // The changes made (entries without error), without details, in the order of their ids:
    // those after an id, or those with the ids given.
    std::vector<Entry> changesAfter(QSqlDatabase& db, long long afterId) const;
    std::vector<Entry> changes(QSqlDatabase& db, const std::vector<long long>& ids) const;
    // The successful entries with a detail of the record (of the data type) after an id, oldest
    // first, each holding only that detail: one record's history, found through the index of
    // details by record.
    std::vector<Entry> recordEntries(QSqlDatabase& db, const std::string& dataType,
                                     const std::string& recordId, long long afterId) const;
    // The one entry among them with the id; false when the entry holds no detail of the record.
    bool recordEntry(QSqlDatabase& db, const std::string& dataType, const std::string& recordId,
                     long long entryId, Entry* entry) const;
    // The newest successful entry of the action, without details; id 0 when there is none.
    Entry lastOf(QSqlDatabase& db, const std::string& action) const;
    // The newest entry's id, 0 when there is none.
    long long lastId(QSqlDatabase& db) const;
    // The channel a PostgreSQL change announces its entry's id on.
    static constexpr const char* kChangeChannel = "quotes_changes";
    // Removes the entries older than the time, within the caller's transaction; how many.
    int prune(QSqlDatabase& db, long long beforeMs) const;

    // One detail row per source: before (absent when added) and after (absent when deleted).
    static void addSourceDetails(Entry* entry,
                                 const std::map<int, rkservice::COrinQuoterSourceInfo>& before,
                                 const std::map<int, rkservice::COrinQuoterSourceInfo>& after);
    // The entry a request of the data service makes, before its details are known.
    static Entry forRequest(const rkservice::COperateDataReq& request, const QString& subsystem);
    // An account change's entry: the account as stored now (before the change) and after it.
    static Entry accountChange(const CDatabase& database, QSqlDatabase& db,
                               const std::string& action, const QString& name,
                               const QJsonObject& after);
    static QJsonObject accountFields(const CAccount& account);
    // A secret's detail field: masked, with whether it changed.
    static QJsonObject secret(bool changed);
    static std::string idList(const std::vector<int>& ids);

private:
    static QJsonObject sourceFields(const rkservice::COrinQuoterSourceInfo& source);
    long long insertEntry(QSqlDatabase& db, const Entry& entry) const;
    // The entry of the key within the window that counted one more; 0 when none did.
    long long countRepeat(QSqlDatabase& db, const QString& key, long long nowMs) const;
    void listName(QSqlDatabase& db, long long entryId, const std::string& name) const;
    void keepAggregate(QSqlDatabase& db, const QString& key, long long entryId,
                       long long nowMs) const;
    // Whether the entry stands for changed data (what the change feed passes on): not a
    // refusal, a session or a read.
    static bool changesData(const Entry& entry);
    // Tells the database's observer of the entry once its transaction has committed.
    void noteRecorded(const Entry& entry, bool repeat) const;
    void announce(QSqlDatabase& db, long long entryId) const;
    // A refusal at an address before any login, counted on the key's entry of the minute.
    bool refusedAtAddress(const char* kind, const std::string& address, const std::string& name,
                          const std::string& error) const;
    std::vector<Entry> readChanges(QSqlDatabase& db, const QString& where) const;
    std::vector<Entry> readRecord(QSqlDatabase& db, const std::string& dataType,
                                  const std::string& recordId, const QString& idCondition,
                                  long long id) const;
    void insertDetails(QSqlDatabase& db, long long entryId, const Entry& entry) const;
    void readDetails(QSqlDatabase& db, std::vector<Entry>* entries) const;

    CDatabase& m_database;
    const bool m_enabled;
};
