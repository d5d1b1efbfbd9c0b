#pragma once

#include <QString>
#include <QStringList>
#include <memory>

class CConsoleWindow;
class QWidget;
struct CPanelEntry;
namespace Hlx {
class IorinDockableWidget;
}

// Renders the console, every panel after its load has finished, and the dialogs, to PNG files.
class CScreenshotter {
public:
    CScreenshotter(CConsoleWindow* window, const QString& directory);

    // The files written; false with a message when one could not be written.
    bool run(QString* error);
    QStringList written() const { return m_written; }

    // Processes events until every request has been answered and its slots have run.
    static void waitUntilSettled(int timeoutMs = 10000);

private:
    static void holdStill();
    // No caret and no mask in the picture.
    static void settlePicture(QWidget* widget);
    bool save(QWidget* widget, const QString& name, QString* error);
    // A panel of its own at the pictures' size, shown and loaded.
    std::unique_ptr<Hlx::IorinDockableWidget> loadedPanel(const CPanelEntry& entry);
    bool shootPanels(QString* error);
    bool shootStockDialogs(const QString& panelName, QString* error);
    bool shootFutureDialog(const QString& panelName, QString* error);
    bool shootWholeQuoteDialog(QString* error);
    bool shootTokenDialog(QString* error);
    bool shootFindBar(QString* error);
    // A scripted history (fixed times and callers), never the demo's own.
    bool shootHistoryDialog(QString* error);
    // Scripted states and connect times at fixed times, never measured ones.
    bool shootStatusDock(QString* error);

    CConsoleWindow* m_window;
    QString m_directory;
    QStringList m_written;
};
