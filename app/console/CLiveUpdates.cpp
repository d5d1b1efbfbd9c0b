#include "CLiveUpdates.h"

#include <QApplication>
#include <QThreadPool>
#include <algorithm>

#include "CAuditDock.h"
#include "Hlx/CUserManager.h"
#include "Hlx/IQuotesAdmin.h"
#include "Hlx/IorinDockableWidget.h"
#include "model/CAuditVocabulary.h"
#include "model/CProbeVocabulary.h"
#include "panels/IReloadable.h"

namespace {

// Whether a modal box is open that belongs to the widget (its dialogs and questions have it as
// their parent).
bool ownsOpenModal(const QWidget* widget) {
    for (QWidget* box = QApplication::activeModalWidget(); box; box = box->parentWidget()) {
        if (box == widget)
            return true;
    }
    return false;
}

bool names(const Hlx::CChangeEvent& change, const std::string& id) {
    return change.allIds || std::find(change.ids.begin(), change.ids.end(), id) != change.ids.end();
}

// The account this console works as: the user manager's current user.
std::string currentAccount() {
    const rkservice::CUserInfoPtr user = Hlx::CUserManager::instance()->getUserInfoPtr();
    return user ? user->m_strName : std::string();
}

}  // namespace

CLiveUpdates::CLiveUpdates(const boost::shared_ptr<Hlx::IQuotesAdmin>& admin,
                           CAuditDock* auditTrail, QObject* parent)
    : QObject(parent), m_admin(admin), m_auditTrail(auditTrail) {
    m_retry.setInterval(kRetryMs);
    connect(&m_retry, &QTimer::timeout, this, &CLiveUpdates::flush);
    restart();
}

CLiveUpdates::~CLiveUpdates() {
    stop();
}

void CLiveUpdates::restart() {
    stop();
    // Changes arrive on the administration's thread; the console acts on its own.
    m_subscription = m_admin->watchChanges([this](const Hlx::CChangeEvent& change) {
        QMetaObject::invokeMethod(
            this, [this, change] { onChange(change); }, Qt::QueuedConnection);
    });
}

void CLiveUpdates::stop() {
    // Waits for a delivery in progress; none comes after.
    m_subscription.reset();
}

void CLiveUpdates::follow(Hlx::IorinDockableWidget* panel) {
    if (auto* reloadable = dynamic_cast<Hlx::IReloadable*>(panel))
        m_panels.insert(panel->objectName(), {panel, reloadable});
}

void CLiveUpdates::onChange(const Hlx::CChangeEvent& change) {
    if (change.listening && !change.resync)
        return;
    // A probe's finding: no change anyone made, nothing to reload (the status dock follows it).
    if (change.probeChange) {
        noteProbe(change.probe);
        emit probeChanged();
        return;
    }
    if (!change.own && !change.resync)
        note(change);
    // Every change has its entry in the trail.
    schedule(ReadAudit);
    const std::string& type = change.dataType;
    if (change.resync || type == CAuditVocabulary::kDocument) {
        schedule(ReadCaches);
        schedule(Rebuild);
    } else if (type == CAuditVocabulary::kQuoteSource) {
        scheduleForPanels(ReloadSources);
    } else if (type == CAuditVocabulary::kWholeQuote) {
        scheduleForPanels(ReadSettings);
    } else if (type == CAuditVocabulary::kLevel2Token) {
        scheduleForPanels(RefreshLevel2);
    } else if (type == CAuditVocabulary::kAccount) {
        // The rights of the account this console works as: read as a user switch reads them.
        if (names(change, currentAccount()))
            schedule(Rebuild);
    } else if (type == CAuditVocabulary::kSubsystems || type == CAuditVocabulary::kLoginType) {
        schedule(ReadCaches);
    }
}

void CLiveUpdates::note(const Hlx::CChangeEvent& change) {
    if (change.account.empty())
        return;
    emit statusMessage(
        QStringLiteral("数据已由 %1 更新").arg(QString::fromStdString(change.account)), kNoteMs);
}

void CLiveUpdates::noteProbe(const Hlx::CProbeResult& probe) {
    // Refused, timed out or unreachable: the source cannot be reached now.
    if (probe.state == CProbeVocabulary::kReachable || probe.state == CProbeVocabulary::kNotProbed)
        return;
    emit statusMessage(QStringLiteral("行情源 %1:%2 不可达")
                           .arg(QString::fromStdString(probe.address))
                           .arg(probe.port),
                       kNoteMs);
}

