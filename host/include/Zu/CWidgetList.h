#pragma once

#include "Zu/CBaseWidget.h"

class QBoxLayout;

namespace Zu {

// A horizontal or vertical row of child widgets with margins and spacing.
class CWidgetList : public CBaseWidget {
    Q_OBJECT
public:
    // Anchor value: the child fills the cell both ways, or is centred where it cannot grow.
    static const int AnchorFill = 3;

    CWidgetList(QWidget* parent, Qt::Orientation orientation);
    ~CWidgetList() override;

    Qt::Orientation orientation() const { return m_orientation; }

    void setMargins(int left, int top, int right, int bottom);
    void setSpacing(int spacing);

    // Adds widget (reparented to the list). Anchor 3 fills or centres it both ways; any other
    // value leaves Qt's default placement.
    void addWidget(QWidget* widget, int stretch = 0, int anchor = 0);
    // Adds widget without stretch, centred across the list where it cannot fill.
    void addFixedWidget(QWidget* widget);
    // Adds widget that takes a share of the spare room.
    void addStretchWidget(QWidget* widget, int stretch = 1);
    void addStretch(int factor = 1);

    // Number of entries (widgets and stretches).
    int count() const;
    QBoxLayout* boxLayout() const { return m_layout; }

private:
    void addAnchored(QWidget* widget, int stretch);

    Qt::Orientation m_orientation;
    QBoxLayout* m_layout = nullptr;
};

}  // namespace Zu
