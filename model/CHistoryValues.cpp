#include "model/CHistoryValues.h"

#include "model/CPlatformTable.h"
#include "model/CTradeTypeTable.h"
#include "rkservice/COrinQuoterSourceInfo.h"

namespace Hlx {

namespace {

int number(const QJsonObject& side, const char* field) {
    return side.value(QLatin1String(field)).toInt();
}

// A name the tables do not know reads as the stored number, never as nothing.
QString orStored(const QString& name, const QString& stored) {
    return name.isEmpty() ? stored : name;
}

}  // namespace

CHistoryValues::CHistoryValues(QMap<QString, QString> subsystems)
    : m_subsystems(std::move(subsystems)) {}

QString CHistoryValues::shown(const std::string& field, const QJsonObject& side,
                              const QString& stored) const {
    if (stored.isEmpty())
        return stored;
    if (field == "subsystem")
        return m_subsystems.value(stored, stored);
    if (field == "platform_id")
        return orStored(getPlatformName(stored.toInt()), stored);
    if (field == "trade_type")
        return orStored(
            CTradeTypeTable::tradeType2String(stored.toInt(), number(side, "platform_id")), stored);
    // A source without a broker has no server group either; group 0 of a broker is a real one.
    const bool noBroker = number(side, "broker_id") == rkservice::COrinQuoterSourceInfo::kNoBroker;
    if ((field == "broker_id" || field == "server_group_id") && noBroker)
        return QString::fromUtf8(kNone);
    return stored;
}

}  // namespace Hlx
