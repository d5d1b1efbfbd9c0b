#include "CSystemdNotifier.h"

#include <systemd/sd-daemon.h>

void CSystemdNotifier::send(const QString& state) const {
    // A lost notification is harmless: systemd then times the start or the watchdog out.
    (void)sd_notify(0, state.toUtf8().constData());
}

void CSystemdNotifier::ready(const QString& status) const {
    send(QStringLiteral("READY=1\nSTATUS=%1").arg(status));
}

void CSystemdNotifier::status(const QString& text) const {
    send(QStringLiteral("STATUS=%1").arg(text));
}

void CSystemdNotifier::reloading() const {
    send(QStringLiteral("RELOADING=1\nSTATUS=reloading"));
}

void CSystemdNotifier::stopping(const QString& status) const {
    send(QStringLiteral("STOPPING=1\nSTATUS=%1").arg(status));
}

void CSystemdNotifier::watchdog() const {
    send(QStringLiteral("WATCHDOG=1"));
}

std::chrono::microseconds CSystemdNotifier::watchdogInterval() {
    uint64_t usec = 0;
    return std::chrono::microseconds(sd_watchdog_enabled(0, &usec) > 0 ? usec : 0);
}
