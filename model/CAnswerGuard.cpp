#include "model/CAnswerGuard.h"

#include <atomic>
#include <boost/make_shared.hpp>
#include <condition_variable>
#include <mutex>

namespace Hlx {

namespace {
std::atomic<int> g_dropped{0};
}  // namespace

struct CAnswerGuard::State {
    std::mutex mutex;
    std::condition_variable idle;
    bool alive = true;
    int running = 0;
    int load = 0;

    // Admits an answer of the given load (-1: of no load); false when it must be dropped.
    bool enter(int answerLoad) {
        std::lock_guard<std::mutex> lock(mutex);
        if (!alive || (answerLoad >= 0 && answerLoad != load)) {
            ++g_dropped;
            return false;
        }
        ++running;
        return true;
    }

    void leave() {
        std::lock_guard<std::mutex> lock(mutex);
        --running;
        idle.notify_all();
    }
};

namespace {

thread_local int t_runningLoad = -1;

// Leaves the guard even when the answer throws.
class Admission {
public:
    explicit Admission(const boost::shared_ptr<CAnswerGuard::State>& state, int load)
        : m_state(state), m_admitted(state->enter(load)) {}
    ~Admission() {
        if (m_admitted)
            m_state->leave();
    }
    bool admitted() const { return m_admitted; }

private:
    boost::shared_ptr<CAnswerGuard::State> m_state;
    bool m_admitted;
};

// Admits the answer while the receiver lives and, when dropStale is set, while its load is the
// newest; the answer runs with runningLoad() telling its load.
QueryCallback admitQuery(const boost::shared_ptr<CAnswerGuard::State>& state, int load,
                         bool dropStale, const QueryCallback& callback) {
    return [state, load, dropStale, callback](const utils::RKError& error,
                                              const std::vector<rkservice::IDataPtr>& datas,
                                              int count, bson::BSONObj result) {
        Admission admission(state, dropStale ? load : -1);
        if (!admission.admitted())
            return;
        const int outer = t_runningLoad;
        t_runningLoad = load;
        callback(error, datas, count, result);
        t_runningLoad = outer;
    };
}

}  // namespace

CAnswerGuard::CAnswerGuard() : m_state(boost::make_shared<State>()) {}

CAnswerGuard::~CAnswerGuard() {
    invalidate();
}

QueryCallback CAnswerGuard::guardQuery(const QueryCallback& callback) const {
    return admitQuery(m_state, -1, true, callback);
}

OperateCallback CAnswerGuard::guardOperate(const OperateCallback& callback) const {
    boost::shared_ptr<State> state = m_state;
    return [state, callback](const utils::RKError& error, bson::BSONObj result) {
        Admission admission(state, -1);
        if (admission.admitted())
            callback(error, result);
    };
}

int CAnswerGuard::startLoad() {
    std::lock_guard<std::mutex> lock(m_state->mutex);
    return ++m_state->load;
}

int CAnswerGuard::currentLoad() const {
    std::lock_guard<std::mutex> lock(m_state->mutex);
    return m_state->load;
}

QueryCallback CAnswerGuard::guardLoad(const QueryCallback& callback) const {
    return admitQuery(m_state, currentLoad(), true, callback);
}

QueryCallback CAnswerGuard::guardLoadTagged(const QueryCallback& callback) const {
    return admitQuery(m_state, currentLoad(), false, callback);
}

int CAnswerGuard::runningLoad() {
    return t_runningLoad;
}

int CAnswerGuard::droppedCount() {
    return g_dropped;
}

void CAnswerGuard::invalidate() {
    std::unique_lock<std::mutex> lock(m_state->mutex);
    m_state->alive = false;
    m_state->idle.wait(lock, [this] { return m_state->running == 0; });
}

}  // namespace Hlx
