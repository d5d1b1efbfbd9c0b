#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <exception>
#include <functional>
#include <mutex>
#include <vector>

class QSqlDatabase;

// The writers of one process, committed together. The first writer in the queue becomes the
// leader: it runs every writer queued behind it (up to a limit) in one transaction, each in its
// own savepoint, so one commit and one sync answer them all. Writers are served in the order
// they arrive, so none waits for more than the batches ahead of it.
class CGroupCommit {
public:
    using Work = std::function<void(QSqlDatabase&)>;

    struct Job {
        const Work* work = nullptr;
        // What the job's work or the batch's commit threw; null when it is committed.
        std::exception_ptr error;
        bool done = false;
        std::condition_variable wake;
    };
    // Runs a batch on the leader's thread and sets the error of each job that failed.
    using BatchRunner = std::function<void(const std::vector<Job*>&)>;

    static constexpr std::size_t kMaxBatch = 64;

    // Returns once work is committed; rethrows its error (or the batch's) otherwise.
    void run(const Work& work, const BatchRunner& runBatch);

    // Writers queued or running now (for tests that wait for a writer to queue).
    std::size_t queued() const;

private:
    std::vector<Job*> takeBatch() const;
    void finish(const std::vector<Job*>& batch, Job* self);

    mutable std::mutex m_mutex;
    std::deque<Job*> m_queue;
};
