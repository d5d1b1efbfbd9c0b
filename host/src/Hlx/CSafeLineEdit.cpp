#include "Hlx/CSafeLineEdit.h"

#include <QContextMenuEvent>
#include <QFocusEvent>
#include <QKeyEvent>
#include <QMouseEvent>

namespace Hlx {

CSafeLineEdit::CSafeLineEdit(QWidget* parent, int id) : Zu::CLineEdit(parent, id) {}

CSafeLineEdit::~CSafeLineEdit() = default;

bool CSafeLineEdit::isGuarded() const {
    return echoMode() != QLineEdit::Normal;
}

void CSafeLineEdit::copy() const {
    if (!isGuarded()) {
        Zu::CLineEdit::copy();
    }
}

void CSafeLineEdit::cut() {
    if (!isGuarded()) {
        Zu::CLineEdit::cut();
    }
}

void CSafeLineEdit::suppressDrag() {
    // Dragging a selection would carry the text out; switch it off while guarded and give it
    // back when the edit shows its text again.
    if (isGuarded()) {
        if (dragEnabled()) {
            m_dragWanted = true;
            setDragEnabled(false);
        }
    } else if (m_dragWanted) {
        m_dragWanted = false;
        setDragEnabled(true);
    }
}

bool CSafeLineEdit::event(QEvent* event) {
    switch (event->type()) {
        case QEvent::ShortcutOverride:
        case QEvent::KeyPress: {
            auto* key = static_cast<QKeyEvent*>(event);
            if (isGuarded() &&
                (key->matches(QKeySequence::Copy) || key->matches(QKeySequence::Cut))) {
                // Take the shortcut so that no window-level copy action sees it either.
                event->accept();
                return true;
            }
            break;
        }
        case QEvent::MouseButtonPress:
        case QEvent::MouseMove:
        case QEvent::DragEnter:
            suppressDrag();
            break;
        default:
            break;
    }
    return Zu::CLineEdit::event(event);
}

void CSafeLineEdit::keyPressEvent(QKeyEvent* event) {
    if (isGuarded() && (event->matches(QKeySequence::Copy) || event->matches(QKeySequence::Cut))) {
        event->accept();
        return;
    }
    Zu::CLineEdit::keyPressEvent(event);
}

void CSafeLineEdit::contextMenuEvent(QContextMenuEvent* event) {
    if (isGuarded()) {
        event->accept();
        return;
    }
    Zu::CLineEdit::contextMenuEvent(event);
}

void CSafeLineEdit::mousePressEvent(QMouseEvent* event) {
    suppressDrag();
    Zu::CLineEdit::mousePressEvent(event);
}

void CSafeLineEdit::mouseMoveEvent(QMouseEvent* event) {
    suppressDrag();
    Zu::CLineEdit::mouseMoveEvent(event);
}

void CSafeLineEdit::focusOutEvent(QFocusEvent* event) {
    Zu::CLineEdit::focusOutEvent(event);
    // Opening a menu or switching windows is not leaving the field.
    if (event->reason() == Qt::PopupFocusReason || event->reason() == Qt::ActiveWindowFocusReason) {
        return;
    }
    deliverEvent(Zu::EventFieldLeft, id(), 0, text(), nullptr);
}

}  // namespace Hlx
