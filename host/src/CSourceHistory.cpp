#include "Hlx/CSourceHistory.h"

#include <QJsonValue>

namespace Hlx {

namespace {

QString shown(const QJsonObject& fields, const std::string& name) {
    const QJsonValue value = fields.value(QString::fromStdString(name));
    return value.isDouble() ? QString::number(value.toDouble(), 'f', 0) : value.toString();
}

}  // namespace

const std::vector<std::string>& CSourceHistory::fieldOrder() {
    static const std::vector<std::string> order = {
        "subsystem", "trade_type", "platform_id", "broker_id", "server_group_id",
        "address",   "port",       "user_name",   "password",  "markets"};
    return order;
}

std::vector<CFieldChange> CSourceHistory::differences(const CAuditEntry::Detail& detail) {
    std::vector<CFieldChange> changes;
    for (const std::string& name : fieldOrder()) {
        CFieldChange change{name, shown(detail.before, name), shown(detail.after, name), false};
        if (name == "password")
            change.changed = detail.after.isEmpty()
                                 ? !detail.before.isEmpty()
                                 : detail.after.value(QStringLiteral("password_changed")).toBool();
        else
            change.changed = change.before != change.after;
        changes.push_back(change);
    }
    return changes;
}

}  // namespace Hlx
