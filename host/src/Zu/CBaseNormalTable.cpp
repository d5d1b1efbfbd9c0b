#include "Zu/CBaseNormalTable.h"

#include <QAction>
#include <QApplication>
#include <QClipboard>
#include <QFile>
#include <QFileDialog>
#include <QHeaderView>
#include <QKeyEvent>
#include <QLabel>
#include <QMenu>
#include <QStyle>
#include <QTableView>
#include <QTimer>
#include <QVBoxLayout>

#include "CTableArranger.h"
#include "CTableModel.h"
#include "CTextWidths.h"
#include "Zu/CBaseTableColumnMultiButtonsDelegate.h"
#include "Zu/CUiResources.h"

namespace Zu {

namespace {

const QString kConfigTag = QStringLiteral("zt1");
const int kMaxColumnId = 4096;
const int kMaxWidth = 20000;

QString configChecksum(const QString& body) {
    const QByteArray bytes = body.toUtf8();
    return QString::number(qChecksum(bytes.constData(), uint(bytes.size())), 16);
}

QString csvField(const QString& text) {
    if (text.contains(QLatin1Char(',')) || text.contains(QLatin1Char('"')) ||
        text.contains(QLatin1Char('\n')) || text.contains(QLatin1Char('\r'))) {
        QString quoted = text;
        quoted.replace(QLatin1String("\""), QLatin1String("\"\""));
        return QLatin1Char('"') + quoted + QLatin1Char('"');
    }
    return text;
}

}  // namespace

CBaseNormalTable::CBaseNormalTable(QWidget* parent, int layoutId, int menuFlags)
    : CBaseWidget(parent), m_layoutId(layoutId), m_menuFlags(menuFlags) {
    m_model = new CTableModel(this);
    const auto countRows = [this] {
        if (!m_totalCountSet)
            updateTotalLabel();
    };
    connect(m_model, &QAbstractItemModel::rowsInserted, this, countRows);
    connect(m_model, &QAbstractItemModel::rowsRemoved, this, countRows);
    connect(m_model, &QAbstractItemModel::modelReset, this, countRows);
    m_view = new QTableView(this);
    m_view->setObjectName(QStringLiteral("zuTableView"));
    m_view->setModel(m_model);
    m_view->setSelectionBehavior(QAbstractItemView::SelectRows);
    m_view->setSelectionMode(QAbstractItemView::SingleSelection);
    m_view->setEditTriggers(QAbstractItemView::NoEditTriggers);
    // Row indexes are the ones appendRow returned; the view never reorders rows itself (a
    // sortable table orders them in the model, CTableArranger).
    m_view->setSortingEnabled(false);
    m_view->setWordWrap(false);
    m_view->setShowGrid(false);
    m_view->setMouseTracking(true);
    m_view->setHorizontalScrollMode(QAbstractItemView::ScrollPerPixel);
    m_view->setContextMenuPolicy(Qt::CustomContextMenu);
    m_view->verticalHeader()->hide();
    m_view->verticalHeader()->setSectionResizeMode(QHeaderView::Fixed);
    m_view->verticalHeader()->setDefaultSectionSize(30);
    QHeaderView* header = m_view->horizontalHeader();
    header->setSectionsMovable(true);
    header->setSectionsClickable(false);
    header->setHighlightSections(false);
    header->setStretchLastSection(true);
    header->setDefaultAlignment(Qt::AlignLeft | Qt::AlignVCenter);
    header->setMinimumSectionSize(30);
    header->viewport()->installEventFilter(this);
    m_view->viewport()->installEventFilter(this);
    m_view->installEventFilter(this);

    m_totalLabel = new QLabel(this);
    m_totalLabel->setObjectName(QStringLiteral("zuTableTotal"));
    m_totalLabel->setContentsMargins(8, 2, 8, 2);
    updateTotalLabel();

    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    layout->addWidget(m_view, 1);
    layout->addWidget(m_totalLabel, 0);

    connect(m_model, &CTableModel::rowsPending, this,
            [this]() { QTimer::singleShot(0, this, [this]() { flushRows(); }); });
    m_arranger = new CTableArranger(m_model, this);
    connect(m_model, &CTableModel::orderStale, m_arranger, &CTableArranger::restart);
    connect(m_model, &QAbstractItemModel::modelAboutToBeReset, this,
            &CBaseNormalTable::keepSelectionAcrossOrder);
    connect(m_model, &QAbstractItemModel::modelReset, this, [this] { m_resetting = false; });
    connect(m_arranger, &CTableArranger::arranged, this, [this] {
        restoreSelectionAfterOrder();
        emit arranged();
    });
    connect(m_view->selectionModel(), &QItemSelectionModel::selectionChanged, this, [this] {
        // The user chose: a selection still waiting for its row is forgotten.
        if (!m_resetting) {
            m_wantedRow = -1;
        }
    });
    connect(header, &QHeaderView::sortIndicatorChanged, this,
            &CBaseNormalTable::onSortIndicatorChanged);
    connect(header, &QHeaderView::sectionResized, this, &CBaseNormalTable::onSectionResized);
    connect(m_view, &QWidget::customContextMenuRequested, this, &CBaseNormalTable::showContextMenu);
}

CBaseNormalTable::~CBaseNormalTable() {
    // The view goes first, while the model and the delegates it uses still exist.
    m_view->viewport()->removeEventFilter(this);
    m_view->horizontalHeader()->viewport()->removeEventFilter(this);
    m_view->removeEventFilter(this);
    QTableView* view = m_view;
    m_view = nullptr;
    delete view;
}

void CBaseNormalTable::setTableFlags(int flags) {
    m_tableFlags = flags;
    m_view->setShowGrid((flags & TableShowGrid) != 0);
    m_totalLabel->setVisible((flags & TableHideTotal) == 0);
}

void CBaseNormalTable::setColumns(const QStringList& headers) {
    const int oldCount = m_model->columnCount();
    for (int column = 0; column <= oldCount; ++column) {
        m_view->setItemDelegateForColumn(column, nullptr);
    }
    m_programHidden.clear();
    m_userHidden.clear();
    m_userSized.clear();
    m_lastWidth.clear();
    m_delegates.clear();
    m_model->setColumns(headers);
    reapplyColumnState();
}

bool CBaseNormalTable::hasColumn(int columnId) const {
    return m_model->hasColumn(columnId);
}

void CBaseNormalTable::removeColumn(int columnId) {
    if (!m_model->hasColumn(columnId)) {
        return;
    }
    const int oldCount = m_model->columnCount();
    m_model->removeColumnId(columnId);
    m_delegates.remove(columnId);
    // The view keys delegates by position, which shifted: set them all again.
    for (int column = 0; column <= oldCount; ++column) {
        m_view->setItemDelegateForColumn(column, nullptr);
    }
    reapplyColumnState();
}

QString CBaseNormalTable::columnHeader(int columnId) const {
    return m_model->header(columnId);
}

QVector<int> CBaseNormalTable::columnIds() const {
    return m_model->liveIds();
}

void CBaseNormalTable::reapplyColumnState() {
    for (int id : m_model->liveIds()) {
        applyColumnVisibility(id);
        const int column = m_model->modelColumnOf(id);
        if (QAbstractItemDelegate* delegate = m_delegates.value(id)) {
            m_view->setItemDelegateForColumn(column, delegate);
        }
    }
}

void CBaseNormalTable::applyColumnVisibility(int columnId) {
    const int column = m_model->modelColumnOf(columnId);
    if (column >= 0) {
        m_view->setColumnHidden(column, !isColumnVisible(columnId));
    }
    searchVisibleColumns();
}

void CBaseNormalTable::searchVisibleColumns() {
    // A find looks at what the operator sees: no hidden column, no column of buttons.
    QVector<int> ids;
    for (int id : m_model->liveIds()) {
        if (isColumnVisible(id) &&
            !qobject_cast<CBaseTableColumnMultiButtonsDelegate*>(m_delegates.value(id).data())) {
            ids.append(id);
        }
    }
    if (m_arranger) {
        m_arranger->setSearchedColumns(ids);
    }
}

void CBaseNormalTable::setColumnHidden(int columnId, bool hidden) {
    if (!m_model->hasColumn(columnId)) {
        return;
    }
    if (hidden) {
        m_programHidden.insert(columnId);
    } else {
        m_programHidden.remove(columnId);
    }
    applyColumnVisibility(columnId);
}

bool CBaseNormalTable::isColumnHidden(int columnId) const {
    return !isColumnVisible(columnId);
}

bool CBaseNormalTable::setColumnUserHidden(int columnId, bool hidden) {
    if (!m_model->hasColumn(columnId) || m_programHidden.contains(columnId)) {
        return false;
    }
    if (hidden) {
        // Keep at least one column for the user to see.
        int visible = 0;
        for (int id : m_model->liveIds()) {
            visible += isColumnVisible(id) ? 1 : 0;
        }
        if (visible <= 1 && isColumnVisible(columnId)) {
            return false;
        }
        m_userHidden.insert(columnId);
    } else {
        m_userHidden.remove(columnId);
    }
    applyColumnVisibility(columnId);
    return true;
}

bool CBaseNormalTable::isColumnUserHidden(int columnId) const {
    return m_userHidden.contains(columnId);
}

QVector<int> CBaseNormalTable::userChoosableColumns() const {
    QVector<int> ids;
    for (int id : m_model->liveIds()) {
        if (!m_programHidden.contains(id)) {
            ids.append(id);
        }
    }
    return ids;
}

bool CBaseNormalTable::isColumnVisible(int columnId) const {
    return m_model->hasColumn(columnId) && !m_programHidden.contains(columnId) &&
           !m_userHidden.contains(columnId);
}

int CBaseNormalTable::appendRow() {
    return m_model->appendRow();
}

void CBaseNormalTable::setRowTexts(RowTexts texts) {
    m_model->setRowTexts(std::move(texts));
}

int CBaseNormalTable::appendComputedRow() {
    return m_model->appendComputedRow();
}

void CBaseNormalTable::setItemText(int row, int columnId, const QString& text) {
    m_arranger->rowChanged(row);
    m_model->setText(row, columnId, text);
}

QString CBaseNormalTable::itemText(int row, int columnId) const {
    return m_model->text(row, columnId);
}

int CBaseNormalTable::rowCount() const {
    return m_model->storedRows();
}

void CBaseNormalTable::clear() {
    m_arranger->rowsCleared();
    m_clearing = true;
    m_model->clearRows();
    m_clearing = false;
    m_wantedRow = -1;
    // Buttons are kept per row key; a reload must not find the old rows' buttons.
    for (const auto& delegate : m_buttonDelegates) {
        if (delegate) {
            delegate->clearButtons();
        }
    }
    for (const auto& delegate : m_delegates) {
        if (auto* buttons = qobject_cast<CBaseTableColumnMultiButtonsDelegate*>(delegate.data())) {
            buttons->clearButtons();
        }
    }
}

int CBaseNormalTable::selectedRow() const {
    flushRows();
    if (m_wantedRow >= 0 && isArranging()) {
        return m_wantedRow;
    }
    const QModelIndexList selected = m_view->selectionModel()->selectedIndexes();
    return selected.isEmpty() ? -1 : m_model->storedRow(selected.first().row());
}

void CBaseNormalTable::selectRow(int row) {
    flushRows();
    const int shown = m_model->viewRow(row);
    if (shown >= 0) {
        m_view->selectRow(shown);
    } else {
        m_view->clearSelection();
    }
    // A row the order being made has not placed yet is selected when it has.
    m_wantedRow = isArranging() && row >= 0 && row < m_model->storedRows() ? row : -1;
}

void CBaseNormalTable::keepSelectionAcrossOrder() {
    m_resetting = true;
    if (m_clearing || m_wantedRow >= 0) {
        return;
    }
    const QModelIndexList selected = m_view->selectionModel()->selectedIndexes();
    m_wantedRow = selected.isEmpty() ? -1 : m_model->storedRow(selected.first().row());
}

void CBaseNormalTable::restoreSelectionAfterOrder() {
    const int wanted = m_wantedRow;
    m_wantedRow = -1;
    const int shown = m_model->viewRow(wanted);
    if (shown >= 0) {
        m_view->selectRow(shown);
    }
}

void CBaseNormalTable::setSortable(bool sortable) {
    m_sortable = sortable;
    QHeaderView* header = m_view->horizontalHeader();
    header->setSectionsClickable(sortable);
    header->setSortIndicatorShown(sortable);
    // No column is sorted until one is clicked (the header would mark its first otherwise).
    sortByColumnId(sortable ? sortColumnId() : -1, sortOrder());
}

void CBaseNormalTable::setColumnSortKind(int columnId, SortKind kind) {
    m_sortKinds[columnId] = kind;
}

void CBaseNormalTable::sortByColumnId(int columnId, Qt::SortOrder order) {
    const int column = m_model->modelColumnOf(columnId);
    QHeaderView* header = m_view->horizontalHeader();
    {
        const QSignalBlocker blocker(header);
        header->setSortIndicator(column, order);
    }
    const SortKind kind = m_sortKinds.value(columnId, SortText);
    m_arranger->setSort(column >= 0 ? columnId : -1, order, CTableArranger::SortKind(kind));
}

void CBaseNormalTable::onSortIndicatorChanged(int logicalIndex, Qt::SortOrder order) {
    const int id = m_model->idOfModelColumn(logicalIndex);
    const bool buttons =
        qobject_cast<CBaseTableColumnMultiButtonsDelegate*>(m_delegates.value(id).data());
    if (!m_sortable || id < 0 || buttons) {
        // A column of buttons has nothing to sort by: the indicator stays where it was.
        sortByColumnId(sortColumnId(), sortOrder());
        return;
    }
    sortByColumnId(id, order);
}

int CBaseNormalTable::sortColumnId() const {
    return m_arranger->sortColumn();
}

Qt::SortOrder CBaseNormalTable::sortOrder() const {
    return m_arranger->sortOrder();
}

void CBaseNormalTable::setFilterText(const QString& text) {
    m_arranger->setFilter(text);
}

QString CBaseNormalTable::filterText() const {
    return m_arranger->filter();
}

int CBaseNormalTable::shownRowCount() const {
    flushRows();
    return m_model->rowCount();
}

bool CBaseNormalTable::hidesRows() const {
    if (m_arranger->filter().trimmed().isEmpty()) {
        return false;
    }
    return isArranging() || shownRowCount() < rowCount();
}

bool CBaseNormalTable::isArranging() const {
    return m_arranger->isBusy();
}

void CBaseNormalTable::finishArranging() {
    flushRows();
    m_arranger->finish();
}

qint64 CBaseNormalTable::longestArrangeSliceMs() const {
    return m_arranger->longestSliceMs();
}

int CBaseNormalTable::storedRowOf(int viewRow) const {
    return m_model->storedRow(viewRow);
}

int CBaseNormalTable::viewRowOf(int storedRow) const {
    return m_model->viewRow(storedRow);
}

void CBaseNormalTable::setTotalCount(int count) {
    m_totalCountSet = true;
    if (count == m_totalCount) {
        updateTotalLabel();
        return;
    }
    m_totalCount = count;
    updateTotalLabel();
    emit totalCountChanged(count);
}

QString CBaseNormalTable::totalText() const {
    return m_totalLabel->text();
}

void CBaseNormalTable::updateTotalLabel() {
    // Until the owner names a total (which may count records it does not show), the label
    // counts the rows.
    const int total = m_totalCountSet ? m_totalCount : m_model->rowCount();
    m_totalLabel->setText(QStringLiteral("共 %1 条").arg(total));
}

void CBaseNormalTable::adjustColumnWidth() {
    flushRows();
    QHeaderView* header = m_view->horizontalHeader();
    const QFontMetrics headerMetrics(header->font());
    m_programResize = true;
    for (int id : m_model->liveIds()) {
        if (!isColumnVisible(id) || m_userSized.contains(id)) {
            continue;
        }
        const int column = m_model->modelColumnOf(id);
        const int headerWidth = headerMetrics.horizontalAdvance(m_model->header(id)) + 24;
        const int contentWidth =
            (columnDelegate(id) ? static_cast<QAbstractItemView*>(m_view)->sizeHintForColumn(column)
                                : textColumnWidth(id)) +
            12;
        header->resizeSection(column, qBound(40, qMax(headerWidth, contentWidth), 600));
    }
    m_programResize = false;
}

int CBaseNormalTable::textColumnWidth(int columnId) const {
    // Like the view's own measure, the rows around the first one shown, at most kMeasuredRows of
    // them, but without laying out each text as a paragraph.
    const int rows = m_model->rowCount();
    const int count = qMin(rows, kMeasuredRows);
    const int start = qBound(0, m_view->rowAt(0), rows - count);
    CTextWidths widths(m_view->font());
    int widest = 0;
    for (int row = start; row < start + count; ++row) {
        widest = qMax(widest, widths.width(m_model->text(m_model->storedRow(row), columnId)));
    }
    const int margin =
        m_view->style()->pixelMetric(QStyle::PM_FocusFrameHMargin, nullptr, m_view) + 1;
    return widest + 2 * margin;
}

void CBaseNormalTable::onSectionResized(int logicalIndex, int, int newSize) {
    const int id = m_model->idOfModelColumn(logicalIndex);
    if (id < 0 || newSize <= 0) {
        return;
    }
    m_lastWidth[id] = newSize;
    if (!m_programResize && m_view->horizontalHeader()->property("zuDragging").toBool()) {
        m_userSized.insert(id);
    }
}

QString CBaseNormalTable::saveConfigStr() const {
    QStringList entries;
    const QHeaderView* header = m_view->horizontalHeader();
    for (int visual = 0; visual < header->count(); ++visual) {
        const int id = m_model->idOfModelColumn(header->logicalIndex(visual));
        if (id < 0) {
            continue;
        }
        // Only widths the user chose are kept; the others follow the contents.
        const int width = m_userSized.contains(id) ? m_lastWidth.value(id, 0) : 0;
        entries.append(
            QStringLiteral("%1.%2.%3").arg(id).arg(width).arg(m_userHidden.contains(id) ? 1 : 0));
    }
    const QString body = kConfigTag + QLatin1Char('|') + QString::number(m_layoutId) +
                         QLatin1Char('|') + entries.join(QLatin1Char(','));
    return body + QLatin1Char('|') + configChecksum(body);
}

bool CBaseNormalTable::loadConfigStr(const QString& config) {
    const QStringList parts = config.split(QLatin1Char('|'));
    if (parts.size() != 4 || parts[0] != kConfigTag) {
        return false;
    }
    bool ok = false;
    const int layoutId = parts[1].toInt(&ok);
    if (!ok || layoutId != m_layoutId) {
        return false;
    }
    const QString body = parts[0] + QLatin1Char('|') + parts[1] + QLatin1Char('|') + parts[2];
    if (configChecksum(body) != parts[3]) {
        return false;
    }
    struct Entry {
        int id;
        int width;
        bool hidden;
    };
    QVector<Entry> entries;
    QSet<int> seen;
    if (!parts[2].isEmpty()) {
        for (const QString& text : parts[2].split(QLatin1Char(','))) {
            const QStringList fields = text.split(QLatin1Char('.'));
            if (fields.size() != 3) {
                return false;
            }
            bool okId = false, okWidth = false, okHidden = false;
            const Entry entry{fields[0].toInt(&okId), fields[1].toInt(&okWidth),
                              fields[2].toInt(&okHidden) == 1};
            const int hiddenValue = fields[2].toInt();
            if (!okId || !okWidth || !okHidden || entry.id < 0 || entry.id >= kMaxColumnId ||
                entry.width < 0 || entry.width > kMaxWidth || hiddenValue < 0 || hiddenValue > 1 ||
                seen.contains(entry.id)) {
                return false;
            }
            seen.insert(entry.id);
            entries.append(entry);
        }
    }

    QHeaderView* header = m_view->horizontalHeader();
    int target = 0;
    for (const Entry& entry : entries) {
        const int column = m_model->modelColumnOf(entry.id);
        if (column < 0) {
            continue;  // a column this table no longer has
        }
        header->moveSection(header->visualIndex(column), target++);
    }
    m_programResize = true;
    for (const Entry& entry : entries) {
        const int column = m_model->modelColumnOf(entry.id);
        if (column < 0) {
            continue;
        }
        if (entry.width > 0) {
            m_userSized.insert(entry.id);
            m_lastWidth[entry.id] = entry.width;
            header->resizeSection(column, entry.width);
        } else {
            m_userSized.remove(entry.id);
        }
        // The program's hidden columns stay hidden whatever the string says.
        if (!m_programHidden.contains(entry.id)) {
            if (entry.hidden) {
                m_userHidden.insert(entry.id);
            } else {
                m_userHidden.remove(entry.id);
            }
            applyColumnVisibility(entry.id);
        }
    }
    m_programResize = false;
    return true;
}

QTableView* CBaseNormalTable::view() const {
    flushRows();
    return m_view;
}

void CBaseNormalTable::setColumnDelegate(int columnId, QAbstractItemDelegate* delegate) {
    if (!m_model->hasColumn(columnId)) {
        return;
    }
    m_delegates[columnId] = delegate;
    m_view->setItemDelegateForColumn(m_model->modelColumnOf(columnId), delegate);
    searchVisibleColumns();
    if (auto* buttons = qobject_cast<CBaseTableColumnMultiButtonsDelegate*>(delegate)) {
        registerButtonsDelegate(buttons);
    }
}

QAbstractItemDelegate* CBaseNormalTable::columnDelegate(int columnId) const {
    return m_delegates.value(columnId);
}

void CBaseNormalTable::registerButtonsDelegate(CBaseTableColumnMultiButtonsDelegate* delegate) {
    for (const auto& known : m_buttonDelegates) {
        if (known == delegate) {
            return;
        }
    }
    m_buttonDelegates.append(delegate);
}

QVector<int> CBaseNormalTable::exportedColumns() const {
    QVector<int> ids;
    const QHeaderView* header = m_view->horizontalHeader();
    for (int visual = 0; visual < header->count(); ++visual) {
        const int id = m_model->idOfModelColumn(header->logicalIndex(visual));
        if (id < 0 || !isColumnVisible(id)) {
            continue;
        }
        // A column of row buttons holds no data.
        if (qobject_cast<CBaseTableColumnMultiButtonsDelegate*>(m_delegates.value(id).data())) {
            continue;
        }
        ids.append(id);
    }
    return ids;
}

QString CBaseNormalTable::copyCellText(int row, int columnId) const {
    if (!isColumnVisible(columnId) || row < 0 || row >= rowCount()) {
        return QString();
    }
    return itemText(row, columnId);
}

QString CBaseNormalTable::copyRowText(int row) const {
    if (row < 0 || row >= rowCount()) {
        return QString();
    }
    QStringList texts;
    for (int id : exportedColumns()) {
        texts.append(itemText(row, id));
    }
    return texts.join(QLatin1Char('\t'));
}

void CBaseNormalTable::copyCell(int row, int columnId) const {
    if (isColumnVisible(columnId) && row >= 0 && row < rowCount()) {
        QApplication::clipboard()->setText(copyCellText(row, columnId));
    }
}

void CBaseNormalTable::copyRow(int row) const {
    if (row >= 0 && row < rowCount()) {
        QApplication::clipboard()->setText(copyRowText(row));
    }
}

QString CBaseNormalTable::csvText() const {
    const QVector<int> ids = exportedColumns();
    QString csv;
    QStringList fields;
    for (int id : ids) {
        fields.append(csvField(m_model->header(id)));
    }
    csv += fields.join(QLatin1Char(',')) + QLatin1String("\r\n");
    // The rows as the view shows them.
    flushRows();
    const int rows = m_model->rowCount();
    for (int shown = 0; shown < rows; ++shown) {
        const int row = m_model->storedRow(shown);
        fields.clear();
        for (int id : ids) {
            fields.append(csvField(itemText(row, id)));
        }
        csv += fields.join(QLatin1Char(',')) + QLatin1String("\r\n");
    }
    return csv;
}

bool CBaseNormalTable::exportCsv(const QString& path) const {
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate)) {
        return false;
    }
    // The byte-order mark lets spreadsheet programs read the Chinese texts as UTF-8.
    QByteArray bytes("\xEF\xBB\xBF");
    bytes += csvText().toUtf8();
    return file.write(bytes) == bytes.size() && file.flush();
}

