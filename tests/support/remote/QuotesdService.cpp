#include "QuotesdService.h"

#include <boost/make_shared.hpp>

#include "CRemoteAdmin.h"
#include "Hlx/CAdminBackend.h"
#include "Hlx/COrinClientCenter.h"
#include "Hlx/CUserManager.h"

QString QuotesdService::passwordOf(const std::string& account) {
    return QString::fromStdString(account) + QStringLiteral("-password-1");
}

QuotesdService::QuotesdService() {
    QString output;
    if (!m_server.init(passwordOf("admin"), &output)) {
        m_error = output;
        return;
    }
    for (const char* account : {"futures_op", "stock_op", "viewer"}) {
        if (!m_server.setPassword(QString::fromLatin1(account), passwordOf(account))) {
            m_error = QStringLiteral("cannot set the password of %1").arg(account);
            return;
        }
    }
    if (!m_server.start()) {
        m_error = m_server.log();
        return;
    }
    const std::vector<std::string> servers{m_server.address().toStdString()};
    const std::string trusted = m_server.certificatePem().toStdString();
    m_console = boost::make_shared<CRemoteAdmin>(servers, trusted);
    m_administrator = boost::make_shared<CRemoteAdmin>(servers, trusted);
    const utils::RKError login = m_administrator->login("admin", passwordOf("admin").toStdString());
    if (!login.isSuccess()) {
        m_error = QString::fromStdString(login.errorMsg());
        return;
    }
    Hlx::COrinClientCenter::instance()->setBackend(
        boost::shared_ptr<Hlx::IDataServiceBackend>(new Hlx::CAdminBackend(m_console)));
    m_open = true;
}

QuotesdService::~QuotesdService() {
    // Answers still on their way must not outlive the client they come from.
    Hlx::COrinClientCenter::instance()->waitForIdle();
    Hlx::COrinClientCenter::instance()->setBackend({});
    if (m_console)
        m_console->shutdown();
    if (m_administrator)
        m_administrator->shutdown();
    if (m_server.isRunning())
        m_server.stop();
}

void QuotesdService::restart() {
    Hlx::COrinClientCenter::instance()->waitForIdle();
    const QString address = m_server.address();
    m_server.stop();
    m_open = m_server.start({QStringLiteral("--listen"), address});
}

bool QuotesdService::loginAs(const std::string& name) {
    if (!m_console->login(name, passwordOf(name).toStdString()).isSuccess())
        return false;
    Hlx::CUserManager::instance()->setCurrentUser(m_console->account());
    return true;
}

Hlx::IQuotesAdmin& QuotesdService::administrator() {
    return *m_administrator;
}
