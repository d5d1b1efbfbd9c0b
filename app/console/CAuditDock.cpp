#include "CAuditDock.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDateTimeEdit>
#include <QFileDialog>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QSaveFile>
#include <QSplitter>
#include <QTableView>

#include "CAuditRows.h"
#include "CTableHeights.h"
#include "Hlx/COrinClientCenter.h"
#include "Hlx/CUserManager.h"
#include "Hlx/IAuditTransfer.h"
#include "Zu/COddEvenRowTable.h"
#include "Zu/CSmallNormalButton.h"
#include "Zu/CWidgetList.h"
#include "dialogs/CSourceHistoryDialog.h"
#include "model/CAuditNames.h"
#include "model/CAuditVocabulary.h"
#include "model/CSubsystemNames.h"

namespace {

constexpr int kLayoutId = 1270;
constexpr int kQueryButton = 1;
constexpr int kExportButton = 2;
constexpr int kOlderButton = 3;
constexpr int kSecondMs = 1000;
constexpr int kDaySeconds = 24 * 3600;
// The dock shows at least this many rows when it opens.
constexpr int kShownRows = 8;
const QString kTimeFormat = QStringLiteral("yyyy-MM-dd HH:mm:ss");

QDateTimeEdit* timeEdit(QWidget* parent, const QString& objectName, const QDateTime& value) {
    auto* edit = new QDateTimeEdit(value, parent);
    edit->setObjectName(objectName);
    edit->setDisplayFormat(kTimeFormat);
    edit->setCalendarPopup(true);
    edit->setEnabled(false);
    return edit;
}

QCheckBox* timeSwitch(QWidget* parent, const QString& objectName, const QString& text,
                      QDateTimeEdit* edit) {
    auto* box = new QCheckBox(text, parent);
    box->setObjectName(objectName);
    QObject::connect(box, &QCheckBox::toggled, edit, &QWidget::setEnabled);
    return box;
}

// The edits show whole seconds; the time is taken from the start of the second shown.
long long secondsOf(const QDateTimeEdit* edit) {
    return edit->dateTime().toSecsSinceEpoch() * kSecondMs;
}

}  // namespace

CAuditDock::CAuditDock(boost::shared_ptr<Hlx::IAuditTransfer> admin, QWidget* parent)
    : QDockWidget(QStringLiteral("操作记录"), parent), m_loader(std::move(admin), this) {
    setObjectName(QStringLiteral("auditTrail"));
    auto* outer = new Zu::CWidgetList(this, Qt::Vertical);
    outer->setMargins(10, 6, 10, 6);
    outer->setSpacing(6);
    createFilters(outer);
    m_message = new QLabel(outer);
    m_message->setObjectName(QStringLiteral("auditMessage"));
    m_message->setWordWrap(true);
    m_message->hide();
    outer->addWidget(m_message);
    createTable(outer);
    setWidget(outer);
    // Read whenever the operator brings the dock to the front, and again for another user,
    // whose right decides what may be read.
    connect(this, &QDockWidget::visibilityChanged, this, [this](bool visible) {
        if (visible)
            refresh();
    });
    connect(Hlx::CUserManager::instance(), &Hlx::CUserManager::currentUserChanged, this, [this] {
        if (isVisible())
            refresh();
    });
}

CAuditDock::~CAuditDock() {
    m_loader.invalidate();
    // The rows read the entries, which go before the table does.
    m_table->clear();
}

