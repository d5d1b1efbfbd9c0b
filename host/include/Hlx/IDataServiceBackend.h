#pragma once

#include <string>
#include <vector>

#include "Hlx/CAnswer.h"
#include "Hlx/CRequestTarget.h"
#include "rkservice/COperateDataReq.h"
#include "rkservice/COrinQueryDataReq.h"

namespace Hlx {

// A sub-system (server) of the platform: its name (the records' system tag) and display name.
struct SubsystemInfo {
    std::string name;
    std::string displayName;
};

// What carries out the client centre's requests. Called on a worker thread of the centre with a
// private copy of the request; answers through the answer object, now or later.
class IDataServiceBackend {
public:
    virtual ~IDataServiceBackend();

    virtual void query(const CRequestTarget& target, const rkservice::COrinQueryDataReq& request,
                       const CQueryAnswer& answer) = 0;
    virtual void operate(const CRequestTarget& target, const rkservice::COperateDataReq& request,
                         const COperateAnswer& answer) = 0;

    // The sub-systems; the first is the default one.
    virtual std::vector<SubsystemInfo> subsystems() const = 0;

    // Whether the client logged in with the given login type (0: the platform's own names).
    virtual bool hasClientLoginTypeAuth(int loginType) const = 0;
};

}  // namespace Hlx
