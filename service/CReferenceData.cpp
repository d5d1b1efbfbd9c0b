#include "CReferenceData.h"

#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSqlQuery>
#include <QVariant>
#include <boost/make_shared.hpp>
#include <limits>
#include <set>

#include "CDatabase.h"
#include "CServiceError.h"
#include "rkservice/COrinBrokerInfo.h"
#include "rkservice/COrinPlatformInfo.h"

namespace {

QJsonArray loadSeed(const QString& path, const QString& key) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        throw CServiceError::unavailable("缺少内置参考数据: " + path.toStdString());
    return QJsonDocument::fromJson(file.readAll()).object().value(key).toArray();
}

[[noreturn]] void refuse(const QString& text) {
    throw CServiceError(text.toStdString());
}

bool isInt(const QJsonValue& value) {
    return value.isDouble() && value.toDouble() == double(value.toInt());
}

}  // namespace

QJsonArray CReferenceData::seedPlatforms() {
    return loadSeed(QStringLiteral(":/quotes-service/platforms.json"), QStringLiteral("platforms"));
}

QJsonArray CReferenceData::seedBrokers() {
    return loadSeed(QStringLiteral(":/quotes-service/brokers.json"), QStringLiteral("brokers"));
}

bool CReferenceData::brokerIdOfKey(const QString& key, int* brokerId) {
    bool ok = false;
    const int id = key.section(QLatin1Char('_'), 0, 0).toInt(&ok, 10);
    if (ok)
        *brokerId = id;
    return ok;
}

void CReferenceData::validate(const QJsonArray& platforms, const QJsonArray& brokers) {
    std::set<int> platformIds;
    for (const QJsonValue& value : platforms) {
        const QJsonObject p = value.toObject();
        if (!isInt(p.value(QLatin1String("platformId"))) ||
            !p.value(QLatin1String("name")).isString() ||
            !isInt(p.value(QLatin1String("tradeType"))))
            refuse(QStringLiteral("平台数据格式错误"));
        const int id = p.value(QLatin1String("platformId")).toInt();
        const int tradeType = p.value(QLatin1String("tradeType")).toInt();
        if (tradeType != 1 && tradeType != 5)
            refuse(QStringLiteral("平台 %1 的交易类型必须是期货(1)或期货期权(5)").arg(id));
        if (!platformIds.insert(id).second)
            refuse(QStringLiteral("平台重复: %1").arg(id));
    }
    std::set<std::pair<int, int>> brokerIds;
    for (const QJsonValue& value : brokers) {
        const QJsonObject b = value.toObject();
        const int platformId = b.value(QLatin1String("platformId")).toInt();
        const QString key = b.value(QLatin1String("brokerKey")).toString();
        int brokerId = 0;
        if (!isInt(b.value(QLatin1String("platformId"))) || !brokerIdOfKey(key, &brokerId) ||
            !b.value(QLatin1String("brokerName")).isString() ||
            !b.value(QLatin1String("serverGroups")).isArray())
            refuse(QStringLiteral("期货公司数据格式错误: %1").arg(key));
        // Sources name "no broker" with 2147483647, so no broker may have that id.
        if (brokerId <= 0 || brokerId == std::numeric_limits<int>::max())
            refuse(QStringLiteral("期货公司编号必须为正数且不是 2147483647: %1").arg(key));
        if (!platformIds.count(platformId))
            refuse(QStringLiteral("期货公司 %1 的平台不存在: %2").arg(key).arg(platformId));
        if (!brokerIds.insert({platformId, brokerId}).second)
            refuse(QStringLiteral("期货公司重复: %1").arg(key));
        std::set<int> groupIds;
        for (const QJsonValue& g : b.value(QLatin1String("serverGroups")).toArray()) {
            const QJsonObject group = g.toObject();
            if (!isInt(group.value(QLatin1String("serverGroupId"))) ||
                !group.value(QLatin1String("serverGroupName")).isString() ||
                !group.value(QLatin1String("serverAddresses")).isArray())
                refuse(QStringLiteral("服务器组数据格式错误: %1").arg(key));
            if (!groupIds.insert(group.value(QLatin1String("serverGroupId")).toInt()).second)
                refuse(QStringLiteral("服务器组重复: %1").arg(key));
            for (const QJsonValue& address :
                 group.value(QLatin1String("serverAddresses")).toArray()) {
                if (!address.isString() || address.toString().contains(QLatin1Char('\n')))
                    refuse(QStringLiteral("服务器地址数据格式错误: %1").arg(key));
            }
        }
    }
}

