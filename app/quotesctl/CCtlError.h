#pragma once

#include <QString>

#include "utils/RKError.h"

// The one failure of quotesctl: what went wrong and the exit code it ends with. Whatever fails
// throws one; CQuotesCtl reports it once, on standard error.
class CCtlError {
public:
    enum Code { kRefused = 1, kUsage = 2, kUnavailable = 3 };

    // A bad command line.
    static CCtlError usage(const QString& message);
    // The service refused the request or the database failed.
    static CCtlError refused(const QString& message);
    // The database cannot be opened, or the server reached or logged in to.
    static CCtlError unavailable(const QString& message);
    // What the service answered through IQuotesAdmin, before the command ran (connecting: opening
    // the database, logging in) or while it ran.
    static CCtlError whileConnecting(const utils::RKError& error);
    static CCtlError fromService(const utils::RKError& error);
    // Throws the service's failure, if it is one.
    static void check(const utils::RKError& error);

    Code code() const { return m_code; }
    const QString& message() const { return m_message; }
    // Writes the message as its code wants it and answers the exit code.
    int report() const;

private:
    CCtlError(Code code, const QString& message) : m_code(code), m_message(message) {}

    Code m_code;
    QString m_message;
};
