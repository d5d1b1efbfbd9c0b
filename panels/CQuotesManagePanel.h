#pragma once

#include <QMap>
#include <QQueue>
#include <QString>
#include <atomic>
#include <boost/shared_ptr.hpp>
#include <vector>

#include "Hlx/IorinDockableWidget.h"
#include "bson/BSONObj.h"
#include "model/CAnswerGuard.h"
#include "model/CNameCache.h"
#include "model/CPanelMutex.h"
#include "model/PanelQuotesManageGlobal.h"
#include "panels/CSourceRowMenu.h"
#include "panels/IReloadable.h"
#include "rkservice/CGlobalFeaturePermissionInfo.h"
#include "rkservice/COperateDataReq.h"
#include "rkservice/COrinQuoterSourceInfo.h"
#include "utils/RKError.h"

namespace Zu {
class COddEvenRowTable;
class CSmallNormalButton;
class CLoadingMaskWidget;
class CBaseTableColumnMultiButtonsDelegate;
class CWidgetList;
}  // namespace Zu

namespace rkservice {
class COrinBrokerInfo;
}

namespace Hlx {

class CFindBar;
class CSetFutureQuotesDialog;
class CSetStockQuotesDialog;
class CWholeQuoteSettingDialog;

// The dockable panel that lists the quote sources of one trade type and lets the operator add,
// edit and delete them. Answers arrive on worker threads; they store under the panel's locks and
// signal, and the slot of the same stem does the widget work on the user-interface thread.
class PANELQUOTESMANAGE_EXPORT CQuotesManagePanel : public IorinDockableWidget, public IReloadable {
    Q_OBJECT
public:
    // Table column ids.
    enum Column {
        kColId = 0,
        kColTradeType,
        kColPlatform,
        kColName,
        kColServerGroup,
        kColAddress,
        kColPort,
        kColUser,
        kColPassword,
        kColOperation,
        kColSubsystem,
        kColumnCount
    };
    // Tool-bar and row button ids.
    enum ButtonId {
        kBtnAdd = 0,
        kBtnRefresh = 1,
        kBtnKxAdd = 2,
        kBtnDeleteAll = 3,
        kBtnWholeQuote = 4,
        kBtnEditRow = 5,
        kBtnDeleteRow = 6,
    };

    CQuotesManagePanel(int tradeType, const QString& objectName, QWidget* parent);
    ~CQuotesManagePanel() override;

    void onActive() override;
    void setParam(const QString& param) override;
    QString param() const override;
    void switchSystem(int systemId, const QString& systemName) override;

    QString tradeType2String(int tradeType, int platformId) const;
    void refresh();
    // For changes made elsewhere: every panel shows quote sources, the all-types panel the
    // whole-quote settings too.
    bool shows(Content content) const override;
    // Reloads as refresh() does, then selects the row of the source that was selected (none when
    // it is gone).
    void reloadSources() override;
    // As an activation does: the rows and the permission record that holds the settings.
    void reloadWholeQuoteSettings() override;
    // From refresh() until its rows are built.
    bool isLoading() const override { return m_loading; }
    void queryKxFuture();

