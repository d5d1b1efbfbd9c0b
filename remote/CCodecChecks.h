#pragma once

#include <google/protobuf/stubs/common.h>

#include <string>

#include "utils/RKError.h"

// Collects the first problem of a conversion between records and messages, so that each is
// converted in one straight pass and checked once at the end: numbers that do not fit an int,
// and text that is not UTF-8 (what the peer's protobuf parser would refuse).
class CCodecChecks {
public:
    // Strict UTF-8: no overlong forms, no surrogates, nothing above U+10FFFF.
    static bool isUtf8(const std::string& text);

    // The wire's int64 as the records' int.
    int narrow(google::protobuf::int64 value, const char* field);
    const std::string& text(const std::string& value, const char* field);
    // UTF-8 of at most maxBytes: what keeps a small field small before the service or the audit
    // trail sees it (gRPC's message limit is the only bound before this).
    const std::string& bounded(const std::string& value, const char* field, int maxBytes);
    // An account name (or a filter's name): the user-name limit of CFieldLimits.
    const std::string& name(const std::string& value, const char* field);
    void fail(const std::string& message);

    bool ok() const { return m_error.isSuccess(); }
    const utils::RKError& error() const { return m_error; }

private:
    utils::RKError m_error;
};
