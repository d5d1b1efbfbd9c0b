#pragma once

#include "rkservice/CWholeQuotedivision.h"
#include "rkservice/IData.h"

namespace rkservice {

// The global feature-permission record of one sub-system.
class CGlobalFeaturePermissionInfo : public IData {
public:
    CGlobalFeaturePermissionInfo();
    CGlobalFeaturePermissionInfo(const CGlobalFeaturePermissionInfo& other);
    CGlobalFeaturePermissionInfo& operator=(const CGlobalFeaturePermissionInfo& other);
    ~CGlobalFeaturePermissionInfo() override;
    IDataPtr clone() const override;

    CWholeQuotedivisionPtr m_wholeQuote;
};

typedef boost::shared_ptr<CGlobalFeaturePermissionInfo> CGlobalFeaturePermissionInfoPtr;

}  // namespace rkservice
