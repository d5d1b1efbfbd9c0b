#include "Zu/COddEvenRowTable.h"

#include <QTableView>

#include "Zu/CUiResources.h"

namespace Zu {

COddEvenRowTable::COddEvenRowTable(QWidget* parent, int layoutId, int menuFlags)
    : CBaseNormalTable(parent, layoutId, menuFlags) {
    QTableView* table = view();
    table->setAlternatingRowColors(true);
    QPalette palette = table->palette();
    palette.setColor(QPalette::Base, Qt::white);
    palette.setColor(QPalette::AlternateBase,
                     CUiResources::color(QStringLiteral("clr_row_alternate")));
    palette.setColor(QPalette::Highlight, CUiResources::color(QStringLiteral("clr_row_selected")));
    palette.setColor(QPalette::HighlightedText,
                     CUiResources::color(QStringLiteral("clr_text_normal")));
    table->setPalette(palette);
}

COddEvenRowTable::~COddEvenRowTable() = default;

}  // namespace Zu
