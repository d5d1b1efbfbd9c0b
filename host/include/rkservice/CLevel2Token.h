#pragma once

#include <string>

#include "rkservice/IData.h"

namespace rkservice {

// The access token of the Level-2 market-data source.
class CLevel2Token : public IData {
public:
    ~CLevel2Token() override;
    IDataPtr clone() const override;

    std::string token;
};

}  // namespace rkservice
