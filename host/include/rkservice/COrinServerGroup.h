#pragma once

#include <boost/shared_ptr.hpp>
#include <string>
#include <vector>

namespace rkservice {

// One server group of a futures company: its id, name and "address:port" texts.
class COrinServerGroup {
public:
    int serverGroupId = 0;
    std::string serverGroupName;
    std::vector<std::string> serverAddresses;
};

typedef boost::shared_ptr<COrinServerGroup> COrinServerGroupPtr;

}  // namespace rkservice
