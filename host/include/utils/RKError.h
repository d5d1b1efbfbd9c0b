#pragma once

#include <string>

namespace utils {

// The outcome of a request: success, or failure with a UTF-8 message.
class RKError {
public:
    RKError() = default;
    RKError(bool success, std::string message)
        : m_success(success), m_message(std::move(message)) {}

    static RKError ok() { return RKError(); }
    static RKError fail(const std::string& message) { return RKError(false, message); }

    bool isSuccess() const { return m_success; }
    const std::string& errorMsg() const { return m_message; }

private:
    bool m_success = true;
    std::string m_message;
};

}  // namespace utils