void CReferenceData::write(const CDatabase& database, QSqlDatabase& db, const QJsonArray& platforms,
                           const QJsonArray& brokers) {
    validate(platforms, brokers);
    database.exec(db, QStringLiteral("DELETE FROM server_groups"));
    database.exec(db, QStringLiteral("DELETE FROM brokers"));
    database.exec(db, QStringLiteral("DELETE FROM platforms"));
    QSqlQuery insertPlatform(db);
    insertPlatform.prepare(QStringLiteral(
        "INSERT INTO platforms (platform_id, name, branded_name, trade_type) VALUES (?, ?, ?, ?)"));
    for (const QJsonValue& value : platforms) {
        const QJsonObject p = value.toObject();
        const QString name = p.value(QLatin1String("name")).toString();
        insertPlatform.addBindValue(p.value(QLatin1String("platformId")).toInt());
        insertPlatform.addBindValue(name);
        insertPlatform.addBindValue(p.value(QLatin1String("brandedName")).toString(name));
        insertPlatform.addBindValue(p.value(QLatin1String("tradeType")).toInt());
        database.exec(insertPlatform);
    }
    QSqlQuery insertBroker(db);
    insertBroker.prepare(
        QStringLiteral("INSERT INTO brokers (platform_id, broker_id, broker_key, "
                       "broker_name, ord) VALUES (?, ?, ?, ?, ?)"));
    QSqlQuery insertGroup(db);
    insertGroup.prepare(
        QStringLiteral("INSERT INTO server_groups (platform_id, broker_id, group_id, "
                       "group_name, addresses, ord) VALUES (?, ?, ?, ?, ?, ?)"));
    int brokerOrder = 0;
    for (const QJsonValue& value : brokers) {
        const QJsonObject b = value.toObject();
        const int platformId = b.value(QLatin1String("platformId")).toInt();
        const QString key = b.value(QLatin1String("brokerKey")).toString();
        int brokerId = 0;
        brokerIdOfKey(key, &brokerId);
        insertBroker.addBindValue(platformId);
        insertBroker.addBindValue(brokerId);
        insertBroker.addBindValue(key);
        insertBroker.addBindValue(b.value(QLatin1String("brokerName")).toString());
        insertBroker.addBindValue(brokerOrder++);
        database.exec(insertBroker);
        int groupOrder = 0;
        for (const QJsonValue& g : b.value(QLatin1String("serverGroups")).toArray()) {
            const QJsonObject group = g.toObject();
            QStringList addresses;
            for (const QJsonValue& address :
                 group.value(QLatin1String("serverAddresses")).toArray())
                addresses << address.toString();
            insertGroup.addBindValue(platformId);
            insertGroup.addBindValue(brokerId);
            insertGroup.addBindValue(group.value(QLatin1String("serverGroupId")).toInt());
            insertGroup.addBindValue(group.value(QLatin1String("serverGroupName")).toString());
            insertGroup.addBindValue(addresses.join(QLatin1Char('\n')));
            insertGroup.addBindValue(groupOrder++);
            database.exec(insertGroup);
        }
    }
}

QJsonArray CReferenceData::readPlatforms(const CDatabase& database, QSqlDatabase& db) {
    QSqlQuery query(db);
    query.setForwardOnly(true);
    query.prepare(QStringLiteral(
        "SELECT platform_id, name, branded_name, trade_type FROM platforms ORDER BY platform_id"));
    database.exec(query);
    QJsonArray result;
    while (query.next()) {
        QJsonObject p;
        p.insert(QStringLiteral("platformId"), query.value(0).toInt());
        p.insert(QStringLiteral("name"), query.value(1).toString());
        if (query.value(2).toString() != query.value(1).toString())
            p.insert(QStringLiteral("brandedName"), query.value(2).toString());
        p.insert(QStringLiteral("tradeType"), query.value(3).toInt());
        result.append(p);
    }
    return result;
}

QJsonArray CReferenceData::readBrokers(const CDatabase& database, QSqlDatabase& db) {
    QSqlQuery groups(db);
    groups.setForwardOnly(true);
    groups.prepare(
        QStringLiteral("SELECT platform_id, broker_id, group_id, group_name, addresses "
                       "FROM server_groups ORDER BY platform_id, broker_id, ord"));
    database.exec(groups);
    std::map<std::pair<int, int>, QJsonArray> groupsOf;
    while (groups.next()) {
        QJsonObject group;
        group.insert(QStringLiteral("serverGroupId"), groups.value(2).toInt());
        group.insert(QStringLiteral("serverGroupName"), groups.value(3).toString());
        const QString addresses = groups.value(4).toString();
        group.insert(QStringLiteral("serverAddresses"),
                     QJsonArray::fromStringList(
                         addresses.isEmpty() ? QStringList() : addresses.split(QLatin1Char('\n'))));
        groupsOf[{groups.value(0).toInt(), groups.value(1).toInt()}].append(group);
    }
    QSqlQuery query(db);
    query.setForwardOnly(true);
    query.prepare(QStringLiteral(
        "SELECT platform_id, broker_id, broker_key, broker_name FROM brokers ORDER BY ord"));
    database.exec(query);
    QJsonArray result;
    while (query.next()) {
        QJsonObject b;
        b.insert(QStringLiteral("platformId"), query.value(0).toInt());
        b.insert(QStringLiteral("brokerKey"), query.value(2).toString());
        b.insert(QStringLiteral("brokerName"), query.value(3).toString());
        b.insert(QStringLiteral("serverGroups"),
                 groupsOf[{query.value(0).toInt(), query.value(1).toInt()}]);
        result.append(b);
    }
    return result;
}

