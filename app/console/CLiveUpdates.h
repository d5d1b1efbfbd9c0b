#pragma once

#include <QElapsedTimer>
#include <QHash>
#include <QObject>
#include <QSet>
#include <QTimer>
#include <boost/shared_ptr.hpp>
#include <memory>

#include "Hlx/CChangeEvent.h"

class CConsoleWindow;
class QWidget;
namespace Hlx {
class IQuotesAdmin;
}

// Keeps the console's panels current when data changes, through this console or any other
// client: listens to the administration's changes and reloads what they touched. A panel reloads
// at most once per kMinReloadMs and never while its load runs; one with a modal box of its own
// open (edit, whole-quote, a question) reloads after the box closes. Changes made by others are
// named in a short note in the status bar.
class CLiveUpdates : public QObject {
    Q_OBJECT
public:
    static constexpr int kMinReloadMs = 500;
    static constexpr int kRetryMs = 100;
    static constexpr int kNoteMs = 5000;

    CLiveUpdates(const boost::shared_ptr<Hlx::IQuotesAdmin>& admin, CConsoleWindow* window);
    ~CLiveUpdates() override;

    // Listens anew (after a login, with its token).
    void restart();
    void stop();
    // Reloads still waiting (for a load to end, a box to close, or their interval).
    bool isPending() const { return !m_pending.isEmpty(); }

signals:
    // A panel is about to load again because of a change.
    void reloading(const QString& objectName);

private:
    // What a change asks of the console.
    enum Work { ReloadSources, ReadSettings, RefreshLevel2, ReadCaches, Rebuild, ReadAudit };

    void onChange(const Hlx::CChangeEvent& change);
    void schedule(Work work, const QString& panel = QString());
    void flush();
    // Done, or still to wait.
    bool perform(Work work, const QString& panel);
    bool canReload(const QString& objectName, QWidget* panel) const;
    bool readAudit();
    void reloadCaches();
    void note(const Hlx::CChangeEvent& change);

    boost::shared_ptr<Hlx::IQuotesAdmin> m_admin;
    CConsoleWindow* m_window;
    std::shared_ptr<void> m_subscription;
    // Waiting work: (work, panel's object name).
    QSet<QPair<int, QString>> m_pending;
    QHash<QString, QElapsedTimer> m_lastReload;
    QTimer m_retry;
};
