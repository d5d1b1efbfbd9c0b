#pragma once

#include <QString>

// Sends the process's log4cxx output to a file in the data directory.
class CConsoleLogging {
public:
    static bool start(const QString& dataDir, QString* error);
};
