#include "rkservice/CWholeQuotedivision.h"

namespace rkservice {

const std::vector<std::string>& CWholeQuotedivision::knownMarkets() {
    static const std::vector<std::string> markets = {"SH",  "SZ",   "SHO",  "SZO", "HGT",
                                                     "SGT", "NEEQ", "GOLD", "IB",  "YSWP"};
    return markets;
}

bool CWholeQuotedivision::isEnabled(const std::string& market) const {
    auto it = m_flags.find(market);
    return it != m_flags.end() && it->second;
}

void CWholeQuotedivision::setEnabled(const std::string& market, bool enabled) {
    m_flags[market] = enabled;
}

}  // namespace rkservice
