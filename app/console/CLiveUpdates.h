#pragma once

#include <QElapsedTimer>
#include <QHash>
#include <QObject>
#include <QPointer>
#include <QSet>
#include <QTimer>
#include <boost/shared_ptr.hpp>
#include <memory>

#include "Hlx/CChangeEvent.h"
#include "panels/IReloadable.h"

class CAuditDock;
class QWidget;
namespace Hlx {
class IorinDockableWidget;
class IQuotesAdmin;
}  // namespace Hlx

// Keeps the console's panels current when data changes, through this console or any other
// client: listens to the administration's changes and reloads what they touched. A panel reloads
// at most once per kMinReloadMs and never while its load runs; one with a modal box of its own
// open (edit, whole-quote, a question) reloads after the box closes. It reaches the panels it
// was given through their reload interface and asks the window for the rest by its signals.
class CLiveUpdates : public QObject {
    Q_OBJECT
public:
    static constexpr int kMinReloadMs = 500;
    static constexpr int kRetryMs = 100;
    static constexpr int kNoteMs = 5000;

    // The audit dock is read again, when shown, after every change.
    CLiveUpdates(const boost::shared_ptr<Hlx::IQuotesAdmin>& admin, CAuditDock* auditTrail,
                 QObject* parent);
    ~CLiveUpdates() override;

    // Listens anew (after a login, with its token).
    void restart();
    void stop();
    // Keeps a docked panel current (until it is destroyed, or a panel of the same name comes).
    void follow(Hlx::IorinDockableWidget* panel);
    // Reloads still waiting (for a load to end, a box to close, or their interval).
    bool isPending() const { return !m_pending.isEmpty(); }
    // Asks for the panels to be built anew (rebuildWanted), once no modal box is open.
    void requestRebuild() { schedule(Rebuild); }

signals:
    // A panel is about to load again because of a change.
    void reloading(const QString& objectName);
    // The panels are to be built anew (the data beneath them was replaced, or the rights of
    // the console's account changed); no modal box is open then.
    void rebuildWanted();
    // A probe found a new state of an address (the status dock reads the states again).
    void probeChanged();
    // A short note for the status bar.
    void statusMessage(const QString& text, int timeoutMs);

private:
    // What a change asks of the console.
    enum Work { ReloadSources, ReadSettings, RefreshLevel2, ReadCaches, Rebuild, ReadAudit };
    struct Followed {
        QPointer<QWidget> widget;  // its dialogs and questions have it as their parent
        Hlx::IReloadable* reloadable = nullptr;
    };

    // What a panel must show for the work to concern it.
    static Hlx::IReloadable::Content contentOf(Work work);
    void onChange(const Hlx::CChangeEvent& change);
    // For every followed panel the work concerns.
    void scheduleForPanels(Work work);
    void schedule(Work work, const QString& panel = QString());
    void flush();
    // Done, or still to wait.
    bool perform(Work work, const QString& panel);
    bool reloadPanel(Work work, const QString& name);
    bool canReload(const QString& objectName, QWidget* widget, bool loading) const;
    bool readAudit();
    void reloadCaches();
    void note(const Hlx::CChangeEvent& change);
    // "行情源 ADDR:PORT 不可达" when a probe finds a source's address can no longer be reached.
    void noteProbe(const Hlx::CProbeResult& probe);

    boost::shared_ptr<Hlx::IQuotesAdmin> m_admin;
    QPointer<CAuditDock> m_auditTrail;
    std::shared_ptr<void> m_subscription;
    // The panels followed, by object name.
    QHash<QString, Followed> m_panels;
    // Waiting work: (work, panel's object name).
    QSet<QPair<int, QString>> m_pending;
    QHash<QString, QElapsedTimer> m_lastReload;
    QTimer m_retry;
};
