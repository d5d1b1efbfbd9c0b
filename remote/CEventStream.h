#pragma once

#include <chrono>
#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <vector>

#include "Hlx/CChangeEvent.h"

class CChangeFeed;

// The server's side of one client's event stream: subscribes to the feed and queues its changes
// until the stream's thread takes them.
class CEventStream {
public:
    explicit CEventStream(CChangeFeed& feed);
    ~CEventStream();

    CEventStream(const CEventStream&) = delete;
    CEventStream& operator=(const CEventStream&) = delete;

    // The changes queued since the last call, waiting up to wait for the first.
    std::vector<Hlx::CChangeEvent> take(std::chrono::milliseconds wait);

private:
    std::mutex m_mutex;
    std::condition_variable m_queued;
    std::deque<Hlx::CChangeEvent> m_changes;
    // Last: ends the delivery before the queue goes.
    std::shared_ptr<void> m_subscription;
};
