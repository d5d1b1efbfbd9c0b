#include "CSettingsStore.h"

#include <QSqlQuery>
#include <QStringList>
#include <QVariant>
#include <set>

#include "CDatabase.h"
#include "CServiceError.h"

namespace {

// Login-type settings live in the meta table under "login_type_auth.<type>".
QString settingName(int loginType) {
    return QStringLiteral("login_type_auth.%1").arg(loginType);
}

}  // namespace

std::vector<Hlx::SubsystemInfo> CSettingsStore::subsystems(QSqlDatabase& db) const {
    std::vector<Hlx::SubsystemInfo> result;
    QSqlQuery query(db);
    query.setForwardOnly(true);
    query.prepare(QStringLiteral("SELECT name, display_name FROM subsystems ORDER BY ord, name"));
    m_database.exec(query);
    while (query.next())
        result.push_back(
            {query.value(0).toString().toStdString(), query.value(1).toString().toStdString()});
    if (result.empty())
        throw CServiceError::unavailable("数据库中没有分系统");
    return result;
}

std::map<int, bool> CSettingsStore::loginTypeAuth(QSqlDatabase& db) const {
    std::map<int, bool> result;
    QSqlQuery query(db);
    query.setForwardOnly(true);
    query.prepare(QStringLiteral("SELECT name, val FROM meta WHERE name LIKE 'login_type_auth.%'"));
    m_database.exec(query);
    while (query.next())
        result[query.value(0).toString().section(QLatin1Char('.'), 1).toInt()] =
            query.value(1).toString() == QLatin1String("1");
    return result;
}

void CSettingsStore::checkSubsystems(const std::vector<Hlx::SubsystemInfo>& subsystems) {
    if (subsystems.empty())
        throw CServiceError("至少需要一个分系统");
    std::set<std::string> names;
    for (const auto& info : subsystems) {
        if (info.name.empty() || info.displayName.empty())
            throw CServiceError("分系统的名称和显示名称不能为空");
        if (!names.insert(info.name).second)
            throw CServiceError("分系统名称重复: " + info.name);
    }
}

bool CSettingsStore::holdsSources(QSqlDatabase& db, const QString& subsystem) const {
    QSqlQuery query(db);
    query.prepare(
        QStringLiteral("SELECT 1 FROM kx_orin_quoter_source WHERE subsystem = ? LIMIT 1"));
    query.addBindValue(subsystem);
    m_database.exec(query);
    return query.next();
}

void CSettingsStore::writeSubsystems(QSqlDatabase& db,
                                     const std::vector<Hlx::SubsystemInfo>& subsystems,
                                     bool keepSources) const {
    std::set<QString> wanted;
    for (const auto& info : subsystems)
        wanted.insert(QString::fromStdString(info.name));
    const QStringList existing = subsystemNames(db);
    for (const QString& name : existing) {
        if (wanted.count(name))
            continue;
        if (keepSources && holdsSources(db, name))
            throw CServiceError::conflict("分系统 " + name.toStdString() + " 仍有行情源，不能删除");
        QSqlQuery erase(db);
        erase.prepare(QStringLiteral("DELETE FROM subsystems WHERE name = ?"));
        erase.addBindValue(name);
        m_database.exec(erase);
    }
    int order = 0;
    for (const auto& info : subsystems) {
        const QString name = QString::fromStdString(info.name);
        QSqlQuery write(db);
        write.prepare(
            existing.contains(name)
                ? QStringLiteral("UPDATE subsystems SET display_name = ?, ord = ? WHERE name = ?")
                : QStringLiteral(
                      "INSERT INTO subsystems (display_name, ord, name) VALUES (?, ?, ?)"));
        write.addBindValue(QString::fromStdString(info.displayName));
        write.addBindValue(order++);
        write.addBindValue(name);
        m_database.exec(write);
    }
}

QStringList CSettingsStore::subsystemNames(QSqlDatabase& db) const {
    QStringList names;
    QSqlQuery query(db);
    query.setForwardOnly(true);
    query.prepare(QStringLiteral("SELECT name FROM subsystems"));
    m_database.exec(query);
    while (query.next())
        names << query.value(0).toString();
    return names;
}

void CSettingsStore::setLoginTypeAuth(QSqlDatabase& db, int loginType, bool granted) const {
    QSqlQuery erase(db);
    erase.prepare(QStringLiteral("DELETE FROM meta WHERE name = ?"));
    erase.addBindValue(settingName(loginType));
    m_database.exec(erase);
    QSqlQuery insert(db);
    insert.prepare(QStringLiteral("INSERT INTO meta (name, val) VALUES (?, ?)"));
    insert.addBindValue(settingName(loginType));
    insert.addBindValue(granted ? QStringLiteral("1") : QStringLiteral("0"));
    m_database.exec(insert);
}

void CSettingsStore::replaceLoginTypeAuth(QSqlDatabase& db,
                                          const std::map<int, bool>& settings) const {
    m_database.exec(db, QStringLiteral("DELETE FROM meta WHERE name LIKE 'login_type_auth.%'"));
    for (const auto& setting : settings)
        setLoginTypeAuth(db, setting.first, setting.second);
}
