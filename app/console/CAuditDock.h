#pragma once

#include <QDockWidget>
#include <boost/shared_ptr.hpp>
#include <vector>

#include "CAuditLoader.h"
#include "CAuditRows.h"
#include "Hlx/CAuditEntry.h"
#include "Hlx/CAuditFilter.h"

class QCheckBox;
class QComboBox;
class QDateTimeEdit;
class QLabel;
class QLineEdit;
class QPlainTextEdit;
class QPushButton;
namespace Hlx {
class CSourceHistoryDialog;
class IAuditTransfer;
}  // namespace Hlx
namespace Zu {
class COddEvenRowTable;
class CWidgetList;
}  // namespace Zu

// The read-only dock "操作记录": the audit trail, newest first, filtered by account, action and
// time, in the operator's words (CAuditNames); the selected entry's records, before and after,
// beside it. Reading needs the administrator right; a refusal is shown in the dock.
class CAuditDock : public QDockWidget {
    Q_OBJECT
public:
    CAuditDock(boost::shared_ptr<Hlx::IAuditTransfer> admin, QWidget* parent = nullptr);
    ~CAuditDock() override;

    // Reads the trail again with the filters shown; an answer of an earlier read is dropped.
    void refresh();
    // Reads the page of entries older than the last one shown and adds it below.
    void readOlder();
    // Whether older entries match than those shown.
    bool hasOlder() const { return m_more; }
    // How many entries a read brings at most (1,000 unless set).
    void setPageSize(int entries) { m_pageSize = entries; }
    // The filters as the inputs stand.
    Hlx::CAuditFilter filter() const;
    // Writes the rows shown to the file; false (and the reason in the dock) when it cannot.
    bool exportCsv(const QString& path);

    const std::vector<Hlx::CAuditEntry>& entries() const { return m_entries; }
    // The history of the source the row's entry names, with that entry chosen (a double click
    // on a row of a quote source); null for an entry of anything else.
    Hlx::CSourceHistoryDialog* openHistory(int row);
    Zu::COddEvenRowTable* table() const { return m_table; }
    QString message() const;
    // What the detail pane shows of the selected entry.
    QString detailText() const;
    bool isLoading() const { return m_loading; }

private:
    void createFilters(Zu::CWidgetList* outer);
    void createTimeFilters(Zu::CWidgetList* bar);
    void createTable(Zu::CWidgetList* outer);
    void chooseExportFile();
    void onEntries(const utils::RKError& error, const Hlx::CAuditPage& page, bool older);
    void showEntries(const std::vector<Hlx::CAuditEntry>& entries);
    void showMessage(const QString& text);
    void showSelectedDetails();
    // The sub-systems' display names, read again with each read of the trail.

    CAuditLoader m_loader;
    std::vector<Hlx::CAuditEntry> m_entries;
    bool m_loading = false;
    bool m_more = false;
    int m_pageSize = 1000;
    QPushButton* m_older = nullptr;
    QLabel* m_moreNote = nullptr;
    QLineEdit* m_account = nullptr;
    QComboBox* m_action = nullptr;
    QCheckBox* m_sinceEnabled = nullptr;
    QDateTimeEdit* m_since = nullptr;
    QCheckBox* m_untilEnabled = nullptr;
    QDateTimeEdit* m_until = nullptr;
    QLabel* m_message = nullptr;
    Zu::COddEvenRowTable* m_table = nullptr;
    QPlainTextEdit* m_detail = nullptr;
    CAuditRows::SubsystemNames m_subsystems;
};
