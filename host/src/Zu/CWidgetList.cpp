#include "Zu/CWidgetList.h"

#include <QBoxLayout>

#include "CAnchoredWidgetItem.h"

namespace Zu {

CWidgetList::CWidgetList(QWidget* parent, Qt::Orientation orientation)
    : CBaseWidget(parent), m_orientation(orientation) {
    m_layout = new QBoxLayout(
        orientation == Qt::Horizontal ? QBoxLayout::LeftToRight : QBoxLayout::TopToBottom, this);
    m_layout->setContentsMargins(0, 0, 0, 0);
    m_layout->setSpacing(0);
}

CWidgetList::~CWidgetList() = default;

void CWidgetList::setMargins(int left, int top, int right, int bottom) {
    m_layout->setContentsMargins(left, top, right, bottom);
}

void CWidgetList::setSpacing(int spacing) {
    m_layout->setSpacing(spacing);
}

void CWidgetList::addAnchored(QWidget* widget, int stretch) {
    // Let the box layout adopt and show the widget, then swap in the anchoring item.
    m_layout->addWidget(widget, stretch);
    const int index = m_layout->count() - 1;
    delete m_layout->takeAt(index);
    m_layout->insertItem(index, new CAnchoredWidgetItem(widget));
    m_layout->setStretch(index, stretch);
}

void CWidgetList::addWidget(QWidget* widget, int stretch, int anchor) {
    if (!widget) {
        return;
    }
    if (anchor == AnchorFill) {
        addAnchored(widget, stretch);
    } else {
        m_layout->addWidget(widget, stretch);
    }
}

void CWidgetList::addFixedWidget(QWidget* widget) {
    if (widget) {
        addAnchored(widget, 0);
    }
}

void CWidgetList::addStretchWidget(QWidget* widget, int stretch) {
    if (widget) {
        m_layout->addWidget(widget, stretch);
    }
}

void CWidgetList::addStretch(int factor) {
    m_layout->addStretch(factor);
}

int CWidgetList::count() const {
    return m_layout->count();
}

}  // namespace Zu
