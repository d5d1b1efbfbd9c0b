#pragma once

#include <QString>
#include <atomic>
#include <vector>

#include "Hlx/IorinDockableWidget.h"
#include "bson/BSONObj.h"
#include "model/CAnswerGuard.h"
#include "model/PanelQuotesManageGlobal.h"
#include "panels/IReloadable.h"
#include "rkservice/IData.h"
#include "utils/RKError.h"

namespace Zu {
class COddEvenRowTable;
class CSmallNormalButton;
class CLoadingMaskWidget;
class CWidgetList;
}  // namespace Zu

namespace Hlx {

class CLevel2QuoteDialog;

// Keeps the access token of the Level-2 market-data source: lists the stored token and lets the
// operator add one while none exists, edit it and delete it.
class PANELQUOTESMANAGE_EXPORT CLevel2QuotesManagePanel : public IorinDockableWidget,
                                                          public IReloadable {
    Q_OBJECT
public:
    // Tool-bar button ids and row button ids.
    enum ButtonId { RefreshButton = 0, AddButton = 1 };
    enum RowButtonId { EditRowButton = 3, DeleteRowButton = 4 };

    explicit CLevel2QuotesManagePanel(QWidget* parent);
    ~CLevel2QuotesManagePanel() override;

    // The panel keeps no state of its own.
    void setParam(const QString& param) override;
    QString param() const override;

    void refresh();

    // For changes made elsewhere: the panel shows the token alone and reads it again even while a
    // read runs (the later answer replaces the list).
    bool shows(Content content) const override { return content == Level2Token; }
    void reloadLevel2Token() override { refresh(); }

    bool handleEvent(int eventId, int widgetId, int arg, QString text, void* data) override;

    Zu::COddEvenRowTable* table() const { return m_table; }
    Zu::CSmallNormalButton* addButton() const { return m_addButton; }
    Zu::CLoadingMaskWidget* loadingMask() const { return m_loadingMask; }
    Zu::CWidgetList* maskHost() const { return m_maskHost; }
    CLevel2QuoteDialog* tokenDialog() const { return m_tokenDialog; }

signals:
    void sigInitTokens(const std::vector<rkservice::IDataPtr> values);
    void sigOnOperationFinished(bool bError, QString qsError);
    // A load the database or the server did not answer (an addition: the row shown stays).
    void sigOnLoadUnavailable(QString qsError);
    // The token the dialog submitted was refused; comes before the refusal's
    // sigOnOperationFinished.
    void sigTokenRefused();

public slots:
    void slotInitTokens(const std::vector<rkservice::IDataPtr> values);
    void slotOnOperationFinished(bool bError, QString qsError);
    void slotOnLoadUnavailable(QString qsError);
    void slotTokenRefused();
    void slotTokenDialogFinished(int result);

protected:
    void createUi();
    void appendToken(int row, const QString& token);
    void removeToken(int row);
    void tryUpdateToken(const QString& token, int row);
    // Sends what the token dialog holds: an add while no row is listed, else a modify with the
    // revision of the row shown now.
    void submitToken();
    // Answers; run on the data service's worker thread and only emit.
    void onQueryData(const utils::RKError& error, const std::vector<rkservice::IDataPtr>& datas,
                     int count, bson::BSONObj result);
    void onOperationSave(const utils::RKError& error, bson::BSONObj result);
    void onTokenSave(const utils::RKError& error, bson::BSONObj result);

private:
    CLevel2QuoteDialog* m_tokenDialog;
    Zu::COddEvenRowTable* m_table;
    Zu::CSmallNormalButton* m_addButton;
    Zu::CLoadingMaskWidget* m_loadingMask;
    Zu::CWidgetList* m_maskHost;
    // The revision of the token the row shows (user-interface thread), and the one the last
    // successful change answered (written by its answer, read by its slot).
    long long m_tokenRevision = 0;
    std::atomic<long long> m_savedRevision{0};
    // The token dialog is shown again after a refusal (open(), not a modal run of exec()): its
    // 确定 submits through slotTokenDialogFinished.
    bool m_dialogReopened = false;
    CAnswerGuard m_answerGuard;
};

}  // namespace Hlx
