#pragma once

#include <boost/shared_ptr.hpp>
#include <functional>

#include "CCaller.h"
#include "CQuotesService.h"
#include "Hlx/IQuotesAdmin.h"

// The data service in this process, administered for the caller its provider names at the time
// of each call. Every call is the service's own, with that caller.
class CEmbeddedAdmin : public Hlx::IQuotesAdmin {
public:
    using CallerProvider = std::function<CCaller()>;

    CEmbeddedAdmin(boost::shared_ptr<CQuotesService> service, CallerProvider caller);

    // With every right, as the owner of the database file (quotesctl on its own file).
    static boost::shared_ptr<CEmbeddedAdmin> asOwner(boost::shared_ptr<CQuotesService> service);

    const boost::shared_ptr<CQuotesService>& service() const { return m_service; }

    // Quote data and settings.
    utils::RKError query(const Hlx::CRequestTarget& target,
                         const rkservice::COrinQueryDataReq& request,
                         std::vector<rkservice::IDataPtr>* datas) override {
        return m_service->querySync(m_caller(), target, request, datas);
    }
    utils::RKError operate(const Hlx::CRequestTarget& target,
                           const rkservice::COperateDataReq& request,
                           bson::BSONObj* result) override {
        return m_service->operateSync(m_caller(), target, request, result);
    }
    utils::RKError modifySource(int id, const Hlx::CSourcePatch& patch) override {
        return m_service->modifySource(m_caller(), id, patch);
    }
    utils::RKError sourceHistory(int id, Hlx::CSourceHistory* history) override {
        return m_service->sourceHistory(m_caller(), id, history);
    }
    utils::RKError restoreSource(int id, long long entryId, long long revision,
                                 long long* written) override {
        return m_service->restoreSource(m_caller(), id, entryId, revision, written);
    }
    std::vector<Hlx::SubsystemInfo> subsystems() const override { return m_service->subsystems(); }
    bool hasClientLoginTypeAuth(int loginType) const override {
        return m_service->hasClientLoginTypeAuth(loginType);
    }
    utils::RKError setSubsystems(const std::vector<Hlx::SubsystemInfo>& subsystems) override {
        return m_service->setSubsystems(m_caller(), subsystems);
    }
    utils::RKError setLoginTypeAuth(int loginType, bool granted) override {
        return m_service->setLoginTypeAuth(m_caller(), loginType, granted);
    }
    utils::RKError reloadSettings() override { return m_service->reloadSettings(m_caller()); }

    // Reachability.
    utils::RKError probeSources(const std::vector<int>& ids, bool all,
                                std::vector<Hlx::CProbeResult>* results) override {
        return m_service->probeSources(m_caller(), ids, all, results);
    }
    utils::RKError probeStatus(const std::string& subsystem,
                               std::vector<Hlx::CProbeResult>* results) override {
        return m_service->probeStatus(m_caller(), subsystem, results);
    }
    utils::RKError probeHistory(const std::string& address, int port, long long sinceMs,
                                std::vector<Hlx::CProbeSample>* samples) override {
        return m_service->probeHistory(m_caller(), address, port, sinceMs, samples);
    }

    // Accounts.
    utils::RKError users(std::vector<rkservice::CUserInfoPtr>* users) override {
        return m_service->users(m_caller(), users);
    }
    utils::RKError accounts(std::vector<Hlx::CAdminAccount>* accounts) override {
        return m_service->accounts(m_caller(), accounts);
    }
    utils::RKError setPassword(const std::string& name, const std::string& password) override {
        return m_service->setPassword(m_caller(), name, password);
    }
    utils::RKError setAccountEnabled(const std::string& name, bool enabled) override {
        return m_service->setAccountEnabled(m_caller(), name, enabled);
    }
    utils::RKError setRights(const std::string& name, const std::set<int>& rights) override {
        return m_service->setRights(m_caller(), name, rights);
    }
    utils::RKError unlockLogins(const std::string& name, const std::string& address) override {
        return m_service->unlockLogins(m_caller(), name, address);
    }

    // Audit and transfer.
    utils::RKError exportDocument(QJsonObject* document, const Hlx::CExportOptions& options =
                                                             Hlx::CExportOptions()) override {
        return m_service->exportDocument(m_caller(), document, options);
    }
    utils::RKError importDocument(const QJsonObject& document) override {
        return m_service->importDocument(m_caller(), document, {}, nullptr);
    }
    utils::RKError importDocument(const QJsonObject& document, const Hlx::CImportOptions& options,
                                  Hlx::CImportReport* report) override {
        return m_service->importDocument(m_caller(), document, options, report);
    }
    utils::RKError checkIntegrity(std::vector<std::string>* keptValues) override {
        return m_service->checkIntegrity(m_caller(), keptValues);
    }
    utils::RKError backupDatabase(const Hlx::CBackupOptions& options,
                                  std::string* written) override {
        return m_service->backupDatabase(m_caller(), options, written);
    }
    utils::RKError status(Hlx::CServiceStatus* status) override {
        return m_service->status(m_caller(), status);
    }
    utils::RKError auditEntries(const Hlx::CAuditFilter& filter,
                                std::vector<Hlx::CAuditEntry>* entries) override {
        return m_service->auditEntries(m_caller(), filter, entries);
    }
    utils::RKError auditPage(const Hlx::CAuditFilter& filter, Hlx::CAuditPage* page) override {
        return m_service->auditPage(m_caller(), filter, page);
    }
    utils::RKError pruneAudit(long long beforeMs, int* removed) override {
        return m_service->pruneAudit(m_caller(), beforeMs, removed);
    }

    // Change events.
    std::shared_ptr<void> watchChanges(const ChangeHandler& handler) override;

private:
    boost::shared_ptr<CQuotesService> m_service;
    CallerProvider m_caller;
};
