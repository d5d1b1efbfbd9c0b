#include "CAuditRows.h"

#include <QDateTime>
#include <QRegularExpression>

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

QString CAuditRows::who(const Hlx::CAuditEntry& entry) {
    if (!entry.local)
        return text(entry.account);
    const QString marker = entry.osUser.empty() ? QStringLiteral("本地")
                                                : QStringLiteral("本地 ") + text(entry.osUser);
    return QStringLiteral("%1 (%2)").arg(text(entry.account), marker);
}

QString CAuditRows::cell(const Hlx::CAuditEntry& entry, int column) {
    switch (column) {
        case Time:
            return localTime(entry.timeMs);
        case Account:
            return who(entry);
        case ClientAddress:
            return text(entry.clientAddress);
        case Subsystem:
            return text(entry.subsystem);
        case Action:
            return text(entry.action);
        case DataType:
            return text(entry.dataType);
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

QByteArray CAuditRows::csv(const std::vector<Hlx::CAuditEntry>& entries) {
    QString out = csvLine(headers());
    for (const Hlx::CAuditEntry& entry : entries) {
        QStringList fields{isoTime(entry.timeMs)};
        for (int column = Time + 1; column < ColumnCount; ++column)
            fields << cell(entry, column);
        out += csvLine(fields);
    }
    return QByteArray("\xEF\xBB\xBF") + out.toUtf8();
}
