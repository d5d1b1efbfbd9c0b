#include "CPasswordOpener.h"

#include "CSecretBox.h"

CPasswordOpener::CPasswordOpener(std::shared_ptr<const CSecretBox> secrets)
    : m_secrets(std::move(secrets)) {
    m_pending.reserve(kBatch);
}

CPasswordOpener::~CPasswordOpener() {
    for (std::future<void>& batch : m_running) {
        if (batch.valid())
            batch.wait();
    }
}

void CPasswordOpener::add(rkservice::COrinQuoterSourceInfo* record, QByteArray sealed) {
    m_pending.emplace_back(record, std::move(sealed));
    if (m_pending.size() < kBatch)
        return;
    // The batch and the key travel with the thread; the records are the caller's until finish().
    auto batch = std::make_shared<Batch>(std::move(m_pending));
    m_running.push_back(
        std::async(std::launch::async, [secrets = m_secrets, batch] { open(*secrets, *batch); }));
    m_pending = Batch();
    m_pending.reserve(kBatch);
}

void CPasswordOpener::finish() {
    try {
        open(*m_secrets, m_pending);
    } catch (...) {
        waitAll();
        throw;
    }
    m_pending.clear();
    waitAll();
    for (std::future<void>& batch : m_running)
        batch.get();  // rethrows a batch's failure
    m_running.clear();
}

void CPasswordOpener::waitAll() {
    for (std::future<void>& batch : m_running)
        batch.wait();
}

void CPasswordOpener::open(const CSecretBox& secrets, const Batch& batch) {
    for (const auto& entry : batch)
        entry.first->m_strPassword = secrets.open(entry.second);
}
