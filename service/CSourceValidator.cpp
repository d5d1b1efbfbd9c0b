#include "CSourceValidator.h"

#include <arpa/inet.h>

#include <QRegularExpression>
#include <QString>
#include <climits>

#include "CServiceError.h"
#include "model/CFieldLimits.h"
#include "rkservice/COrinQuoterSourceInfo.h"

const std::set<int>& CSourceValidator::tradeTypes() {
    static const std::set<int> types = {1, 2, 4, 5, 6, 7, 8, 10, 11, 16, 1002};
    return types;
}

const std::set<int>& CSourceValidator::fixedPlatforms() {
    static const std::set<int> platforms = {10000, 10001, 10002, 10003, 10004, 15000,
                                            31003, 20000, 70000, 25011, 25012, 32000};
    return platforms;
}

bool CSourceValidator::isAddress(const std::string& text) {
    if (text.empty())
        return false;
    static const QRegularExpression ipv4(
        QStringLiteral("^((25[0-5]|2[0-4][0-9]|1[0-9][0-9]|[1-9][0-9]|[0-9])($|(?!\\.$)\\.)){4}$"));
    if (ipv4.match(QString::fromStdString(text)).hasMatch())
        return true;
    in6_addr address;
    return text.find('\0') == std::string::npos && inet_pton(AF_INET6, text.c_str(), &address) == 1;
}

bool CSourceValidator::isToken(const std::string& text) {
    if (text.empty() || text.size() > 100)
        return false;
    for (char c : text) {
        const bool alnum =
            (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
        if (!alnum)
            return false;
    }
    return true;
}

bool CSourceValidator::parseCondition(const std::string& condition, int* tradeType) {
    if (condition.empty())
        return false;
    static const QRegularExpression number(QStringLiteral("^-?[0-9]{1,10}$"));
    const QString text = QString::fromStdString(condition);
    bool ok = false;
    const qlonglong value = number.match(text).hasMatch() ? text.toLongLong(&ok) : 0;
    if (!ok || value < INT_MIN || value > INT_MAX)
        throw CServiceError("查询条件格式错误: " + condition);
    if (value == -1)
        return false;
    *tradeType = int(value);
    return true;
}

std::vector<std::string> CSourceValidator::faults(const std::string& value, int field) {
    const Hlx::CFieldLimit& limit = Hlx::CFieldLimits::of(Hlx::CFieldLimit::Field(field));
    std::vector<std::string> result;
    if (int(value.size()) > limit.maxBytes)
        result.push_back(std::string(limit.label) + "不能超过 " + std::to_string(limit.maxBytes) +
                         " 字节");
    for (unsigned char c : value) {
        if (c < 0x20 || c == 0x7f) {
            result.push_back(std::string(limit.label) + "不能含控制字符");
            break;
        }
    }
    return result;
}

void CSourceValidator::checkTradeType(int tradeType) {
    if (!tradeTypes().count(tradeType))
        throw CServiceError("未知交易类型 " + std::to_string(tradeType));
}

void CSourceValidator::checkText(const std::string& value, int field) {
    const std::vector<std::string> broken = faults(value, field);
    if (!broken.empty())
        throw CServiceError(broken.front());
}

namespace {

// A source's texts by the field whose limits they keep.
std::vector<std::pair<const std::string*, int>> textsOf(
    const rkservice::COrinQuoterSourceInfo& source) {
    return {{&source.m_strAddress, Hlx::CFieldLimit::Address},
            {&source.m_strUserName, Hlx::CFieldLimit::UserName},
            {&source.m_strPassword, Hlx::CFieldLimit::Password},
            {&source.m_strMarkets, Hlx::CFieldLimit::Markets}};
}

}  // namespace

std::vector<std::string> CSourceValidator::textFaults(
    const rkservice::COrinQuoterSourceInfo& source) {
    std::vector<std::string> result;
    for (const auto& text : textsOf(source)) {
        for (const std::string& fault : faults(*text.first, text.second))
            result.push_back("行情源 " + std::to_string(source.m_nId) + ": " + fault);
    }
    return result;
}

void CSourceValidator::checkFields(const rkservice::COrinQuoterSourceInfo& source,
                                   const rkservice::COrinQuoterSourceInfo* stored) {
    checkTradeType(source.m_nTradeType);
    const auto texts = textsOf(source);
    const auto kept = stored ? textsOf(*stored) : texts;
    for (size_t i = 0; i < texts.size(); ++i) {
        if (!stored || *texts[i].first != *kept[i].first)
            checkText(*texts[i].first, texts[i].second);
    }
    if (source.m_nBrokerId == rkservice::COrinQuoterSourceInfo::kNoBroker) {
        if (source.m_strAddress.empty())
            throw CServiceError("服务器地址不能为空");
        checkEndpoint(source);
        return;
    }
    // A broker's source: the broker's server group says where to connect; an address kept from
    // an earlier form must still be a valid one.
    if (source.m_nBrokerId <= 0)
        throw CServiceError("期货公司编号必须为正数: " + std::to_string(source.m_nBrokerId));
    if (source.m_nServerGroupId < 0)
        throw CServiceError("服务器组编号不能为负数: " + std::to_string(source.m_nServerGroupId));
    if (!source.m_strAddress.empty() || source.m_nPort != 0)
        checkEndpoint(source);
}

void CSourceValidator::checkEndpoint(const rkservice::COrinQuoterSourceInfo& source) {
    if (!isAddress(source.m_strAddress))
        throw CServiceError("服务器地址格式错误: " + source.m_strAddress);
    checkPort(source.m_nPort);
}

void CSourceValidator::checkPort(int port) {
    if (port < 1 || port > 65535)
        throw CServiceError("端口必须在 1 到 65535 之间: " + std::to_string(port));
}

void CSourceValidator::checkToken(const std::string& token) {
    if (!isToken(token))
        throw CServiceError("token 必须是 1 到 100 位英文字母或数字");
}
