#pragma once

#include <sys/types.h>
#include <string>

// An X server of the test's own: Xvfb (1600x1000, 24 bits, 96 dpi) on a free display number,
// and, when asked, a window manager without compositing (openbox). Both stop with the object.
// Plain POSIX, so that a test can start it before its QApplication connects to the display.
class XvfbDisplay {
public:
    XvfbDisplay() = default;
    ~XvfbDisplay();
    XvfbDisplay(const XvfbDisplay&) = delete;
    XvfbDisplay& operator=(const XvfbDisplay&) = delete;

    // Starts the server (and the window manager); false with a message when either failed.
    bool start(bool withWindowManager, std::string* error);
    void stop();
    // ":N", the value of DISPLAY.
    std::string name() const { return ":" + std::to_string(m_number); }

private:
    bool startServer(int number);
    bool startWindowManager();
    bool windowManagerRuns() const;

    pid_t m_server = -1;
    pid_t m_manager = -1;
    int m_number = -1;
};
