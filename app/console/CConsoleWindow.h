#pragma once

#include <QMainWindow>
#include <QMap>
#include <QPointer>
#include <boost/shared_ptr.hpp>
#include <functional>
#include <vector>

#include "CConsoleSession.h"

class CLiveUpdates;
class CAuditDock;
class CConsoleProber;
class CStatusDock;
class QComboBox;
class QDockWidget;
class QLabel;
class QSettings;
class QToolBar;
namespace Hlx {
class IorinDockableWidget;
class IQuotesAdmin;
}  // namespace Hlx
namespace rkservice {
class CUserInfo;
}

// The console's main window: docks the panels, chooses the user and the sub-system, and keeps
// window geometry, dock layout and every panel's state between runs.
class CConsoleWindow : public QMainWindow {
    Q_OBJECT
public:
    CConsoleWindow(const boost::shared_ptr<Hlx::IQuotesAdmin>& admin, const QString& settingsFile,
                   const QString& userName = QString(), QWidget* parent = nullptr,
                   const CConsoleSession& session = CConsoleSession());
    ~CConsoleWindow() override;

    // Docks the panel (or shows and raises it when it is docked already).
    Hlx::IorinDockableWidget* openPanel(const QString& objectName);
    Hlx::IorinDockableWidget* panel(const QString& objectName) const;
    QStringList openPanels() const;
    // Shows and raises the read-only audit dock "操作记录" (made with the window, hidden).
    CAuditDock* openAuditTrail();
    CAuditDock* auditTrail() const { return m_auditDock; }
    // Shows and raises the dock "行情源状态" (made with the window, hidden).
    CStatusDock* openSourceStatus();
    CStatusDock* sourceStatus() const { return m_statusDock; }
    // Embedded only: the prober that runs while the dock 行情源状态 is open (the window does not
    // own it; it must outlive the window).
    void runWhileStatusOpen(CConsoleProber* prober);

    void switchUser(const QString& name);
    // On quotesd: log in as another account / end the login and ask for one again.
    void switchAccount();
    void logoutAccount();
    // The server ended the login: asks for it again, once however many answers said so.
    Q_INVOKABLE void loginExpired();
    // What the remote client calls, on any thread, when the server ends the login: the window
    // then asks for it on its own thread (nothing when the window is gone).
    std::function<void()> loginExpiredNotifier();
    void switchSystem(const QString& name);
    // After someone changed the data beneath the console (an import, the rights of its user):
    // reads the user again and builds the panels anew, as a user switch does.
    void rebuildForChanges();
    CLiveUpdates* liveUpdates() const { return m_live; }
    QString currentUser() const { return m_userName; }
    QString currentSystem() const { return m_systemName; }

    // Writes geometry, layout and the panels' states to the settings file.
    void saveSettings();
    // False when the settings were missing or damaged and the default layout was used.
    bool restoreSettings();

protected:
    void closeEvent(QCloseEvent* event) override;

private:
    void createMenus();
    void createToolBar();
    void createStatusBar();
    QDockWidget* createDock(const QString& objectName);
    void closeAllDocks();
    void makeTabsReadable();
    void showDefaultLayout();
    void rebuildPanels();
    void bindPanelToSystem(Hlx::IorinDockableWidget* panel) const;
    void updateStatus();
    int systemIndex(const QString& name) const;

    std::vector<boost::shared_ptr<rkservice::CUserInfo>> users() const;
    void createUserChooser(QToolBar* bar);
    void createAccountTools(QToolBar* bar);
    void createSystemChooser(QToolBar* bar);
    // After a login: the account's rights and routing are read as panels are built.
    void takeLoggedInAccount();
    // On quotesd: reads the account again on a worker; accountRead() takes it in.
    void readAccount();
    void accountRead(const rkservice::CUserInfoPtr& account);

    boost::shared_ptr<Hlx::IQuotesAdmin> m_admin;
    CConsoleSession m_session;
    bool m_askingForLogin = false;
    // The account was read again since the last rebuild (quotesd only).
    bool m_accountRead = false;
    CLiveUpdates* m_live = nullptr;
    QSettings* m_settings;
    QMap<QString, QDockWidget*> m_docks;
    QList<QDockWidget*> m_dockOrder;  // docks in the order they were opened
    QComboBox* m_userBox = nullptr;
    QComboBox* m_systemBox = nullptr;
    QLabel* m_userLabel = nullptr;
    QLabel* m_systemLabel = nullptr;
    QLabel* m_databaseLabel = nullptr;
    CAuditDock* m_auditDock = nullptr;
    CStatusDock* m_statusDock = nullptr;
    QString m_userName;
    QString m_systemName;
};
