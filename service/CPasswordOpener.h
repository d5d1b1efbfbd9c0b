#pragma once

#include <QByteArray>
#include <future>
#include <memory>
#include <utility>
#include <vector>

#include "rkservice/COrinQuoterSourceInfo.h"

class CSecretBox;

// Opens the sealed passwords of a read beside the read itself: each full batch of rows is opened
// on a thread of its own while the rows after it are still read, so that a read of many rows for
// a caller who receives their passwords costs about as much as the read alone. A small read is
// opened on the caller's thread. The records must stay where they are until finish() returns.
class CPasswordOpener {
public:
    explicit CPasswordOpener(std::shared_ptr<const CSecretBox> secrets);
    // Waits for the batches still being opened.
    ~CPasswordOpener();
    CPasswordOpener(const CPasswordOpener&) = delete;
    CPasswordOpener& operator=(const CPasswordOpener&) = delete;

    // The record's password, from its sealed form.
    void add(rkservice::COrinQuoterSourceInfo* record, QByteArray sealed);
    // Every password open; throws the first failure (CServiceError) of any batch.
    void finish();

private:
    using Batch = std::vector<std::pair<rkservice::COrinQuoterSourceInfo*, QByteArray>>;
    static const size_t kBatch = 4096;

    static void open(const CSecretBox& secrets, const Batch& batch);
    void waitAll();

    std::shared_ptr<const CSecretBox> m_secrets;
    Batch m_pending;
    std::vector<std::future<void>> m_running;
};
