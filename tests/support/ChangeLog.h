#pragma once

#include <mutex>
#include <vector>

#include "Hlx/IQuotesAdmin.h"

// What a subscriber to the changes was told, from whichever thread told it.
class ChangeLog {
public:
    Hlx::IQuotesAdmin::ChangeHandler handler() {
        return [this](const Hlx::CChangeEvent& event) {
            std::lock_guard<std::mutex> lock(m_mutex);
            m_events.push_back(event);
        };
    }
    int size() {
        std::lock_guard<std::mutex> lock(m_mutex);
        return int(m_events.size());
    }
    Hlx::CChangeEvent at(int i) {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_events.at(std::size_t(i));
    }
    Hlx::CChangeEvent last() {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_events.empty() ? Hlx::CChangeEvent() : m_events.back();
    }
    // How many events there are that match.
    template <class Match>
    int count(Match match) {
        std::lock_guard<std::mutex> lock(m_mutex);
        int n = 0;
        for (const Hlx::CChangeEvent& event : m_events)
            n += match(event) ? 1 : 0;
        return n;
    }

private:
    std::mutex m_mutex;
    std::vector<Hlx::CChangeEvent> m_events;
};
