#include "CSourceHistoryDialog.h"

#include <QDateTime>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QMetaObject>
#include <QPushButton>
#include <QTableWidget>
#include <QThreadPool>
#include <QVBoxLayout>
#include <exception>
#include <mutex>

#include "Hlx/CAdminBackend.h"
#include "Hlx/COrinClientCenter.h"
#include "Hlx/IQuotesAdmin.h"
#include "model/CAuditNames.h"
#include "model/CCallerNames.h"
#include "model/CHistoryTexts.h"
#include "model/CSubsystemNames.h"

namespace Hlx {

struct CSourceHistoryDialog::State {
    std::mutex mutex;
    bool alive = true;
};

namespace {

QString text(const std::string& value) {
    return QString::fromStdString(value);
}

QString localTime(long long ms) {
    return QDateTime::fromMSecsSinceEpoch(ms).toString(QStringLiteral("yyyy-MM-dd HH:mm:ss"));
}

// A worker must not end the process: a fault is the answer.
utils::RKError guarded(const std::function<utils::RKError()>& call) {
    try {
        return call();
    } catch (const std::exception& e) {
        return utils::RKError::fail(e.what());
    }
}

QString label(const char* value) {
    return QString::fromUtf8(value);
}

QString fieldName(const std::string& field) {
    return QString::fromStdString(CAuditNames::field(field));
}

QString actionName(const std::string& action) {
    // The audit dock's names, so an action reads alike wherever the console shows it.
    return QString::fromStdString(CAuditNames::action(action));
}

}  // namespace

CSourceHistoryDialog::CSourceHistoryDialog(boost::shared_ptr<IQuoteData> admin, int sourceId,
                                           QWidget* parent)
    : QDialog(parent),
      m_admin(std::move(admin)),
      m_sourceId(sourceId),
      m_state(std::make_shared<State>()) {
    setObjectName(QStringLiteral("sourceHistoryDialog"));
    setWindowTitle(QStringLiteral("行情源 %1 的历史").arg(sourceId));
    createUi();
}

CSourceHistoryDialog::~CSourceHistoryDialog() {
    std::lock_guard<std::mutex> lock(m_state->mutex);
    m_state->alive = false;
}

CSourceHistoryDialog* CSourceHistoryDialog::openFor(QWidget* widget, int sourceId,
                                                    long long entryId) {
    const auto backend =
        boost::dynamic_pointer_cast<CAdminBackend>(COrinClientCenter::instance()->backend());
    if (!backend || !backend->admin())
        return nullptr;
    auto* dialog = new CSourceHistoryDialog(backend->admin(), sourceId, widget);
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->reload(entryId);
    dialog->open();
    return dialog;
}

void CSourceHistoryDialog::createUi() {
    auto* layout = new QVBoxLayout(this);
    m_begin = new QLabel(this);
    m_begin->setWordWrap(true);
    layout->addWidget(m_begin);
    auto* tables = new QHBoxLayout;
    m_entries = new QTableWidget(0, 4, this);
    m_entries->setObjectName(QStringLiteral("historyEntries"));
    m_entries->setHorizontalHeaderLabels({label(CHistoryTexts::kTime), label(CHistoryTexts::kWho),
                                          label(CHistoryTexts::kAddress),
                                          label(CHistoryTexts::kAction)});
    m_difference = new QTableWidget(0, 3, this);
    m_difference->setObjectName(QStringLiteral("historyDifference"));
    m_difference->setHorizontalHeaderLabels({label(CHistoryTexts::kField),
                                             label(CHistoryTexts::kBefore),
                                             label(CHistoryTexts::kAfter)});
    for (QTableWidget* table : {m_entries, m_difference}) {
        table->setEditTriggers(QAbstractItemView::NoEditTriggers);
        table->setSelectionBehavior(QAbstractItemView::SelectRows);
        table->setSelectionMode(QAbstractItemView::SingleSelection);
        table->verticalHeader()->hide();
        table->horizontalHeader()->setStretchLastSection(true);
        tables->addWidget(table);
    }
    layout->addLayout(tables, 1);
    m_note = new QLabel(this);
    m_note->setWordWrap(true);
    layout->addWidget(m_note);
    m_outcome = new QLabel(this);
    m_outcome->setWordWrap(true);
    layout->addWidget(m_outcome);
    auto* buttons = new QHBoxLayout;
    buttons->addStretch();
    m_restore = new QPushButton(label(CHistoryTexts::kRestore), this);
    m_restore->setEnabled(false);
    auto* close = new QPushButton(label(CHistoryTexts::kClose), this);
    buttons->addWidget(m_restore);
    buttons->addWidget(close);
    layout->addLayout(buttons);
    connect(m_entries, &QTableWidget::itemSelectionChanged, this,
            &CSourceHistoryDialog::showDifference);
    connect(m_restore, &QPushButton::clicked, this, &CSourceHistoryDialog::restoreChosen);
    connect(close, &QPushButton::clicked, this, &QDialog::reject);
    resize(900, 480);
}

void CSourceHistoryDialog::later(std::function<Answer()> work) {
    const std::shared_ptr<State> state = m_state;
    CSourceHistoryDialog* self = this;
    QThreadPool::globalInstance()->start([state, self, work] {
        const Answer answer = work();
        // Posted under the lock: the destructor waits for it, and Qt drops a call posted to a
        // receiver that is gone.
        std::lock_guard<std::mutex> lock(state->mutex);
        if (!state->alive)
            return;
        QMetaObject::invokeMethod(
            self,
            [state, self, answer] {
                {
                    std::lock_guard<std::mutex> check(state->mutex);
                    if (!state->alive)
                        return;
                }
                answer(self);
            },
            Qt::QueuedConnection);
    });
}

void CSourceHistoryDialog::reload(long long entryId) {
    m_loading = true;
    m_restore->setEnabled(false);
    const boost::shared_ptr<IQuoteData> admin = m_admin;
    const int id = m_sourceId;
    later([admin, id, entryId]() -> Answer {
        auto history = std::make_shared<CSourceHistory>();
        const utils::RKError error =
            guarded([&] { return admin->sourceHistory(id, history.get()); });
        return [error, history, entryId](CSourceHistoryDialog* dialog) {
            dialog->onHistory(error, *history, entryId);
        };
    });
}

void CSourceHistoryDialog::onHistory(const utils::RKError& error, const CSourceHistory& history,
                                     long long choose) {
    m_loading = false;
    if (!error.isSuccess()) {
        m_outcome->setText(text(error.errorMsg()));
        return;
    }
    showHistory(history, choose);
}

void CSourceHistoryDialog::showHistory(const CSourceHistory& history, long long entryId) {
    m_history = history;
    // Read with each history: the sub-systems' names may have been renamed since.
    m_values = CHistoryValues(CSubsystemNames::current());
    m_begin->setText(beginning());
    m_note->setText(passwordNote());
    showEntries(entryId);
}

void CSourceHistoryDialog::showEntries(long long choose) {
    m_entries->clearContents();
    m_entries->setRowCount(int(m_history.entries.size()));
    int chosenRow = int(m_history.entries.size()) - 1;
    for (int row = 0; row < int(m_history.entries.size()); ++row) {
        const CAuditEntry& entry = m_history.entries[std::size_t(row)];
        const QStringList cells = {localTime(entry.timeMs), CCallerNames::who(entry),
                                   text(entry.clientAddress), actionName(entry.action)};
        for (int column = 0; column < cells.size(); ++column)
            m_entries->setItem(row, column, new QTableWidgetItem(cells[column]));
        if (entry.id == choose)
            chosenRow = row;
    }
    m_entries->resizeColumnsToContents();
    if (chosenRow >= 0)
        m_entries->selectRow(chosenRow);
    showDifference();
}

const CAuditEntry* CSourceHistoryDialog::chosen() const {
    const QList<QTableWidgetItem*> items = m_entries->selectedItems();
    if (items.isEmpty())
        return nullptr;
    const int row = items.front()->row();
    return row < int(m_history.entries.size()) ? &m_history.entries[std::size_t(row)] : nullptr;
}

void CSourceHistoryDialog::showDifference() {
    const CAuditEntry* entry = chosen();
    m_difference->setRowCount(0);
    // Only a state the source had can be restored to: not the one its delete left.
    m_restore->setEnabled(!m_loading && entry && !entry->details.empty() &&
                          !entry->details.front().after.isEmpty());
    if (!entry || entry->details.empty())
        return;
    const CAuditEntry::Detail& detail = entry->details.front();
    const std::vector<CFieldChange> changes = CSourceHistory::differences(detail);
    m_difference->setRowCount(int(changes.size()));
    for (int row = 0; row < int(changes.size()); ++row) {
        const CFieldChange& change = changes[std::size_t(row)];
        const QStringList cells = {fieldName(change.field),
                                   m_values.shown(change.field, detail.before, change.before),
                                   m_values.shown(change.field, detail.after, change.after)};
        for (int column = 0; column < cells.size(); ++column) {
            auto* item = new QTableWidgetItem(cells[column]);
            QFont font = item->font();
            font.setBold(change.changed);
            item->setFont(font);
            if (change.changed && column > 0)
                item->setBackground(column == 1 ? QColor(0xfd, 0xe2, 0xe2)
                                                : QColor(0xdc, 0xf5, 0xdc));
            m_difference->setItem(row, column, item);
        }
    }
    m_difference->resizeColumnsToContents();
}

void CSourceHistoryDialog::restoreChosen() {
    const CAuditEntry* entry = chosen();
    if (!entry || m_loading)
        return;
    m_loading = true;
    m_restore->setEnabled(false);
    const boost::shared_ptr<IQuoteData> admin = m_admin;
    const int id = m_sourceId;
    const long long entryId = entry->id;
    // The revision read: a change made by someone else since is refused, not overwritten.
    const long long revision = m_history.exists ? m_history.revision : 0;
    later([admin, id, entryId, revision]() -> Answer {
        long long written = 0;
        const utils::RKError error =
            guarded([&] { return admin->restoreSource(id, entryId, revision, &written); });
        return
            [error, entryId](CSourceHistoryDialog* dialog) { dialog->onRestored(error, entryId); };
    });
}

void CSourceHistoryDialog::onRestored(const utils::RKError& error, long long entryId) {
    m_loading = false;
    m_outcome->setText(error.isSuccess() ? label(CHistoryTexts::kRestored).arg(entryId)
                                         : text(error.errorMsg()));
    // Also after a refusal: a conflict means the source changed, which the history shows.
    reload(entryId);
}

QString CSourceHistoryDialog::beginning() const {
    using Begin = CSourceHistory::Begin;
    switch (m_history.begin) {
        case Begin::Added:
            return label(CHistoryTexts::kBeginAdded);
        case Begin::Pruned:
            return label(CHistoryTexts::kBeginPruned).arg(localTime(m_history.beginMs));
        case Begin::Imported:
            return label(CHistoryTexts::kBeginImported).arg(localTime(m_history.beginMs));
        default:
            return label(CHistoryTexts::kBeginEarlier);
    }
}

QString CSourceHistoryDialog::passwordNote() const {
    return label(m_history.exists ? CHistoryTexts::kPasswordKept : CHistoryTexts::kPasswordNone);
}

}  // namespace Hlx
