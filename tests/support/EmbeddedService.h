#pragma once

#include <QCoreApplication>
#include <QTemporaryDir>
#include <boost/shared_ptr.hpp>

#include "CEmbeddedBackends.h"
#include "CQuotesService.h"
#include "Hlx/CAdminBackend.h"
#include "Hlx/COrinClientCenter.h"
#include "Hlx/CUserManager.h"
#include "SampleData.h"
#include "ServiceResults.h"
#include "ServiceUnderTest.h"

// The embedded data service on a fresh temporary directory, installed in the client centre for
// the life of the object (for tests that link the service). It acts for the user manager's
// current user, as in the console.
class EmbeddedService : public ServiceUnderTest {
public:
    EmbeddedService() { open(); }
    ~EmbeddedService() override { close(); }
    EmbeddedService(const EmbeddedService&) = delete;
    EmbeddedService& operator=(const EmbeddedService&) = delete;

    bool isOpen() const override { return bool(m_service); }
    QString error() const override { return m_error; }
    const boost::shared_ptr<CQuotesService>& service() const { return m_service; }
    // The administration interface installed in the client centre, as the console uses it.
    const boost::shared_ptr<CEmbeddedAdmin>& admin() const { return m_admin; }
    QString path() const { return m_dir.path(); }

    // A new service on the same database, as after a restart.
    void reopen() {
        close();
        open();
    }
    void restart() override { reopen(); }

    bool loginAs(const std::string& name) override {
        for (const rkservice::CUserInfoPtr& user : storedUsers(*m_service)) {
            if (user->m_strName == name) {
                Hlx::CUserManager::instance()->setCurrentUser(user);
                return true;
            }
        }
        return false;
    }

    Hlx::IQuotesAdmin& administrator() override {
        if (!m_owner)
            m_owner = CEmbeddedAdmin::asOwner(m_service);
        return *m_owner;
    }

private:
    void open() {
        m_service = CQuotesService::open(SampleData::inDirectory(m_dir.path()), &m_error);
        if (!m_service)
            return;
        m_admin = CEmbeddedBackends::forCurrentUser(m_service);
        Hlx::COrinClientCenter::instance()->setBackend(
            boost::shared_ptr<Hlx::IDataServiceBackend>(new Hlx::CAdminBackend(m_admin)));
    }

    void close() {
        // Answers still on their way must not outlive the service they come from.
        Hlx::COrinClientCenter::instance()->waitForIdle();
        QCoreApplication::processEvents();
        Hlx::COrinClientCenter::instance()->setBackend({});
        m_admin.reset();
        m_owner.reset();
        m_service.reset();
    }

    QTemporaryDir m_dir;
    QString m_error;
    boost::shared_ptr<CQuotesService> m_service;
    boost::shared_ptr<CEmbeddedAdmin> m_admin;
    boost::shared_ptr<CEmbeddedAdmin> m_owner;
};
