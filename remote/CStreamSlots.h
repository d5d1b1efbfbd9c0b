#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <string>

// The event streams quotesd keeps open, in all and per login: each holds a server thread while
// it lasts, so neither one login nor all of them together may take every thread.
class CStreamSlots {
public:
    CStreamSlots(int total, int perLogin) : m_total(total), m_perLogin(perLogin) {}

    CStreamSlots(const CStreamSlots&) = delete;
    CStreamSlots& operator=(const CStreamSlots&) = delete;

    // A slot for a stream of the login (its token's hash), given back when the result goes;
    // null when the login or the server has no slot left.
    std::shared_ptr<void> take(const std::string& login);

private:
    void giveBack(const std::string& login);

    const int m_total;
    const int m_perLogin;
    std::mutex m_mutex;
    int m_taken = 0;
    std::map<std::string, int> m_byLogin;
};
