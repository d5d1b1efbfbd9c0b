#pragma once

#include <QString>
#include <boost/shared_ptr.hpp>
#include <boost/thread/recursive_mutex.hpp>
#include <vector>

#include "Zu/CCommonDialog.h"
#include "bson/BSONObj.h"
#include "model/CAnswerGuard.h"
#include "model/PanelQuotesManageGlobal.h"
#include "rkservice/COrinQuoterSourceInfo.h"
#include "rkservice/IData.h"
#include "utils/RKError.h"

namespace Zu {
class CComboBox;
class CLineEdit;
class CLoadingMaskWidget;
}  // namespace Zu

namespace Hlx {

class CSafeLineEdit;

// Adds or edits one stock-type quote source: platform, address, port, user name and password.
// From the all-types panel an add fans out into one record per trade type the user administers.
class PANELQUOTESMANAGE_EXPORT CSetStockQuotesDialog : public Zu::CCommonDialog {
    Q_OBJECT
public:
    // Widget ids of the inputs; a field asks to be checked (event 101) with its id.
    enum FieldId { AddressField = 1, PortField = 2, UserField = 3, PasswordField = 4 };
    // Button ids (event 5).
    enum ButtonId { SubmitButton = 0, CloseButton = 1 };

    CSetStockQuotesDialog(int tradeType, QWidget* parent, bool futureOnly);
    ~CSetStockQuotesDialog() override;

    // Switches between add and edit and empties the inputs; the caller sets the title.
    void setIsAdd(bool isAdd);
    // Fills the form from the record being edited, whose revision the modify sends back.
    void setBasicInfo(const boost::shared_ptr<rkservice::COrinQuoterSourceInfo>& info);
    // The server (sub-system) a multi-server client submits to.
    void setBasicInfo(const QString& serverName);
    // Sends to the named sub-system's client whatever the user's routing: a source copied into
    // another sub-system.
    void sendToSubsystem(const QString& systemName);

    // Checks address, port, user name and password in that order; tips at the first failure.
    bool checkInput();
    // The tip a port text earns, empty when it passes: digits only, within 1-65535.
    static QString portTip(const QString& text);
    // Appends the records to submit; nothing when no record can be built.
    void getOperateDatas(std::vector<rkservice::IDataPtr>& datas);

    bool handleEvent(int type, int id, int arg, QString text, void* extra) override;

    int tradeType() const { return m_nTradeType; }
    bool isFutureOnly() const { return m_bFutureOnly; }
    bool isAdd() const { return m_bIsAdd; }
    QString serverName() const { return m_strServerName; }
    int editId() const { return m_nEditId; }
    // The revision of the edited source the dialog last read (0 when adding).
    long long editRevision() const;
    bool routeBySystem() const { return m_routeBySystem; }
    Zu::CComboBox* platformCombo() const { return m_pPlatformCombo; }
    CSafeLineEdit* addressEdit() const { return m_pAddressEdit; }
    CSafeLineEdit* portEdit() const { return m_pPortEdit; }
    CSafeLineEdit* userEdit() const { return m_pUserEdit; }
    CSafeLineEdit* passwordEdit() const { return m_pPasswordEdit; }
    Zu::CLineEdit* marketEdit() const { return m_pMarketEdit; }
    Zu::CLoadingMaskWidget* loadingMask() const { return m_pLoadingMask; }

signals:
    void sigOnOperationFinished(bool bError, QString qsError);
    // The stored row was read again after a refusal of a stale edit (see m_reread).
    void sigStoredRowRead();

public slots:
    void slotOnOperationFinished(bool bError, QString qsError);
    void slotStoredRowRead();

protected:
    void createUi();
    void initPlatform();
    // Checks one field; shows its tip and returns false when it fails. strict applies the
    // password pattern (when leaving the field) instead of the emptiness test of a submission.
    bool checkField(int fieldId, bool strict);
    void hideEvent(QHideEvent* event) override;
    void showEvent(QShowEvent* event) override;
    // Completion of the submission; runs on the data service's worker thread.
    void onOperationQuotes(const utils::RKError& error, bson::BSONObj result);
    // After a refusal because the row changed since it was read: reads it again, so that the
    // operator's input is kept and what the operator left takes the stored values.
    void readStoredRow();
    void onStoredRowRead(const utils::RKError& error, const std::vector<rkservice::IDataPtr>& datas,
                         int count, bson::BSONObj result);
    // The fields the operator left as the edited record had them take the stored row's.
    void rebase(const rkservice::COrinQuoterSourceInfo& stored);

private:
    enum class Submission { NothingBuilt, Sent, Dropped };
    // Builds and sends the records.
    Submission submit();

    QString m_strServerName;
    bool m_routeBySystem;
    int m_nEditId;
    // The record being edited as last read (null when adding), and what a read again brought
    // (guarded by m_mutex).
    boost::shared_ptr<rkservice::COrinQuoterSourceInfo> m_editBase;
    boost::shared_ptr<rkservice::COrinQuoterSourceInfo> m_reread;
    bool m_bIsAdd;
    QWidget* m_pReserved;
    Zu::CComboBox* m_pPlatformCombo;
    CSafeLineEdit* m_pAddressEdit;
    CSafeLineEdit* m_pPortEdit;
    CSafeLineEdit* m_pUserEdit;
    CSafeLineEdit* m_pPasswordEdit;
    Zu::CLineEdit* m_pMarketEdit;
    int m_nTradeType;
    boost::recursive_mutex m_mutex;
    Zu::CLoadingMaskWidget* m_pLoadingMask;
    bool m_bFutureOnly;
    // A request is on its way from the open dialog and its answer has yet to arrive.
    bool m_bSubmitting = false;
    bool m_bShownBefore = false;  // shown once: later showings start at 地址
    CAnswerGuard m_answerGuard;
};

}  // namespace Hlx
