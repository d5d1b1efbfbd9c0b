#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

#include "model/PanelQuotesManageGlobal.h"

namespace Hlx {

// The lock a panel shares with its answers. It knows the thread that holds it, because the
// user-interface thread may hold it across a modal dialog: a queued slot that runs inside that
// dialog's event loop finds the lock held by its own thread, and instead of deadlocking it is
// parked and run right after the holder unlocks. Workers wait for it; abandon() releases them
// when the panel is being destroyed.
class PANELQUOTESMANAGE_EXPORT CPanelMutex {
public:
    class Locker;

    CPanelMutex() = default;
    CPanelMutex(const CPanelMutex&) = delete;
    CPanelMutex& operator=(const CPanelMutex&) = delete;

    // Waits for the lock; false when it was abandoned. Never from the thread that holds it.
    bool lock();
    // Releases the lock, then runs the calls this thread parked while it held it.
    void unlock();
    // Takes the lock for the caller, or, when this thread already holds it, parks the call to be
    // run once it is released. The locker owns the lock only in the first case.
    Locker lockOrPark(std::function<void()> call);

    bool isHeldByCurrentThread() const;
    // The value of read() taken under the lock; on the thread that holds the lock already (the
    // panel runs a modal dialog) read() runs at once, since no other thread can change the data
    // while that thread holds it, and waiting would never end. A default value when the lock
    // was abandoned.
    template <typename Read>
    auto read(Read read) -> decltype(read());
    void abandon();
    bool isAbandoned() const;
    int parkedCount() const;
    // Threads blocked in lock() now.
    int waitingCount() const;

private:
    mutable std::mutex m_mutex;
    std::condition_variable m_released;
    bool m_held = false;
    bool m_abandoned = false;
    int m_waiting = 0;
    std::thread::id m_owner;
    std::deque<std::function<void()>> m_parked;
};

// Holds a CPanelMutex for a scope.
class PANELQUOTESMANAGE_EXPORT CPanelMutex::Locker {
public:
    // Waits for the lock (worker threads, and the user-interface thread outside nested loops).
    explicit Locker(CPanelMutex& mutex);
    Locker(Locker&& other) noexcept;
    ~Locker();
    Locker(const Locker&) = delete;
    Locker& operator=(const Locker&) = delete;
    Locker& operator=(Locker&&) = delete;

    bool owns() const { return m_mutex != nullptr; }
    explicit operator bool() const { return owns(); }
    void unlock();
    // Forgets the lock without touching it: its owner was destroyed while this scope ran a modal
    // dialog, and the lock with it.
    void release() { m_mutex = nullptr; }

private:
    friend class CPanelMutex;
    Locker() = default;
    CPanelMutex* m_mutex = nullptr;
};

template <typename Read>
auto CPanelMutex::read(Read read) -> decltype(read()) {
    if (isHeldByCurrentThread())
        return read();
    Locker locker(*this);
    if (!locker)
        return decltype(read())();
    return read();
}

}  // namespace Hlx
