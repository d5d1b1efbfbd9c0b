#include "Zu/CBaseWidget.h"

namespace Zu {

CBaseWidget::CBaseWidget(QWidget* parent) : CEventWidgetT<QWidget>(parent) {}

CBaseWidget::~CBaseWidget() = default;

bool CBaseWidget::handleEvent(int, int, int, QString, void*) {
    return false;
}

}  // namespace Zu
