#include "CAuditCommand.h"

#include <QDateTime>
#include <QJsonDocument>
#include <QJsonObject>

#include "CCtlArguments.h"
#include "CCtlError.h"
#include "CCtlOutput.h"
#include "CCtlSession.h"
#include "Hlx/IQuotesAdmin.h"
#include "model/CAuditVocabulary.h"

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
                       {QStringLiteral("count"), double(entry.count)},
                       {QStringLiteral("summary"), entry.summary},
                       {QStringLiteral("details"), details}};
}

Hlx::CAuditFilter filterOf(const CCtlArguments& arguments) {
    Hlx::CAuditFilter filter;
    filter.sinceMs = arguments.time(CCtlOption::kSince);
    filter.untilMs = arguments.time(CCtlOption::kUntil);
    if (arguments.has(CCtlOption::kLogin))
        filter.account = arguments.text(CCtlOption::kLogin).toStdString();
    if (arguments.has(CCtlOption::kAction))
        filter.action = CAuditCommand::knownAction(arguments.text(CCtlOption::kAction));
    int limit = 0;
    if (arguments.number(CCtlOption::kLimit, &limit) && limit < 1)
        throw CCtlError::usage(QStringLiteral("--limit needs a number of at least 1"));
    if (limit > 0)
        filter.limit = limit;
    if (arguments.has(CCtlOption::kBefore)) {
        bool ok = false;
        filter.beforeId = arguments.text(CCtlOption::kBefore).toLongLong(&ok, 10);
        if (!ok || filter.beforeId < 1)
            throw CCtlError::usage(QStringLiteral("audit --before needs an entry ID"));
    }
    return filter;
}

}  // namespace

void CAuditCommand::list(CCtlSession& session) {
    const CCtlArguments& arguments = session.arguments();
    Hlx::CAuditPage page;
    CCtlError::check(session.admin().auditPage(filterOf(arguments), &page));
    if (arguments.has(CCtlOption::kJson))
        CCtlOutput::printJson(toJson(page.entries));
    else
        CCtlOutput::printTable(header(), rows(page.entries));
    // Never silently short: the listing says where it stopped and how to read on.
    if (page.more && !page.entries.empty())
        CCtlOutput::warn(QStringLiteral("more entries match: read on with --before %1")
                             .arg(page.entries.back().id));
}

void CAuditCommand::prune(CCtlSession& session) {
    long long beforeMs = 0;
    if (!CCtlOption::parseTime(session.arguments().text(CCtlOption::kBefore), &beforeMs))
        throw CCtlError::usage(QStringLiteral("option --before needs an ISO-8601 time"));
    int removed = 0;
    CCtlError::check(session.admin().pruneAudit(beforeMs, &removed));
    CCtlOutput::print(QStringLiteral("%1\n").arg(removed));
}

std::vector<Hlx::CAuditEntry> CAuditCommand::everything(CCtlSession& session) {
    std::vector<Hlx::CAuditEntry> entries;
    Hlx::CAuditFilter filter;
    for (;;) {
        Hlx::CAuditPage page;
        CCtlError::check(session.admin().auditPage(filter, &page));
        entries.insert(entries.end(), page.entries.begin(), page.entries.end());
        if (!page.more || page.entries.empty())
            return entries;
        filter.beforeId = page.entries.back().id;
    }
}

std::string CAuditCommand::knownAction(const QString& action) {
    QStringList known;
    for (const char* name : CAuditVocabulary::kActions) {
        if (action == QLatin1String(name))
            return action.toStdString();
        known << QLatin1String(name);
    }
    throw CCtlError::usage(QStringLiteral("unknown action \"%1\" (one of: %2)")
                               .arg(action, known.join(QStringLiteral(", "))));
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
            QStringLiteral("TYPE"),    QStringLiteral("IDS"),        QStringLiteral("COUNT"),
            QStringLiteral("ERROR")};
}

QList<QStringList> CAuditCommand::rows(const std::vector<Hlx::CAuditEntry>& entries) {
    QList<QStringList> rows;
    for (const Hlx::CAuditEntry& entry : entries)
        rows << QStringList{
            QString::number(entry.id), isoUtc(entry.timeMs),  who(entry),
            text(entry.clientAddress), text(entry.subsystem), text(entry.action),
            text(entry.dataType),      text(entry.ids),       QString::number(entry.count),
            text(entry.error)};
    return rows;
}
