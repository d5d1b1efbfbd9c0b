#pragma once

#include <QAbstractTableModel>
#include <QStringList>
#include <QVector>
#include <functional>
#include <memory>
#include <vector>

namespace Zu {

// The rows of a kit table. Columns are addressed by stable ids; rows are appended to storage at
// once but announced to views in batches (flush), so that filling many rows costs one insert
// notification instead of one per row.
class CTableModel : public QAbstractTableModel {
    Q_OBJECT
public:
    explicit CTableModel(QObject* parent = nullptr);
    ~CTableModel() override;

    // Defines the columns (ids 0..n-1) and drops every row.
    void setColumns(const QStringList& headers);
    bool hasColumn(int id) const;
    bool removeColumnId(int id);
    QString header(int id) const;
    int modelColumnOf(int id) const;
    int idOfModelColumn(int column) const;
    QVector<int> liveIds() const { return m_liveIds; }

    // The texts of computed rows: asked for a cell that was not set when it is shown or read.
    using RowTexts = std::function<QString(int row, int id)>;
    void setRowTexts(RowTexts texts);

    int appendRow();
    // A row whose cells, unless set, read their text from the row texts.
    int appendComputedRow();
    void setText(int row, int id, const QString& text);
    QString text(int row, int id) const;
    // Every row, announced or not.
    int storedRows() const { return m_rows; }
    bool hasPendingRows() const { return m_committed < m_rows; }
    // Announces the rows appended since the last flush.
    void flush();
    void clearRows();

    // The view's order: which stored rows it shows, in what order (a find or a sort). Without
    // one the view shows every stored row in the order appended.
    void setOrder(std::vector<int> order);
    void clearOrder();
    bool isOrdered() const { return m_ordered; }
    // A view row's stored row and back; -1 when there is none or the row is not shown.
    int storedRow(int viewRow) const;
    int viewRow(int storedRow) const;

    int rowCount(const QModelIndex& parent = QModelIndex()) const override;
    int columnCount(const QModelIndex& parent = QModelIndex()) const override;
    QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
    QVariant headerData(int section, Qt::Orientation orientation,
                        int role = Qt::DisplayRole) const override;
    Qt::ItemFlags flags(const QModelIndex& index) const override;

signals:
    // The first row after a flush was appended: a flush is due.
    void rowsPending();
    // Rows were added, or a stored row's text changed, while the view keeps an order of its
    // own: the order must be made again.
    void orderStale();

private:
    QStringList m_headers;
    QVector<int> m_liveIds;
    QVector<int> m_columnOfId;
    // Rows are stored in fixed blocks, so that growing never moves the cells already there.
    static const int kBlockRows = 512;
    QString& cell(int row, int id) const;
    std::vector<std::unique_ptr<QString[]>> m_blocks;
    std::vector<bool> m_computed;
    RowTexts m_rowTexts;
    int m_stride = 0;
    int m_rows = 0;
    int m_committed = 0;
    bool m_ordered = false;
    std::vector<int> m_order;   // view row -> stored row
    std::vector<int> m_viewOf;  // stored row -> view row, -1 when not shown
};

}  // namespace Zu
