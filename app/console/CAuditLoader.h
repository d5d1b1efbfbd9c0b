#pragma once

#include <boost/shared_ptr.hpp>
#include <functional>
#include <memory>
#include <vector>

#include "Hlx/CAuditEntry.h"
#include "Hlx/CAuditFilter.h"
#include "utils/RKError.h"

class QObject;
namespace Hlx {
class IAuditTransfer;
}

// Reads the audit trail on a worker thread, so that a slow server never freezes the window, and
// hands the answer to the receiver on the receiver's thread. Only the newest read is answered;
// after invalidate() (the receiver's destructor) none is.
class CAuditLoader {
public:
    using Answer = std::function<void(const utils::RKError&, const Hlx::CAuditPage&)>;

    CAuditLoader(boost::shared_ptr<Hlx::IAuditTransfer> admin, QObject* receiver);
    ~CAuditLoader();
    CAuditLoader(const CAuditLoader&) = delete;
    CAuditLoader& operator=(const CAuditLoader&) = delete;

    void start(const Hlx::CAuditFilter& filter, Answer answer);
    // Drops every answer from now on; waits for one being handed over right now.
    void invalidate();

    struct State;

private:
    boost::shared_ptr<Hlx::IAuditTransfer> m_admin;
    QObject* m_receiver;
    std::shared_ptr<State> m_state;
};
