#include "CDisplayCheck.h"

#include <QByteArray>
#include <QList>
#include <QtGlobal>

bool CDisplayCheck::prepare(int argc, char** argv, QString* error) {
    if (hasDisplay() || !wantsX11(argc, argv))
        return true;
    if (opensNoWindow(argc, argv)) {
        qputenv("QT_QPA_PLATFORM", "offscreen");
        return true;
    }
    *error = QStringLiteral(
        "no display (DISPLAY and WAYLAND_DISPLAY are unset): run it on a desktop, or give "
        "--screenshot DIR to render the console to PNG files without one");
    return false;
}

bool CDisplayCheck::hasDisplay() {
    return !qEnvironmentVariableIsEmpty("DISPLAY") ||
           !qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY");
}

bool CDisplayCheck::wantsX11(int argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
        if (QByteArray(argv[i]) == "-platform")
            return false;
    }
    // The platform's name comes before its options ("xcb:...").
    const QByteArray platform = qgetenv("QT_QPA_PLATFORM").split(':').value(0);
    return platform.isEmpty() || platform == "xcb";
}

bool CDisplayCheck::opensNoWindow(int argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
        const QByteArray argument(argv[i]);
        if (argument == "--screenshot" || argument.startsWith("--screenshot=") ||
            argument == "--help" || argument == "-h" || argument == "-?")
            return true;
    }
    return false;
}
