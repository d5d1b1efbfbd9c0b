#include "CGroupCommit.h"

#include <algorithm>

void CGroupCommit::run(const Work& work, const BatchRunner& runBatch) {
    Job job;
    job.work = &work;
    std::unique_lock<std::mutex> lock(m_mutex);
    m_queue.push_back(&job);
    job.wake.wait(lock, [&] { return job.done || m_queue.front() == &job; });
    if (!job.done) {
        const std::vector<Job*> batch = takeBatch();
        lock.unlock();
        try {
            runBatch(batch);
        } catch (...) {
            // Nothing of the batch is committed: every job not failed already fails with it.
            for (Job* member : batch) {
                if (!member->error)
                    member->error = std::current_exception();
            }
        }
        lock.lock();
        finish(batch, &job);
    }
    lock.unlock();
    if (job.error)
        std::rethrow_exception(job.error);
}

std::size_t CGroupCommit::queued() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_queue.size();
}

std::vector<CGroupCommit::Job*> CGroupCommit::takeBatch() const {
    const std::size_t size = std::min(m_queue.size(), kMaxBatch);
    return std::vector<Job*>(m_queue.begin(), m_queue.begin() + std::ptrdiff_t(size));
}

void CGroupCommit::finish(const std::vector<Job*>& batch, Job* self) {
    m_queue.erase(m_queue.begin(), m_queue.begin() + std::ptrdiff_t(batch.size()));
    for (Job* member : batch) {
        member->done = true;
        if (member != self)
            member->wake.notify_one();
    }
    // The next writer in line leads the next batch.
    if (!m_queue.empty())
        m_queue.front()->wake.notify_one();
}
