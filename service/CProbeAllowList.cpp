#include "CProbeAllowList.h"

#include <QStringList>

#include "CServiceError.h"

namespace {

// Reserved for documentation (RFC 5737, RFC 3849): examples point there, never a server.
const char* const kDocumentation[] = {"192.0.2.0/24", "198.51.100.0/24", "203.0.113.0/24",
                                      "2001:db8::/32"};

}  // namespace

CProbeAllowList::CProbeAllowList() = default;

CProbeAllowList CProbeAllowList::parse(const QString& ranges) {
    CProbeAllowList list;
    list.m_defaults = false;
    for (const QString& range : ranges.split(QLatin1Char(','), Qt::SkipEmptyParts))
        list.m_allowed.push_back(subnet(range.trimmed()));
    if (list.m_allowed.empty())
        throw CServiceError("探测范围为空: " + ranges.toStdString());
    return list;
}

CProbeAllowList CProbeAllowList::only(const std::vector<QString>& ranges) {
    CProbeAllowList list;
    list.m_defaults = false;
    for (const QString& range : ranges)
        list.m_allowed.push_back(subnet(range));
    return list;
}

void CProbeAllowList::allow(const QString& range) {
    m_allowed.push_back(subnet(range));
}

CProbeAllowList::Subnet CProbeAllowList::subnet(const QString& range) {
    Subnet parsed;
    if (!CIpAddress::parseRange(range.toStdString(), &parsed.first, &parsed.second))
        throw CServiceError("探测范围格式错误: " + range.toStdString());
    return parsed;
}

std::string CProbeAllowList::neverProbed(const CIpAddress& address) {
    for (const char* range : kDocumentation) {
        Subnet documentation;
        CIpAddress::parseRange(range, &documentation.first, &documentation.second);
        if (address.within(documentation.first, documentation.second))
            return "文档保留地址，不探测";
    }
    if (address.isUnspecified())
        return "未指定地址，不探测";
    if (address.isMulticast())
        return "组播地址，不探测";
    if (address.isBroadcast())
        return "广播地址，不探测";
    return std::string();
}

std::string CProbeAllowList::refusal(const QString& text) const {
    CIpAddress address;
    if (!CIpAddress::parse(text.toStdString(), &address))
        return "不是 IP 地址，不探测";
    const std::string never = neverProbed(address);
    if (!never.empty())
        return never;
    for (const Subnet& range : m_allowed) {
        if (address.within(range.first, range.second))
            return std::string();
    }
    if (m_defaults && !address.isLoopback() && !address.isLinkLocal())
        return std::string();
    return "不在探测范围内";
}
