#include "CAuditCommand.h"

#include <QDateTime>
#include <QJsonDocument>
#include <QJsonObject>

namespace {

QString text(const std::string& value) {
    return QString::fromStdString(value);
}

QJsonObject entryJson(const Hlx::CAuditEntry& entry) {
    QJsonArray details;
    for (const Hlx::CAuditEntry::Detail& detail : entry.details)
        details.append(QJsonObject{{QStringLiteral("record_id"), text(detail.recordId)},
                                   {QStringLiteral("before"), detail.before},
                                   {QStringLiteral("after"), detail.after}});
    return QJsonObject{{QStringLiteral("id"), double(entry.id)},
                       {QStringLiteral("time"), CAuditCommand::isoUtc(entry.timeMs)},
                       {QStringLiteral("account"), text(entry.account)},
                       {QStringLiteral("os_user"), text(entry.osUser)},
                       {QStringLiteral("local"), entry.local},
                       {QStringLiteral("client_address"), text(entry.clientAddress)},
                       {QStringLiteral("subsystem"), text(entry.subsystem)},
                       {QStringLiteral("action"), text(entry.action)},
                       {QStringLiteral("data_type"), text(entry.dataType)},
                       {QStringLiteral("ids"), text(entry.ids)},
                       {QStringLiteral("error"), text(entry.error)},
                       {QStringLiteral("summary"), entry.summary},
                       {QStringLiteral("details"), details}};
}

}  // namespace

bool CAuditCommand::parseTime(const QString& value, long long* ms) {
    QDateTime time = QDateTime::fromString(value, Qt::ISODateWithMs);
    if (!time.isValid())
        time = QDateTime(QDate::fromString(value, Qt::ISODate), QTime(0, 0));
    if (!time.isValid())
        return false;
    *ms = time.toMSecsSinceEpoch();
    return true;
}

QString CAuditCommand::isoUtc(long long ms) {
    return QDateTime::fromMSecsSinceEpoch(ms, Qt::UTC).toString(Qt::ISODateWithMs);
}

QString CAuditCommand::who(const Hlx::CAuditEntry& entry) {
    if (!entry.local)
        return text(entry.account);
    return QStringLiteral("%1 (本地 %2)").arg(text(entry.account), text(entry.osUser)).trimmed();
}

QJsonArray CAuditCommand::toJson(const std::vector<Hlx::CAuditEntry>& entries) {
    QJsonArray array;
    for (const Hlx::CAuditEntry& entry : entries)
        array.append(entryJson(entry));
    return array;
}

QStringList CAuditCommand::header() {
    return {QStringLiteral("ID"),      QStringLiteral("TIME (UTC)"), QStringLiteral("ACCOUNT"),
            QStringLiteral("ADDRESS"), QStringLiteral("SUBSYSTEM"),  QStringLiteral("ACTION"),
            QStringLiteral("TYPE"),    QStringLiteral("IDS"),        QStringLiteral("ERROR")};
}

QList<QStringList> CAuditCommand::rows(const std::vector<Hlx::CAuditEntry>& entries) {
    QList<QStringList> rows;
    for (const Hlx::CAuditEntry& entry : entries)
        rows << QStringList{QString::number(entry.id), isoUtc(entry.timeMs),  who(entry),
                            text(entry.clientAddress), text(entry.subsystem), text(entry.action),
                            text(entry.dataType),      text(entry.ids),       text(entry.error)};
    return rows;
}
