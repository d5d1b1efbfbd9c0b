#pragma once

#include <stdexcept>
#include <string>

// A refused or failed request inside the service; its text is what the operator sees.
class CServiceError : public std::runtime_error {
public:
    explicit CServiceError(const std::string& message) : std::runtime_error(message) {}
};