QMenu* CBaseNormalTable::createContextMenu(int row, int columnId, QWidget* parent) {
    auto* menu = new QMenu(parent);
    if (m_menuFlags & MenuCopyCell) {
        QAction* action = menu->addAction(QStringLiteral("复制单元格"));
        action->setObjectName(QStringLiteral("copyCell"));
        action->setEnabled(row >= 0 && isColumnVisible(columnId));
        connect(action, &QAction::triggered, this,
                [this, row, columnId]() { copyCell(row, columnId); });
    }
    if (m_menuFlags & MenuCopyRow) {
        QAction* action = menu->addAction(QStringLiteral("复制行"));
        action->setObjectName(QStringLiteral("copyRow"));
        action->setEnabled(row >= 0);
        connect(action, &QAction::triggered, this, [this, row]() { copyRow(row); });
    }
    if (m_menuFlags & MenuExportCsv) {
        QAction* action = menu->addAction(QStringLiteral("导出到CSV..."));
        action->setObjectName(QStringLiteral("exportCsv"));
        connect(action, &QAction::triggered, this, [this]() {
            const QString path = QFileDialog::getSaveFileName(this, QStringLiteral("导出到CSV"),
                                                              QStringLiteral("table.csv"),
                                                              QStringLiteral("CSV (*.csv)"));
            if (!path.isEmpty()) {
                exportCsv(path);
            }
        });
    }
    if (m_menuFlags & MenuChooseColumns) {
        QMenu* columns = menu->addMenu(QStringLiteral("选择列"));
        columns->menuAction()->setObjectName(QStringLiteral("chooseColumns"));
        for (int id : userChoosableColumns()) {
            QAction* action = columns->addAction(m_model->header(id));
            action->setObjectName(QStringLiteral("column%1").arg(id));
            action->setCheckable(true);
            action->setChecked(!m_userHidden.contains(id));
            connect(action, &QAction::toggled, this,
                    [this, id](bool checked) { setColumnUserHidden(id, !checked); });
        }
    }
    if (m_menuExtension) {
        m_menuExtension(menu, row);
    }
    return menu;
}

