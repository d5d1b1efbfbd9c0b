#include "CTableModel.h"

namespace Zu {

CTableModel::CTableModel(QObject* parent) : QAbstractTableModel(parent) {}

CTableModel::~CTableModel() = default;

void CTableModel::setColumns(const QStringList& headers) {
    beginResetModel();
    m_headers = headers;
    m_stride = headers.size();
    m_liveIds.clear();
    m_columnOfId.clear();
    for (int id = 0; id < m_stride; ++id) {
        m_liveIds.append(id);
        m_columnOfId.append(id);
    }
    m_blocks.clear();
    m_computed.clear();
    m_rows = 0;
    m_committed = 0;
    endResetModel();
}

void CTableModel::setRowTexts(RowTexts texts) {
    m_rowTexts = std::move(texts);
}

QString& CTableModel::cell(int row, int id) const {
    return m_blocks[size_t(row / kBlockRows)]
                   [size_t(row % kBlockRows) * size_t(m_stride) + size_t(id)];
}

bool CTableModel::hasColumn(int id) const {
    return id >= 0 && id < m_stride && m_columnOfId[id] >= 0;
}

bool CTableModel::removeColumnId(int id) {
    if (!hasColumn(id)) {
        return false;
    }
    flush();
    const int column = m_columnOfId[id];
    beginRemoveColumns(QModelIndex(), column, column);
    m_liveIds.remove(column);
    m_columnOfId[id] = -1;
    for (int i = column; i < m_liveIds.size(); ++i) {
        m_columnOfId[m_liveIds[i]] = i;
    }
    endRemoveColumns();
    return true;
}

QString CTableModel::header(int id) const {
    return (id >= 0 && id < m_headers.size()) ? m_headers[id] : QString();
}

int CTableModel::modelColumnOf(int id) const {
    return (id >= 0 && id < m_stride) ? m_columnOfId[id] : -1;
}

int CTableModel::idOfModelColumn(int column) const {
    return (column >= 0 && column < m_liveIds.size()) ? m_liveIds[column] : -1;
}

int CTableModel::appendRow() {
    if (m_committed == m_rows) {
        emit rowsPending();
    }
    if (m_rows % kBlockRows == 0) {
        m_blocks.emplace_back(new QString[size_t(kBlockRows) * size_t(qMax(1, m_stride))]);
    }
    m_computed.push_back(false);
    return m_rows++;
}

int CTableModel::appendComputedRow() {
    const int row = appendRow();
    m_computed[size_t(row)] = true;
    return row;
}

void CTableModel::setText(int row, int id, const QString& text) {
    if (row < 0 || row >= m_rows || !hasColumn(id)) {
        return;
    }
    QString& target = cell(row, id);
    if (target == text) {
        return;
    }
    target = text;
    if (m_ordered) {
        // Where the row goes now depends on its texts.
        const int shown = viewRow(row);
        if (shown >= 0) {
            const QModelIndex changed = index(shown, m_columnOfId[id]);
            emit dataChanged(changed, changed, {Qt::DisplayRole});
        }
        if (row < m_committed) {
            emit orderStale();
        }
        return;
    }
    // Rows not yet announced are read fresh when they are.
    if (row < m_committed) {
        const QModelIndex changed = index(row, m_columnOfId[id]);
        emit dataChanged(changed, changed, {Qt::DisplayRole});
    }
}

QString CTableModel::text(int row, int id) const {
    if (row < 0 || row >= m_rows || !hasColumn(id)) {
        return QString();
    }
    const QString& stored = cell(row, id);
    if (stored.isNull() && m_computed[size_t(row)] && m_rowTexts) {
        return m_rowTexts(row, id);
    }
    return stored;
}

void CTableModel::flush() {
    if (m_committed >= m_rows) {
        return;
    }
    if (m_ordered) {
        // New rows are shown once the order that includes them is made.
        m_committed = m_rows;
        emit orderStale();
        return;
    }
    beginInsertRows(QModelIndex(), m_committed, m_rows - 1);
    m_committed = m_rows;
    endInsertRows();
}

void CTableModel::clearRows() {
    beginResetModel();
    m_blocks.clear();
    m_blocks.shrink_to_fit();
    m_computed.clear();
    m_rows = 0;
    m_committed = 0;
    m_order.clear();
    m_viewOf.clear();
    endResetModel();
}

void CTableModel::setOrder(std::vector<int> order) {
    beginResetModel();
    m_ordered = true;
    m_order = std::move(order);
    m_viewOf.assign(size_t(m_rows), -1);
    for (size_t shown = 0; shown < m_order.size(); ++shown) {
        m_viewOf[size_t(m_order[shown])] = int(shown);
    }
    endResetModel();
}

void CTableModel::clearOrder() {
    if (!m_ordered) {
        return;
    }
    beginResetModel();
    m_ordered = false;
    m_order.clear();
    m_viewOf.clear();
    m_committed = m_rows;
    endResetModel();
}

int CTableModel::storedRow(int viewRow) const {
    if (m_ordered) {
        return viewRow >= 0 && size_t(viewRow) < m_order.size() ? m_order[size_t(viewRow)] : -1;
    }
    return viewRow >= 0 && viewRow < m_committed ? viewRow : -1;
}

int CTableModel::viewRow(int storedRow) const {
    if (m_ordered) {
        return storedRow >= 0 && size_t(storedRow) < m_viewOf.size() ? m_viewOf[size_t(storedRow)]
                                                                     : -1;
    }
    return storedRow >= 0 && storedRow < m_committed ? storedRow : -1;
}

int CTableModel::rowCount(const QModelIndex& parent) const {
    if (parent.isValid()) {
        return 0;
    }
    return m_ordered ? int(m_order.size()) : m_committed;
}

int CTableModel::columnCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : m_liveIds.size();
}

QVariant CTableModel::data(const QModelIndex& index, int role) const {
    const int row = index.isValid() ? storedRow(index.row()) : -1;
    if (row < 0 || index.column() >= m_liveIds.size()) {
        return QVariant();
    }
    if (role == Qt::DisplayRole || role == Qt::ToolTipRole) {
        const QString text = this->text(row, m_liveIds[index.column()]);
        if (role == Qt::ToolTipRole && text.isEmpty()) {
            return QVariant();
        }
        return text;
    }
    if (role == Qt::TextAlignmentRole) {
        return int(Qt::AlignLeft | Qt::AlignVCenter);
    }
    return QVariant();
}

QVariant CTableModel::headerData(int section, Qt::Orientation orientation, int role) const {
    if (orientation == Qt::Horizontal && role == Qt::DisplayRole) {
        return header(idOfModelColumn(section));
    }
    if (orientation == Qt::Horizontal && role == Qt::TextAlignmentRole) {
        return int(Qt::AlignLeft | Qt::AlignVCenter);
    }
    if (orientation == Qt::Vertical && role == Qt::DisplayRole) {
        return section + 1;
    }
    return QVariant();
}

Qt::ItemFlags CTableModel::flags(const QModelIndex& index) const {
    if (!index.isValid()) {
        return Qt::NoItemFlags;
    }
    return Qt::ItemIsEnabled | Qt::ItemIsSelectable;
}

}  // namespace Zu
