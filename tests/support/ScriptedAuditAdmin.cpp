#include "ScriptedAuditAdmin.h"

ScriptedAuditAdmin::~ScriptedAuditAdmin() = default;

void ScriptedAuditAdmin::setEntries(std::vector<Hlx::CAuditEntry> entries) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_entries = std::move(entries);
    m_refusal.clear();
}

void ScriptedAuditAdmin::setRefusal(const std::string& message) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_refusal = message;
}

void ScriptedAuditAdmin::holdNextRead() {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_holdNext = true;
    m_released = false;
}

void ScriptedAuditAdmin::release() {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_released = true;
    }
    m_releasedChanged.notify_all();
}

Hlx::CAuditFilter ScriptedAuditAdmin::lastFilter() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_lastFilter;
}

utils::RKError ScriptedAuditAdmin::auditEntries(const Hlx::CAuditFilter& filter,
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

utils::RKError ScriptedAuditAdmin::unsupported() {
    return utils::RKError::fail("not scripted");
}

utils::RKError ScriptedAuditAdmin::pruneAudit(long long, int*) {
    return unsupported();
}

utils::RKError ScriptedAuditAdmin::query(const Hlx::CRequestTarget&,
                                         const rkservice::COrinQueryDataReq&,
                                         std::vector<rkservice::IDataPtr>*) {
    return unsupported();
}

utils::RKError ScriptedAuditAdmin::operate(const Hlx::CRequestTarget&,
                                           const rkservice::COperateDataReq&, bson::BSONObj*) {
    return unsupported();
}

std::vector<Hlx::SubsystemInfo> ScriptedAuditAdmin::subsystems() const {
    return {};
}

bool ScriptedAuditAdmin::hasClientLoginTypeAuth(int) const {
    return false;
}

utils::RKError ScriptedAuditAdmin::users(std::vector<rkservice::CUserInfoPtr>*) {
    return unsupported();
}

utils::RKError ScriptedAuditAdmin::setSubsystems(const std::vector<Hlx::SubsystemInfo>&) {
    return unsupported();
}

utils::RKError ScriptedAuditAdmin::setLoginTypeAuth(int, bool) {
    return unsupported();
}

utils::RKError ScriptedAuditAdmin::exportDocument(QJsonObject*) {
    return unsupported();
}

utils::RKError ScriptedAuditAdmin::importDocument(const QJsonObject&) {
    return unsupported();
}

utils::RKError ScriptedAuditAdmin::checkIntegrity() {
    return unsupported();
}

utils::RKError ScriptedAuditAdmin::modifySource(int, const Hlx::CSourcePatch&) {
    return unsupported();
}

utils::RKError ScriptedAuditAdmin::accounts(std::vector<Hlx::CAdminAccount>*) {
    return unsupported();
}

utils::RKError ScriptedAuditAdmin::setPassword(const std::string&, const std::string&) {
    return unsupported();
}

utils::RKError ScriptedAuditAdmin::setAccountEnabled(const std::string&, bool) {
    return unsupported();
}

utils::RKError ScriptedAuditAdmin::setRights(const std::string&, const std::set<int>&) {
    return unsupported();
}

utils::RKError ScriptedAuditAdmin::status(Hlx::CServiceStatus*) {
    return unsupported();
}
