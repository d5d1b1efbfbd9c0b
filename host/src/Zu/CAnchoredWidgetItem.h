#pragma once

#include <QWidgetItem>

namespace Zu {

// A layout item that lets its widget fill the cell in each direction it can grow in, and centres
// it in each direction where its maximum size is smaller than the cell.
class CAnchoredWidgetItem : public QWidgetItem {
public:
    explicit CAnchoredWidgetItem(QWidget* widget);

    void setGeometry(const QRect& rect) override;
};

}  // namespace Zu
