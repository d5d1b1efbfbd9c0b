#pragma once

#include <QJsonArray>
#include <QSqlDatabase>
#include <vector>

#include "rkservice/IData.h"

class CDatabase;

// The futures reference data: platforms (data type 12262) and their brokers with server groups
// (data type 12261). Shipped as JSON with the service and kept in the database.
class CReferenceData {
public:
    static QJsonArray seedPlatforms();
    static QJsonArray seedBrokers();

    // Checks a platform and broker document; throws CServiceError naming the first fault.
    static void validate(const QJsonArray& platforms, const QJsonArray& brokers);
    // Replaces the reference tables with the documents (validated first).
    static void write(const CDatabase& database, QSqlDatabase& db, const QJsonArray& platforms,
                      const QJsonArray& brokers);
    static QJsonArray readPlatforms(const CDatabase& database, QSqlDatabase& db);
    static QJsonArray readBrokers(const CDatabase& database, QSqlDatabase& db);

    // Records of one trade type (all when filter is false), without system tags; branded
    // selects the product names with the maker's prefix.
    static std::vector<rkservice::IDataPtr> platformRecords(const CDatabase& database,
                                                            QSqlDatabase& db, bool filter,
                                                            int tradeType, bool branded);
    static std::vector<rkservice::IDataPtr> brokerRecords(const CDatabase& database,
                                                          QSqlDatabase& db, bool filter,
                                                          int tradeType, bool branded);

    static bool hasPlatform(const CDatabase& database, QSqlDatabase& db, int platformId);
    static bool hasBroker(const CDatabase& database, QSqlDatabase& db, int platformId,
                          int brokerId);
    static bool hasServerGroup(const CDatabase& database, QSqlDatabase& db, int platformId,
                               int brokerId, int groupId);

    // The broker id of a key "<id>_<text>": its leading decimal number; false when there is none.
    static bool brokerIdOfKey(const QString& key, int* brokerId);
};
