#pragma once

#include <QString>

// Whether the console can start where it runs, asked before QApplication exists: without a
// display Qt's default platform (xcb) aborts ("Could not load the Qt platform plugin"). What
// opens no window (screenshots, the usage) renders offscreen instead.
class CDisplayCheck {
public:
    // False, with the line to print, when the console needs a display and has none; sets
    // QT_QPA_PLATFORM=offscreen when it can do without one.
    static bool prepare(int argc, char** argv, QString* error);

private:
    static bool hasDisplay();
    // QT_QPA_PLATFORM unset or xcb, and no -platform argument.
    static bool wantsX11(int argc, char** argv);
    static bool opensNoWindow(int argc, char** argv);
};
