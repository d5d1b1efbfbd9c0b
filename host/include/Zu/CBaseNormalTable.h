#pragma once

#include <QMap>
#include <QPointer>
#include <QSet>
#include <QStringList>
#include <QVector>
#include <functional>

#include "Zu/CBaseWidget.h"

class QAbstractItemDelegate;
class QLabel;
class QMenu;
class QTableView;

namespace Zu {

class CTableModel;
class CBaseTableColumnMultiButtonsDelegate;

// A list of rows under fixed columns addressed by stable ids. Rows keep the index appendRow
// returned: the view never sorts or filters them.
class CBaseNormalTable : public CBaseWidget {
    Q_OBJECT
public:
    // Context-menu entries selected by the menu flags.
    enum MenuFlag {
        MenuCopyCell = 1,
        MenuCopyRow = 2,
        MenuExportCsv = 4,
        MenuChooseColumns = 8,
        MenuAll = 255,
    };
    // Table flags.
    enum TableFlag {
        TableShowGrid = 1,
        TableHideTotal = 2,
    };

    CBaseNormalTable(QWidget* parent, int layoutId, int menuFlags);
    ~CBaseNormalTable() override;

    int layoutId() const { return m_layoutId; }
    int menuFlags() const { return m_menuFlags; }
    void setTableFlags(int flags);
    int tableFlags() const { return m_tableFlags; }

    // Defines the columns; column ids are 0..n-1 in this order. Removes all rows.
    void setColumns(const QStringList& headers);
    bool hasColumn(int columnId) const;
    // Removes a column; the other ids keep their meaning.
    void removeColumn(int columnId);
    QString columnHeader(int columnId) const;
    // Ids of the existing columns in model order.
    QVector<int> columnIds() const;

    // Hidden by the program: such a column can never be shown, copied or exported by the user.
    void setColumnHidden(int columnId, bool hidden);
    bool isColumnHidden(int columnId) const;
    // The user's own column choice (context menu); refused for program-hidden columns.
    bool setColumnUserHidden(int columnId, bool hidden);
    bool isColumnUserHidden(int columnId) const;
    // Columns the user may show or hide.
    QVector<int> userChoosableColumns() const;
    // Shown now: not hidden by the program nor by the user.
    bool isColumnVisible(int columnId) const;

    int appendRow();
    // Large tables: a row whose texts are computed when a cell is shown or read, instead of a
    // string stored per cell. A text set with setItemText still takes precedence.
    using RowTexts = std::function<QString(int row, int columnId)>;
    void setRowTexts(RowTexts texts);
    int appendComputedRow();
    void setItemText(int row, int columnId, const QString& text);
    QString itemText(int row, int columnId) const;
    int rowCount() const;
    // Removes all rows and the row buttons of the table's button delegates.
    void clear();

    int selectedRow() const;
    void selectRow(int row);

    void setTotalCount(int count);
    int totalCount() const { return m_totalCount; }
    QString totalText() const;

    // Sizes the columns the user has not sized to their contents.
    void adjustColumnWidth();

    // Widths, order and the user's column choice; never contains ';'.
    QString saveConfigStr() const;
    // Applies a string of saveConfigStr; a damaged or foreign one changes nothing, returns false.
    bool loadConfigStr(const QString& config);

    QTableView* view() const;
    void setColumnDelegate(int columnId, QAbstractItemDelegate* delegate);
    QAbstractItemDelegate* columnDelegate(int columnId) const;

    // The context-menu actions, also used by the menu.
    QString copyCellText(int row, int columnId) const;
    QString copyRowText(int row) const;
    void copyCell(int row, int columnId) const;
    void copyRow(int row) const;
    QString csvText() const;
    bool exportCsv(const QString& path) const;
    // The context menu for a row and column (row -1: no row under the mouse).
    QMenu* createContextMenu(int row, int columnId, QWidget* parent);

    // Commits rows appended since the last event-loop turn to the view.
    void flushRows() const;

    // Called by a button delegate made for this table.
    void registerButtonsDelegate(CBaseTableColumnMultiButtonsDelegate* delegate);

signals:
    void totalCountChanged(int count);

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    static constexpr int kMeasuredRows = 1000;
    int textColumnWidth(int columnId) const;
    void applyColumnVisibility(int columnId);
    void reapplyColumnState();
    void showContextMenu(const QPoint& pos);
    QVector<int> exportedColumns() const;
    void onSectionResized(int logicalIndex, int oldSize, int newSize);
    void updateTotalLabel();

    int m_layoutId;
    int m_menuFlags;
    int m_tableFlags = 0;
    int m_totalCount = 0;
    bool m_totalCountSet = false;
    CTableModel* m_model = nullptr;
    QTableView* m_view = nullptr;
    QLabel* m_totalLabel = nullptr;
    QSet<int> m_programHidden;
    QSet<int> m_userHidden;
    QSet<int> m_userSized;
    QMap<int, int> m_lastWidth;
    QMap<int, QPointer<QAbstractItemDelegate>> m_delegates;
    QVector<QPointer<CBaseTableColumnMultiButtonsDelegate>> m_buttonDelegates;
    bool m_programResize = false;
};

}  // namespace Zu
