#include "ScriptedAuditTrail.h"

ScriptedAuditTrail::~ScriptedAuditTrail() = default;

void ScriptedAuditTrail::setEntries(std::vector<Hlx::CAuditEntry> entries) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_entries = std::move(entries);
    m_refusal.clear();
}

void ScriptedAuditTrail::setRefusal(const std::string& message) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_refusal = message;
}

void ScriptedAuditTrail::holdNextRead() {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_holdNext = true;
    m_released = false;
}

void ScriptedAuditTrail::release() {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_released = true;
    }
    m_releasedChanged.notify_all();
}

Hlx::CAuditFilter ScriptedAuditTrail::lastFilter() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_lastFilter;
}

utils::RKError ScriptedAuditTrail::auditEntries(const Hlx::CAuditFilter& filter,
                                                std::vector<Hlx::CAuditEntry>* entries) {
    std::unique_lock<std::mutex> lock(m_mutex);
    m_lastFilter = filter;
    const std::string refusal = m_refusal;
    const std::vector<Hlx::CAuditEntry> answer = m_entries;
    const bool held = m_holdNext;
    m_holdNext = false;
    ++m_readsStarted;
    if (held)
        m_releasedChanged.wait(lock, [this] { return m_released; });
    ++m_readsAnswered;
    if (!refusal.empty())
        return utils::RKError::fail(refusal);
    *entries = answer;
    return utils::RKError::ok();
}

utils::RKError ScriptedAuditTrail::unsupported() {
    return utils::RKError::fail("not scripted");
}

utils::RKError ScriptedAuditTrail::pruneAudit(long long, int*) {
    return unsupported();
}

utils::RKError ScriptedAuditTrail::exportDocument(QJsonObject*, const Hlx::CExportOptions&) {
    return unsupported();
}

utils::RKError ScriptedAuditTrail::importDocument(const QJsonObject&) {
    return unsupported();
}

utils::RKError ScriptedAuditTrail::checkIntegrity(std::vector<std::string>*) {
    return unsupported();
}

utils::RKError ScriptedAuditTrail::status(Hlx::CServiceStatus*) {
    return unsupported();
}
