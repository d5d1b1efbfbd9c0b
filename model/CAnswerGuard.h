#pragma once

#include <boost/shared_ptr.hpp>

#include "Hlx/DataCallbacks.h"
#include "model/PanelQuotesManageGlobal.h"

namespace Hlx {

// Keeps late and stale answers away from their receiver. An answer bound through the guard runs
// only while the receiver lives; one bound to a load runs only while that load is the newest.
// The receiver's destructor calls invalidate(), which waits for answers already running and
// drops every later one.
class PANELQUOTESMANAGE_EXPORT CAnswerGuard {
public:
    CAnswerGuard();
    ~CAnswerGuard();
    CAnswerGuard(const CAnswerGuard&) = delete;
    CAnswerGuard& operator=(const CAnswerGuard&) = delete;

    QueryCallback guardQuery(const QueryCallback& callback) const;
    OperateCallback guardOperate(const OperateCallback& callback) const;

    // Starts a new load: answers bound to earlier loads are dropped from now on.
    int startLoad();
    int currentLoad() const;
    QueryCallback guardLoad(const QueryCallback& callback) const;
    // Bound to the current load like guardLoad, but admitted after newer loads have started too:
    // runningLoad() tells the answer its load, so that the receiver keeps only the newest of
    // answers that may arrive in any order.
    QueryCallback guardLoadTagged(const QueryCallback& callback) const;
    // The load of the answer running on this thread (-1 outside a load's answer), so that an
    // answer can check under its receiver's lock that its load is still the newest.
    static int runningLoad();

    void invalidate();

    // How many answers every guard of the process has dropped so far (late or stale ones).
    static int droppedCount();

    struct State;

private:
    boost::shared_ptr<State> m_state;
};

}  // namespace Hlx
