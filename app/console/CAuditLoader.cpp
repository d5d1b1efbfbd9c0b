#include "CAuditLoader.h"

#include <QMetaObject>
#include <QObject>
#include <QThreadPool>
#include <exception>
#include <mutex>

#include "Hlx/IAuditTransfer.h"

struct CAuditLoader::State {
    std::mutex mutex;
    bool alive = true;
    int load = 0;

    // Under the mutex: the receiver still lives and no newer read has started.
    bool admits(int ofLoad) const { return alive && load == ofLoad; }
};

namespace {

utils::RKError readTrail(Hlx::IAuditTransfer& admin, const Hlx::CAuditFilter& filter,
                         Hlx::CAuditPage* page) {
    try {
        return admin.auditPage(filter, page);
    } catch (const std::exception& e) {
        // A worker must not end the process: the fault is the answer.
        return utils::RKError::fail(e.what());
    }
}

}  // namespace

CAuditLoader::CAuditLoader(boost::shared_ptr<Hlx::IAuditTransfer> admin, QObject* receiver)
    : m_admin(std::move(admin)), m_receiver(receiver), m_state(std::make_shared<State>()) {}

CAuditLoader::~CAuditLoader() {
    invalidate();
}

void CAuditLoader::invalidate() {
    std::lock_guard<std::mutex> lock(m_state->mutex);
    m_state->alive = false;
}

void CAuditLoader::start(const Hlx::CAuditFilter& filter, Answer answer) {
    int load = 0;
    {
        std::lock_guard<std::mutex> lock(m_state->mutex);
        load = ++m_state->load;
    }
    const std::shared_ptr<State> state = m_state;
    const boost::shared_ptr<Hlx::IAuditTransfer> admin = m_admin;
    QObject* receiver = m_receiver;
    QThreadPool::globalInstance()->start([state, load, admin, filter, receiver, answer] {
        auto entries = std::make_shared<Hlx::CAuditPage>();
        const utils::RKError error = readTrail(*admin, filter, entries.get());
        // Posted under the lock: the receiver's destructor waits for it, and Qt drops the
        // posted call with the receiver, so nothing reaches a destroyed one.
        std::lock_guard<std::mutex> lock(state->mutex);
        if (!state->admits(load))
            return;
        QMetaObject::invokeMethod(
            receiver,
            [state, load, answer, error, entries] {
                {
                    std::lock_guard<std::mutex> check(state->mutex);
                    if (!state->admits(load))
                        return;
                }
                answer(error, *entries);
            },
            Qt::QueuedConnection);
    });
}
