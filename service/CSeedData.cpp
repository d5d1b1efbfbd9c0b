#include "CSeedData.h"

#include <QJsonArray>
#include <QSqlQuery>
#include <QVariant>
#include <vector>

#include "CDatabase.h"
#include "CReferenceData.h"

namespace {

struct SeedUser {
    const char* name;
    int systemId;
    std::vector<int> rights;
};

const std::vector<SeedUser>& seedUsers() {
    static const std::vector<SeedUser> users = {
        // Every right of the quote-source and Level-2 panels, the whole-quote settings (90001)
        // and administration (90002); administers every sub-system.
        {"admin", -1, {10385, 10937, 11231, 10709, 11029, 11019, 12147, 12361, 12353,
                       11222, 12369, 10389, 10563, 10711, 10713, 11031, 11033, 11021,
                       11023, 12149, 12151, 12363, 12365, 12355, 12357, 11223, 11224,
                       12370, 12372, 10387, 11230, 12532, 12534, 12536, 90001, 90002}},
        // Futures and futures options only.
        {"futures_op", 0, {10385, 11231, 10387, 11230}},
        // Stocks only.
        {"stock_op", 0, {10937, 10389, 10563}},
        // Looks, changes nothing.
        {"viewer", 0, {}},
    };
    return users;
}

void insertSubsystem(const CDatabase& database, QSqlDatabase& db, const QString& name,
                     const QString& display, int order) {
    QSqlQuery insert(db);
    insert.prepare(
        QStringLiteral("INSERT INTO subsystems (name, display_name, ord) VALUES (?, ?, ?)"));
    insert.addBindValue(name);
    insert.addBindValue(display);
    insert.addBindValue(order);
    database.exec(insert);
}

}  // namespace

void CSeedData::seedMinimal(const CDatabase& database, QSqlDatabase& db) {
    insertSubsystem(database, db, QStringLiteral("sys1"), QStringLiteral("主站"), 0);
}

void CSeedData::seed(const CDatabase& database, QSqlDatabase& db, bool sampleBrokers) {
    insertSubsystem(database, db, QStringLiteral("sys1"), QStringLiteral("上海主站"), 0);
    insertSubsystem(database, db, QStringLiteral("sys2"), QStringLiteral("深圳备站"), 1);

    QSqlQuery market(db);
    market.prepare(
        QStringLiteral("INSERT INTO whole_quote (subsystem, market, enabled) VALUES (?, ?, ?)"));
    for (const QString& subsystem : {QStringLiteral("sys1"), QStringLiteral("sys2")}) {
        // Stocks are pushed whole by default; the other markets are opted in by an operator.
        for (const char* code : {"SH", "SZ"}) {
            market.addBindValue(subsystem);
            market.addBindValue(QString::fromLatin1(code));
            market.addBindValue(1);
            database.exec(market);
        }
    }

    CReferenceData::write(database, db, CReferenceData::seedPlatforms(),
                          sampleBrokers ? CReferenceData::seedBrokers() : QJsonArray());

    QSqlQuery user(db);
    user.prepare(QStringLiteral("INSERT INTO users (name, system_id) VALUES (?, ?)"));
    QSqlQuery right(db);
    right.prepare(QStringLiteral("INSERT INTO user_rights (user_name, right_id) VALUES (?, ?)"));
    for (const SeedUser& seed : seedUsers()) {
        user.addBindValue(QString::fromLatin1(seed.name));
        user.addBindValue(seed.systemId);
        database.exec(user);
        for (int id : seed.rights) {
            right.addBindValue(QString::fromLatin1(seed.name));
            right.addBindValue(id);
            database.exec(right);
        }
    }

    database.exec(db,
                  QStringLiteral("INSERT INTO meta (name, val) VALUES ('login_type_auth.0', '1')"));
}
