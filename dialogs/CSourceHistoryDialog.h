#pragma once

#include <QDialog>
#include <boost/shared_ptr.hpp>
#include <functional>
#include <memory>

#include "Hlx/CSourceHistory.h"
#include "model/CHistoryValues.h"
#include "model/PanelQuotesManageGlobal.h"
#include "utils/RKError.h"

class QLabel;
class QPushButton;
class QTableWidget;

namespace Hlx {

class IQuoteData;

// A quote source's history (查看历史): its changes from the audit trail with when, who and from
// where, the fields of the chosen change side by side (before, after), and 恢复到此版本, which
// sets the source back to the fields after that change (a deleted source is added again). The
// trail holds no password, which the dialog says. Reads and the restore run on a worker; an
// answer that arrives after the dialog closed is dropped.
class PANELQUOTESMANAGE_EXPORT CSourceHistoryDialog : public QDialog {
    Q_OBJECT
public:
    CSourceHistoryDialog(boost::shared_ptr<IQuoteData> admin, int sourceId,
                         QWidget* parent = nullptr);
    ~CSourceHistoryDialog() override;

    // The one call a panel's row menu needs: opens the dialog (deleted on close) for the source
    // over the widget, through the data service behind the client centre; null when there is
    // none that keeps a history. entryId (optional) is chosen once the history is read.
    static CSourceHistoryDialog* openFor(QWidget* widget, int sourceId, long long entryId = 0);

    // Reads the history again; the entry with the id (else the newest) is chosen.
    void reload(long long entryId = 0);
    // Shows a history read elsewhere (a scripted one for a picture), choosing the entry with the
    // id (else the newest).
    void showHistory(const CSourceHistory& history, long long entryId = 0);
    // Restores to the chosen entry, with the revision read.
    void restoreChosen();

    const CSourceHistory& history() const { return m_history; }
    bool isLoading() const { return m_loading; }
    QTableWidget* entryTable() const { return m_entries; }
    QTableWidget* differenceTable() const { return m_difference; }
    QPushButton* restoreButton() const { return m_restore; }
    QLabel* noteLabel() const { return m_note; }
    QLabel* beginLabel() const { return m_begin; }

    struct State;

private:
    void createUi();
    // Runs work on a worker; what it answers runs on the dialog's thread while it lives.
    using Answer = std::function<void(CSourceHistoryDialog*)>;
    void later(std::function<Answer()> work);
    void onHistory(const utils::RKError& error, const CSourceHistory& history, long long choose);
    void onRestored(const utils::RKError& error, long long entryId);
    void showEntries(long long choose);
    void showDifference();
    const CAuditEntry* chosen() const;
    QString beginning() const;
    QString passwordNote() const;

    boost::shared_ptr<IQuoteData> m_admin;
    const int m_sourceId;
    std::shared_ptr<State> m_state;
    CSourceHistory m_history;
    CHistoryValues m_values;
    bool m_loading = false;
    QLabel* m_begin = nullptr;
    QTableWidget* m_entries = nullptr;
    QTableWidget* m_difference = nullptr;
    QLabel* m_note = nullptr;
    QLabel* m_outcome = nullptr;
    QPushButton* m_restore = nullptr;
};

}  // namespace Hlx
