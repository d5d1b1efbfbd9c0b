#pragma once

#include <QString>
#include <string>
#include <utility>
#include <vector>

#include "CIpAddress.h"

// Where the prober may connect. Whoever may add a source chooses where the service connects, so
// an administrator confines it to the platform's networks (--probe-allow). Some addresses are
// never contacted, whatever is allowed: documentation ranges, unspecified, multicast and
// broadcast addresses.
class CProbeAllowList {
public:
    // The default: every address but loopback and link-local.
    CProbeAllowList();
    // "CIDR,CIDR,..." (an address alone is its own /32 or /128). Throws CServiceError of the
    // kind invalid on a range it cannot read.
    static CProbeAllowList parse(const QString& ranges);
    // Only the ranges given (tests allow loopback alone).
    static CProbeAllowList only(const std::vector<QString>& ranges);

    // Empty when the address may be contacted; otherwise why it is not (the operator's text).
    std::string refusal(const QString& address) const;

    // Adds a range to what is allowed (the console's demo allows loopback).
    void allow(const QString& range);

private:
    using Subnet = std::pair<CIpAddress, int>;
    static Subnet subnet(const QString& range);
    static std::string neverProbed(const CIpAddress& address);

    bool m_defaults = true;
    std::vector<Subnet> m_allowed;
};
