#include "CQuoteSourceStore.h"

#include <QSqlQuery>
#include <QStringList>
#include <QVariant>
#include <algorithm>
#include <boost/make_shared.hpp>

#include "CDatabase.h"
#include "CPasswordOpener.h"
#include "CReferenceData.h"
#include "CSecretBox.h"
#include "CServiceError.h"
#include "CSourceValidator.h"

namespace {

const int kNoBroker = rkservice::COrinQuoterSourceInfo::kNoBroker;

QString text(const std::string& value) {
    return QString::fromStdString(value);
}

// Binds the stored columns platform_id to markets, in table order; the password sealed, so that
// it reaches neither the database's files nor, on PostgreSQL, its statement log.
void bindColumns(QSqlQuery& query, const rkservice::COrinQuoterSourceInfo& source,
                 const CSecretBox& secrets) {
    query.addBindValue(source.m_nPlatformId);
    query.addBindValue(source.m_nBrokerId);
    query.addBindValue(source.m_nServerGroupId);
    query.addBindValue(text(source.m_strAddress));
    query.addBindValue(source.m_nPort);
    query.addBindValue(text(source.m_strUserName));
    query.addBindValue(secrets.seal(source.m_strPassword));
    query.addBindValue(source.m_nTradeType);
    query.addBindValue(text(source.m_strMarkets));
}

}  // namespace

namespace {

// The columns of a read. SQLite hands its text columns over as their UTF-8 bytes, sparing a
// large read the round trip through UTF-16 (PostgreSQL's driver gives text either way).
QString columnsOf(const CDatabase& database) {
    return database.engine() == CDatabase::SQLite
               ? QStringLiteral(
                     "SELECT id, CAST(subsystem AS BLOB), platform_id, broker_id, server_group_id, "
                     "CAST(address AS BLOB), port, CAST(user_name AS BLOB), CAST(password AS "
                     "BLOB), "
                     "trade_type, CAST(markets AS BLOB), revision FROM kx_orin_quoter_source")
               : QStringLiteral(
                     "SELECT id, subsystem, platform_id, broker_id, server_group_id, address, "
                     "port, "
                     "user_name, password, trade_type, markets, revision FROM "
                     "kx_orin_quoter_source");
}

// A text column's UTF-8 bytes, whichever way the driver gave them.
QByteArray utf8Of(const QVariant& value) {
    return value.type() == QVariant::ByteArray ? value.toByteArray() : value.toString().toUtf8();
}

std::string textOf(const QVariant& value) {
    const QByteArray bytes = utf8Of(value);
    return std::string(bytes.constData(), size_t(bytes.size()));
}
// Ids bound in one statement of a read by ids, well below every engine's limit of parameters.
const size_t kIdsPerStatement = 500;

// Sub-system names repeat on every row: each is converted once.
struct TagCache {
    QByteArray tag;
    std::string utf8;

    const std::string& of(const QVariant& value) {
        const QByteArray next = utf8Of(value);
        if (next != tag || utf8.empty()) {
            tag = next;
            utf8.assign(next.constData(), size_t(next.size()));
        }
        return utf8;
    }
};

// Reads the row the query stands on; the password is opened only where mayRead allows, so that
// a large answer for a caller who receives none costs no decryption.
void readRow(const QSqlQuery& query, CPasswordOpener& passwords,
             const CQuoteSourceStore::PasswordFilter& mayRead, TagCache* tags,
             rkservice::COrinQuoterSourceInfo* source) {
    source->m_nId = query.value(0).toInt();
    source->setSystemTag(tags->of(query.value(1)));
    source->m_nPlatformId = query.value(2).toInt();
    source->m_nBrokerId = query.value(3).toInt();
    source->m_nServerGroupId = query.value(4).toInt();
    source->m_strAddress = textOf(query.value(5));
    source->m_nPort = query.value(6).toInt();
    source->m_strUserName = textOf(query.value(7));
    source->m_nTradeType = query.value(9).toInt();
    source->m_strMarkets = textOf(query.value(10));
    source->setRevision(query.value(11).toLongLong());
    if (!mayRead || mayRead(*source))
        passwords.add(source, utf8Of(query.value(8)));
}

}  // namespace

