#pragma once

#include <QSqlDatabase>
#include <QString>
#include <QtGlobal>

class CDatabase;

// The failed-login counters, in the database (login_failures), so that every server on one
// database enforces them and a restart keeps them. A counter belongs to one (account, address)
// pair: failures from one address never lock the account elsewhere, and names that are no
// account count on ('', address), which never stands in a real account's way. Each function
// runs in the transaction it is given.
class CLoginFailures {
public:
    struct Rule {
        // Failures of a pair before its further attempts are refused unchecked.
        int failuresBeforeLockout = 5;
        // First lockout; it doubles with every further failure, up to maxLockoutMs.
        qint64 baseLockoutMs = 30 * 1000;
        qint64 maxLockoutMs = 15 * 60 * 1000;
        // A counter without failures for this long (and not locked out) is forgotten.
        qint64 forgetAfterMs = 60 * 60 * 1000;
    };

    CLoginFailures(const CDatabase& database, const Rule& rule);

    // The remaining lockout of the pair in ms; 0: it may try.
    qint64 lockedFor(QSqlDatabase& db, const QString& account, const QString& address,
                     qint64 nowMs) const;
    // Counts a failure of the pair and starts or lengthens its lockout.
    void recordFailure(QSqlDatabase& db, const QString& account, const QString& address,
                       qint64 nowMs) const;
    // How many addresses failed for the account within the forget interval.
    int failingAddresses(QSqlDatabase& db, const QString& account, qint64 nowMs) const;
    // Forgets the counters of an account (every address), of an address (every name), or of the
    // pair when both are given; how many went.
    int clear(QSqlDatabase& db, const QString& account, const QString& address) const;
    // Removes the counters that are quiet and not locked out.
    void forgetQuiet(QSqlDatabase& db, qint64 nowMs) const;

private:
    qint64 lockoutAfter(int failures) const;

    const CDatabase& m_database;
    const Rule m_rule;
};
