#include "CSourceCommands.h"

#include <QDateTime>
#include <QJsonArray>
#include <QJsonObject>
#include <boost/make_shared.hpp>

#include "CCtlArguments.h"
#include "CCtlCheck.h"
#include "CCtlError.h"
#include "CCtlOutput.h"
#include "CCtlSession.h"
#include "CDataTransfer.h"
#include "CSourceValidator.h"
#include "Hlx/IQuotesAdmin.h"
#include "model/CProbeVocabulary.h"
#include "rkservice/COrinQuoterSourceInfo.h"
#include "rkservice/DataTypeIds.h"

namespace {

using Source = rkservice::COrinQuoterSourceInfo;
using O = CCtlOption;

// The sub-system --subsystem names, else the client centre (an add goes to the default one).
Hlx::CRequestTarget target(const CCtlArguments& arguments) {
    return arguments.has(O::kSubsystem)
               ? Hlx::CRequestTarget::subsystem(arguments.text(O::kSubsystem).toStdString())
               : Hlx::CRequestTarget::centre();
}

std::vector<rkservice::IDataPtr> sources(Hlx::IQuotesAdmin& admin,
                                         const Hlx::CRequestTarget& target,
                                         const std::string& condition) {
    rkservice::COrinQueryDataReq request;
    request.dataType = rkservice::kDataQuoteSources;
    request.condition = condition;
    std::vector<rkservice::IDataPtr> datas;
    CCtlError::check(admin.query(target, request, &datas));
    return datas;
}

}  // namespace

void CSourceCommands::checkList(const CCtlCommand& command, const CCtlArguments& arguments,
                                const CCtlGlobals& globals) {
    CCtlCheck::standard(command, arguments, globals);
    int tradeType = 0;
    if (arguments.number(O::kTradeType, &tradeType) && tradeType != -1 &&
        !CSourceValidator::tradeTypes().count(tradeType))
        throw CCtlError::usage(QStringLiteral("unknown trade type %1").arg(tradeType));
}

void CSourceCommands::checkAdd(const CCtlCommand& command, const CCtlArguments& arguments,
                               const CCtlGlobals&) {
    CCtlCheck::arity(command, arguments);
    CCtlCheck::values(command, arguments);
    CCtlCheck::presence(command, arguments);
    CCtlCheck::alternatives(command, arguments);
    CCtlCheck::exclusive(O::kPassword, O::kPasswordFile, arguments);
}

void CSourceCommands::checkModify(const CCtlCommand& command, const CCtlArguments& arguments,
                                  const CCtlGlobals&) {
    CCtlCheck::arity(command, arguments);
    if (!CCtlCheck::namesAnOption(command, arguments))
        throw CCtlError::usage(
            QStringLiteral("%1 needs at least one field to change").arg(command.name()));
    CCtlCheck::values(command, arguments);
    CCtlCheck::presence(command, arguments);
    CCtlCheck::exclusive(O::kPassword, O::kPasswordFile, arguments);
}

void CSourceCommands::checkProbe(const CCtlCommand& command, const CCtlArguments& arguments,
                                 const CCtlGlobals& globals) {
    CCtlCheck::standard(command, arguments, globals);
    if (arguments.has(O::kAll) == !arguments.positional().isEmpty())
        throw CCtlError::usage(
            QStringLiteral("%1 needs source ids or --all (not both)").arg(command.name()));
}

bool CSourceCommands::password(const CCtlArguments& arguments, std::string* password) {
    if (arguments.has(O::kPasswordFile)) {
        QByteArray secret = CCtlSession::passwordFrom(arguments.text(O::kPasswordFile));
        // The bytes as read: the service refuses what is not UTF-8 instead of altering it.
        password->assign(secret.constData(), size_t(secret.size()));
        secret.fill('\0');
        return true;
    }
    if (!arguments.has(O::kPassword))
        return false;
    *password = arguments.text(O::kPassword).toStdString();
    return true;
}

