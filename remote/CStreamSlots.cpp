#include "CStreamSlots.h"

std::shared_ptr<void> CStreamSlots::take(const std::string& login) {
    std::lock_guard<std::mutex> lock(m_mutex);
    int& own = m_byLogin[login];
    if (m_taken >= m_total || own >= m_perLogin) {
        if (own == 0)
            m_byLogin.erase(login);
        return nullptr;
    }
    ++own;
    ++m_taken;
    return std::shared_ptr<void>(this, [login](CStreamSlots* owner) { owner->giveBack(login); });
}

void CStreamSlots::giveBack(const std::string& login) {
    std::lock_guard<std::mutex> lock(m_mutex);
    --m_taken;
    if (--m_byLogin[login] == 0)
        m_byLogin.erase(login);
}
