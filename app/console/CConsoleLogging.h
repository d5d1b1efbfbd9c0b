#pragma once

#include <QString>

// Sends the process's log4cxx output to a file in the data directory.
class CRemoteAdmin;

class CConsoleLogging {
public:
    static bool start(const QString& dataDir, QString* error);
    // The remote client's connection events and the refusals of its calls, into that log.
    static void logConnection(CRemoteAdmin& remote);
};