    // For the host and tests.
    int tradeType() const { return m_tradeType; }
    QString systemName() const { return m_systemName; }
    bool routesBySystem() const { return m_routeBySystem; }
    Zu::COddEvenRowTable* table() const { return m_table; }
    Zu::CSmallNormalButton* addButton() const { return m_addButton; }
    Zu::CLoadingMaskWidget* loadingMask() const { return m_loadingMask; }
    Zu::CBaseTableColumnMultiButtonsDelegate* buttonsDelegate() const { return m_buttonsDelegate; }
    CSetStockQuotesDialog* stockDialog() const { return m_stockDialog; }
    CSetFutureQuotesDialog* futureDialog() const { return m_futureDialog; }
    CWholeQuoteSettingDialog* wholeQuoteDialog() const { return m_wholeQuoteDialog; }
    CFindBar* findBar() const { return m_findBar; }
    Zu::CSmallNormalButton* deleteAllButton() const { return m_deleteAllButton; }
    // The entries of the row context menu after the table's own.
    CSourceRowMenu& rowMenu() { return m_rowMenu; }
    // Ctrl+F: shows the find bar with the cursor in it.
    void openFind();
    rkservice::COrinQuoterSourceInfoPtr rowRecord(int row);
    int rowRecordCount();
    rkservice::CGlobalFeaturePermissionInfoPtr permissionInfo();
    CPanelMutex& dataMutex() { return m_dataMutex; }
    CPanelMutex& permissionMutex() { return m_permissionMutex; }

signals:
    void sigOnDataQuotesInfo(bool bError, QString qsError, int count);
    void sigOnDataBrokerInfo(bool bError, QString qsError);
    void sigOnDataFinished();
    void sigOnDataKxFutureQuotesInfo(bool bError, QString qsError, int count);
    void sigMsgCallBack(bool bSuccess, QString qsError);
    // A delete the service refused (an addition: the table must not show as deleted what still
    // exists).
    void sigOnDeleteFailed(QString qsError);

public slots:
    void slotOnDataQuotesInfo(bool bError, QString qsError, int count);
    void slotOnDataBrokerInfo(bool bError, QString qsError);
    void slotOnDataFinished();
    void slotOnDataKxFutureQuotesInfo(bool bError, QString qsError, int count);
    void slotMsgCallBack(bool bSuccess, QString qsError);
    void slotOnDeleteFailed(QString qsError);

protected:
    bool handleEvent(int eventId, int subId, int param, QString data, void* extra) override;

    // Answers, on a worker thread.
    void onQueryData(const utils::RKError& error, const std::vector<rkservice::IDataPtr>& datas,
                     int count, bson::BSONObj result);
    void onQueryBrokerInfoData(const utils::RKError& error,
                               const std::vector<rkservice::IDataPtr>& datas, int count,
                               bson::BSONObj result);
    void onQueryKxFutureData(const utils::RKError& error,
                             const std::vector<rkservice::IDataPtr>& datas, int count,
                             bson::BSONObj result);
    void onQueryPermission(const utils::RKError& error,
                           const std::vector<rkservice::IDataPtr>& datas, int count,
                           bson::BSONObj result);
    void onOperationDeleteQuotes(const utils::RKError& error, bson::BSONObj result);
    // The answer of a whole-quote save of the held record saved.
    void onSaveCallBack(const utils::RKError& error, bson::BSONObj result,
                        const rkservice::CGlobalFeaturePermissionInfoPtr& saved);

private:
    void createUi();
    void createToolBar(Zu::CWidgetList* outer);
    void createTable(Zu::CWidgetList* outer);
    void createFindBar(Zu::CWidgetList* outer);
    void createShortcuts();
    void createRowMenu();
    // The find bar's count and whether 全部删除 may delete: never while a find hides rows.
    void updateFindState();
    void restoreFindState(const QString& sort, const QString& find);
    // The keys' actions on the selected row, as its buttons would do them.
    bool selectedRowHasButton(int buttonId) const;
    void editSelectedRowByKey();
    void deleteSelectedRowByKey();
    // The row context menu's entries.
    void copyAddress(int row);
    bool mayCopyToSubsystem(const rkservice::COrinQuoterSourceInfoPtr& record) const;
    void copyToSubsystem(const rkservice::COrinQuoterSourceInfoPtr& record);
    QString ownTradeTypeName() const;
    void showLoadFailure(const QString& message);