std::vector<rkservice::IDataPtr> CReferenceData::platformRecords(const CDatabase& database,
                                                                 QSqlDatabase& db, bool filter,
                                                                 int tradeType, bool branded) {
    std::vector<rkservice::IDataPtr> result;
    for (const QJsonValue& value : readPlatforms(database, db)) {
        const QJsonObject p = value.toObject();
        if (filter && p.value(QLatin1String("tradeType")).toInt() != tradeType)
            continue;
        auto record = boost::make_shared<rkservice::COrinPlatformInfo>();
        record->platformId = p.value(QLatin1String("platformId")).toInt();
        const QString name = p.value(QLatin1String("name")).toString();
        record->platformName =
            (branded ? p.value(QLatin1String("brandedName")).toString(name) : name).toStdString();
        result.push_back(record);
    }
    return result;
}

std::vector<rkservice::IDataPtr> CReferenceData::brokerRecords(const CDatabase& database,
                                                               QSqlDatabase& db, bool filter,
                                                               int tradeType, bool branded) {
    std::map<int, std::pair<int, std::string>> platforms;
    for (const QJsonValue& value : readPlatforms(database, db)) {
        const QJsonObject p = value.toObject();
        const QString name = p.value(QLatin1String("name")).toString();
        platforms[p.value(QLatin1String("platformId")).toInt()] = {
            p.value(QLatin1String("tradeType")).toInt(),
            (branded ? p.value(QLatin1String("brandedName")).toString(name) : name).toStdString()};
    }
    std::vector<rkservice::IDataPtr> result;
    for (const QJsonValue& value : readBrokers(database, db)) {
        const QJsonObject b = value.toObject();
        const auto platform = platforms.find(b.value(QLatin1String("platformId")).toInt());
        if (platform == platforms.end() || (filter && platform->second.first != tradeType))
            continue;
        auto record = boost::make_shared<rkservice::COrinBrokerInfo>();
        record->platformId = platform->first;
        record->platformName = platform->second.second;
        record->brokerKey = b.value(QLatin1String("brokerKey")).toString().toStdString();
        record->brokerName = b.value(QLatin1String("brokerName")).toString().toStdString();
        for (const QJsonValue& g : b.value(QLatin1String("serverGroups")).toArray()) {
            const QJsonObject group = g.toObject();
            auto entry = boost::make_shared<rkservice::COrinServerGroup>();
            entry->serverGroupId = group.value(QLatin1String("serverGroupId")).toInt();
            entry->serverGroupName =
                group.value(QLatin1String("serverGroupName")).toString().toStdString();
            for (const QJsonValue& address :
                 group.value(QLatin1String("serverAddresses")).toArray())
                entry->serverAddresses.push_back(address.toString().toStdString());
            record->serverGroups.push_back(entry);
        }
        result.push_back(record);
    }
    return result;
}

bool CReferenceData::hasPlatform(const CDatabase& database, QSqlDatabase& db, int platformId) {
    QSqlQuery query(db);
    query.prepare(QStringLiteral("SELECT 1 FROM platforms WHERE platform_id = ?"));
    query.addBindValue(platformId);
    database.exec(query);
    return query.next();
}

bool CReferenceData::hasBroker(const CDatabase& database, QSqlDatabase& db, int platformId,
                               int brokerId) {
    QSqlQuery query(db);
    query.prepare(QStringLiteral("SELECT 1 FROM brokers WHERE platform_id = ? AND broker_id = ?"));
    query.addBindValue(platformId);
    query.addBindValue(brokerId);
    database.exec(query);
    return query.next();
}

bool CReferenceData::hasServerGroup(const CDatabase& database, QSqlDatabase& db, int platformId,
                                    int brokerId, int groupId) {
    QSqlQuery query(db);
    query.prepare(
        QStringLiteral("SELECT 1 FROM server_groups WHERE platform_id = ? AND broker_id = "
                       "? AND group_id = ?"));
    query.addBindValue(platformId);
    query.addBindValue(brokerId);
    query.addBindValue(groupId);
    database.exec(query);
    return query.next();
}
