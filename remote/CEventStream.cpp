#include "CEventStream.h"

#include "CChangeFeed.h"

CEventStream::CEventStream(CChangeFeed& feed) {
    m_subscription = feed.subscribe([this](const Hlx::CChangeEvent& change) {
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            m_changes.push_back(change);
        }
        m_queued.notify_one();
    });
}

CEventStream::~CEventStream() {
    m_subscription.reset();
}

std::vector<Hlx::CChangeEvent> CEventStream::take(std::chrono::milliseconds wait) {
    std::unique_lock<std::mutex> lock(m_mutex);
    m_queued.wait_for(lock, wait, [this] { return !m_changes.empty(); });
    std::vector<Hlx::CChangeEvent> taken(m_changes.begin(), m_changes.end());
    m_changes.clear();
    return taken;
}