    // The load chain.
    void brokerInfoReady(bool bError, const QString& qsError);
    void sendQuotesQuery();
    void sendPermissionQuery();
    bool takeTicket(QQueue<int>& tickets);
    bool isOwnDelivery() const;
    // The slots' work; `delivered` when our own queued signal brought it, which then spends the
    // ticket its answer queued.
    void brokerInfoDelivered(bool bError, const QString& qsError, bool delivered);
    void quotesDelivered(bool bError, const QString& qsError, int count, bool delivered);
    void kxQuotesDelivered(bool bError, const QString& qsError, bool delivered);
    bool isCurrentAnswer() const;
    void appendSourceRow(const rkservice::COrinQuoterSourceInfoPtr& source);
    // The text of a source row's cell, from the row's record.
    QString sourceRowText(int row, int columnId);
    void appendBrokerRows(const rkservice::COrinQuoterSourceInfoPtr& source);
    void appendBrokerRow(const rkservice::COrinQuoterSourceInfoPtr& source,
                         const rkservice::COrinBrokerInfo& broker, int groupIndex);
    void appendKxRow(const rkservice::COrinQuoterSourceInfoPtr& source);
    void setRowButtons(int row, bool edit, bool remove);

    // The actions.
    void addSource();
    void addKxSource();
    void editSelectedRow();
    void deleteRow(const QString& rowText);
    void deleteAllRows();
    void editWholeQuote();
    // False when the panel was destroyed while the dialog ran.
    bool showStockDialog(const QString& title, bool isAdd,
                         const rkservice::COrinQuoterSourceInfoPtr& record);
    void sendDelete(const rkservice::COperateDataReqPtr& request);
    void clearRowRecords();
    static rkservice::COrinQuoterSourceInfoPtr deleteRecord(
        int id, const rkservice::COrinQuoterSourceInfo& of, long long revision);

    QString m_systemName;
    bool m_routeBySystem = false;
    bool m_loadFlags[2] = {false, false};
    std::atomic<bool> m_deleteRefreshed{false};
    bool m_loading = false;  // user-interface thread only
    int m_reselectId = -1;   // the source reloadSources() selects again, -1 none
    bool m_reselect = false;
    void reselectSource();
    int m_tradeType;
    Zu::COddEvenRowTable* m_table = nullptr;
    Zu::CSmallNormalButton* m_addButton = nullptr;
    Zu::CLoadingMaskWidget* m_loadingMask = nullptr;
    CSetFutureQuotesDialog* m_futureDialog = nullptr;
    CSetStockQuotesDialog* m_stockDialog = nullptr;
    Zu::CBaseTableColumnMultiButtonsDelegate* m_buttonsDelegate = nullptr;
    CWholeQuoteSettingDialog* m_wholeQuoteDialog = nullptr;
    Zu::CWidgetList* m_maskHost = nullptr;
    Zu::CSmallNormalButton* m_deleteAllButton = nullptr;
    CFindBar* m_findBar = nullptr;
    CSourceRowMenu m_rowMenu;
    CPanelMutex m_dataMutex;
    std::vector<rkservice::IDataPtr> m_quoteSources;
    std::vector<rkservice::IDataPtr> m_brokerInfos;
    std::vector<rkservice::COrinQuoterSourceInfoPtr> m_kxFutureSources;
    QMap<int, rkservice::COrinQuoterSourceInfoPtr> m_rowRecords;
    CPanelMutex m_permissionMutex;
    rkservice::CGlobalFeaturePermissionInfoPtr m_permissionInfo;
    // The load of the permission answer kept (guarded by m_permissionMutex).
    int m_permissionLoad = -1;
    // The load whose quote-source answer said the database or the server did not answer
    // (guarded by m_dataMutex): its rows stay as they were.
    int m_unavailableLoad = -1;

    // The load each queued answer signal belongs to, in emission order, so that a slot queued
    // before a newer refresh is dropped (guarded by m_dataMutex).
    QQueue<int> m_brokerTickets;
    QQueue<int> m_quoteTickets;
    QQueue<int> m_kxTickets;
    // The row buttons the user's rights allow, read once per load.
    struct RowRights {
        bool edit = false;
        bool remove = false;
        bool brokerRemove = false;
        bool kxRemove = false;
    };
    RowRights readRowRights() const;
    RowRights m_rowRights;
    CNameCache m_names;  // display names of the rows being built
    CAnswerGuard m_answerGuard;
};

}  // namespace Hlx
