#include "CLoginFailures.h"

#include <QSqlQuery>
#include <QStringList>
#include <QVariant>
#include <algorithm>

#include "CDatabase.h"

CLoginFailures::CLoginFailures(const CDatabase& database, const Rule& rule)
    : m_database(database), m_rule(rule) {}

qint64 CLoginFailures::lockedFor(QSqlDatabase& db, const QString& account, const QString& address,
                                 qint64 nowMs) const {
    QSqlQuery query(db);
    query.prepare(
        QStringLiteral("SELECT failures, locked_until_ms FROM login_failures WHERE "
                       "account = ? AND client_address = ?"));
    query.addBindValue(account);
    query.addBindValue(address);
    m_database.exec(query);
    if (!query.next() || query.value(0).toInt() < m_rule.failuresBeforeLockout)
        return 0;
    return std::max<qint64>(0, query.value(1).toLongLong() - nowMs);
}

qint64 CLoginFailures::lockoutAfter(int failures) const {
    const int over = failures - m_rule.failuresBeforeLockout;
    if (over < 0)
        return 0;
    // Doubling stops long before the shift could overflow: the cap is reached first.
    qint64 interval = m_rule.baseLockoutMs;
    for (int i = 0; i < over && interval < m_rule.maxLockoutMs; ++i)
        interval *= 2;
    return std::min(interval, m_rule.maxLockoutMs);
}

void CLoginFailures::recordFailure(QSqlDatabase& db, const QString& account, const QString& address,
                                   qint64 nowMs) const {
    QSqlQuery read(db);
    read.prepare(QStringLiteral(
        "SELECT failures FROM login_failures WHERE account = ? AND client_address = ?"));
    read.addBindValue(account);
    read.addBindValue(address);
    m_database.exec(read);
    const bool known = read.next();
    const int failures = (known ? read.value(0).toInt() : 0) + 1;
    read.finish();
    const qint64 lockout = lockoutAfter(failures);
    QSqlQuery write(db);
    write.prepare(known ? QStringLiteral("UPDATE login_failures SET failures = ?, "
                                         "last_failure_ms = ?, locked_until_ms = ? WHERE "
                                         "account = ? AND client_address = ?")
                        : QStringLiteral("INSERT INTO login_failures (failures, last_failure_ms, "
                                         "locked_until_ms, account, client_address) VALUES "
                                         "(?, ?, ?, ?, ?)"));
    write.addBindValue(failures);
    write.addBindValue(nowMs);
    write.addBindValue(lockout > 0 ? nowMs + lockout : qint64(0));
    write.addBindValue(account);
    write.addBindValue(address);
    m_database.exec(write);
}

int CLoginFailures::failingAddresses(QSqlDatabase& db, const QString& account, qint64 nowMs) const {
    QSqlQuery query(db);
    query.prepare(
        QStringLiteral("SELECT count(*) FROM login_failures WHERE account = ? AND "
                       "last_failure_ms >= ?"));
    query.addBindValue(account);
    query.addBindValue(nowMs - m_rule.forgetAfterMs);
    m_database.exec(query);
    return query.next() ? query.value(0).toInt() : 0;
}

int CLoginFailures::clear(QSqlDatabase& db, const QString& account, const QString& address) const {
    QStringList conditions;
    if (!account.isEmpty())
        conditions << QStringLiteral("account = ?");
    if (!address.isEmpty())
        conditions << QStringLiteral("client_address = ?");
    if (conditions.isEmpty())
        return 0;
    QSqlQuery erase(db);
    erase.prepare(QStringLiteral("DELETE FROM login_failures WHERE ") +
                  conditions.join(QStringLiteral(" AND ")));
    if (!account.isEmpty())
        erase.addBindValue(account);
    if (!address.isEmpty())
        erase.addBindValue(address);
    m_database.exec(erase);
    return erase.numRowsAffected();
}

void CLoginFailures::forgetQuiet(QSqlDatabase& db, qint64 nowMs) const {
    QSqlQuery erase(db);
    erase.prepare(QStringLiteral(
        "DELETE FROM login_failures WHERE locked_until_ms <= ? AND last_failure_ms < ?"));
    erase.addBindValue(nowMs);
    erase.addBindValue(nowMs - m_rule.forgetAfterMs);
    m_database.exec(erase);
}
