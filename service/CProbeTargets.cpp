#include "CProbeTargets.h"

#include <QSqlQuery>
#include <QStringList>
#include <QVariant>

#include "CDatabase.h"
#include "rkservice/COrinQuoterSourceInfo.h"

namespace {

// Ids per statement: far below every engine's limit of bound values.
constexpr int kIdsPerStatement = 500;

}  // namespace

CProbeTargets::Endpoints CProbeTargets::all(QSqlDatabase& db, const QString& subsystem) const {
    Endpoints endpoints;
    if (subsystem.isEmpty())
        read(db, QString(), {}, &endpoints);
    else
        read(db, QStringLiteral("WHERE s.subsystem = ?"), {subsystem}, &endpoints);
    return endpoints;
}

CProbeTargets::Endpoints CProbeTargets::of(QSqlDatabase& db, const std::vector<int>& ids,
                                           std::set<int>* found) const {
    Endpoints endpoints;
    for (std::size_t first = 0; first < ids.size(); first += kIdsPerStatement) {
        QVariantList values;
        QStringList marks;
        for (std::size_t i = first; i < ids.size() && i < first + kIdsPerStatement; ++i) {
            values << ids[i];
            marks << QStringLiteral("?");
        }
        read(db, QStringLiteral("WHERE s.id IN (%1)").arg(marks.join(QLatin1Char(','))), values,
             &endpoints, found);
    }
    return endpoints;
}

void CProbeTargets::read(QSqlDatabase& db, const QString& where, const QVariantList& values,
                         Endpoints* into, std::set<int>* found) const {
    QSqlQuery query(db);
    query.setForwardOnly(true);
    query.prepare(QStringLiteral("SELECT s.id, s.broker_id, s.address, s.port, g.addresses FROM "
                                 "kx_orin_quoter_source s LEFT JOIN server_groups g ON "
                                 "g.platform_id = s.platform_id AND g.broker_id = s.broker_id AND "
                                 "g.group_id = s.server_group_id %1")
                      .arg(where));
    for (const QVariant& value : values)
        query.addBindValue(value);
    m_database.exec(query);
    while (query.next()) {
        const int id = query.value(0).toInt();
        if (found)
            found->insert(id);
        if (query.value(1).toInt() == rkservice::COrinQuoterSourceInfo::kNoBroker) {
            (*into)[{query.value(2).toString(), query.value(3).toInt()}].push_back(id);
            continue;
        }
        const QString group = query.value(4).toString();
        for (const QString& text : group.split(QLatin1Char('\n'), Qt::SkipEmptyParts)) {
            Endpoint endpoint;
            if (split(text.trimmed(), &endpoint))
                (*into)[endpoint].push_back(id);
        }
    }
}

bool CProbeTargets::split(const QString& text, Endpoint* out) {
    const int colon = text.lastIndexOf(QLatin1Char(':'));
    if (colon <= 0)
        return false;
    QString host = text.left(colon);
    if (host.startsWith(QLatin1Char('[')) && host.endsWith(QLatin1Char(']')))
        host = host.mid(1, host.size() - 2);
    bool ok = false;
    const int port = text.mid(colon + 1).toInt(&ok);
    if (!ok || port <= 0 || port > 65535 || host.isEmpty())
        return false;
    *out = {host, port};
    return true;
}
