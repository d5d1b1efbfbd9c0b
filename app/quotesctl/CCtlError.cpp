#include "CCtlError.h"

#include "CCtlOutput.h"

CCtlError CCtlError::usage(const QString& message) {
    return CCtlError(kUsage, message);
}

CCtlError CCtlError::refused(const QString& message) {
    return CCtlError(kRefused, message);
}

CCtlError CCtlError::unavailable(const QString& message) {
    return CCtlError(kUnavailable, message);
}

CCtlError CCtlError::whileConnecting(const utils::RKError& error) {
    // Whatever its kind (unavailable, or a refused login), the command never reached the service.
    return unavailable(QString::fromStdString(error.errorMsg()));
}

CCtlError CCtlError::fromService(const utils::RKError& error) {
    // Whatever its kind: once the command runs, even an unavailable server is a failure like any
    // other, since a change may have been applied before its answer was lost; exit 3 would say
    // that nothing happened.
    return refused(QString::fromStdString(error.errorMsg()));
}

void CCtlError::check(const utils::RKError& error) {
    if (!error.isSuccess())
        throw fromService(error);
}

int CCtlError::report() const {
    switch (m_code) {
        case kUsage:
            CCtlOutput::error(m_message + QStringLiteral(" (see quotesctl --help)"));
            break;
        case kRefused:
            // One line, whatever the service's message holds.
            CCtlOutput::error(QString(m_message).replace(QLatin1Char('\n'), QLatin1String("; ")));
            break;
        case kUnavailable:
            CCtlOutput::error(m_message);
            break;
    }
    return m_code;
}
