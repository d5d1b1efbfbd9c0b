#pragma once

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <vector>

#include "Hlx/IQuotesAdmin.h"

// An administration interface whose audit trail is scripted: the entries or the refusal it
// answers (as scripted when the read starts), and one read held until the test releases it (a
// slow server). Every other call is refused.
class ScriptedAuditAdmin : public Hlx::IQuotesAdmin {
public:
    ~ScriptedAuditAdmin() override;

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

    utils::RKError query(const Hlx::CRequestTarget& target,
                         const rkservice::COrinQueryDataReq& request,
                         std::vector<rkservice::IDataPtr>* datas) override;
    utils::RKError operate(const Hlx::CRequestTarget& target,
                           const rkservice::COperateDataReq& request,
                           bson::BSONObj* result) override;
    std::vector<Hlx::SubsystemInfo> subsystems() const override;
    bool hasClientLoginTypeAuth(int loginType) const override;
    utils::RKError users(std::vector<rkservice::CUserInfoPtr>* users) override;
    utils::RKError setSubsystems(const std::vector<Hlx::SubsystemInfo>& subsystems) override;
    utils::RKError setLoginTypeAuth(int loginType, bool granted) override;
    utils::RKError exportDocument(QJsonObject* document) override;
    utils::RKError importDocument(const QJsonObject& document) override;
    utils::RKError checkIntegrity() override;
    utils::RKError modifySource(int id, const Hlx::CSourcePatch& patch) override;
    utils::RKError accounts(std::vector<Hlx::CAdminAccount>* accounts) override;
    utils::RKError setPassword(const std::string& name, const std::string& password) override;
    utils::RKError setAccountEnabled(const std::string& name, bool enabled) override;
    utils::RKError setRights(const std::string& name, const std::set<int>& rights) override;
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
