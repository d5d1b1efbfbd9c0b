#include "CTableHeights.h"

#include <QHeaderView>
#include <QStyle>
#include <QTableView>

int CTableHeights::forRows(const QTableView* view, int rows) {
    return view->verticalHeader()->defaultSectionSize() * rows +
           view->horizontalHeader()->sizeHint().height() + 2 * view->frameWidth() +
           view->style()->pixelMetric(QStyle::PM_ScrollBarExtent, nullptr, view);
}
