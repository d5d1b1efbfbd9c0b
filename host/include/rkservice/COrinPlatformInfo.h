#pragma once

#include <string>

#include "rkservice/IData.h"

namespace rkservice {

// A market-data platform: id and display name.
class COrinPlatformInfo : public IData {
public:
    ~COrinPlatformInfo() override;
    IDataPtr clone() const override;

    int platformId = 0;
    std::string platformName;
};

}  // namespace rkservice
