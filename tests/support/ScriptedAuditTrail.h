#pragma once

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <vector>

#include "Hlx/IAuditTransfer.h"

// The audit role of an administration, scripted: the entries or the refusal it answers (as
// scripted when the read starts), and one read held until the test releases it (a slow server).
// The role's other calls are refused.
class ScriptedAuditTrail : public Hlx::IAuditTransfer {
public:
    ~ScriptedAuditTrail() override;

    void setEntries(std::vector<Hlx::CAuditEntry> entries);
    void setRefusal(const std::string& message);
    // The next read to start waits until release(); later ones answer at once.
    void holdNextRead();
    void release();
    // Reads that have started (held ones included) and the filter of the latest.
    int readsStarted() const { return m_readsStarted; }
    int readsAnswered() const { return m_readsAnswered; }
    Hlx::CAuditFilter lastFilter() const;

    utils::RKError auditEntries(const Hlx::CAuditFilter& filter,
                                std::vector<Hlx::CAuditEntry>* entries) override;
    utils::RKError pruneAudit(long long beforeMs, int* removed) override;

    utils::RKError exportDocument(
        QJsonObject* document, const Hlx::CExportOptions& options = Hlx::CExportOptions()) override;
    utils::RKError importDocument(const QJsonObject& document) override;
    utils::RKError checkIntegrity(std::vector<std::string>* keptValues) override;
    utils::RKError status(Hlx::CServiceStatus* status) override;

private:
    static utils::RKError unsupported();

    mutable std::mutex m_mutex;
    std::condition_variable m_releasedChanged;
    bool m_holdNext = false;
    bool m_released = false;
    std::vector<Hlx::CAuditEntry> m_entries;
    std::string m_refusal;
    Hlx::CAuditFilter m_lastFilter;
    std::atomic<int> m_readsStarted{0};
    std::atomic<int> m_readsAnswered{0};
};
