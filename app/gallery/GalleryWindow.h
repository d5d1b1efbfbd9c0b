#pragma once

#include <QMap>
#include <QTabWidget>

// One tab per group of kit widgets.
class GalleryWindow : public QTabWidget {
    Q_OBJECT
public:
    explicit GalleryWindow(QWidget* parent = nullptr);

    // Writes one PNG per group into dir; false when a file could not be written.
    bool writeScreenshots(const QString& dir);

private:
    QWidget* buildControls();
    QWidget* buildPanel();
    QWidget* buildMask();
    QWidget* buildDialog();

    QMap<QString, QWidget*> m_groups;
};
