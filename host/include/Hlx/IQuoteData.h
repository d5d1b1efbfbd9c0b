#pragma once

#include <vector>

#include "Hlx/CSourceHistory.h"
#include "Hlx/CSourcePatch.h"
#include "Hlx/IDataServiceBackend.h"
#include "bson/BSONObj.h"
#include "utils/RKError.h"

namespace Hlx {

// The quote data and the platform's settings: what the panels read and change. Calls answer on
// the calling thread; a refusal or a fault is an RKError of its kind with the text the operator
// sees.
class IQuoteData {
public:
    virtual ~IQuoteData();

    virtual utils::RKError query(const CRequestTarget& target,
                                 const rkservice::COrinQueryDataReq& request,
                                 std::vector<rkservice::IDataPtr>* datas) = 0;
    virtual utils::RKError operate(const CRequestTarget& target,
                                   const rkservice::COperateDataReq& request,
                                   bson::BSONObj* result) = 0;  // result may be null
    // Changes the fields the patch names of one stored source, leaving the others: the read and
    // the write are one transaction of the service, so a change made meanwhile by someone else is
    // never overwritten.
    virtual utils::RKError modifySource(int id, const CSourcePatch& patch) = 0;
    // A source's history from the audit trail (also of a deleted one), for whoever may read
    // sources.
    virtual utils::RKError sourceHistory(int id, CSourceHistory* history);
    // Sets the source back to its fields after the entry of its history, as a modify checked
    // against the rights and, when revision is not 0, the stored revision; a deleted source is
    // added again (with its id when free). The password stays as stored (none for a source added
    // again): the trail keeps none. revision answers the one written.
    virtual utils::RKError restoreSource(int id, long long entryId, long long revision,
                                         long long* written);

    // Answered from what the implementation already holds, never with a round trip: the client
    // centre asks them on the user-interface thread.
    virtual std::vector<SubsystemInfo> subsystems() const = 0;
    virtual bool hasClientLoginTypeAuth(int loginType) const = 0;
    virtual utils::RKError setSubsystems(const std::vector<SubsystemInfo>& subsystems) = 0;
    virtual utils::RKError setLoginTypeAuth(int loginType, bool granted) = 0;
    // Reads again what subsystems() and hasClientLoginTypeAuth() answer from, after someone
    // else changed it.
    virtual utils::RKError reloadSettings();
};

}  // namespace Hlx
