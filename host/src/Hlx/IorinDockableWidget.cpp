#include "Hlx/IorinDockableWidget.h"

#include <QVBoxLayout>

namespace Hlx {

IorinDockableWidget::IorinDockableWidget(const QString& objectName, QWidget* parent)
    : Zu::IDockableWidget(parent) {
    setObjectName(objectName);
    init();
}

IorinDockableWidget::IorinDockableWidget(bool floating, const QString& objectName, QWidget* parent,
                                         bool closable)
    : Zu::IDockableWidget(parent), m_floating(floating), m_closable(closable) {
    setObjectName(objectName);
    init();
}

IorinDockableWidget::~IorinDockableWidget() = default;

void IorinDockableWidget::init() {
    m_layout = new QVBoxLayout(this);
    m_layout->setContentsMargins(0, 0, 0, 0);
    m_layout->setSpacing(0);
}

void IorinDockableWidget::onActive() {
    Zu::IDockableWidget::onActive();
    emit activated();
}

void IorinDockableWidget::switchSystem(int systemId, const QString& systemName) {
    m_systemId = systemId;
    m_systemName = systemName;
}

void IorinDockableWidget::setInnerStretchWidget(QWidget* widget) {
    if (widget == m_inner) {
        return;
    }
    if (m_inner) {
        m_layout->removeWidget(m_inner);
    }
    m_inner = widget;
    if (widget) {
        m_layout->addWidget(widget, 1);
    }
}

}  // namespace Hlx
