#include "CConsoleWindow.h"

#include <QApplication>
#include <QCloseEvent>
#include <QComboBox>
#include <QDockWidget>
#include <QLabel>
#include <QMenuBar>
#include <QSettings>
#include <QStatusBar>
#include <QTabBar>
#include <QThreadPool>
#include <QToolBar>

#include "CAuditDock.h"
#include "CConsoleProber.h"
#include "CLiveUpdates.h"
#include "CPanelCatalogue.h"
#include "CStatusDock.h"
#include "CStatusReader.h"
#include "Hlx/COrinClientCenter.h"
#include "Hlx/CUserManager.h"
#include "Hlx/IQuotesAdmin.h"
#include "Hlx/IorinDockableWidget.h"
#include "model/CTradeTypeTable.h"

namespace {

// Bumped when the meaning of the stored settings changes; older settings are ignored.
const int kSettingsVersion = 1;
const int kMessageMs = 10000;

QString paramKey(const QString& objectName) {
    return QStringLiteral("param/") + objectName;
}

Hlx::IorinDockableWidget* panelOf(QDockWidget* dock) {
    return dock ? qobject_cast<Hlx::IorinDockableWidget*>(dock->widget()) : nullptr;
}

}  // namespace

CConsoleWindow::CConsoleWindow(const boost::shared_ptr<Hlx::IQuotesAdmin>& admin,
                               const QString& settingsFile, const QString& userName,
                               QWidget* parent, const CConsoleSession& session)
    : QMainWindow(parent),
      m_admin(admin),
      m_session(session),
      m_settings(new QSettings(settingsFile, QSettings::IniFormat, this)) {
    setObjectName(QStringLiteral("quotesConsole"));
    setWindowTitle(QStringLiteral("行情源管理"));
    setDockOptions(QMainWindow::AnimatedDocks | QMainWindow::AllowTabbedDocks);
    setDockNestingEnabled(true);
    resize(1280, 760);
    createMenus();
    createToolBar();
    createStatusBar();
    // Made now, so that a saved layout restores its place and whether it was shown.
    m_auditDock = new CAuditDock(m_admin, this);
    addDockWidget(Qt::BottomDockWidgetArea, m_auditDock);
    m_auditDock->hide();
    m_statusDock = new CStatusDock(m_admin, this);
    addDockWidget(Qt::BottomDockWidgetArea, m_statusDock);
    m_statusDock->hide();

    if (m_session.isRemote()) {
        takeLoggedInAccount();
    } else {
        QString user = userName;
        if (user.isEmpty())
            user = m_settings->value(QStringLiteral("user")).toString();
        switchUser(user);
    }
    const QString system = m_settings->value(QStringLiteral("system")).toString();
    if (m_systemBox) {
        const int index = systemIndex(system);
        m_systemBox->setCurrentIndex(index >= 0 ? index : 0);
    }
    Hlx::COrinClientCenter::instance()->setChosenSubsystem(m_systemName.toStdString());
    // Made before any panel is docked: every docked panel is followed.
    m_live = new CLiveUpdates(m_admin, m_auditDock, this);
    // Direct: the rebuild is done when the live updates drop what waited for the old panels.
    connect(m_live, &CLiveUpdates::rebuildWanted, this, &CConsoleWindow::rebuildForChanges,
            Qt::DirectConnection);
    connect(m_live, &CLiveUpdates::statusMessage, statusBar(), &QStatusBar::showMessage);
    connect(m_live, &CLiveUpdates::probeChanged, m_statusDock, &CStatusDock::reloadSoon);
    m_statusDock->setSubsystem(m_systemName);
    connect(Hlx::COrinClientCenter::instance(), &Hlx::COrinClientCenter::serverMessageShown, this,
            [this](int, bool, QWidget*, const QString& title, const QString& text) {
                // The latest outcome replaces the one before, a success an earlier error too.
                statusBar()->showMessage(title + QStringLiteral(": ") + text, kMessageMs);
            });
}

