#pragma once

#include <condition_variable>
#include <mutex>

// A counting semaphore (C++17 has none): at most `capacity` holders at once, the others wait
// their turn. It also keeps the most holders there ever were at once.
class CSemaphore {
public:
    explicit CSemaphore(int capacity) : m_capacity(capacity) {}

    CSemaphore(const CSemaphore&) = delete;
    CSemaphore& operator=(const CSemaphore&) = delete;

    // Holds one place for its lifetime.
    class Hold {
    public:
        explicit Hold(CSemaphore& semaphore);
        ~Hold();
        Hold(const Hold&) = delete;
        Hold& operator=(const Hold&) = delete;

    private:
        CSemaphore& m_semaphore;
    };

    int peak() const;

private:
    mutable std::mutex m_mutex;
    std::condition_variable m_freed;
    const int m_capacity;
    int m_held = 0;
    int m_peak = 0;
};
