#include "Zu/CCustomDialog.h"

#include <QMouseEvent>
#include <QPainter>

#include "Zu/CUiResources.h"

namespace Zu {

CCustomDialog::CCustomDialog(QWidget* parent) : CBaseDialog(parent) {
    setWindowFlags(windowFlags() | Qt::FramelessWindowHint);
    setAutoFillBackground(true);
}

CCustomDialog::~CCustomDialog() = default;

void CCustomDialog::setDragHandle(QWidget* handle) {
    if (m_dragHandle) {
        m_dragHandle->removeEventFilter(this);
    }
    m_dragHandle = handle;
    if (m_dragHandle) {
        m_dragHandle->installEventFilter(this);
    }
}

bool CCustomDialog::eventFilter(QObject* watched, QEvent* event) {
    if (watched == m_dragHandle) {
        switch (event->type()) {
            case QEvent::MouseButtonPress: {
                auto* mouse = static_cast<QMouseEvent*>(event);
                if (mouse->button() == Qt::LeftButton) {
                    m_dragging = true;
                    m_dragOffset = mouse->globalPos() - frameGeometry().topLeft();
                }
                break;
            }
            case QEvent::MouseMove: {
                auto* mouse = static_cast<QMouseEvent*>(event);
                if (m_dragging && (mouse->buttons() & Qt::LeftButton)) {
                    move(mouse->globalPos() - m_dragOffset);
                }
                break;
            }
            case QEvent::MouseButtonRelease:
                m_dragging = false;
                break;
            default:
                break;
        }
    }
    return CBaseDialog::eventFilter(watched, event);
}

void CCustomDialog::paintEvent(QPaintEvent* event) {
    CBaseDialog::paintEvent(event);
    // Without a window frame the dialog draws its own edge.
    QPainter painter(this);
    painter.setPen(CUiResources::color(QStringLiteral("clr_border")));
    painter.drawRect(rect().adjusted(0, 0, -1, -1));
}

}  // namespace Zu
