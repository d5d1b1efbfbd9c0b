#include "CSecretColumns.h"

#include <QSqlQuery>
#include <QVariant>
#include <utility>
#include <vector>

#include "CDatabase.h"
#include "CSecretBox.h"

namespace {

const QString kCheckName = QStringLiteral("secrets_check");

// Reads the whole column first: the update must not run while the select still steps.
void resealColumn(const CDatabase& database, QSqlDatabase& db, const QString& table,
                  const QString& key, const QString& column, const CSecretColumns::Reader& read,
                  const CSecretBox& to) {
    QSqlQuery select(db);
    select.setForwardOnly(true);
    select.prepare(QStringLiteral("SELECT %1, %2 FROM %3").arg(key, column, table));
    database.exec(select);
    std::vector<std::pair<QVariant, QString>> rows;
    while (select.next())
        rows.emplace_back(select.value(0), select.value(1).toString());
    select.finish();
    QSqlQuery update(db);
    update.prepare(QStringLiteral("UPDATE %1 SET %2 = ? WHERE %3 = ?").arg(table, column, key));
    for (const auto& row : rows) {
        update.addBindValue(to.seal(read(row.second)));
        update.addBindValue(row.first);
        database.exec(update);
    }
}

QString storedCheck(const CDatabase& database, QSqlDatabase& db, bool* found) {
    QSqlQuery query(db);
    query.prepare(QStringLiteral("SELECT val FROM meta WHERE name = ?"));
    query.addBindValue(kCheckName);
    database.exec(query);
    *found = query.next();
    return *found ? query.value(0).toString() : QString();
}

}  // namespace

void CSecretColumns::reseal(const CDatabase& database, QSqlDatabase& db, const Reader& read,
                            const CSecretBox& to) {
    resealColumn(database, db, QStringLiteral("kx_orin_quoter_source"), QStringLiteral("id"),
                 QStringLiteral("password"), read, to);
    resealColumn(database, db, QStringLiteral("level2_token"), QStringLiteral("slot"),
                 QStringLiteral("token"), read, to);
    QSqlQuery check(db);
    check.prepare(
        QStringLiteral("INSERT INTO meta (name, val) VALUES (?, ?) ON CONFLICT (name) "
                       "DO UPDATE SET val = excluded.val"));
    check.addBindValue(kCheckName);
    check.addBindValue(to.checkValue());
    database.exec(check);
}

bool CSecretColumns::hasCheck(const CDatabase& database, QSqlDatabase& db) {
    bool found = false;
    storedCheck(database, db, &found);
    return found;
}

bool CSecretColumns::matches(const CDatabase& database, QSqlDatabase& db, const CSecretBox& box) {
    bool found = false;
    const QString check = storedCheck(database, db, &found);
    return found && box.matches(check);
}
