#include "CLiveUpdates.h"

#include <QApplication>
#include <QStatusBar>
#include <QThreadPool>
#include <algorithm>

#include "CAuditDock.h"
#include "CConsoleWindow.h"
#include "Hlx/IQuotesAdmin.h"
#include "Hlx/IorinDockableWidget.h"
#include "model/CAuditVocabulary.h"
#include "panels/CLevel2QuotesManagePanel.h"
#include "panels/CQuotesManagePanel.h"

namespace {

const QString kAllTypesPanel = QStringLiteral("allq");
const QString kLevel2Panel = QStringLiteral("level2quote");

// Whether a modal box is open that belongs to the widget (its dialogs and questions have it as
// their parent).
bool ownsOpenModal(const QWidget* widget) {
    for (QWidget* box = QApplication::activeModalWidget(); box; box = box->parentWidget()) {
        if (box == widget)
            return true;
    }
    return false;
}

bool names(const Hlx::CChangeEvent& change, const QString& id) {
    return change.allIds ||
           std::find(change.ids.begin(), change.ids.end(), id.toStdString()) != change.ids.end();
}

}  // namespace

CLiveUpdates::CLiveUpdates(const boost::shared_ptr<Hlx::IQuotesAdmin>& admin,
                           CConsoleWindow* window)
    : QObject(window), m_admin(admin), m_window(window) {
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

void CLiveUpdates::onChange(const Hlx::CChangeEvent& change) {
    if (change.listening && !change.resync)
        return;
    if (!change.own && !change.resync)
        note(change);
    // Every change has its entry in the trail.
    schedule(ReadAudit);
    const std::string& type = change.dataType;
    if (change.resync || type == CAuditVocabulary::kDocument) {
        schedule(ReadCaches);
        schedule(Rebuild);
    } else if (type == CAuditVocabulary::kQuoteSource) {
        for (const QString& name : m_window->openPanels()) {
            if (qobject_cast<Hlx::CQuotesManagePanel*>(m_window->panel(name)))
                schedule(ReloadSources, name);
        }
    } else if (type == CAuditVocabulary::kWholeQuote) {
        schedule(ReadSettings, kAllTypesPanel);
    } else if (type == CAuditVocabulary::kLevel2Token) {
        schedule(RefreshLevel2, kLevel2Panel);
    } else if (type == CAuditVocabulary::kAccount) {
        // The rights of the account this console works as: read as a user switch reads them.
        if (names(change, m_window->currentUser()))
            schedule(Rebuild);
    } else if (type == CAuditVocabulary::kSubsystems || type == CAuditVocabulary::kLoginType) {
        schedule(ReadCaches);
    }
}

void CLiveUpdates::note(const Hlx::CChangeEvent& change) {
    if (change.account.empty())
        return;
    m_window->statusBar()->showMessage(
        QStringLiteral("数据已由 %1 更新").arg(QString::fromStdString(change.account)), kNoteMs);
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

bool CLiveUpdates::canReload(const QString& objectName, QWidget* widget) const {
    if (ownsOpenModal(widget))
        return false;
    const auto last = m_lastReload.constFind(objectName);
    if (last != m_lastReload.constEnd() && !last->hasExpired(kMinReloadMs))
        return false;
    if (auto* sources = qobject_cast<Hlx::CQuotesManagePanel*>(widget))
        return !sources->isLoading();
    if (auto* audit = qobject_cast<CAuditDock*>(widget))
        return !audit->isLoading();
    return true;
}

bool CLiveUpdates::perform(Work work, const QString& name) {
    switch (work) {
        case Rebuild:
            // Never under an open box: it may belong to a panel being replaced.
            if (QApplication::activeModalWidget())
                return false;
            m_window->rebuildForChanges();
            return true;
        case ReadCaches:
            reloadCaches();
            return true;
        case ReadAudit:
            return readAudit();
        default:
            break;
    }
    Hlx::IorinDockableWidget* panel = m_window->panel(name);
    if (!panel)
        return true;
    if (!canReload(name, panel))
        return false;
    m_lastReload[name].start();
    emit reloading(name);
    if (work == ReadSettings)
        panel->onActive();
    else if (auto* sources = qobject_cast<Hlx::CQuotesManagePanel*>(panel))
        sources->reload();
    else if (auto* level2 = qobject_cast<Hlx::CLevel2QuotesManagePanel*>(panel))
        level2->refresh();
    return true;
}

bool CLiveUpdates::readAudit() {
    CAuditDock* dock = m_window->auditTrail();
    // A hidden dock reads when it is shown.
    if (!dock || !dock->isVisible())
        return true;
    const QString name = dock->objectName();
    if (!canReload(name, dock))
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
