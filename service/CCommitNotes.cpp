#include "CCommitNotes.h"

#include <vector>

namespace {

thread_local std::vector<std::function<void()>> t_notes;

}  // namespace

void CCommitNotes::add(std::function<void()> note) {
    t_notes.push_back(std::move(note));
}

std::size_t CCommitNotes::mark() {
    return t_notes.size();
}

void CCommitNotes::drop(std::size_t mark) {
    if (mark < t_notes.size())
        t_notes.resize(mark);
}

void CCommitNotes::run(std::size_t mark) {
    if (mark >= t_notes.size())
        return;
    // Taken off first: a note may itself start a transaction on this thread.
    std::vector<std::function<void()>> due(std::make_move_iterator(t_notes.begin() + long(mark)),
                                           std::make_move_iterator(t_notes.end()));
    t_notes.resize(mark);
    // The change is committed whatever a note does: a note that fails must not undo that.
    for (const auto& note : due) {
        try {
            note();
        } catch (...) {
        }
    }
}