CConsoleWindow::~CConsoleWindow() {
    // The dock hides as it goes: that must not reach a prober the window no longer follows.
    disconnect(m_statusDock, nullptr, this, nullptr);
    Hlx::COrinClientCenter::instance()->setChosenSubsystem(std::string());
    m_live->stop();
    closeAllDocks();
}

void CConsoleWindow::createMenus() {
    QMenu* panels = menuBar()->addMenu(QStringLiteral("行情源(&Q)"));
    for (const CPanelEntry& entry : CPanelCatalogue::entries()) {
        const QString objectName = entry.objectName;
        QAction* action =
            panels->addAction(entry.title, this, [this, objectName] { openPanel(objectName); });
        action->setObjectName(QStringLiteral("open_") + objectName);
    }
    QMenu* view = menuBar()->addMenu(QStringLiteral("显示(&V)"));
    QAction* brand = view->addAction(QStringLiteral("平台名称带Kx前缀"));
    brand->setObjectName(QStringLiteral("brandedNames"));
    brand->setCheckable(true);
    brand->setChecked(!Hlx::COrinClientCenter::instance()->hasClientLoginTypeAuth(0));
    // The login type decides the platform names' form; panels read it as they build.
    connect(brand, &QAction::toggled, this, [this](bool branded) {
        Hlx::COrinClientCenter::instance()->setLoginTypeAuthOverride(branded ? 0 : 1);
        rebuildPanels();
    });
    view->addAction(QStringLiteral("操作记录"), this, &CConsoleWindow::openAuditTrail)
        ->setObjectName(QStringLiteral("open_auditTrail"));
    view->addAction(QStringLiteral("行情源状态"), this, &CConsoleWindow::openSourceStatus)
        ->setObjectName(QStringLiteral("open_sourceStatus"));
    QMenu* window = menuBar()->addMenu(QStringLiteral("窗口(&W)"));
    window->addAction(QStringLiteral("恢复默认布局"), this, [this] {
        closeAllDocks();
        showDefaultLayout();
    });
    window->addAction(QStringLiteral("退出"), this, &QWidget::close);
}

void CConsoleWindow::createToolBar() {
    QToolBar* bar = addToolBar(QStringLiteral("会话"));
    bar->setObjectName(QStringLiteral("sessionToolBar"));
    bar->setMovable(false);
    if (m_session.isRemote())
        createAccountTools(bar);
    else
        createUserChooser(bar);
    createSystemChooser(bar);
}

void CConsoleWindow::createUserChooser(QToolBar* bar) {
    bar->addWidget(new QLabel(QStringLiteral(" 用户: "), bar));
    m_userBox = new QComboBox(bar);
    m_userBox->setObjectName(QStringLiteral("userChooser"));
    for (const rkservice::CUserInfoPtr& user : users())
        m_userBox->addItem(QString::fromStdString(user->m_strName));
    bar->addWidget(m_userBox);
    connect(m_userBox, QOverload<int>::of(&QComboBox::activated), this,
            [this](int index) { switchUser(m_userBox->itemText(index)); });
}

// The sub-systems come from the service's cache (on quotesd: from the login), never from a
// request.
void CConsoleWindow::createSystemChooser(QToolBar* bar) {
    const std::vector<Hlx::SubsystemInfo> systems = m_admin->subsystems();
    if (systems.size() > 1) {
        bar->addSeparator();
        bar->addWidget(new QLabel(QStringLiteral(" 分系统: "), bar));
        m_systemBox = new QComboBox(bar);
        m_systemBox->setObjectName(QStringLiteral("systemChooser"));
        for (const Hlx::SubsystemInfo& info : systems)
            m_systemBox->addItem(QString::fromStdString(info.displayName),
                                 QString::fromStdString(info.name));
        bar->addWidget(m_systemBox);
        connect(m_systemBox, QOverload<int>::of(&QComboBox::currentIndexChanged), this,
                [this](int index) { switchSystem(m_systemBox->itemData(index).toString()); });
        m_systemName = QString::fromStdString(systems.front().name);
    }
}

