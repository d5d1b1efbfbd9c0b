#pragma once

#include <boost/shared_ptr.hpp>
#include <map>
#include <string>
#include <vector>

namespace rkservice {

// Which markets receive whole-market quote pushes: one flag per market code.
class CWholeQuotedivision {
public:
    // The market codes an operator can choose, in display order.
    static const std::vector<std::string>& knownMarkets();

    bool isEnabled(const std::string& market) const;
    void setEnabled(const std::string& market, bool enabled);
    const std::map<std::string, bool>& flags() const { return m_flags; }

    bool operator==(const CWholeQuotedivision& other) const { return m_flags == other.m_flags; }

private:
    std::map<std::string, bool> m_flags;
};

typedef boost::shared_ptr<CWholeQuotedivision> CWholeQuotedivisionPtr;

}  // namespace rkservice
