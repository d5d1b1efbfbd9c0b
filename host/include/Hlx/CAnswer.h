#pragma once

#include <boost/shared_ptr.hpp>
#include <functional>
#include <vector>

#include "bson/BSONObj.h"
#include "rkservice/IData.h"
#include "utils/RKError.h"

namespace Hlx {

class CAnswerState;

// The promise of one answer. A backend answers through it exactly once, from any thread and at
// any time; the client centre then calls the requester's callback on one of its worker threads.
// An answer object dropped without an answer answers with an error, so nothing waits forever.
class CQueryAnswer {
public:
    explicit CQueryAnswer(boost::shared_ptr<CAnswerState> state);
    void answer(const utils::RKError& error, const std::vector<rkservice::IDataPtr>& datas,
                const bson::BSONObj& result = bson::BSONObj()) const;
    bool isAnswered() const;

private:
    boost::shared_ptr<CAnswerState> m_state;
};

class COperateAnswer {
public:
    explicit COperateAnswer(boost::shared_ptr<CAnswerState> state);
    void answer(const utils::RKError& error, const bson::BSONObj& result = bson::BSONObj()) const;
    bool isAnswered() const;

private:
    boost::shared_ptr<CAnswerState> m_state;
};

}  // namespace Hlx
