#pragma once

#include <QPoint>

#include "Zu/CBaseDialog.h"

namespace Zu {

// A frameless dialog that paints its own border and can be moved by dragging a given handle.
class CCustomDialog : public CBaseDialog {
    Q_OBJECT
public:
    explicit CCustomDialog(QWidget* parent = nullptr);
    ~CCustomDialog() override;

protected:
    // Dragging this widget moves the dialog.
    void setDragHandle(QWidget* handle);

    bool eventFilter(QObject* watched, QEvent* event) override;
    void paintEvent(QPaintEvent* event) override;

private:
    QWidget* m_dragHandle = nullptr;
    bool m_dragging = false;
    QPoint m_dragOffset;
};

}  // namespace Zu