Hlx::IReloadable::Content CLiveUpdates::contentOf(Work work) {
    switch (work) {
        case ReadSettings:
            return Hlx::IReloadable::WholeQuoteSettings;
        case RefreshLevel2:
            return Hlx::IReloadable::Level2Token;
        default:
            return Hlx::IReloadable::QuoteSources;
    }
}

void CLiveUpdates::scheduleForPanels(Work work) {
    const Hlx::IReloadable::Content content = contentOf(work);
    // Named first: a rebuild while scheduling replaces the panels.
    QStringList showing;
    for (auto it = m_panels.constBegin(); it != m_panels.constEnd(); ++it) {
        if (it->widget && it->reloadable->shows(content))
            showing << it.key();
    }
    for (const QString& name : showing)
        schedule(work, name);
}

void CLiveUpdates::schedule(Work work, const QString& panel) {
    m_pending.insert(qMakePair(int(work), panel));
    flush();
}

void CLiveUpdates::flush() {
    // A rebuild builds every panel anew: what waits for a panel is then done too; what is not
    // bound to a panel (caches, the audit dock) still waits.
    const auto rebuild = qMakePair(int(Rebuild), QString());
    if (m_pending.contains(rebuild)) {
        if (!perform(Rebuild, QString())) {
            m_retry.start();
            return;
        }
        for (auto it = m_pending.begin(); it != m_pending.end();) {
            if (it->second.isEmpty())
                ++it;
            else
                it = m_pending.erase(it);
        }
        m_pending.remove(rebuild);
    }
    // A reload may run a nested event loop (a failure's box); its work is taken out first.
    const QSet<QPair<int, QString>> due = m_pending;
    for (const auto& item : due) {
        if (perform(Work(item.first), item.second))
            m_pending.remove(item);
    }
    if (m_pending.isEmpty())
        m_retry.stop();
    else if (!m_retry.isActive())
        m_retry.start();
}

bool CLiveUpdates::canReload(const QString& objectName, QWidget* widget, bool loading) const {
    if (ownsOpenModal(widget))
        return false;
    const auto last = m_lastReload.constFind(objectName);
    if (last != m_lastReload.constEnd() && !last->hasExpired(kMinReloadMs))
        return false;
    return !loading;
}

bool CLiveUpdates::perform(Work work, const QString& name) {
    switch (work) {
        case Rebuild:
            // Never under an open box: it may belong to a panel being replaced. The window
            // rebuilds at once (a direct connection), so that nothing waits for an old panel.
            if (QApplication::activeModalWidget())
                return false;
            emit rebuildWanted();
            return true;
        case ReadCaches:
            reloadCaches();
            return true;
        case ReadAudit:
            return readAudit();
        case ReloadSources:
        case ReadSettings:
        case RefreshLevel2:
            break;
    }
    return reloadPanel(work, name);
}

bool CLiveUpdates::reloadPanel(Work work, const QString& name) {
    const Followed panel = m_panels.value(name);
    // A panel closed meanwhile has nothing to reload.
    if (!panel.widget)
        return true;
    if (!canReload(name, panel.widget, panel.reloadable->isLoading()))
        return false;
    m_lastReload[name].start();
    emit reloading(name);
    switch (contentOf(work)) {
        case Hlx::IReloadable::QuoteSources:
            panel.reloadable->reloadSources();
            break;
        case Hlx::IReloadable::WholeQuoteSettings:
            panel.reloadable->reloadWholeQuoteSettings();
            break;
        case Hlx::IReloadable::Level2Token:
            panel.reloadable->reloadLevel2Token();
            break;
    }
    return true;
}

bool CLiveUpdates::readAudit() {
    CAuditDock* dock = m_auditTrail;
    // A hidden dock reads when it is shown.
    if (!dock || !dock->isVisible())
        return true;
    const QString name = dock->objectName();
    if (!canReload(name, dock, dock->isLoading()))
        return false;
    m_lastReload[name].start();
    emit reloading(name);
    dock->refresh();
    return true;
}

void CLiveUpdates::reloadCaches() {
    // A network call on quotesd: not on the user-interface thread.
    const boost::shared_ptr<Hlx::IQuotesAdmin> admin = m_admin;
    QThreadPool::globalInstance()->start([admin] { admin->reloadSettings(); });
}