std::vector<rkservice::IDataPtr> CQuoteSourceStore::query(QSqlDatabase& db,
                                                          const QString& subsystem, bool filter,
                                                          int tradeType,
                                                          const PasswordFilter& mayRead) const {
    QString sql = columnsOf(m_database);
    QStringList where;
    if (!subsystem.isEmpty())
        where << QStringLiteral("subsystem = ?");
    if (filter)
        where << QStringLiteral("trade_type = ?");
    if (!where.isEmpty())
        sql += QStringLiteral(" WHERE ") + where.join(QStringLiteral(" AND "));
    sql += QStringLiteral(" ORDER BY id");
    QSqlQuery query(db);
    query.setForwardOnly(true);
    query.prepare(sql);
    if (!subsystem.isEmpty())
        query.addBindValue(subsystem);
    if (filter)
        query.addBindValue(tradeType);
    m_database.exec(query);
    std::vector<rkservice::IDataPtr> result;
    // The records are made in blocks that share one allocation each: a large answer then costs
    // a few big allocations instead of one per row, which is most of the time on a worker thread.
    struct Block {
        std::vector<rkservice::COrinQuoterSourceInfo> records;
    };
    const size_t kBlock = 4096;
    boost::shared_ptr<Block> block;
    // After the records: when the read fails half-way, it waits for its batches to be opened
    // before the records they write go.
    CPasswordOpener passwords(m_database.secrets());
    TagCache tags;
    while (query.next()) {
        if (!block || block->records.size() == kBlock) {
            block = boost::make_shared<Block>();
            // Reserved once and never grown, so the records stay where the pointers point.
            block->records.reserve(kBlock);
        }
        block->records.emplace_back();
        readRow(query, passwords, mayRead, &tags, &block->records.back());
        result.push_back(rkservice::IDataPtr(block, &block->records.back()));
    }
    passwords.finish();
    return result;
}

std::map<int, rkservice::COrinQuoterSourceInfo> CQuoteSourceStore::byIds(
    QSqlDatabase& db, const QString& subsystem, const std::vector<int>& ids, bool forUpdate) const {
    const QString lock = forUpdate && m_database.engine() == CDatabase::PostgreSQL
                             ? QStringLiteral(" FOR UPDATE")
                             : QString();
    std::map<int, rkservice::COrinQuoterSourceInfo> result;
    TagCache tags;
    for (size_t first = 0; first < ids.size(); first += kIdsPerStatement) {
        const size_t count = std::min(kIdsPerStatement, ids.size() - first);
        QStringList marks;
        for (size_t i = 0; i < count; ++i)
            marks << QStringLiteral("?");
        QSqlQuery query(db);
        query.setForwardOnly(true);
        query.prepare(columnsOf(m_database) +
                      QStringLiteral(" WHERE id IN (%1)").arg(marks.join(QLatin1Char(','))) +
                      (subsystem.isEmpty() ? QString() : QStringLiteral(" AND subsystem = ?")) +
                      lock);
        for (size_t i = 0; i < count; ++i)
            query.addBindValue(ids[first + i]);
        if (!subsystem.isEmpty())
            query.addBindValue(subsystem);
        m_database.exec(query);
        while (query.next()) {
            rkservice::COrinQuoterSourceInfo source;
            CPasswordOpener passwords(m_database.secrets());
            readRow(query, passwords, PasswordFilter(), &tags, &source);
            passwords.finish();
            result.emplace(source.m_nId, source);
        }
    }
    return result;
}

