#include "CAnchoredWidgetItem.h"

#include <QWidget>

namespace Zu {

CAnchoredWidgetItem::CAnchoredWidgetItem(QWidget* widget) : QWidgetItem(widget) {}

void CAnchoredWidgetItem::setGeometry(const QRect& rect) {
    if (isEmpty()) {
        return;
    }
    const QSize size = rect.size().boundedTo(maximumSize()).expandedTo(minimumSize());
    const int x = rect.x() + qMax(0, (rect.width() - size.width()) / 2);
    const int y = rect.y() + qMax(0, (rect.height() - size.height()) / 2);
    widget()->setGeometry(QRect(QPoint(x, y), size));
}

}  // namespace Zu
