#include "model/CPanelMutex.h"

namespace Hlx {

bool CPanelMutex::lock() {
    std::unique_lock<std::mutex> guard(m_mutex);
    ++m_waiting;
    m_released.wait(guard, [this] { return !m_held || m_abandoned; });
    --m_waiting;
    if (m_abandoned)
        return false;
    m_held = true;
    m_owner = std::this_thread::get_id();
    return true;
}

void CPanelMutex::unlock() {
    std::deque<std::function<void()>> parked;
    {
        std::lock_guard<std::mutex> guard(m_mutex);
        m_held = false;
        m_owner = std::thread::id();
        parked.swap(m_parked);
    }
    m_released.notify_all();
    for (std::function<void()>& call : parked)
        call();
}

CPanelMutex::Locker CPanelMutex::lockOrPark(std::function<void()> call) {
    {
        std::lock_guard<std::mutex> guard(m_mutex);
        if (m_held && m_owner == std::this_thread::get_id()) {
            m_parked.push_back(std::move(call));
            return Locker();
        }
    }
    return Locker(*this);
}

bool CPanelMutex::isHeldByCurrentThread() const {
    std::lock_guard<std::mutex> guard(m_mutex);
    return m_held && m_owner == std::this_thread::get_id();
}

void CPanelMutex::abandon() {
    {
        std::lock_guard<std::mutex> guard(m_mutex);
        m_abandoned = true;
        m_parked.clear();
    }
    m_released.notify_all();
}

bool CPanelMutex::isAbandoned() const {
    std::lock_guard<std::mutex> guard(m_mutex);
    return m_abandoned;
}

int CPanelMutex::waitingCount() const {
    std::lock_guard<std::mutex> guard(m_mutex);
    return m_waiting;
}

int CPanelMutex::parkedCount() const {
    std::lock_guard<std::mutex> guard(m_mutex);
    return int(m_parked.size());
}

CPanelMutex::Locker::Locker(CPanelMutex& mutex) : m_mutex(mutex.lock() ? &mutex : nullptr) {}

CPanelMutex::Locker::Locker(Locker&& other) noexcept : m_mutex(other.m_mutex) {
    other.m_mutex = nullptr;
}

CPanelMutex::Locker::~Locker() {
    unlock();
}

void CPanelMutex::Locker::unlock() {
    if (m_mutex) {
        CPanelMutex* mutex = m_mutex;
        m_mutex = nullptr;
        mutex->unlock();
    }
}

}  // namespace Hlx
