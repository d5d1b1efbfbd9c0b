#include "CAuditRows.h"

#include <QDateTime>
#include <QJsonDocument>
#include <QRegularExpression>

#include "Hlx/CSourceHistory.h"
#include "model/CAuditNames.h"
#include "model/CAuditVocabulary.h"
#include "model/CCallerNames.h"
#include "model/CHistoryValues.h"

namespace {

QString text(const std::string& value) {
    return QString::fromStdString(value);
}

}  // namespace

QStringList CAuditRows::headers() {
    return {QStringLiteral("时间"),   QStringLiteral("账户"), QStringLiteral("客户端地址"),
            QStringLiteral("分系统"), QStringLiteral("操作"), QStringLiteral("数据类型"),
            QStringLiteral("编号"),   QStringLiteral("次数"), QStringLiteral("错误信息")};
}

QString CAuditRows::localTime(long long ms) {
    return QDateTime::fromMSecsSinceEpoch(ms, Qt::LocalTime)
        .toString(QStringLiteral("yyyy-MM-dd HH:mm:ss.zzz"));
}

QString CAuditRows::isoTime(long long ms) {
    return QDateTime::fromMSecsSinceEpoch(ms, Qt::UTC).toString(Qt::ISODateWithMs);
}

QString CAuditRows::cell(const Hlx::CAuditEntry& entry, int column,
                         const SubsystemNames& subsystems) {
    switch (column) {
        case Time:
            return localTime(entry.timeMs);
        case Account:
            return Hlx::CCallerNames::who(entry);
        case ClientAddress:
            return text(entry.clientAddress);
        case Subsystem:
            return subsystems.value(text(entry.subsystem), text(entry.subsystem));
        case Action:
            return text(CAuditNames::action(entry.action));
        case DataType:
            return text(CAuditNames::dataType(entry.dataType));
        case Ids:
            return text(entry.ids);
        case Count:
            return QString::number(entry.count);
        case Error:
            return text(entry.error);
        default:
            return QString();
    }
}

QString CAuditRows::csvLine(const QStringList& fields) {
    static const QRegularExpression needsQuotes(QStringLiteral("[,\"\r\n]"));
    QStringList written;
    for (QString field : fields) {
        if (field.contains(needsQuotes))
            field = QLatin1Char('"') + field.replace(QLatin1Char('"'), QStringLiteral("\"\"")) +
                    QLatin1Char('"');
        written << field;
    }
    return written.join(QLatin1Char(',')) + QStringLiteral("\r\n");
}

QByteArray CAuditRows::csv(const std::vector<Hlx::CAuditEntry>& entries,
                           const SubsystemNames& subsystems) {
    QString out = csvLine(headers());
    for (const Hlx::CAuditEntry& entry : entries) {
        QStringList fields{isoTime(entry.timeMs)};
        for (int column = Time + 1; column < ColumnCount; ++column)
            fields << cell(entry, column, subsystems);
        out += csvLine(fields);
    }
    return QByteArray("\xEF\xBB\xBF") + out.toUtf8();
}

namespace {

QString fieldText(const QJsonValue& value) {
    if (value.isUndefined() || value.isNull())
        return QStringLiteral("—");
    if (value.isString())
        return value.toString();
    if (value.isDouble())
        return QString::number(value.toDouble(), 'g', 17);
    if (value.isBool())
        return value.toBool() ? QStringLiteral("true") : QStringLiteral("false");
    return QString::fromUtf8(
        QJsonDocument::fromVariant(value.toVariant()).toJson(QJsonDocument::Compact));
}

QString fieldLine(bool changed, const std::string& field, const QString& before,
                  const QString& after) {
    return QStringLiteral("%1 %2: %3 → %4")
        .arg(changed ? QStringLiteral("*") : QStringLiteral(" "),
             QString::fromStdString(CAuditNames::field(field)), before, after);
}

// One record: every field it had before or has after, the changed ones marked.
QString recordDetails(const Hlx::CAuditEntry::Detail& detail) {
    QStringList lines{QStringLiteral("记录 %1").arg(text(detail.recordId))};
    QStringList fields = detail.before.keys();
    for (const QString& key : detail.after.keys()) {
        if (!fields.contains(key))
            fields << key;
    }
    for (const QString& key : fields) {
        const QJsonValue before = detail.before.value(key);
        const QJsonValue after = detail.after.value(key);
        lines << fieldLine(before != after, key.toStdString(), fieldText(before), fieldText(after));
    }
    return lines.join(QLatin1Char('\n'));
}

// One source, as its history shows it: the fields in a source's order, ids by name, the
// password only as whether it changed.
QString sourceDetails(const Hlx::CAuditEntry::Detail& detail, const Hlx::CHistoryValues& values) {
    QStringList lines{QStringLiteral("记录 %1").arg(text(detail.recordId))};
    const auto shown = [&values](const std::string& field, const QJsonObject& side,
                                 const QString& stored) {
        const QString value = values.shown(field, side, stored);
        return value.isEmpty() && side.isEmpty() ? QStringLiteral("—") : value;
    };
    for (const Hlx::CFieldChange& change : Hlx::CSourceHistory::differences(detail))
        lines << fieldLine(change.changed, change.field,
                           shown(change.field, detail.before, change.before),
                           shown(change.field, detail.after, change.after));
    return lines.join(QLatin1Char('\n'));
}

}  // namespace

QString CAuditRows::details(const Hlx::CAuditEntry& entry, const SubsystemNames& subsystems) {
    const bool source = entry.dataType == CAuditVocabulary::kQuoteSource;
    const Hlx::CHistoryValues values(subsystems);
    QStringList parts;
    if (!entry.summary.isEmpty())
        parts << QString::fromUtf8(QJsonDocument(entry.summary).toJson(QJsonDocument::Indented));
    for (const Hlx::CAuditEntry::Detail& detail : entry.details)
        parts << (source ? sourceDetails(detail, values) : recordDetails(detail));
    if (parts.isEmpty())
        return QStringLiteral("此记录没有变更前后的内容");
    return QStringLiteral("变更前 → 变更后（* 为改动的字段）\n\n") +
           parts.join(QStringLiteral("\n\n"));
}