void CAuditDock::createFilters(Zu::CWidgetList* outer) {
    auto* bar = new Zu::CWidgetList(outer, Qt::Horizontal);
    bar->setMargins(0, 0, 0, 0);
    bar->setSpacing(8);
    bar->addWidget(new QLabel(QStringLiteral("账户"), bar));
    m_account = new QLineEdit(bar);
    m_account->setObjectName(QStringLiteral("auditAccount"));
    m_account->setClearButtonEnabled(true);
    bar->addWidget(m_account);
    bar->addWidget(new QLabel(QStringLiteral("操作"), bar));
    m_action = new QComboBox(bar);
    m_action->setObjectName(QStringLiteral("auditAction"));
    m_action->addItem(QStringLiteral("全部"), QString());
    // Chinese for the operator; the filter sends the stored name.
    for (const CAuditNames::Name& action : CAuditNames::kActions)
        m_action->addItem(QString::fromUtf8(action.shown), QLatin1String(action.stored));
    bar->addWidget(m_action);
    createTimeFilters(bar);
    auto* query = new Zu::CSmallNormalButton(bar, kQueryButton, QStringLiteral("查询"));
    query->setObjectName(QStringLiteral("auditQuery"));
    connect(query, &QPushButton::clicked, this, &CAuditDock::refresh);
    bar->addWidget(query);
    auto* exportButton = new Zu::CSmallNormalButton(bar, kExportButton, QStringLiteral("导出CSV"));
    exportButton->setObjectName(QStringLiteral("auditExport"));
    connect(exportButton, &QPushButton::clicked, this, &CAuditDock::chooseExportFile);
    bar->addWidget(exportButton);
    m_older = new Zu::CSmallNormalButton(bar, kOlderButton, QStringLiteral("更早"));
    m_older->setObjectName(QStringLiteral("auditOlder"));
    m_older->setEnabled(false);
    connect(m_older, &QPushButton::clicked, this, &CAuditDock::readOlder);
    bar->addWidget(m_older);
    m_moreNote = new QLabel(bar);
    m_moreNote->setObjectName(QStringLiteral("auditMore"));
    bar->addWidget(m_moreNote);
    bar->addStretch(1);
    connect(m_account, &QLineEdit::returnPressed, this, &CAuditDock::refresh);
    outer->addWidget(bar);
}

void CAuditDock::createTimeFilters(Zu::CWidgetList* bar) {
    const QDateTime now = QDateTime::currentDateTime();
    m_since = timeEdit(bar, QStringLiteral("auditSince"), now.addSecs(-kDaySeconds));
    m_sinceEnabled =
        timeSwitch(bar, QStringLiteral("auditSinceEnabled"), QStringLiteral("从"), m_since);
    m_until = timeEdit(bar, QStringLiteral("auditUntil"), now);
    m_untilEnabled =
        timeSwitch(bar, QStringLiteral("auditUntilEnabled"), QStringLiteral("到"), m_until);
    for (QWidget* widget : {static_cast<QWidget*>(m_sinceEnabled), static_cast<QWidget*>(m_since),
                            static_cast<QWidget*>(m_untilEnabled), static_cast<QWidget*>(m_until)})
        bar->addWidget(widget);
}

void CAuditDock::createTable(Zu::CWidgetList* outer) {
    m_table = new Zu::COddEvenRowTable(outer, kLayoutId,
                                       Zu::CBaseNormalTable::MenuCopyCell |
                                           Zu::CBaseNormalTable::MenuCopyRow |
                                           Zu::CBaseNormalTable::MenuChooseColumns);
    m_table->setObjectName(QStringLiteral("auditTable"));
    m_table->setTableFlags(Zu::CBaseNormalTable::TableShowGrid);
    m_table->setColumns(CAuditRows::headers());
    // Rows are computed from the entries when shown: a read brings up to a thousand.
    m_table->setRowTexts([this](int row, int column) {
        return CAuditRows::cell(m_entries.at(row), column, m_subsystems);
    });
    QTableView* view = m_table->view();
    view->setMinimumHeight(CTableHeights::forRows(view, kShownRows));
    m_detail = new QPlainTextEdit;
    m_detail->setObjectName(QStringLiteral("auditDetail"));
    m_detail->setReadOnly(true);
    m_detail->setPlaceholderText(QStringLiteral("选择一条记录，查看变更前后的内容"));
    auto* split = new QSplitter(Qt::Horizontal, outer);
    split->addWidget(m_table);
    split->addWidget(m_detail);
    split->setStretchFactor(0, 3);
    split->setStretchFactor(1, 2);
    connect(view->selectionModel(), &QItemSelectionModel::selectionChanged, this,
            &CAuditDock::showSelectedDetails);
    connect(view, &QAbstractItemView::doubleClicked, this,
            [this](const QModelIndex& index) { openHistory(index.row()); });
    outer->addWidget(split, 1, Zu::CWidgetList::AnchorFill);
}