void CSourceCommands::list(CCtlSession& session) {
    const CCtlArguments& arguments = session.arguments();
    int tradeType = 0;
    const std::string condition =
        arguments.number(O::kTradeType, &tradeType) ? std::to_string(tradeType) : std::string();
    const std::vector<rkservice::IDataPtr> datas =
        sources(session.admin(), target(arguments), condition);
    if (arguments.has(O::kJson)) {
        QJsonArray array;
        for (const auto& data : datas) {
            QJsonObject object = CDataTransfer::sourceToJson(static_cast<const Source&>(*data));
            // What sources modify --if-revision makes a change conditional on.
            object.insert(QStringLiteral("revision"), double(data->getRevision()));
            array.append(object);
        }
        CCtlOutput::printJson(array);
        return;
    }
    QList<QStringList> rows;
    for (const auto& data : datas)
        rows << row(static_cast<const Source&>(*data));
    CCtlOutput::printTable(
        {QStringLiteral("ID"), QStringLiteral("SUBSYSTEM"), QStringLiteral("TRADE_TYPE"),
         QStringLiteral("PLATFORM"), QStringLiteral("BROKER"), QStringLiteral("GROUP"),
         QStringLiteral("ADDRESS"), QStringLiteral("PORT"), QStringLiteral("USER"),
         QStringLiteral("MARKETS")},
        rows);
}

QStringList CSourceCommands::row(const rkservice::COrinQuoterSourceInfo& s) {
    const bool broker = s.m_nBrokerId != Source::kNoBroker;
    const QString none = QStringLiteral("-");
    return {QString::number(s.m_nId),
            QString::fromStdString(s.getSystemTag()),
            QString::number(s.m_nTradeType),
            QString::number(s.m_nPlatformId),
            broker ? QString::number(s.m_nBrokerId) : none,
            broker ? QString::number(s.m_nServerGroupId) : none,
            broker ? none : QString::fromStdString(s.m_strAddress),
            broker ? none : QString::number(s.m_nPort),
            QString::fromStdString(s.m_strUserName),
            QString::fromStdString(s.m_strMarkets)};
}

void CSourceCommands::add(CCtlSession& session) {
    const CCtlArguments& arguments = session.arguments();
    auto source = boost::make_shared<Source>();
    arguments.number(O::kPlatform, &source->m_nPlatformId);
    arguments.number(O::kTradeType, &source->m_nTradeType);
    if (arguments.number(O::kBroker, &source->m_nBrokerId)) {
        arguments.number(O::kServerGroup, &source->m_nServerGroupId);
    } else {
        arguments.number(O::kPort, &source->m_nPort);
        source->m_strAddress = arguments.text(O::kAddress).toStdString();
        source->m_strUserName = arguments.text(O::kUser).toStdString();
        password(arguments, &source->m_strPassword);
        source->m_strMarkets = arguments.text(O::kMarkets).toStdString();
    }
    rkservice::COperateDataReq request;
    request.dataType = rkservice::kDataQuoteSources;
    request.operateType = rkservice::kOperateAdd;
    request.datas.push_back(source);
    bson::BSONObj result;
    CCtlError::check(session.admin().operate(target(arguments), request, &result));
    CCtlOutput::print(QString::fromStdString(result.getStringField("ids")) + QLatin1Char('\n'));
}

void CSourceCommands::modify(CCtlSession& session) {
    const CCtlArguments& arguments = session.arguments();
    const int id = arguments.positional().front().toInt(nullptr, 10);
    Hlx::CSourcePatch patch;
    const auto number = [&arguments](O::Id option, std::optional<int>* field) {
        int value = 0;
        if (arguments.number(option, &value))
            *field = value;
    };
    const auto text = [&arguments](O::Id option, std::optional<std::string>* field) {
        if (arguments.has(option))
            *field = arguments.text(option).toStdString();
    };
    number(O::kPlatform, &patch.platformId);
    number(O::kTradeType, &patch.tradeType);
    number(O::kPort, &patch.port);
    number(O::kBroker, &patch.brokerId);
    number(O::kServerGroup, &patch.serverGroupId);
    text(O::kAddress, &patch.address);
    text(O::kUser, &patch.userName);
    text(O::kMarkets, &patch.markets);
    std::string secret;
    if (password(arguments, &secret))
        patch.password = std::move(secret);
    int revision = 0;
    if (arguments.number(O::kIfRevision, &revision))
        patch.ifRevision = revision;
    // The id is the operator's own, like a delete's: the read tells a server that this login's
    // view is current. The patch itself is applied to the stored source in the service's
    // transaction, so a field changed meanwhile by someone else is kept.
    std::map<int, Stored> platforms;
    utils::RKError error = storedPlatforms(session.admin(), &platforms);
    if (error.isSuccess())
        error = session.admin().modifySource(id, patch);
    if (patch.password)
        std::fill(patch.password->begin(), patch.password->end(), '\0');
    CCtlError::check(error);
}