void CBaseNormalTable::setMenuExtension(MenuExtension extension) {
    m_menuExtension = std::move(extension);
}

void CBaseNormalTable::showContextMenu(const QPoint& pos) {
    if (m_menuFlags == 0) {
        return;
    }
    const QModelIndex index = m_view->indexAt(pos);
    const int row = index.isValid() ? m_model->storedRow(index.row()) : -1;
    const int columnId = index.isValid() ? m_model->idOfModelColumn(index.column()) : -1;
    if (row >= 0) {
        selectRow(row);
    }
    QMenu* menu = createContextMenu(row, columnId, this);
    menu->exec(m_view->viewport()->mapToGlobal(pos));
    delete menu;
}

void CBaseNormalTable::flushRows() const {
    m_model->flush();
}

bool CBaseNormalTable::eventFilter(QObject* watched, QEvent* event) {
    if (watched == m_view->viewport()) {
        if (event->type() == QEvent::Paint && m_model->hasPendingRows()) {
            flushRows();
        }
    } else if (watched == m_view) {
        if (event->type() == QEvent::KeyPress &&
            static_cast<QKeyEvent*>(event)->matches(QKeySequence::Copy)) {
            // Copy goes through the table's own rules so that hidden columns never leave.
            const QModelIndex current = m_view->currentIndex();
            if (current.isValid()) {
                const int id = m_model->idOfModelColumn(current.column());
                const int row = m_model->storedRow(current.row());
                if ((m_menuFlags & MenuCopyCell) && isColumnVisible(id)) {
                    copyCell(row, id);
                } else if (m_menuFlags & MenuCopyRow) {
                    copyRow(row);
                }
            }
            return true;
        }
    } else if (watched == m_view->horizontalHeader()->viewport()) {
        QHeaderView* header = m_view->horizontalHeader();
        if (event->type() == QEvent::MouseButtonPress) {
            header->setProperty("zuDragging", true);
        } else if (event->type() == QEvent::MouseButtonRelease) {
            header->setProperty("zuDragging", false);
        }
    }
    return CBaseWidget::eventFilter(watched, event);
}

}  // namespace Zu