void CQuoteSourceStore::check(QSqlDatabase& db, const QString& subsystem,
                              const rkservice::COrinQuoterSourceInfo& source, int excludeId,
                              const rkservice::COrinQuoterSourceInfo* stored) const {
    CSourceValidator::checkFields(source, stored);
    // Stored as given or not at all: a conversion would change the password silently.
    if (QString::fromStdString(source.m_strPassword).toStdString() != source.m_strPassword)
        throw CServiceError("密码不是有效的 UTF-8 文本");
    const int platform = source.m_nPlatformId;
    if (!CSourceValidator::fixedPlatforms().count(platform) &&
        !CReferenceData::hasPlatform(m_database, db, platform))
        throw CServiceError("未知的平台: " + std::to_string(platform));
    QSqlQuery duplicate(db);
    if (source.m_nBrokerId == kNoBroker) {
        duplicate.prepare(QStringLiteral(
            "SELECT id FROM kx_orin_quoter_source WHERE subsystem = ? AND trade_type = ? AND "
            "platform_id = ? AND broker_id = 2147483647 AND address = ? AND port = ? AND id <> ?"));
        duplicate.addBindValue(subsystem);
        duplicate.addBindValue(source.m_nTradeType);
        duplicate.addBindValue(platform);
        duplicate.addBindValue(text(source.m_strAddress));
        duplicate.addBindValue(source.m_nPort);
        duplicate.addBindValue(excludeId);
        m_database.exec(duplicate);
        if (duplicate.next())
            throw CServiceError::conflict(
                "行情源已存在（同一分系统、交易类型、平台、地址和端口）: " + source.m_strAddress +
                ":" + std::to_string(source.m_nPort));
    } else {
        if (!CReferenceData::hasBroker(m_database, db, platform, source.m_nBrokerId))
            throw CServiceError("期货公司不存在: 平台 " + std::to_string(platform) +
                                " 没有期货公司 " + std::to_string(source.m_nBrokerId));
        if (!CReferenceData::hasServerGroup(m_database, db, platform, source.m_nBrokerId,
                                            source.m_nServerGroupId))
            throw CServiceError("服务器组不存在: 期货公司 " + std::to_string(source.m_nBrokerId) +
                                " 没有服务器组 " + std::to_string(source.m_nServerGroupId));
        duplicate.prepare(QStringLiteral(
            "SELECT id FROM kx_orin_quoter_source WHERE subsystem = ? AND trade_type = ? AND "
            "platform_id = ? AND broker_id = ? AND server_group_id = ? AND id <> ?"));
        duplicate.addBindValue(subsystem);
        duplicate.addBindValue(source.m_nTradeType);
        duplicate.addBindValue(platform);
        duplicate.addBindValue(source.m_nBrokerId);
        duplicate.addBindValue(source.m_nServerGroupId);
        duplicate.addBindValue(excludeId);
        m_database.exec(duplicate);
        if (duplicate.next())
            throw CServiceError::conflict(
                "行情源已存在（同一分系统、交易类型、平台、期货公司和服务器组）");
    }
}

std::vector<int> CQuoteSourceStore::add(
    QSqlDatabase& db, const QString& subsystem,
    const std::vector<rkservice::COrinQuoterSourceInfoPtr>& sources) const {
    const bool returning = m_database.engine() == CDatabase::PostgreSQL;
    QSqlQuery insert(db);
    insert.prepare(QStringLiteral("INSERT INTO kx_orin_quoter_source (subsystem, platform_id, "
                                  "broker_id, server_group_id, address, port, user_name, password, "
                                  "trade_type, markets) VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?)") +
                   (returning ? QStringLiteral(" RETURNING id") : QString()));
    const auto secrets = m_database.secrets();
    std::vector<int> ids;
    ids.reserve(sources.size());
    for (const auto& source : sources) {
        check(db, subsystem, *source, -1);
        insert.addBindValue(subsystem);
        bindColumns(insert, *source, *secrets);
        m_database.exec(insert);
        qlonglong id = 0;
        if (returning) {
            if (!insert.next())
                throw CServiceError::unavailable("数据库没有返回新行情源的编号");
            id = insert.value(0).toLongLong();
        } else {
            id = insert.lastInsertId().toLongLong();
        }
        if (id <= 0 || id >= kNoBroker)
            throw CServiceError::conflict("行情源编号已用尽");
        ids.push_back(int(id));
    }
    return ids;
}

