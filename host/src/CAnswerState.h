#pragma once

#include <atomic>
#include <functional>
#include <vector>

#include "bson/BSONObj.h"
#include "rkservice/IData.h"
#include "utils/RKError.h"

namespace Hlx {

// The shared state behind one answer object: delivers the outcome exactly once, by handing the
// requester's callback to the client centre's worker pool. Destroyed unanswered, it answers with
// an error.
class CAnswerState {
public:
    typedef std::function<void(const utils::RKError&, const std::vector<rkservice::IDataPtr>&,
                               const bson::BSONObj&)>
        Deliver;

    explicit CAnswerState(Deliver deliver);
    ~CAnswerState();

    void answer(const utils::RKError& error, const std::vector<rkservice::IDataPtr>& datas,
                const bson::BSONObj& result);
    bool isAnswered() const { return m_answered.load(); }

private:
    Deliver m_deliver;
    std::atomic<bool> m_answered{false};
};

}  // namespace Hlx
