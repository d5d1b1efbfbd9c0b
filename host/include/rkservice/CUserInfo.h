#pragma once

#include <boost/shared_ptr.hpp>
#include <set>
#include <string>

#include "rkservice/IData.h"

namespace rkservice {

// A user of the platform: login name, the numbered rights held, and the sub-system the user
// administers (-1 or 2147483647: every sub-system, so requests are routed by sub-system).
class CUserInfo : public IData {
public:
    ~CUserInfo() override;
    IDataPtr clone() const override;

    bool routesBySystem() const {
        return ((static_cast<unsigned>(m_nSystemId) + 1u) & 0x7FFFFFFFu) == 0;
    }

    std::string m_strName;
    std::set<int> m_rights;
    int m_nSystemId = 0;
};

typedef boost::shared_ptr<CUserInfo> CUserInfoPtr;

}  // namespace rkservice
