#include "CTokenCommand.h"

#include <QJsonObject>
#include <boost/make_shared.hpp>

#include "CCtlArguments.h"
#include "CCtlError.h"
#include "CCtlOutput.h"
#include "CCtlSession.h"
#include "Hlx/IQuotesAdmin.h"
#include "rkservice/CLevel2Token.h"
#include "rkservice/DataTypeIds.h"

namespace {

QString tokenOf(const std::vector<rkservice::IDataPtr>& datas) {
    return datas.empty() ? QString()
                         : QString::fromStdString(
                               static_cast<const rkservice::CLevel2Token&>(*datas.front()).token);
}

}  // namespace

std::vector<rkservice::IDataPtr> CTokenCommand::stored(CCtlSession& session) {
    rkservice::COrinQueryDataReq query;
    query.dataType = rkservice::kDataLevel2Tokens;
    std::vector<rkservice::IDataPtr> datas;
    CCtlError::check(session.admin().query(Hlx::CRequestTarget::centre(), query, &datas));
    return datas;
}

void CTokenCommand::operate(CCtlSession& session, int operateType, const std::string& token,
                            long long revision) {
    auto record = boost::make_shared<rkservice::CLevel2Token>();
    record->token = token;
    // The revision just read: a token changed by someone else meanwhile is not overwritten.
    record->setRevision(revision);
    rkservice::COperateDataReq request;
    request.dataType = rkservice::kDataLevel2Tokens;
    request.operateType = operateType;
    request.datas.push_back(record);
    CCtlError::check(session.admin().operate(Hlx::CRequestTarget::centre(), request, nullptr));
}

void CTokenCommand::show(CCtlSession& session) {
    const std::vector<rkservice::IDataPtr> datas = stored(session);
    if (session.arguments().has(CCtlOption::kJson)) {
        CCtlOutput::printJson(QJsonObject{
            {QStringLiteral("token"), datas.empty() ? QJsonValue() : QJsonValue(tokenOf(datas))}});
    } else if (!datas.empty()) {
        CCtlOutput::print(tokenOf(datas) + QLatin1Char('\n'));
    }
}

void CTokenCommand::set(CCtlSession& session) {
    const std::vector<rkservice::IDataPtr> datas = stored(session);
    const QString given = session.arguments().positional().front();
    std::string token;
    if (given == QLatin1String("-")) {
        QByteArray secret;
        if (!CCtlSession::readFirstLine(given, &secret))
            throw CCtlError::refused(QStringLiteral("无法读取标准输入"));
        token.assign(secret.constData(), size_t(secret.size()));
        secret.fill('\0');
    } else {
        token = given.toStdString();
    }
    operate(session, datas.empty() ? rkservice::kOperateAdd : rkservice::kOperateModify, token,
            datas.empty() ? 0 : datas.front()->getRevision());
}

void CTokenCommand::remove(CCtlSession& session) {
    const std::vector<rkservice::IDataPtr> datas = stored(session);
    if (datas.empty())
        throw CCtlError::refused(QStringLiteral("Level-2 行情源 token 不存在"));
    operate(session, rkservice::kOperateDelete, tokenOf(datas).toStdString(),
            datas.front()->getRevision());
}
