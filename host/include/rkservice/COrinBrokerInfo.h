#pragma once

#include <string>
#include <vector>

#include "rkservice/COrinServerGroup.h"
#include "rkservice/IData.h"

namespace rkservice {

// A futures company (broker) of one platform with its server groups. The key is
// "<broker id>_<text>".
class COrinBrokerInfo : public IData {
public:
    ~COrinBrokerInfo() override;
    IDataPtr clone() const override;

    int platformId = 0;
    std::string platformName;
    std::string brokerKey;
    std::string brokerName;
    std::vector<COrinServerGroupPtr> serverGroups;
};

typedef boost::shared_ptr<COrinBrokerInfo> COrinBrokerInfoPtr;

}  // namespace rkservice
