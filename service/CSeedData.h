#pragma once

#include <QSqlDatabase>

class CDatabase;

// What a new database starts with.
class CSeedData {
public:
    // Two sub-systems, their whole-quote settings, the futures platforms, the users and the
    // login-type setting; the sample brokers only with sampleBrokers (their addresses are
    // documentation ranges that reach nothing, so a production database starts without any).
    static void seed(const CDatabase& database, QSqlDatabase& db, bool sampleBrokers);
    // The least a database needs to answer requests: one sub-system.
    static void seedMinimal(const CDatabase& database, QSqlDatabase& db);
};
