#include "CHistoryCommands.h"

#include <QJsonArray>
#include <QStringList>

#include "CAuditCommand.h"
#include "CCtlArguments.h"
#include "CCtlError.h"
#include "CCtlOutput.h"
#include "CCtlSession.h"
#include "Hlx/IQuotesAdmin.h"
#include "rkservice/DataTypeIds.h"

namespace {

using Begin = Hlx::CSourceHistory::Begin;

const char* beginName(Begin begin) {
    switch (begin) {
        case Begin::Added:
            return "added";
        case Begin::Pruned:
            return "pruned";
        case Begin::Imported:
            return "imported";
        default:
            return "earlier";
    }
}

int sourceId(const CCtlSession& session) {
    return session.arguments().positional().front().toInt(nullptr, 10);
}

// A query first, as before a modify: it tells a server that this login's view is current.
void readSources(Hlx::IQuotesAdmin& admin) {
    rkservice::COrinQueryDataReq query;
    query.dataType = rkservice::kDataQuoteSources;
    std::vector<rkservice::IDataPtr> datas;
    CCtlError::check(admin.query(Hlx::CRequestTarget::centre(), query, &datas));
}

}  // namespace

void CHistoryCommands::history(CCtlSession& session) {
    Hlx::CSourceHistory history;
    CCtlError::check(session.admin().sourceHistory(sourceId(session), &history));
    if (session.arguments().has(CCtlOption::kJson)) {
        CCtlOutput::printJson(toJson(history));
        return;
    }
    CCtlOutput::print(beginning(history) + QLatin1Char('\n'));
    QList<QStringList> rows;
    for (const Hlx::CAuditEntry& entry : history.entries)
        rows << QStringList{QString::number(entry.id),
                            CAuditCommand::isoUtc(entry.timeMs),
                            CAuditCommand::who(entry),
                            QString::fromStdString(entry.clientAddress),
                            QString::fromStdString(entry.action),
                            changes(entry)};
    CCtlOutput::printTable(
        {QStringLiteral("ENTRY"), QStringLiteral("TIME (UTC)"), QStringLiteral("ACCOUNT"),
         QStringLiteral("ADDRESS"), QStringLiteral("ACTION"), QStringLiteral("CHANGES")},
        rows);
}

void CHistoryCommands::restore(CCtlSession& session) {
    const int id = sourceId(session);
    int entry = 0;
    session.arguments().number(CCtlOption::kEntry, &entry);
    Hlx::CSourceHistory before;
    CCtlError::check(session.admin().sourceHistory(id, &before));
    readSources(session.admin());
    long long revision = 0;
    CCtlError::check(session.admin().restoreSource(id, entry, before.revision, &revision));
    const QString done =
        QStringLiteral("source %1 restored to its fields after entry %2 (revision %3)")
            .arg(id)
            .arg(entry)
            .arg(revision);
    // The trail holds no password: say what the source has now.
    CCtlOutput::print(done + (before.exists
                                  ? QStringLiteral("; its password is kept as stored (the audit "
                                                   "trail holds none)\n")
                                  : QStringLiteral("; added again without a password (the audit "
                                                   "trail holds none): set one with sources modify "
                                                   "%1 --password-file FILE\n")
                                        .arg(id)));
}

QString CHistoryCommands::beginning(const Hlx::CSourceHistory& history) {
    const QString source =
        QStringLiteral("source %1 (%2)")
            .arg(history.sourceId)
            .arg(history.exists ? QStringLiteral("revision %1").arg(history.revision)
                                : QStringLiteral("deleted"));
    switch (history.begin) {
        case Begin::Added:
            return source + QStringLiteral(": history begins with its add");
        case Begin::Pruned:
            return source + QStringLiteral(": history begins at %1; older entries were pruned")
                                .arg(CAuditCommand::isoUtc(history.beginMs));
        case Begin::Imported:
            return source + QStringLiteral(
                                ": history begins at the import of %1 (entry %2); "
                                "entries before it belong to the replaced content")
                                .arg(CAuditCommand::isoUtc(history.beginMs))
                                .arg(history.beginEntry);
        default:
            return source + QStringLiteral(": the source existed before the audit trail began");
    }
}

QString CHistoryCommands::changes(const Hlx::CAuditEntry& entry) {
    QStringList parts;
    if (entry.details.empty())
        return QString();
    for (const Hlx::CFieldChange& change :
         Hlx::CSourceHistory::differences(entry.details.front())) {
        if (!change.changed)
            continue;
        const QString name = QString::fromStdString(change.field);
        if (change.field == "password")
            parts << name + QStringLiteral(" changed");
        else
            parts << QStringLiteral("%1 %2 -> %3")
                         .arg(name, change.before.isEmpty() ? QStringLiteral("-") : change.before,
                              change.after.isEmpty() ? QStringLiteral("-") : change.after);
    }
    return parts.join(QStringLiteral("; "));
}

QJsonObject CHistoryCommands::toJson(const Hlx::CSourceHistory& history) {
    return QJsonObject{{QStringLiteral("id"), history.sourceId},
                       {QStringLiteral("exists"), history.exists},
                       {QStringLiteral("revision"), double(history.revision)},
                       {QStringLiteral("begin"), QLatin1String(beginName(history.begin))},
                       {QStringLiteral("begin_ms"), double(history.beginMs)},
                       {QStringLiteral("begin_entry"), double(history.beginEntry)},
                       {QStringLiteral("entries"), CAuditCommand::toJson(history.entries)}};
}
