#include "Zu/CBaseTableColumnMultiButtonsDelegate.h"

#include <QAbstractItemView>
#include <QApplication>
#include <QHelpEvent>
#include <QMouseEvent>
#include <QPainter>
#include <QTableView>
#include <QToolTip>

#include "Zu/CBaseNormalTable.h"
#include "Zu/CUiResources.h"

namespace Zu {

namespace {

const int kCellPadding = 6;
const int kButtonGap = 8;
const int kButtonHeight = 22;
const int kTextPadding = 6;

// Row keys are row indexes in decimal; anything else is kept aside by its text.
int rowOfKey(const std::string& key) {
    if (key.empty() || key.size() > 9) {
        return -1;
    }
    int row = 0;
    for (char c : key) {
        if (c < '0' || c > '9') {
            return -1;
        }
        row = row * 10 + (c - '0');
    }
    return row;
}

}  // namespace

CBaseTableColumnMultiButtonsDelegate::CBaseTableColumnMultiButtonsDelegate(CBaseNormalTable* table,
                                                                           int id)
    : QStyledItemDelegate(table), m_table(table), m_id(id) {
    if (m_table) {
        m_table->registerButtonsDelegate(this);
        // Hover needs the mouse position inside the cell, which editorEvent does not see.
        m_view = m_table->view();
        m_viewport = m_view->viewport();
        m_viewport->installEventFilter(this);
    }
}

CBaseTableColumnMultiButtonsDelegate::~CBaseTableColumnMultiButtonsDelegate() = default;

void CBaseTableColumnMultiButtonsDelegate::setItemButtons(const std::string& rowKey,
                                                          const QVector<ButtonData>& buttons,
                                                          bool refresh) {
    const int row = rowOfKey(rowKey);
    if (row < 0) {
        m_keyedButtons[rowKey] = buttons;
        return;
    }
    if (row >= m_rowButtons.size()) {
        m_rowButtons.resize(row + 1);
    }
    // Rows mostly carry the same buttons; share one list instead of keeping a copy per row.
    if (row > 0 && m_rowButtons[row - 1] == buttons) {
        m_rowButtons[row] = m_rowButtons[row - 1];
    } else {
        m_rowButtons[row] = buttons;
    }
    if (refresh) {
        updateRow(row);
    }
}

QVector<ButtonData> CBaseTableColumnMultiButtonsDelegate::itemButtons(
    const std::string& rowKey) const {
    const int row = rowOfKey(rowKey);
    if (row < 0) {
        const auto it = m_keyedButtons.find(rowKey);
        return it == m_keyedButtons.end() ? QVector<ButtonData>() : it->second;
    }
    return row < m_rowButtons.size() ? m_rowButtons[row] : QVector<ButtonData>();
}

void CBaseTableColumnMultiButtonsDelegate::clearButtons() {
    m_rowButtons.clear();
    m_rowButtons.squeeze();
    m_keyedButtons.clear();
    m_hoverRow = m_hoverButton = -1;
    m_pressRow = m_pressButton = -1;
    if (m_viewport) {
        m_viewport->update();
    }
}

const QVector<ButtonData>* CBaseTableColumnMultiButtonsDelegate::buttonsOfRow(int row) const {
    if (row < 0 || row >= m_rowButtons.size() || m_rowButtons[row].isEmpty()) {
        return nullptr;
    }
    return &m_rowButtons[row];
}

QVector<QRect> CBaseTableColumnMultiButtonsDelegate::layoutButtons(
    const QRect& cell, const QVector<ButtonData>& buttons, const QFontMetrics& metrics) const {
    QVector<QRect> rects;
    rects.reserve(buttons.size());
    const int height = qMin(kButtonHeight, qMax(0, cell.height() - 4));
    const int top = cell.top() + (cell.height() - height) / 2;
    int left = cell.left() + kCellPadding;
    for (const ButtonData& button : buttons) {
        const int width = metrics.horizontalAdvance(button.text) + 2 * kTextPadding;
        rects.append(QRect(left, top, width, height));
        left += width + kButtonGap;
    }
    return rects;
}

QTableView* CBaseTableColumnMultiButtonsDelegate::tableView() const {
    return m_table ? m_view.data() : nullptr;
}

bool CBaseTableColumnMultiButtonsDelegate::isOurCell(const QModelIndex& index) const {
    QTableView* view = tableView();
    return index.isValid() && view && view->itemDelegateForColumn(index.column()) == this;
}

int CBaseTableColumnMultiButtonsDelegate::buttonAt(const QRect& cell, int row, const QPoint& pos,
                                                   const QFontMetrics& metrics) const {
    const QVector<ButtonData>* buttons = buttonsOfRow(row);
    if (!buttons) {
        return -1;
    }
    const QVector<QRect> rects = layoutButtons(cell, *buttons, metrics);
    for (int i = 0; i < rects.size(); ++i) {
        if (rects[i].contains(pos)) {
            return i;
        }
    }
    return -1;
}

void CBaseTableColumnMultiButtonsDelegate::paint(QPainter* painter,
                                                 const QStyleOptionViewItem& option,
                                                 const QModelIndex& index) const {
    // Background, alternation and selection as for any cell, without text.
    QStyleOptionViewItem background = option;
    initStyleOption(&background, index);
    background.text.clear();
    const QWidget* widget = option.widget;
    QStyle* style = widget ? widget->style() : QApplication::style();
    style->drawControl(QStyle::CE_ItemViewItem, &background, painter, widget);

    const int row = rowOf(index);
    const QVector<ButtonData>* buttons = buttonsOfRow(row);
    if (!buttons) {
        return;
    }
    const QVector<QRect> rects = layoutButtons(option.rect, *buttons, option.fontMetrics);
    const QColor link = CUiResources::color(QStringLiteral("clr_text_clickable"));
    const QColor linkHover = CUiResources::color(QStringLiteral("clr_text_clickable_hover"));
    const QColor disabled = CUiResources::color(QStringLiteral("clr_text_disabled"));
    painter->save();
    painter->setRenderHint(QPainter::Antialiasing);
    for (int i = 0; i < rects.size(); ++i) {
        const ButtonData& button = (*buttons)[i];
        const bool enabled = !button.flag;
        const bool hovered = enabled && row == m_hoverRow && button.id == m_hoverButton;
        const bool pressed = enabled && row == m_pressRow && button.id == m_pressButton;
        QRect rect = rects[i];
        if (pressed) {
            rect.translate(0, 1);
        }
        if (button.type == ButtonData::TypeFramed) {
            QColor fill = pressed ? QColor(0xcf, 0xe0, 0xf6)
                                  : (hovered ? QColor(0xe6, 0xef, 0xfa) : QColor(Qt::white));
            painter->setPen(enabled ? (hovered ? linkHover : link) : disabled);
            painter->setBrush(fill);
            painter->drawRoundedRect(QRectF(rect).adjusted(0.5, 0.5, -0.5, -0.5), 3, 3);
        } else if (pressed || hovered) {
            painter->setPen(Qt::NoPen);
            painter->setBrush(pressed ? QColor(0, 0, 0, 30) : QColor(0x1a, 0x6f, 0xd8, 22));
            painter->drawRoundedRect(rect, 3, 3);
        }
        QFont font = option.font;
        font.setUnderline(hovered && button.type != ButtonData::TypeFramed);
        painter->setFont(font);
        painter->setPen(enabled ? (hovered || pressed ? linkHover : link) : disabled);
        painter->drawText(rect, Qt::AlignCenter | Qt::TextSingleLine, button.text);
    }
    painter->restore();
}

QSize CBaseTableColumnMultiButtonsDelegate::sizeHint(const QStyleOptionViewItem& option,
                                                     const QModelIndex& index) const {
    QSize size = QStyledItemDelegate::sizeHint(option, index);
    if (const QVector<ButtonData>* buttons = buttonsOfRow(rowOf(index))) {
        const QVector<QRect> rects =
            layoutButtons(QRect(0, 0, 10000, size.height() + 8), *buttons, option.fontMetrics);
        if (!rects.isEmpty()) {
            size.setWidth(qMax(size.width(), rects.last().right() + 1 + kCellPadding));
        }
        size.setHeight(qMax(size.height(), kButtonHeight + 4));
    }
    return size;
}

QWidget* CBaseTableColumnMultiButtonsDelegate::createEditor(QWidget*, const QStyleOptionViewItem&,
                                                            const QModelIndex&) const {
    return nullptr;
}

int CBaseTableColumnMultiButtonsDelegate::rowOf(const QModelIndex& index) const {
    return m_table ? m_table->storedRowOf(index.row()) : -1;
}

void CBaseTableColumnMultiButtonsDelegate::updateRow(int storedRow) const {
    // Rows the view has not been told about yet, or does not show, need no repaint.
    const int row = m_table ? m_table->viewRowOf(storedRow) : -1;
    QTableView* view = tableView();
    QAbstractItemModel* model = view ? view->model() : nullptr;
    if (row < 0 || !model || row >= model->rowCount()) {
        return;
    }
    for (int column = 0; column < model->columnCount(); ++column) {
        if (view->itemDelegateForColumn(column) == this) {
            view->update(model->index(row, column));
        }
    }
}

void CBaseTableColumnMultiButtonsDelegate::setHover(int row, int buttonId) {
    if (row == m_hoverRow && buttonId == m_hoverButton) {
        return;
    }
    const int oldRow = m_hoverRow;
    m_hoverRow = row;
    m_hoverButton = buttonId;
    updateRow(oldRow);
    updateRow(row);
    if (m_viewport) {
        if (buttonId >= 0) {
            m_viewport->setCursor(Qt::PointingHandCursor);
        } else {
            m_viewport->unsetCursor();
        }
    }
}

bool CBaseTableColumnMultiButtonsDelegate::eventFilter(QObject* watched, QEvent* event) {
    // Compare only: this filter also sees the viewport's last events while the view is deleted.
    if (m_table && watched == m_viewport) {
        QTableView* view = m_table->view();
        if (event->type() == QEvent::MouseMove && view) {
            const QPoint pos = static_cast<QMouseEvent*>(event)->pos();
            const QModelIndex index = view->indexAt(pos);
            int hovered = -1;
            const int row = rowOf(index);
            if (isOurCell(index)) {
                const int at = buttonAt(view->visualRect(index), row, pos, view->fontMetrics());
                const QVector<ButtonData>* buttons = buttonsOfRow(row);
                if (at >= 0 && !(*buttons)[at].flag) {
                    hovered = (*buttons)[at].id;
                }
            }
            setHover(hovered >= 0 ? row : -1, hovered);
        } else if (event->type() == QEvent::Leave) {
            setHover(-1, -1);
        }
    }
    return QStyledItemDelegate::eventFilter(watched, event);
}

bool CBaseTableColumnMultiButtonsDelegate::editorEvent(QEvent* event, QAbstractItemModel* model,
                                                       const QStyleOptionViewItem& option,
                                                       const QModelIndex& index) {
    const QEvent::Type type = event->type();
    if (type != QEvent::MouseButtonPress && type != QEvent::MouseButtonRelease &&
        type != QEvent::MouseButtonDblClick) {
        return QStyledItemDelegate::editorEvent(event, model, option, index);
    }
    auto* mouse = static_cast<QMouseEvent*>(event);
    const int row = rowOf(index);
    const int at = buttonAt(option.rect, row, mouse->pos(), option.fontMetrics);
    const QVector<ButtonData>* buttons = buttonsOfRow(row);
    const int buttonId = (at >= 0 && !(*buttons)[at].flag) ? (*buttons)[at].id : -1;

    if (type == QEvent::MouseButtonPress || type == QEvent::MouseButtonDblClick) {
        if (mouse->button() != Qt::LeftButton || buttonId < 0) {
            return false;
        }
        m_pressRow = row;
        m_pressButton = buttonId;
        updateRow(row);
        return true;
    }
    // Release: a click when it ends on the button it started on.
    const int pressedRow = m_pressRow;
    const int pressedButton = m_pressButton;
    m_pressRow = m_pressButton = -1;
    updateRow(pressedRow);
    if (mouse->button() == Qt::LeftButton && pressedButton >= 0 && pressedRow == row &&
        pressedButton == buttonId) {
        deliverClick(row, buttonId);
        return true;
    }
    return pressedButton >= 0;
}

bool CBaseTableColumnMultiButtonsDelegate::helpEvent(QHelpEvent* event, QAbstractItemView* view,
                                                     const QStyleOptionViewItem& option,
                                                     const QModelIndex& index) {
    if (event->type() == QEvent::ToolTip) {
        const int row = rowOf(index);
        const int at = buttonAt(option.rect, row, event->pos(), option.fontMetrics);
        if (at >= 0) {
            const QString tip = (*buttonsOfRow(row))[at].extra.value(QStringLiteral("tooltip"));
            if (!tip.isEmpty()) {
                QToolTip::showText(event->globalPos(), tip, view);
                return true;
            }
        }
        QToolTip::hideText();
        return true;
    }
    return QStyledItemDelegate::helpEvent(event, view, option, index);
}

QRect CBaseTableColumnMultiButtonsDelegate::buttonRect(int row, int buttonId) const {
    const QVector<ButtonData>* buttons = buttonsOfRow(row);
    if (!m_table || !buttons) {
        return QRect();
    }
    QTableView* view = m_table->view();
    QAbstractItemModel* model = view ? view->model() : nullptr;
    const int shown = m_table->viewRowOf(row);
    if (!model || shown < 0) {
        return QRect();
    }
    for (int column = 0; column < model->columnCount(); ++column) {
        if (view->itemDelegateForColumn(column) != this || view->isColumnHidden(column)) {
            continue;
        }
        const QRect cell = view->visualRect(model->index(shown, column));
        const QVector<QRect> rects = layoutButtons(cell, *buttons, view->fontMetrics());
        for (int i = 0; i < rects.size(); ++i) {
            if ((*buttons)[i].id == buttonId) {
                return rects[i].intersected(cell);
            }
        }
    }
    return QRect();
}

bool CBaseTableColumnMultiButtonsDelegate::clickButton(int row, int buttonId) {
    const QVector<ButtonData>* buttons = buttonsOfRow(row);
    if (!m_table || !buttons || row >= m_table->rowCount()) {
        return false;
    }
    for (const ButtonData& button : *buttons) {
        if (button.id == buttonId && !button.flag) {
            deliverClick(row, buttonId);
            return true;
        }
    }
    return false;
}

void CBaseTableColumnMultiButtonsDelegate::deliverClick(int row, int buttonId) {
    if (!m_table) {
        return;
    }
    // The handler reads the selected row, so select before telling it.
    m_table->selectRow(row);
    m_table->deliverEvent(EventRowButtonClicked, m_id, buttonId, QString::number(row), nullptr);
}

}  // namespace Zu
