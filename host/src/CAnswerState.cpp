#include "CAnswerState.h"

#include "Hlx/CAnswer.h"

namespace Hlx {

CAnswerState::CAnswerState(Deliver deliver) : m_deliver(std::move(deliver)) {}

CAnswerState::~CAnswerState() {
    if (!m_answered.load())
        answer(utils::RKError::fail("数据服务未应答请求"), {}, bson::BSONObj());
}

void CAnswerState::answer(const utils::RKError& error,
                          const std::vector<rkservice::IDataPtr>& datas,
                          const bson::BSONObj& result) {
    if (m_answered.exchange(true))
        return;
    m_deliver(error, datas, result);
}

CQueryAnswer::CQueryAnswer(boost::shared_ptr<CAnswerState> state) : m_state(std::move(state)) {}

void CQueryAnswer::answer(const utils::RKError& error,
                          const std::vector<rkservice::IDataPtr>& datas,
                          const bson::BSONObj& result) const {
    m_state->answer(error, datas, result);
}

bool CQueryAnswer::isAnswered() const {
    return m_state->isAnswered();
}

COperateAnswer::COperateAnswer(boost::shared_ptr<CAnswerState> state) : m_state(std::move(state)) {}

void COperateAnswer::answer(const utils::RKError& error, const bson::BSONObj& result) const {
    m_state->answer(error, {}, result);
}

bool COperateAnswer::isAnswered() const {
    return m_state->isAnswered();
}

}  // namespace Hlx