void CAuditDock::showSelectedDetails() {
    const int row = m_table->selectedRow();
    m_detail->setPlainText(row >= 0 && size_t(row) < m_entries.size()
                               ? CAuditRows::details(m_entries[size_t(row)], m_subsystems)
                               : QString());
}

QString CAuditDock::detailText() const {
    return m_detail->toPlainText();
}

Hlx::CSourceHistoryDialog* CAuditDock::openHistory(int row) {
    if (row < 0 || row >= int(m_entries.size()))
        return nullptr;
    const Hlx::CAuditEntry& entry = m_entries.at(std::size_t(row));
    if (entry.dataType != CAuditVocabulary::kQuoteSource || entry.details.empty())
        return nullptr;
    // An entry of several sources opens the first one's history.
    return Hlx::CSourceHistoryDialog::openFor(
        this, QString::fromStdString(entry.details.front().recordId).toInt(), entry.id);
}

Hlx::CAuditFilter CAuditDock::filter() const {
    Hlx::CAuditFilter filter;
    filter.limit = m_pageSize;
    filter.account = m_account->text().trimmed().toStdString();
    filter.action = m_action->currentData().toString().toStdString();
    if (m_sinceEnabled->isChecked())
        filter.sinceMs = secondsOf(m_since);
    // The second shown is included.
    if (m_untilEnabled->isChecked())
        filter.untilMs = secondsOf(m_until) + kSecondMs;
    return filter;
}

void CAuditDock::refresh() {
    m_subsystems = Hlx::CSubsystemNames::current();
    m_loading = true;
    m_loader.start(filter(), [this](const utils::RKError& error, const Hlx::CAuditPage& page) {
        onEntries(error, page, false);
    });
}

void CAuditDock::readOlder() {
    if (m_entries.empty() || !m_more)
        return;
    Hlx::CAuditFilter older = filter();
    older.beforeId = m_entries.back().id;
    m_loading = true;
    m_loader.start(older, [this](const utils::RKError& error, const Hlx::CAuditPage& page) {
        onEntries(error, page, true);
    });
}

void CAuditDock::onEntries(const utils::RKError& error, const Hlx::CAuditPage& page, bool older) {
    m_loading = false;
    m_more = error.isSuccess() && page.more;
    m_older->setEnabled(m_more);
    // Never silently short: the dock says when older entries match too.
    m_moreNote->setText(m_more ? QStringLiteral("还有更早的记录") : QString());
    if (error.isSuccess()) {
        showMessage(QString());
        std::vector<Hlx::CAuditEntry> shown = older ? m_entries : std::vector<Hlx::CAuditEntry>();
        shown.insert(shown.end(), page.entries.begin(), page.entries.end());
        showEntries(shown);
        return;
    }
    // A refusal empties the table: rows of an earlier read must not pass for the answer.
    showEntries({});
    showMessage(QString::fromStdString(error.errorMsg()));
}

void CAuditDock::showEntries(const std::vector<Hlx::CAuditEntry>& entries) {
    m_table->clear();
    m_detail->clear();
    m_entries = entries;
    for (size_t i = 0; i < m_entries.size(); ++i)
        m_table->appendComputedRow();
    m_table->flushRows();
    m_table->adjustColumnWidth();
}

void CAuditDock::showMessage(const QString& text) {
    m_message->setText(text);
    m_message->setVisible(!text.isEmpty());
}

QString CAuditDock::message() const {
    return m_message->text();
}

void CAuditDock::chooseExportFile() {
    const QString path =
        QFileDialog::getSaveFileName(this, QStringLiteral("导出CSV"), QStringLiteral("audit.csv"),
                                     QStringLiteral("CSV (*.csv)"));
    if (!path.isEmpty())
        exportCsv(path);
}

bool CAuditDock::exportCsv(const QString& path) {
    QSaveFile file(path);
    const QByteArray bytes = CAuditRows::csv(m_entries, m_subsystems);
    if (file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size() && file.commit())
        return true;
    showMessage(QStringLiteral("无法写入文件 %1: %2").arg(path, file.errorString()));
    return false;
}
