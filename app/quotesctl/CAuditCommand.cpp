#include "CAuditCommand.h"

#include <QDateTime>
#include <QJsonDocument>
#include <QJsonObject>

#include "CCtlArguments.h"
#include "CCtlError.h"
#include "CCtlOutput.h"
#include "CCtlSession.h"
#include "Hlx/IQuotesAdmin.h"

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

void CAuditCommand::list(CCtlSession& session) {
    const CCtlArguments& arguments = session.arguments();
    Hlx::CAuditFilter filter;
    filter.sinceMs = arguments.time(CCtlOption::kSince);
    filter.untilMs = arguments.time(CCtlOption::kUntil);
    if (arguments.has(CCtlOption::kLogin))
        filter.account = arguments.text(CCtlOption::kLogin).toStdString();
    if (arguments.has(CCtlOption::kAction))
        filter.action = arguments.text(CCtlOption::kAction).toStdString();
    std::vector<Hlx::CAuditEntry> entries;
    CCtlError::check(session.admin().auditEntries(filter, &entries));
    if (arguments.has(CCtlOption::kJson))
        CCtlOutput::printJson(toJson(entries));
    else
        CCtlOutput::printTable(header(), rows(entries));
}

void CAuditCommand::prune(CCtlSession& session) {
    int removed = 0;
    CCtlError::check(
        session.admin().pruneAudit(session.arguments().time(CCtlOption::kBefore), &removed));
    CCtlOutput::print(QStringLiteral("%1\n").arg(removed));
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
