#include "CRemoteSession.h"

#include "CLoginDialog.h"
#include "CRemoteAdmin.h"
#include "Hlx/CUserManager.h"

CConsoleSession CRemoteSession::make(const boost::shared_ptr<CRemoteAdmin>& remote,
                                     const QString& servers) {
    CConsoleSession session;
    session.servers = servers;
    session.login = [remote, servers](QWidget* parent) {
        CLoginDialog dialog(
            servers,
            [remote](const QString& name, const QString& password) {
                const utils::RKError error =
                    remote->login(name.toStdString(), password.toStdString());
                return error.isSuccess() ? QString() : QString::fromStdString(error.errorMsg());
            },
            parent);
        if (dialog.exec() != QDialog::Accepted)
            return false;
        Hlx::CUserManager::instance()->setCurrentUser(remote->account());
        return true;
    };
    session.logout = [remote] { remote->logout(); };
    session.readAccount = [remote]() -> rkservice::CUserInfoPtr {
        return remote->refreshAccount().isSuccess() ? remote->account() : nullptr;
    };
    return session;
}
