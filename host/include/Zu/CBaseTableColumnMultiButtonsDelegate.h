#pragma once

#include <QPointer>
#include <QStyledItemDelegate>
#include <QVector>
#include <map>
#include <string>

#include "Zu/ButtonData.h"

class QTableView;

namespace Zu {

class CBaseNormalTable;

// Paints a row's buttons into its cell (no widget per row) and reports clicks as event 228
// (arg = button id, text = row key) through the table's event delivery.
class CBaseTableColumnMultiButtonsDelegate : public QStyledItemDelegate {
    Q_OBJECT
public:
    explicit CBaseTableColumnMultiButtonsDelegate(CBaseNormalTable* table, int id = 0);
    ~CBaseTableColumnMultiButtonsDelegate() override;

    int id() const { return m_id; }
    CBaseNormalTable* table() const { return m_table; }

    // The buttons of a row; the key is the row index as decimal text. refresh repaints the row.
    void setItemButtons(const std::string& rowKey, const QVector<ButtonData>& buttons,
                        bool refresh);
    QVector<ButtonData> itemButtons(const std::string& rowKey) const;
    void clearButtons();

    // Rows are the table's stored rows, wherever the view shows them.
    // Where a row's button is drawn, in viewport coordinates; empty when not shown.
    QRect buttonRect(int row, int buttonId) const;
    // Does what a mouse click on the button does: selects the row, then delivers 228.
    bool clickButton(int row, int buttonId);

    int hoveredRow() const { return m_hoverRow; }
    int hoveredButton() const { return m_hoverButton; }
    int pressedButton() const { return m_pressButton; }

    void paint(QPainter* painter, const QStyleOptionViewItem& option,
               const QModelIndex& index) const override;
    QSize sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const override;
    bool editorEvent(QEvent* event, QAbstractItemModel* model, const QStyleOptionViewItem& option,
                     const QModelIndex& index) override;
    bool helpEvent(QHelpEvent* event, QAbstractItemView* view, const QStyleOptionViewItem& option,
                   const QModelIndex& index) override;
    QWidget* createEditor(QWidget* parent, const QStyleOptionViewItem& option,
                          const QModelIndex& index) const override;

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    const QVector<ButtonData>* buttonsOfRow(int row) const;
    QVector<QRect> layoutButtons(const QRect& cell, const QVector<ButtonData>& buttons,
                                 const QFontMetrics& metrics) const;
    int buttonAt(const QRect& cell, int row, const QPoint& pos, const QFontMetrics& metrics) const;
    bool isOurCell(const QModelIndex& index) const;
    // The stored row of a cell of the view.
    int rowOf(const QModelIndex& index) const;
    QTableView* tableView() const;
    void setHover(int row, int buttonId);
    void updateRow(int storedRow) const;
    void deliverClick(int row, int buttonId);

    QPointer<CBaseNormalTable> m_table;
    // The table's view, used without committing the table's pending rows.
    QPointer<QTableView> m_view;
    QPointer<QWidget> m_viewport;
    int m_id;
    QVector<QVector<ButtonData>> m_rowButtons;
    std::map<std::string, QVector<ButtonData>> m_keyedButtons;
    int m_hoverRow = -1;
    int m_hoverButton = -1;
    int m_pressRow = -1;
    int m_pressButton = -1;
};

}  // namespace Zu
