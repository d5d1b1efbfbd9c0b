#pragma once

#include <stdexcept>
#include <string>

#include "utils/RKError.h"

// A refused or failed request inside the service; its text is what the operator sees, its kind
// what a client may do about it. Most are checks of the request, hence that default.
class CServiceError : public std::runtime_error {
public:
    explicit CServiceError(const std::string& message,
                           utils::ErrorKind kind = utils::ErrorKind::Invalid)
        : std::runtime_error(message), m_kind(kind) {}

    static CServiceError refused(const std::string& message) {
        return CServiceError(message, utils::ErrorKind::Refused);
    }
    static CServiceError notFound(const std::string& message) {
        return CServiceError(message, utils::ErrorKind::NotFound);
    }
    static CServiceError conflict(const std::string& message) {
        return CServiceError(message, utils::ErrorKind::Conflict);
    }
    static CServiceError unavailable(const std::string& message) {
        return CServiceError(message, utils::ErrorKind::Unavailable);
    }

    utils::ErrorKind kind() const { return m_kind; }
    utils::RKError toError() const { return utils::RKError::fail(m_kind, what()); }

private:
    utils::ErrorKind m_kind;
};
