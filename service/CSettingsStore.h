#pragma once

#include <QSqlDatabase>
#include <QStringList>
#include <map>
#include <vector>

#include "Hlx/IDataServiceBackend.h"

class CDatabase;

// The platform's settings: its sub-systems (first = default) and, per login type, whether
// clients count as logged in with it. Every call runs inside the caller's transaction.
class CSettingsStore {
public:
    explicit CSettingsStore(const CDatabase& database) : m_database(database) {}

    // In their order; throws when there is none, which no database may have.
    std::vector<Hlx::SubsystemInfo> subsystems(QSqlDatabase& db) const;
    std::map<int, bool> loginTypeAuth(QSqlDatabase& db) const;

    // Throws naming the fault: none at all, an empty name or a name twice.
    static void checkSubsystems(const std::vector<Hlx::SubsystemInfo>& subsystems);
    // Makes the table hold exactly the list; a sub-system that still holds sources cannot be
    // removed when keepSources is set.
    void writeSubsystems(QSqlDatabase& db, const std::vector<Hlx::SubsystemInfo>& subsystems,
                         bool keepSources) const;
    void setLoginTypeAuth(QSqlDatabase& db, int loginType, bool granted) const;
    // Replaces every login type's setting (import).
    void replaceLoginTypeAuth(QSqlDatabase& db, const std::map<int, bool>& settings) const;

private:
    QStringList subsystemNames(QSqlDatabase& db) const;
    bool holdsSources(QSqlDatabase& db, const QString& subsystem) const;

    const CDatabase& m_database;
};
