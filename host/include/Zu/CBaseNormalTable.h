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
class CTableArranger;
class CBaseTableColumnMultiButtonsDelegate;

// A list of rows under fixed columns addressed by stable ids. Rows keep the index appendRow
// returned (the stored row) whatever the view shows: a table made sortable sorts by the clicked
// header, and a find text shows only the rows that contain it, both in the view's order alone.
// Every row argument and answer of this class is a stored row.
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
    // How a column sorts.
    enum SortKind { SortText, SortNumber, SortAddress };
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

    // Clicking a header sorts by its column (off by default).
    void setSortable(bool sortable);
    bool isSortable() const { return m_sortable; }
    void setColumnSortKind(int columnId, SortKind kind);
    // Column -1: the order rows were appended in.
    void sortByColumnId(int columnId, Qt::SortOrder order);
    int sortColumnId() const;
    Qt::SortOrder sortOrder() const;
    // Shows only the rows one of whose shown texts contains the text, case-insensitive.
    void setFilterText(const QString& text);
    QString filterText() const;
    // Rows the view shows now.
    int shownRowCount() const;
    // A find text hides rows (or the rows it shows are still being found).
    bool hidesRows() const;
    // The order is being made, a few milliseconds per event-loop turn.
    bool isArranging() const;
    // Makes the rest of the order now (tests, bench).
    void finishArranging();
    // The longest the last order held the thread at once, in ms.
    qint64 longestArrangeSliceMs() const;
    // Between the view's rows and the stored rows; -1 when there is none or it is not shown.
    int storedRowOf(int viewRow) const;
    int viewRowOf(int storedRow) const;

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
    // Entries of the table's owner, added after the table's own for the row of the menu.
    using MenuExtension = std::function<void(QMenu* menu, int row)>;
    void setMenuExtension(MenuExtension extension);

    // Commits rows appended since the last event-loop turn to the view.
    void flushRows() const;

    // Called by a button delegate made for this table.
    void registerButtonsDelegate(CBaseTableColumnMultiButtonsDelegate* delegate);

signals:
    void totalCountChanged(int count);
    // The view shows a new order or a new find's rows.
    void arranged();

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
    void searchVisibleColumns();
    void onSortIndicatorChanged(int logicalIndex, Qt::SortOrder order);
    void keepSelectionAcrossOrder();
    void restoreSelectionAfterOrder();

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
    CTableArranger* m_arranger = nullptr;
    bool m_sortable = false;
    QMap<int, SortKind> m_sortKinds;
    // The stored row to select once the order being made shows it, -1 none.
    int m_wantedRow = -1;
    bool m_clearing = false;
    MenuExtension m_menuExtension;
    bool m_resetting = false;
};

}  // namespace Zu
