#include "Zu/IDockableWidget.h"

namespace Zu {

IDockableWidget::IDockableWidget(QWidget* parent) : CBaseWidget(parent) {}

IDockableWidget::~IDockableWidget() = default;

void IDockableWidget::onActive() {}

void IDockableWidget::setParam(const QString& param) {
    m_param = param;
}

QString IDockableWidget::param() const {
    return m_param;
}

}  // namespace Zu
