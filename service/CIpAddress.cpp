#include "CIpAddress.h"

#include <arpa/inet.h>
#include <net/if.h>

#include <algorithm>
#include <cstring>

bool CIpAddress::parse(const std::string& text, CIpAddress* out) {
    if (text.find('\0') != std::string::npos)
        return false;
    CIpAddress address;
    if (inet_pton(AF_INET, text.c_str(), address.m_bytes.data()) == 1) {
        *out = address;
        return true;
    }
    const std::size_t percent = text.find('%');
    const std::string plain = text.substr(0, percent);
    if (inet_pton(AF_INET6, plain.c_str(), address.m_bytes.data()) != 1)
        return false;
    if (percent != std::string::npos) {
        address.m_scope = if_nametoindex(text.substr(percent + 1).c_str());
        if (address.m_scope == 0)
            return false;
    }
    static const std::uint8_t kMapped[12] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xff, 0xff};
    address.m_v4 = std::memcmp(address.m_bytes.data(), kMapped, sizeof(kMapped)) == 0;
    if (address.m_v4) {
        std::copy(address.m_bytes.begin() + 12, address.m_bytes.end(), address.m_bytes.begin());
        std::fill(address.m_bytes.begin() + 4, address.m_bytes.end(), 0);
    }
    *out = address;
    return true;
}

bool CIpAddress::parseRange(const std::string& text, CIpAddress* out, int* prefix) {
    const std::size_t slash = text.find('/');
    if (!parse(text.substr(0, slash), out))
        return false;
    const int bits = out->m_v4 ? 32 : 128;
    if (slash == std::string::npos) {
        *prefix = bits;
        return true;
    }
    const std::string digits = text.substr(slash + 1);
    if (digits.empty() || digits.size() > 3 ||
        !std::all_of(digits.begin(), digits.end(), [](char c) { return c >= '0' && c <= '9'; }))
        return false;
    *prefix = std::stoi(digits);
    return *prefix <= bits;
}

bool CIpAddress::within(const CIpAddress& network, int prefix) const {
    if (m_v4 != network.m_v4)
        return false;
    const int whole = prefix / 8;
    if (std::memcmp(m_bytes.data(), network.m_bytes.data(), std::size_t(whole)) != 0)
        return false;
    const int rest = prefix % 8;
    if (rest == 0)
        return true;
    const std::uint8_t mask = std::uint8_t(0xff << (8 - rest));
    return (m_bytes[std::size_t(whole)] & mask) == (network.m_bytes[std::size_t(whole)] & mask);
}

bool CIpAddress::isLoopback() const {
    if (m_v4)
        return m_bytes[0] == 127;
    static const std::uint8_t kOne[16] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1};
    return std::memcmp(m_bytes.data(), kOne, 16) == 0;
}

bool CIpAddress::isLinkLocal() const {
    if (m_v4)
        return m_bytes[0] == 169 && m_bytes[1] == 254;
    return m_bytes[0] == 0xfe && (m_bytes[1] & 0xc0) == 0x80;
}

bool CIpAddress::isUnspecified() const {
    return std::all_of(m_bytes.begin(), m_bytes.end(), [](std::uint8_t b) { return b == 0; });
}

bool CIpAddress::isMulticast() const {
    return m_v4 ? (m_bytes[0] & 0xf0) == 0xe0 : m_bytes[0] == 0xff;
}

bool CIpAddress::isBroadcast() const {
    return m_v4 && m_bytes[0] == 255 && m_bytes[1] == 255 && m_bytes[2] == 255 && m_bytes[3] == 255;
}