utils::RKError CSourceCommands::storedPlatforms(Hlx::IQuotesAdmin& admin,
                                                std::map<int, Stored>* platforms) {
    rkservice::COrinQueryDataReq query;
    query.dataType = rkservice::kDataQuoteSources;
    std::vector<rkservice::IDataPtr> datas;
    const utils::RKError error = admin.query(Hlx::CRequestTarget::centre(), query, &datas);
    for (const auto& data : datas) {
        const auto& stored = static_cast<const Source&>(*data);
        (*platforms)[stored.m_nId] = Stored{stored.m_nPlatformId, stored.getRevision()};
    }
    return error;
}

void CSourceCommands::remove(CCtlSession& session) {
    // The ids are the operator's own: they are sent with the platforms and revisions stored now
    // (the service refuses a delete whose platform is not the stored row's), read by a query that
    // also tells the server this login's view is current. An unknown id goes as it is, for the
    // service to name.
    std::map<int, Stored> platforms;
    CCtlError::check(storedPlatforms(session.admin(), &platforms));
    rkservice::COperateDataReq request;
    request.dataType = rkservice::kDataQuoteSources;
    request.operateType = rkservice::kOperateDelete;
    for (const QString& text : session.arguments().positional()) {
        const int id = text.toInt(nullptr, 10);
        auto source = boost::make_shared<Source>();
        source->m_nId = id;
        const auto found = platforms.find(id);
        if (found != platforms.end()) {
            source->m_nPlatformId = found->second.platformId;
            source->setRevision(found->second.revision);
        }
        request.datas.push_back(source);
    }
    CCtlError::check(session.admin().operate(Hlx::CRequestTarget::centre(), request, nullptr));
}

void CSourceCommands::probe(CCtlSession& session) {
    const CCtlArguments& arguments = session.arguments();
    std::vector<int> ids;
    for (const QString& text : arguments.positional())
        ids.push_back(text.toInt(nullptr, 10));
    std::vector<Hlx::CProbeResult> results;
    CCtlError::check(session.admin().probeSources(ids, arguments.has(O::kAll), &results));
    if (arguments.has(O::kJson)) {
        QJsonArray array;
        for (const Hlx::CProbeResult& result : results)
            array.append(probeToJson(result));
        CCtlOutput::printJson(array);
        return;
    }
    QList<QStringList> rows;
    for (const Hlx::CProbeResult& result : results)
        rows << probeRow(result);
    CCtlOutput::printTable(
        {QStringLiteral("ADDRESS"), QStringLiteral("PORT"), QStringLiteral("STATE"),
         QStringLiteral("CONNECT_MS"), QStringLiteral("SINCE"), QStringLiteral("SOURCES"),
         QStringLiteral("ERROR")},
        rows);
}

QJsonObject CSourceCommands::probeToJson(const Hlx::CProbeResult& result) {
    QJsonArray sources;
    for (int id : result.sourceIds)
        sources.append(id);
    return {{QStringLiteral("address"), QString::fromStdString(result.address)},
            {QStringLiteral("port"), result.port},
            {QStringLiteral("state"), QString::fromStdString(result.state)},
            {QStringLiteral("connectUs"), double(result.connectUs)},
            {QStringLiteral("error"), QString::fromStdString(result.error)},
            {QStringLiteral("sinceMs"), double(result.sinceMs)},
            {QStringLiteral("checkedMs"), double(result.checkedMs)},
            {QStringLiteral("sources"), sources}};
}

QStringList CSourceCommands::probeRow(const Hlx::CProbeResult& result) {
    QStringList sources;
    for (int id : result.sourceIds)
        sources << QString::number(id);
    const bool reachable = result.state == CProbeVocabulary::kReachable;
    return {
        QString::fromStdString(result.address),
        QString::number(result.port),
        QString::fromStdString(result.state),
        reachable ? QString::number(double(result.connectUs) / 1000.0, 'f', 3)
                  : QStringLiteral("-"),
        result.sinceMs > 0
            ? QDateTime::fromMSecsSinceEpoch(result.sinceMs, Qt::UTC).toString(Qt::ISODateWithMs)
            : QStringLiteral("-"),
        sources.join(QLatin1Char(',')),
        result.error.empty() ? QStringLiteral("-") : QString::fromStdString(result.error)};
}