void CConsoleWindow::createStatusBar() {
    m_userLabel = new QLabel(this);
    m_systemLabel = new QLabel(this);
    m_databaseLabel = new QLabel(this);
    m_databaseLabel->setObjectName(QStringLiteral("databaseLabel"));
    // On quotesd the status is a network call: asked on a worker, shown when it comes.
    auto* reader = new CStatusReader(m_admin, this);
    connect(reader, &CStatusReader::databaseRead, m_databaseLabel, &QLabel::setText,
            Qt::QueuedConnection);
    reader->start();
    statusBar()->addPermanentWidget(m_userLabel);
    statusBar()->addPermanentWidget(m_systemLabel);
    statusBar()->addPermanentWidget(m_databaseLabel);
}

void CConsoleWindow::updateStatus() {
    m_userLabel->setText(QStringLiteral("用户: %1").arg(m_userName));
    const QString system = m_systemBox ? m_systemBox->currentText() : QStringLiteral("单一");
    m_systemLabel->setText(QStringLiteral("分系统: %1").arg(system));
}

int CConsoleWindow::systemIndex(const QString& name) const {
    return m_systemBox ? m_systemBox->findData(name) : -1;
}

QDockWidget* CConsoleWindow::createDock(const QString& objectName) {
    const CPanelEntry* entry = CPanelCatalogue::find(objectName);
    if (!entry)
        return nullptr;
    auto* dock = new QDockWidget(entry->title, this);
    dock->setObjectName(QStringLiteral("dock_") + objectName);
    dock->setAttribute(Qt::WA_DeleteOnClose);
    Hlx::IorinDockableWidget* panel = entry->create(dock);
    dock->setWidget(panel);
    m_live->follow(panel);
    panel->setParam(m_settings->value(paramKey(objectName)).toString());
    bindPanelToSystem(panel);
    // Every time the operator brings a panel to the front, it reloads.
    connect(dock, &QDockWidget::visibilityChanged, panel, [panel](bool visible) {
        if (visible)
            panel->onActive();
    });
    connect(dock, &QObject::destroyed, this, [this, objectName, dock] {
        m_docks.remove(objectName);
        m_dockOrder.removeAll(dock);
    });
    m_docks.insert(objectName, dock);
    return dock;
}

void CConsoleWindow::bindPanelToSystem(Hlx::IorinDockableWidget* panel) const {
    if (!m_systemName.isEmpty())
        panel->switchSystem(systemIndex(m_systemName), m_systemName);
}

Hlx::IorinDockableWidget* CConsoleWindow::openPanel(const QString& objectName) {
    QDockWidget* dock = m_docks.value(objectName);
    if (!dock) {
        dock = createDock(objectName);
        if (!dock)
            return nullptr;
        // New panels join the first one as tabs.
        QDockWidget* first = m_dockOrder.isEmpty() ? nullptr : m_dockOrder.first();
        addDockWidget(Qt::TopDockWidgetArea, dock);
        if (first)
            tabifyDockWidget(first, dock);
        m_dockOrder.append(dock);
        makeTabsReadable();
    }
    dock->show();
    dock->raise();
    return panelOf(dock);
}

void CConsoleWindow::makeTabsReadable() {
    // With every panel open the tabs would be elided to "证券行…": whole titles, and scroll
    // buttons when they do not all fit.
    for (QTabBar* bar : findChildren<QTabBar*>(QString(), Qt::FindDirectChildrenOnly)) {
        bar->setElideMode(Qt::ElideNone);
        bar->setUsesScrollButtons(true);
    }
}

CAuditDock* CConsoleWindow::openAuditTrail() {
    m_auditDock->show();
    m_auditDock->raise();
    return m_auditDock;
}

CStatusDock* CConsoleWindow::openSourceStatus() {
    m_statusDock->show();
    m_statusDock->raise();
    return m_statusDock;
}

void CConsoleWindow::runWhileStatusOpen(CConsoleProber* prober) {
    // Open means shown, not only in front: a tab behind another keeps the prober running.
    connect(m_statusDock, &QDockWidget::visibilityChanged, this,
            [this, prober] { prober->setRunning(!m_statusDock->isHidden()); });
    prober->setRunning(!m_statusDock->isHidden());
}

