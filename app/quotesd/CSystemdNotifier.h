#pragma once

#include <QString>
#include <chrono>

// What quotesd tells systemd (Type=notify): ready once it listens with its database open, a
// status line, reloading, stopping, and the watchdog's pings. Outside systemd (no NOTIFY_SOCKET)
// every call does nothing.
class CSystemdNotifier {
public:
    void ready(const QString& status) const;
    void status(const QString& text) const;
    void reloading() const;
    void stopping(const QString& status) const;
    // One ping of the watchdog; only sent while quotesd's checks pass.
    void watchdog() const;
    // WatchdogSec= of the unit, zero when the watchdog is off.
    static std::chrono::microseconds watchdogInterval();

private:
    void send(const QString& state) const;
};
