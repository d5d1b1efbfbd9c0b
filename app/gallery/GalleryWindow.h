#pragma once

#include <QMap>
#include <QTabWidget>
#include <functional>

// One tab per group of kit widgets.
class GalleryWindow : public QTabWidget {
    Q_OBJECT
public:
    explicit GalleryWindow(QWidget* parent = nullptr);

    // Writes one PNG per group into dir; false when a file could not be written.
    bool writeScreenshots(const QString& dir);

private:
    // Saves one picture under a name.
    using Save = std::function<void(const QPixmap&, const QString&)>;

    QWidget* buildControls();
    QWidget* buildPanel();
    QWidget* buildMask();
    QWidget* buildDialog();
    void shootControlsAndPanel(const Save& save);
    void shootTableMenu(QWidget* panel, const Save& save);
    void shootDialogs(const Save& save);
    void shootQuestion(const Save& save);

    QMap<QString, QWidget*> m_groups;
};