Hlx::IorinDockableWidget* CConsoleWindow::panel(const QString& objectName) const {
    return panelOf(m_docks.value(objectName));
}

QStringList CConsoleWindow::openPanels() const {
    return m_docks.keys();
}

std::vector<rkservice::CUserInfoPtr> CConsoleWindow::users() const {
    std::vector<rkservice::CUserInfoPtr> all;
    const utils::RKError error = m_admin->users(&all);
    if (!error.isSuccess())
        statusBar()->showMessage(QString::fromStdString(error.errorMsg()));
    return all;
}

void CConsoleWindow::createAccountTools(QToolBar* bar) {
    bar->addWidget(new QLabel(QStringLiteral(" 服务器: %1 ").arg(m_session.servers), bar));
    bar->addAction(QStringLiteral("切换账户"), this, &CConsoleWindow::switchAccount)
        ->setObjectName(QStringLiteral("switchAccount"));
    bar->addAction(QStringLiteral("退出登录"), this, &CConsoleWindow::logoutAccount)
        ->setObjectName(QStringLiteral("logout"));
}

void CConsoleWindow::takeLoggedInAccount() {
    const rkservice::CUserInfoPtr account = Hlx::CUserManager::instance()->getUserInfoPtr();
    m_userName = account ? QString::fromStdString(account->m_strName) : QString();
    rebuildPanels();
    updateStatus();
    // The changes are streamed to a login: listen with the new one.
    if (m_live)
        m_live->restart();
}

void CConsoleWindow::rebuildForChanges() {
    if (!m_session.isRemote()) {
        switchUser(m_userName);
        return;
    }
    // On quotesd the account's rights are the server's: read again first, on a worker; the
    // live updates ask again once they are in, when no box is open.
    if (!m_accountRead) {
        readAccount();
        return;
    }
    m_accountRead = false;
    rebuildPanels();
    updateStatus();
}

void CConsoleWindow::readAccount() {
    QPointer<CConsoleWindow> self(this);
    const std::function<rkservice::CUserInfoPtr()> read = m_session.readAccount;
    QThreadPool::globalInstance()->start([self, read] {
        const rkservice::CUserInfoPtr account = read ? read() : rkservice::CUserInfoPtr();
        QMetaObject::invokeMethod(
            qApp,
            [self, account] {
                if (self)
                    self->accountRead(account);
            },
            Qt::QueuedConnection);
    });
}

void CConsoleWindow::accountRead(const rkservice::CUserInfoPtr& account) {
    // Not read (the server or its database did not answer): the panels are built anew with the
    // rights the console knows; the next change reads them again.
    if (account)
        Hlx::CUserManager::instance()->setCurrentUser(account);
    m_accountRead = true;
    m_live->requestRebuild();
}

void CConsoleWindow::switchAccount() {
    if (m_session.login(this))
        takeLoggedInAccount();
}

void CConsoleWindow::logoutAccount() {
    m_session.logout();
    Hlx::CUserManager::instance()->setCurrentUser(nullptr);
    if (m_session.login(this))
        takeLoggedInAccount();
    else
        close();
}

std::function<void()> CConsoleWindow::loginExpiredNotifier() {
    QPointer<CConsoleWindow> target(this);
    return [target] {
        QMetaObject::invokeMethod(
            qApp,
            [target] {
                if (target)
                    target->loginExpired();
            },
            Qt::QueuedConnection);
    };
}

void CConsoleWindow::loginExpired() {
    if (m_askingForLogin || !m_session.isRemote())
        return;
    m_askingForLogin = true;
    statusBar()->showMessage(QStringLiteral("登录已过期，请重新登录"));
    if (m_session.login(this))
        takeLoggedInAccount();
    else
        close();
    m_askingForLogin = false;
}

