#include "CReferenceCommands.h"

#include <QJsonObject>

#include "CCtlArguments.h"
#include "CCtlError.h"
#include "CCtlOutput.h"
#include "CCtlSession.h"
#include "Hlx/IQuotesAdmin.h"
#include "rkservice/COrinBrokerInfo.h"
#include "rkservice/COrinPlatformInfo.h"
#include "rkservice/DataTypeIds.h"

namespace {

QString text(const std::string& value) {
    return QString::fromStdString(value);
}

QJsonObject groupJson(const rkservice::COrinServerGroup& group) {
    QJsonArray addresses;
    for (const std::string& address : group.serverAddresses)
        addresses.append(text(address));
    return QJsonObject{{QStringLiteral("serverGroupId"), group.serverGroupId},
                       {QStringLiteral("serverGroupName"), text(group.serverGroupName)},
                       {QStringLiteral("serverAddresses"), addresses}};
}

QStringList groupRow(const rkservice::COrinBrokerInfo& broker,
                     const rkservice::COrinServerGroup& group) {
    QStringList addresses;
    for (const std::string& address : group.serverAddresses)
        addresses << text(address);
    return {QString::number(broker.platformId),
            text(broker.brokerKey),
            text(broker.brokerName),
            QString::number(group.serverGroupId),
            text(group.serverGroupName),
            addresses.join(QLatin1Char(','))};
}

}  // namespace

std::vector<rkservice::IDataPtr> CReferenceCommands::reference(CCtlSession& session, int dataType) {
    rkservice::COrinQueryDataReq request;
    request.dataType = dataType;
    int tradeType = 0;
    if (session.arguments().number(CCtlOption::kTradeType, &tradeType))
        request.condition = std::to_string(tradeType);
    std::vector<rkservice::IDataPtr> datas;
    Hlx::IQuotesAdmin& admin = session.admin();
    CCtlError::check(admin.query(Hlx::CRequestTarget::subsystem(admin.subsystems().front().name),
                                 request, &datas));
    return datas;
}

void CReferenceCommands::show(CCtlSession& session, const QJsonArray& array,
                              const QStringList& header, const QList<QStringList>& rows) {
    if (session.arguments().has(CCtlOption::kJson))
        CCtlOutput::printJson(array);
    else
        CCtlOutput::printTable(header, rows);
}

void CReferenceCommands::brokers(CCtlSession& session) {
    QJsonArray array;
    QList<QStringList> rows;
    for (const auto& data : reference(session, rkservice::kDataBrokers)) {
        const auto& broker = static_cast<const rkservice::COrinBrokerInfo&>(*data);
        QJsonArray groups;
        for (const auto& group : broker.serverGroups) {
            groups.append(groupJson(*group));
            rows << groupRow(broker, *group);
        }
        array.append(QJsonObject{{QStringLiteral("platformId"), broker.platformId},
                                 {QStringLiteral("platformName"), text(broker.platformName)},
                                 {QStringLiteral("brokerKey"), text(broker.brokerKey)},
                                 {QStringLiteral("brokerName"), text(broker.brokerName)},
                                 {QStringLiteral("serverGroups"), groups}});
    }
    show(session, array,
         {QStringLiteral("PLATFORM"), QStringLiteral("KEY"), QStringLiteral("NAME"),
          QStringLiteral("GROUP"), QStringLiteral("GROUP_NAME"), QStringLiteral("ADDRESSES")},
         rows);
}

void CReferenceCommands::platforms(CCtlSession& session) {
    QJsonArray array;
    QList<QStringList> rows;
    for (const auto& data : reference(session, rkservice::kDataPlatforms)) {
        const auto& platform = static_cast<const rkservice::COrinPlatformInfo&>(*data);
        array.append(QJsonObject{{QStringLiteral("platformId"), platform.platformId},
                                 {QStringLiteral("platformName"), text(platform.platformName)}});
        rows << QStringList{QString::number(platform.platformId), text(platform.platformName)};
    }
    show(session, array, {QStringLiteral("PLATFORM"), QStringLiteral("NAME")}, rows);
}

void CReferenceCommands::subsystems(CCtlSession& session) {
    QJsonArray array;
    QList<QStringList> rows;
    for (const auto& info : session.admin().subsystems()) {
        array.append(QJsonObject{{QStringLiteral("name"), text(info.name)},
                                 {QStringLiteral("displayName"), text(info.displayName)}});
        rows << QStringList{text(info.name), text(info.displayName)};
    }
    show(session, array, {QStringLiteral("NAME"), QStringLiteral("DISPLAY_NAME")}, rows);
}

void CReferenceCommands::users(CCtlSession& session) {
    std::vector<rkservice::CUserInfoPtr> users;
    CCtlError::check(session.admin().users(&users));
    QJsonArray array;
    QList<QStringList> rows;
    for (const auto& user : users) {
        array.append(
            QJsonObject{{QStringLiteral("name"), text(user->m_strName)},
                        {QStringLiteral("systemId"), user->m_nSystemId},
                        {QStringLiteral("rights"), CCtlOutput::rightsJson(user->m_rights)}});
        rows << QStringList{text(user->m_strName), QString::number(user->m_nSystemId),
                            CCtlOutput::rightsCell(user->m_rights)};
    }
    show(session, array,
         {QStringLiteral("NAME"), QStringLiteral("SYSTEM_ID"), QStringLiteral("RIGHTS")}, rows);
}
