#include "CCtlError.h"

#include <cstdio>

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
    QString line;
    switch (m_code) {
        case kUsage:
            line = QStringLiteral("quotesctl: %1 (see quotesctl --help)\n").arg(m_message);
            break;
        case kRefused:
            // One line, whatever the service's message holds.
            line = QStringLiteral("quotesctl: %1\n")
                       .arg(QString(m_message).replace(QLatin1Char('\n'), QLatin1String("; ")));
            break;
        case kUnavailable:
            line = QStringLiteral("quotesctl: %1\n").arg(m_message);
            break;
    }
    const QByteArray bytes = line.toUtf8();
    std::fwrite(bytes.constData(), 1, size_t(bytes.size()), stderr);
    return m_code;
}
