#pragma once

#include <QSqlDatabase>

class CDatabase;

// What a new database starts with.
class CSeedData {
public:
    // Two sub-systems, their whole-quote settings, the futures reference data, the users and
    // the login-type setting.
    static void seed(const CDatabase& database, QSqlDatabase& db);
    // The least a database needs to answer requests: one sub-system.
    static void seedMinimal(const CDatabase& database, QSqlDatabase& db);
};
