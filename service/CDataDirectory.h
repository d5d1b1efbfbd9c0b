#pragma once

#include <QString>

// The directory that holds a database, its key and logs: only its owner may enter it or read
// what it holds, whichever program made it.
class CDataDirectory {
public:
    // Creates the directory with mode 0700, or tightens an existing one to 0700 and each file
    // in it to 0600, warning about every mode it had to change. False with *error set when the
    // directory cannot be made.
    static bool prepare(const QString& dir, QString* error);
    // Creates the directory with mode 0700 when it is missing; leaves an existing one alone (a
    // database named by its own path may live in a directory shared with others).
    static bool create(const QString& dir, QString* error);
    // Tightens one file to 0600, warning when it was looser; a missing file is no fault.
    static void tightenFile(const QString& path);
    // A name in dir that no file has: prefix, the UTC time to the millisecond (so names sort by
    // time) and suffix, with a counter when two fall in one millisecond.
    static QString timedName(const QString& dir, const QString& prefix, const QString& suffix);
};
