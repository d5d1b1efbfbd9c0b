#include "CSemaphore.h"

#include <algorithm>

CSemaphore::Hold::Hold(CSemaphore& semaphore) : m_semaphore(semaphore) {
    std::unique_lock<std::mutex> lock(semaphore.m_mutex);
    semaphore.m_freed.wait(lock, [&] { return semaphore.m_held < semaphore.m_capacity; });
    ++semaphore.m_held;
    semaphore.m_peak = std::max(semaphore.m_peak, semaphore.m_held);
}

CSemaphore::Hold::~Hold() {
    {
        std::lock_guard<std::mutex> lock(m_semaphore.m_mutex);
        --m_semaphore.m_held;
    }
    m_semaphore.m_freed.notify_one();
}

int CSemaphore::peak() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_peak;
}