std::map<int, rkservice::COrinQuoterSourceInfo> CQuoteSourceStore::modify(
    QSqlDatabase& db, const std::map<int, rkservice::COrinQuoterSourceInfo>& stored,
    const std::vector<rkservice::COrinQuoterSourceInfoPtr>& sources) const {
    std::map<int, rkservice::COrinQuoterSourceInfo> written;
    QSqlQuery update(db);
    update.prepare(
        QStringLiteral("UPDATE kx_orin_quoter_source SET platform_id = ?, broker_id = "
                       "?, server_group_id = ?, address = ?, port = ?, user_name = ?, "
                       "password = ?, trade_type = ?, markets = ?, revision = revision + 1 WHERE "
                       "id = ?"));
    for (const auto& incoming : sources) {
        const auto old = stored.find(incoming->m_nId);
        if (old == stored.end())
            throw CServiceError::notFound("行情源不存在: " + std::to_string(incoming->m_nId));
        rkservice::COrinQuoterSourceInfo source(*incoming);
        // The all-types panel edits with trade type -1 and no market list: both mean "unchanged".
        if (source.m_nTradeType == -1)
            source.m_nTradeType = old->second.m_nTradeType;
        if (source.m_strMarkets.empty())
            source.m_strMarkets = old->second.m_strMarkets;
        check(db, QString::fromStdString(old->second.getSystemTag()), source, source.m_nId,
              &old->second);
        bindColumns(update, source, *m_database.secrets());
        update.addBindValue(source.m_nId);
        m_database.exec(update);
        // Gone since it was read (a writer outside this service): a change of nothing is no change.
        if (update.numRowsAffected() != 1)
            throw CServiceError::notFound("行情源不存在: " + std::to_string(source.m_nId));
        source.setSystemTag(old->second.getSystemTag());
        // The row is the transaction's since byIds read it: no one else advanced it meanwhile.
        source.setRevision(old->second.getRevision() + 1);
        written[source.m_nId] = source;
    }
    return written;
}

std::map<int, CStoredKind> CQuoteSourceStore::kindsOf(
    const std::map<int, rkservice::COrinQuoterSourceInfo>& stored) {
    std::map<int, CStoredKind> kinds;
    for (const auto& row : stored)
        kinds[row.first] = CStoredKind{row.second.m_nTradeType, row.second.m_nPlatformId};
    return kinds;
}

void CQuoteSourceStore::remove(QSqlDatabase& db, const QString& subsystem,
                               const std::vector<int>& ids) const {
    QSqlQuery erase(db);
    erase.prepare(
        subsystem.isEmpty()
            ? QStringLiteral("DELETE FROM kx_orin_quoter_source WHERE id = ?")
            : QStringLiteral("DELETE FROM kx_orin_quoter_source WHERE id = ? AND subsystem = ?"));
    for (int id : ids) {
        erase.addBindValue(id);
        if (!subsystem.isEmpty())
            erase.addBindValue(subsystem);
        m_database.exec(erase);
        if (erase.numRowsAffected() != 1)
            throw CServiceError::notFound("行情源不存在: " + std::to_string(id));
    }
}

void CQuoteSourceStore::insertRaw(QSqlDatabase& db, const QString& subsystem,
                                  const rkservice::COrinQuoterSourceInfo& source) const {
    QSqlQuery insert(db);
    insert.prepare(
        QStringLiteral("INSERT INTO kx_orin_quoter_source (id, subsystem, platform_id, "
                       "broker_id, server_group_id, address, port, user_name, password, "
                       "trade_type, markets) VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)"));
    insert.addBindValue(source.m_nId);
    insert.addBindValue(subsystem);
    bindColumns(insert, source, *m_database.secrets());
    m_database.exec(insert);
}

void CQuoteSourceStore::resetIdSequence(QSqlDatabase& db) const {
    if (m_database.engine() == CDatabase::PostgreSQL) {
        m_database.exec(
            db, QStringLiteral("SELECT setval(pg_get_serial_sequence('kx_orin_quoter_source', "
                               "'id'), COALESCE((SELECT max(id) FROM kx_orin_quoter_source), 0) + "
                               "1, false)"));
        return;
    }
    // AUTOINCREMENT never goes back on its own: a counter left high by an earlier content would
    // run out of ids sooner than the imported content warrants.
    m_database.exec(
        db, QStringLiteral("DELETE FROM sqlite_sequence WHERE name = 'kx_orin_quoter_source'"));
    m_database.exec(db, QStringLiteral("INSERT INTO sqlite_sequence (name, seq) SELECT "
                                       "'kx_orin_quoter_source', COALESCE(max(id), 0) FROM "
                                       "kx_orin_quoter_source"));
}
