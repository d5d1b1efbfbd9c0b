#pragma once

#include <QElapsedTimer>
#include <boost/shared_ptr.hpp>
#include <functional>

#include "CCaller.h"
#include "Hlx/IQuotesAdmin.h"

class CQuotesService;

// The data service in this process, administered for the caller its provider names at the time
// of each call.
class CEmbeddedAdmin : public Hlx::IQuotesAdmin {
public:
    using CallerProvider = std::function<CCaller()>;

    CEmbeddedAdmin(boost::shared_ptr<CQuotesService> service, CallerProvider caller);

    // With every right, as the owner of the database file (quotesctl on its own file).
    static boost::shared_ptr<CEmbeddedAdmin> asOwner(boost::shared_ptr<CQuotesService> service);

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
    utils::RKError modifySource(int id, const Hlx::CSourcePatch& patch) override;
    utils::RKError importDocument(const QJsonObject& document, const Hlx::CImportOptions& options,
                                  Hlx::CImportReport* report) override;
    utils::RKError checkIntegrity() override;
    utils::RKError status(Hlx::CServiceStatus* status) override;
    utils::RKError accounts(std::vector<Hlx::CAdminAccount>* accounts) override;
    utils::RKError setPassword(const std::string& name, const std::string& password) override;
    utils::RKError setAccountEnabled(const std::string& name, bool enabled) override;
    utils::RKError setRights(const std::string& name, const std::set<int>& rights) override;
    utils::RKError auditEntries(const Hlx::CAuditFilter& filter,
                                std::vector<Hlx::CAuditEntry>* entries) override;
    utils::RKError pruneAudit(long long beforeMs, int* removed) override;
    std::shared_ptr<void> watchChanges(const ChangeHandler& handler) override;
    utils::RKError reloadSettings() override;

    const boost::shared_ptr<CQuotesService>& service() const { return m_service; }

private:
    boost::shared_ptr<CQuotesService> m_service;
    CallerProvider m_caller;
    QElapsedTimer m_started;
};
