#pragma once

#include <cstddef>
#include <functional>

// What a transaction's work asks to be done once it is committed (and never when it rolls
// back): kept per thread, since the work of a transaction runs on the thread that commits it,
// group commits included. Positions mark where a transaction's or a savepoint's notes begin, so
// a writer rolled back to its savepoint drops its own notes alone.
class CCommitNotes {
public:
    static void add(std::function<void()> note);
    // Where the notes of a transaction or savepoint that starts now begin.
    static std::size_t mark();
    // Forgets the notes from the mark on (rolled back).
    static void drop(std::size_t mark);
    // Runs the notes from the mark on, then forgets them (committed).
    static void run(std::size_t mark);
};