void CConsoleWindow::switchUser(const QString& name) {
    rkservice::CUserInfoPtr chosen;
    const std::vector<rkservice::CUserInfoPtr> all = users();
    for (const rkservice::CUserInfoPtr& user : all) {
        if (QString::fromStdString(user->m_strName) == name)
            chosen = user;
    }
    if (!chosen && !all.empty())
        chosen = all.front();
    m_userName = chosen ? QString::fromStdString(chosen->m_strName) : QString();
    Hlx::CUserManager::instance()->setCurrentUser(chosen);
    if (m_userBox)
        m_userBox->setCurrentText(m_userName);
    // Rights and routing are read when a panel is built, so the panels are built anew.
    rebuildPanels();
    updateStatus();
}

void CConsoleWindow::rebuildPanels() {
    if (m_docks.isEmpty())
        return;
    const QStringList open = openPanels();
    const QByteArray layout = QMainWindow::saveState(kSettingsVersion);
    saveSettings();
    closeAllDocks();
    for (const QString& objectName : open)
        openPanel(objectName);
    QMainWindow::restoreState(layout, kSettingsVersion);
    makeTabsReadable();
}

void CConsoleWindow::switchSystem(const QString& name) {
    m_systemName = name;
    // Every user's adds through the client centre go to the chosen sub-system too, not only
    // those of a user who routes by sub-system.
    Hlx::COrinClientCenter::instance()->setChosenSubsystem(name.toStdString());
    const int index = systemIndex(name);
    for (QDockWidget* dock : m_docks) {
        if (Hlx::IorinDockableWidget* panel = panelOf(dock))
            panel->switchSystem(index, name);
    }
    // The all-types panel's permission record must follow, or one sub-system's whole-quote
    // settings would be saved into another.
    if (Hlx::IorinDockableWidget* all =
            panel(CPanelCatalogue::sourcesPanel(Hlx::CTradeTypeTable::kAll)))
        all->onActive();
    if (m_statusDock)
        m_statusDock->setSubsystem(name);
    updateStatus();
}

void CConsoleWindow::closeAllDocks() {
    const QList<QDockWidget*> docks = m_docks.values();
    m_docks.clear();
    m_dockOrder.clear();
    for (QDockWidget* dock : docks) {
        removeDockWidget(dock);
        delete dock;
    }
}

void CConsoleWindow::showDefaultLayout() {
    for (const QString& objectName : CPanelCatalogue::defaultPanels())
        openPanel(objectName);
    if (QDockWidget* first = m_docks.value(CPanelCatalogue::defaultPanels().first()))
        first->raise();
}

void CConsoleWindow::saveSettings() {
    m_settings->setValue(QStringLiteral("version"), kSettingsVersion);
    m_settings->setValue(QStringLiteral("geometry"), saveGeometry());
    m_settings->setValue(QStringLiteral("windowState"), QMainWindow::saveState(kSettingsVersion));
    m_settings->setValue(QStringLiteral("panels"), openPanels());
    m_settings->setValue(QStringLiteral("user"), m_userName);
    m_settings->setValue(QStringLiteral("system"), m_systemName);
    for (auto it = m_docks.constBegin(); it != m_docks.constEnd(); ++it) {
        if (Hlx::IorinDockableWidget* panel = panelOf(it.value()))
            m_settings->setValue(paramKey(it.key()), panel->param());
    }
    m_settings->sync();
}

bool CConsoleWindow::restoreSettings() {
    const bool current = m_settings->value(QStringLiteral("version")).toInt() == kSettingsVersion;
    QStringList open;
    if (current)
        open = m_settings->value(QStringLiteral("panels")).toStringList();
    for (const QString& objectName : open) {
        if (CPanelCatalogue::find(objectName))
            openPanel(objectName);
    }
    const bool restored =
        current && !m_docks.isEmpty() &&
        restoreGeometry(m_settings->value(QStringLiteral("geometry")).toByteArray()) &&
        QMainWindow::restoreState(m_settings->value(QStringLiteral("windowState")).toByteArray(),
                                  kSettingsVersion);
    if (!restored) {
        closeAllDocks();
        showDefaultLayout();
    }
    makeTabsReadable();
    return restored;
}

void CConsoleWindow::closeEvent(QCloseEvent* event) {
    saveSettings();
    QMainWindow::closeEvent(event);
}
