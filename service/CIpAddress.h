#pragma once

#include <array>
#include <cstdint>
#include <string>

// An IP address as the prober judges and connects to it: IPv4, or IPv6 (an IPv4 address
// written as IPv6, ::ffff:a.b.c.d, counts as the IPv4 address it is). No resolver is asked:
// sources store literal addresses.
class CIpAddress {
public:
    // False when the text is no literal address ("fe80::1%eth0" keeps its zone).
    static bool parse(const std::string& text, CIpAddress* out);
    // "address/prefix" (an address alone is a /32 or /128).
    static bool parseRange(const std::string& text, CIpAddress* out, int* prefix);

    bool isV4() const { return m_v4; }
    // IPv4: the first four bytes; IPv6: all sixteen (network order).
    const std::array<std::uint8_t, 16>& bytes() const { return m_bytes; }
    unsigned scope() const { return m_scope; }

    bool within(const CIpAddress& network, int prefix) const;
    bool isLoopback() const;
    bool isLinkLocal() const;
    bool isUnspecified() const;
    bool isMulticast() const;
    bool isBroadcast() const;

private:
    bool m_v4 = true;
    std::array<std::uint8_t, 16> m_bytes{};
    unsigned m_scope = 0;
};
