#pragma once

#include <chrono>
#include <cstddef>

#include "Hlx/CAuditEntry.h"

// What the data service tells a server that watches it (metrics, logs). Called on the thread
// that did the work, often a writer's; an observer answers quickly and takes no lock a writer
// could hold.
class IServiceObserver {
public:
    virtual ~IServiceObserver() = default;

    // One statement ran (successful or not) in this long.
    virtual void statementRan(std::chrono::nanoseconds elapsed) = 0;
    // One SQLite commit answered this many writers of this process.
    virtual void groupCommitted(std::size_t writers) = 0;
    // An audit entry was committed (repeat: a refusal counted on an earlier entry of the minute
    // instead of a new row). Without details: those may hold a record's fields.
    virtual void recorded(const Hlx::CAuditEntry& entry, bool repeat) = 0;
};
