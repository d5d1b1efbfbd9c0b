// Destructors and copies of the record classes.
#include "rkservice/CGlobalFeaturePermissionInfo.h"
#include "rkservice/CLevel2Token.h"
#include "rkservice/COrinBrokerInfo.h"
#include "rkservice/COrinPlatformInfo.h"
#include "rkservice/COrinQuoterSourceInfo.h"
#include "rkservice/CUserInfo.h"

#include <boost/make_shared.hpp>

namespace rkservice {

IData::~IData() = default;

IDataList cloneAll(const IDataList& datas) {
    IDataList copies;
    copies.reserve(datas.size());
    for (const IDataPtr& data : datas)
        copies.push_back(data ? data->clone() : IDataPtr());
    return copies;
}

COrinQuoterSourceInfo::~COrinQuoterSourceInfo() = default;
IDataPtr COrinQuoterSourceInfo::clone() const {
    return boost::make_shared<COrinQuoterSourceInfo>(*this);
}

COrinBrokerInfo::~COrinBrokerInfo() = default;
IDataPtr COrinBrokerInfo::clone() const {
    boost::shared_ptr<COrinBrokerInfo> copy = boost::make_shared<COrinBrokerInfo>(*this);
    for (COrinServerGroupPtr& group : copy->serverGroups) {
        if (group)
            group = boost::make_shared<COrinServerGroup>(*group);
    }
    return copy;
}

COrinPlatformInfo::~COrinPlatformInfo() = default;
IDataPtr COrinPlatformInfo::clone() const {
    return boost::make_shared<COrinPlatformInfo>(*this);
}

CGlobalFeaturePermissionInfo::CGlobalFeaturePermissionInfo()
    : m_wholeQuote(boost::make_shared<CWholeQuotedivision>()) {}

CGlobalFeaturePermissionInfo::CGlobalFeaturePermissionInfo(
    const CGlobalFeaturePermissionInfo& other)
    : IData(other),
      m_wholeQuote(other.m_wholeQuote ? boost::make_shared<CWholeQuotedivision>(*other.m_wholeQuote)
                                      : CWholeQuotedivisionPtr()) {}

CGlobalFeaturePermissionInfo& CGlobalFeaturePermissionInfo::operator=(
    const CGlobalFeaturePermissionInfo& other) {
    if (this != &other) {
        IData::operator=(other);
        m_wholeQuote = other.m_wholeQuote
                           ? boost::make_shared<CWholeQuotedivision>(*other.m_wholeQuote)
                           : CWholeQuotedivisionPtr();
    }
    return *this;
}

CGlobalFeaturePermissionInfo::~CGlobalFeaturePermissionInfo() = default;
IDataPtr CGlobalFeaturePermissionInfo::clone() const {
    return boost::make_shared<CGlobalFeaturePermissionInfo>(*this);
}

CLevel2Token::~CLevel2Token() = default;
IDataPtr CLevel2Token::clone() const {
    return boost::make_shared<CLevel2Token>(*this);
}

CUserInfo::~CUserInfo() = default;
IDataPtr CUserInfo::clone() const {
    return boost::make_shared<CUserInfo>(*this);
}

}  // namespace rkservice
