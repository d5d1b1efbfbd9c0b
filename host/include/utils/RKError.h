#pragma once

#include <string>

namespace utils {

// What kind of failure a request met, so that each boundary can answer it in its own terms
// (a panel's message, a reply's kind, quotesctl's exit code) without reading the text.
enum class ErrorKind {
    None,         // success
    Refused,      // the caller may not do it (rights, a login that failed or expired)
    Invalid,      // the request itself is wrong (a field, a document, an argument)
    NotFound,     // what it names does not exist
    Conflict,     // the data changed since the caller read it, or would clash with stored data
    Unavailable,  // the database or the server does not answer; trying later may succeed
};

// The outcome of a request: success (possibly with a note for the operator), or failure of a
// kind with the UTF-8 message the operator sees.
class RKError {
public:
    RKError() = default;
    RKError(bool success, std::string message)
        : m_kind(success ? ErrorKind::None : ErrorKind::Refused), m_message(std::move(message)) {}
    RKError(ErrorKind kind, std::string message) : m_kind(kind), m_message(std::move(message)) {}

    static RKError ok() { return RKError(); }
    // A failure of no more particular kind is a refusal: the request was not carried out.
    static RKError fail(const std::string& message) { return RKError(false, message); }
    static RKError fail(ErrorKind kind, const std::string& message) {
        return RKError(kind == ErrorKind::None ? ErrorKind::Refused : kind, message);
    }

    bool isSuccess() const { return m_kind == ErrorKind::None; }
    ErrorKind kind() const { return m_kind; }
    const std::string& errorMsg() const { return m_message; }

private:
    ErrorKind m_kind = ErrorKind::None;
    std::string m_message;
};

}  // namespace utils
