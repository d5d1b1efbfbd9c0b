#include "CEmbeddedAdmin.h"

#include <boost/make_shared.hpp>

#include "CChangeFeed.h"
#include "CQuotesService.h"
#include "Hlx/QuotesVersion.h"

namespace {

utils::RKError outcome(bool done, const QString& error) {
    return done ? utils::RKError::ok() : utils::RKError::fail(error.toStdString());
}

}  // namespace

CEmbeddedAdmin::CEmbeddedAdmin(boost::shared_ptr<CQuotesService> service, CallerProvider caller)
    : m_service(std::move(service)), m_caller(std::move(caller)) {
    m_started.start();
}

boost::shared_ptr<CEmbeddedAdmin> CEmbeddedAdmin::asOwner(
    boost::shared_ptr<CQuotesService> service) {
    return boost::shared_ptr<CEmbeddedAdmin>(new CEmbeddedAdmin(std::move(service), [] {
        return CCaller::owner().locally(CCaller::operatingSystemUser());
    }));
}

utils::RKError CEmbeddedAdmin::query(const Hlx::CRequestTarget& target,
                                     const rkservice::COrinQueryDataReq& request,
                                     std::vector<rkservice::IDataPtr>* datas) {
    return m_service->querySync(m_caller(), target, request, datas);
}

utils::RKError CEmbeddedAdmin::operate(const Hlx::CRequestTarget& target,
                                       const rkservice::COperateDataReq& request,
                                       bson::BSONObj* result) {
    return m_service->operateSync(m_caller(), target, request, result);
}

std::vector<Hlx::SubsystemInfo> CEmbeddedAdmin::subsystems() const {
    return m_service->subsystems();
}

bool CEmbeddedAdmin::hasClientLoginTypeAuth(int loginType) const {
    return m_service->hasClientLoginTypeAuth(loginType);
}

utils::RKError CEmbeddedAdmin::users(std::vector<rkservice::CUserInfoPtr>* users) {
    QString error;
    *users = m_service->users(&error);
    return outcome(error.isEmpty(), error);
}

utils::RKError CEmbeddedAdmin::setSubsystems(const std::vector<Hlx::SubsystemInfo>& subsystems) {
    QString error;
    return outcome(m_service->setSubsystems(m_caller(), subsystems, &error), error);
}

utils::RKError CEmbeddedAdmin::setLoginTypeAuth(int loginType, bool granted) {
    QString error;
    return outcome(m_service->setLoginTypeAuth(m_caller(), loginType, granted, &error), error);
}

utils::RKError CEmbeddedAdmin::exportDocument(QJsonObject* document) {
    QString error;
    return outcome(m_service->exportDocument(m_caller(), document, &error), error);
}

utils::RKError CEmbeddedAdmin::importDocument(const QJsonObject& document) {
    QString error;
    return outcome(m_service->importDocument(m_caller(), document, &error), error);
}

utils::RKError CEmbeddedAdmin::importDocument(const QJsonObject& document,
                                              const Hlx::CImportOptions& options,
                                              Hlx::CImportReport* report) {
    QString error;
    return outcome(m_service->importDocument(m_caller(), document, options, report, &error), error);
}

utils::RKError CEmbeddedAdmin::modifySource(int id, const Hlx::CSourcePatch& patch) {
    QString error;
    return outcome(m_service->modifySource(m_caller(), id, patch, &error), error);
}

utils::RKError CEmbeddedAdmin::checkIntegrity() {
    QString error;
    return outcome(m_service->checkIntegrity(m_caller(), &error), error);
}

utils::RKError CEmbeddedAdmin::status(Hlx::CServiceStatus* status) {
    status->version = Hlx::quotesVersion();
    status->database = m_service->databaseDescription().toStdString();
    status->uptimeMs = m_started.elapsed();
    return utils::RKError::ok();
}

utils::RKError CEmbeddedAdmin::accounts(std::vector<Hlx::CAdminAccount>* accounts) {
    QString error;
    std::vector<CAccount> stored;
    const bool done = m_service->accounts(m_caller(), &stored, &error);
    accounts->clear();
    for (const CAccount& account : stored) {
        auto user = boost::make_shared<rkservice::CUserInfo>();
        user->m_strName = account.name.toStdString();
        user->m_nSystemId = account.systemId;
        user->m_rights = account.rights;
        accounts->push_back({user, account.enabled});
    }
    return outcome(done, error);
}

utils::RKError CEmbeddedAdmin::setPassword(const std::string& name, const std::string& password) {
    QString error;
    return outcome(
        m_service->setPassword(m_caller(), QString::fromStdString(name), password, &error), error);
}

utils::RKError CEmbeddedAdmin::setAccountEnabled(const std::string& name, bool enabled) {
    QString error;
    return outcome(
        m_service->setAccountEnabled(m_caller(), QString::fromStdString(name), enabled, &error),
        error);
}

utils::RKError CEmbeddedAdmin::setRights(const std::string& name, const std::set<int>& rights) {
    QString error;
    return outcome(m_service->setRights(m_caller(), QString::fromStdString(name), rights, &error),
                   error);
}

utils::RKError CEmbeddedAdmin::auditEntries(const Hlx::CAuditFilter& filter,
                                            std::vector<Hlx::CAuditEntry>* entries) {
    QString error;
    return outcome(m_service->auditEntries(m_caller(), filter, entries, &error), error);
}

utils::RKError CEmbeddedAdmin::pruneAudit(long long beforeMs, int* removed) {
    QString error;
    return outcome(m_service->pruneAudit(m_caller(), beforeMs, removed, &error), error);
}

std::shared_ptr<void> CEmbeddedAdmin::watchChanges(const ChangeHandler& handler) {
    // The session is asked here, on the caller's thread; the feed calls from its own.
    const std::string session = m_caller().session();
    return m_service->changes().subscribe([handler, session](const Hlx::CChangeEvent& change) {
        Hlx::CChangeEvent event = change;
        event.own = !session.empty() && event.session == session;
        handler(event);
    });
}

utils::RKError CEmbeddedAdmin::reloadSettings() {
    QString error;
    return outcome(m_service->reloadCaches(&error), error);
}
