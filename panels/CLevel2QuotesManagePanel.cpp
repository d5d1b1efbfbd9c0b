#include "panels/CLevel2QuotesManagePanel.h"

#include <QDialog>
#include <QMetaType>
#include <QPointer>
#include <QShortcut>
#include <QVector>
#include <boost/bind/bind.hpp>
#include <boost/make_shared.hpp>
#include <cstdlib>

#include "Hlx/COrinClientCenter.h"
#include "Hlx/CUserManager.h"
#include "Zu/ButtonData.h"
#include "Zu/CBaseTableColumnMultiButtonsDelegate.h"
#include "Zu/CLoadingMaskWidget.h"
#include "Zu/COddEvenRowTable.h"
#include "Zu/CSmallNormalButton.h"
#include "Zu/CWidgetList.h"
#include "Zu/StringConvert.h"
#include "dialogs/CLevel2QuoteDialog.h"
#include "model/CLevel2Names.h"
#include "model/CRequestFactory.h"
#include "model/CRequestRouter.h"
#include "model/CRevisionConflicts.h"
#include "model/CRightsTable.h"
#include "rkservice/CLevel2Token.h"
#include "rkservice/DataTypeIds.h"

using namespace boost::placeholders;

namespace Hlx {

namespace {

const int kTokenColumn = 0;
const int kActionColumn = 1;

QString messageTitle() {
    return QStringLiteral("Level-2 token 修改");
}

}  // namespace

CLevel2QuotesManagePanel::CLevel2QuotesManagePanel(QWidget* parent)
    : IorinDockableWidget(false, QString::fromLatin1(CLevel2Names::kPanelObjectName), parent, true),
      m_tokenDialog(nullptr),
      m_table(nullptr),
      m_addButton(nullptr),
      m_loadingMask(nullptr),
      m_maskHost(nullptr) {
    // The token list crosses from the worker thread into the user-interface thread by value.
    qRegisterMetaType<std::vector<rkservice::IDataPtr>>("std::vector<rkservice::IDataPtr>");
    createUi();
    connect(this, &CLevel2QuotesManagePanel::sigInitTokens, this,
            &CLevel2QuotesManagePanel::slotInitTokens);
    connect(this, &CLevel2QuotesManagePanel::sigOnOperationFinished, this,
            &CLevel2QuotesManagePanel::slotOnOperationFinished);
    connect(this, &CLevel2QuotesManagePanel::sigOnLoadUnavailable, this,
            &CLevel2QuotesManagePanel::slotOnLoadUnavailable);
    connect(this, &CLevel2QuotesManagePanel::sigTokenRefused, this,
            &CLevel2QuotesManagePanel::slotTokenRefused);
    refresh();
}

CLevel2QuotesManagePanel::~CLevel2QuotesManagePanel() {
    // Answers still on their way must not reach a panel that is going away.
    m_answerGuard.invalidate();
    disconnect();
    // The token dialog has no parent to free it.
    m_dialogReopened = false;
    delete m_tokenDialog;
    m_tokenDialog = nullptr;
}

void CLevel2QuotesManagePanel::setParam(const QString& param) {
    Q_UNUSED(param);
}

QString CLevel2QuotesManagePanel::param() const {
    return QString();
}

void CLevel2QuotesManagePanel::createUi() {
    auto* outer = new Zu::CWidgetList(this, Qt::Vertical);
    outer->setMargins(0, 10, 0, 0);
    outer->setSpacing(5);
    setInnerStretchWidget(outer);

    auto* toolBar = new Zu::CWidgetList(outer, Qt::Horizontal);
    toolBar->setMargins(10, 0, 0, 0);
    toolBar->setSpacing(15);
    auto* refreshButton =
        new Zu::CSmallNormalButton(toolBar, RefreshButton, QStringLiteral("刷新"));
    refreshButton->setFixedSize(50, 26);
    toolBar->addWidget(refreshButton);
    if (CUserManager::instance()->checkUserAuth(CRightsTable::kLevel2Add)) {
        m_addButton = new Zu::CSmallNormalButton(
            toolBar, AddButton,
            QStringLiteral("+添加") + QString::fromUtf8(CLevel2Names::kTokenNoun));
        m_addButton->setFixedSize(150, 26);
        toolBar->addWidget(m_addButton);
    }
    m_maskHost = new Zu::CWidgetList(toolBar, Qt::Horizontal);
    m_maskHost->setMargins(0, 0, 0, 0);
    m_maskHost->setFixedSize(130, 40);
    m_loadingMask = new Zu::CLoadingMaskWidget(m_maskHost);
    m_loadingMask->setText(QString());
    m_loadingMask->resize(130, 40);
    m_loadingMask->setAnimationSize(QSize(150, 45));
    m_loadingMask->hide();
    toolBar->addWidget(m_maskHost);
    toolBar->addStretch(1);
    outer->addWidget(toolBar, 0, Zu::CWidgetList::AnchorFill);

    m_table = new Zu::COddEvenRowTable(outer, 2, Zu::CBaseNormalTable::MenuAll);
    m_table->setTableFlags(0);
    m_table->setColumns({QStringLiteral("Level-2行情token"), QStringLiteral("操作")});
    outer->addWidget(m_table, 1, Zu::CWidgetList::AnchorFill);
    // F5 reloads, as on the quote-source panels.
    connect(new QShortcut(QKeySequence(Qt::Key_F5), this, nullptr, nullptr,
                          Qt::WidgetWithChildrenShortcut),
            &QShortcut::activated, this, &CLevel2QuotesManagePanel::refresh);
}

void CLevel2QuotesManagePanel::refresh() {
    if (m_loadingMask)
        m_loadingMask->attach(m_maskHost);
    auto request = CRequestFactory::query(rkservice::kDataLevel2Tokens, std::string());
    CRequestRouter router(RoutePolicy::NamedOrCentre, false, systemName());
    router.query(request, m_answerGuard.guardQuery(boost::bind(
                              &CLevel2QuotesManagePanel::onQueryData, this, _1, _2, _3, _4)));
}

void CLevel2QuotesManagePanel::onQueryData(const utils::RKError& error,
                                           const std::vector<rkservice::IDataPtr>& datas, int count,
                                           bson::BSONObj result) {
    Q_UNUSED(count);
    Q_UNUSED(result);
    // Nothing was read, nothing is known to be gone: the token shown stays, with the reason.
    if (error.kind() == utils::ErrorKind::Unavailable) {
        emit sigOnLoadUnavailable(Zu::sToQs(error.errorMsg()));
        return;
    }
    // Any other failed query lists nothing, which leaves adding open.
    emit sigInitTokens(datas);
}

void CLevel2QuotesManagePanel::slotOnLoadUnavailable(QString qsError) {
    if (m_loadingMask)
        m_loadingMask->hide();
    COrinClientCenter::instance()->showServerMsgCallBack(1, false, this, messageTitle(), qsError,
                                                         true, false);
}

void CLevel2QuotesManagePanel::slotInitTokens(const std::vector<rkservice::IDataPtr> values) {
    m_table->clear();
    if (m_loadingMask)
        m_loadingMask->hide();
    m_tokenRevision = 0;
    for (const rkservice::IDataPtr& value : values) {
        auto token = boost::dynamic_pointer_cast<rkservice::CLevel2Token>(value);
        if (!token)
            continue;
        // The row's revision, which an edit or delete of it sends back.
        m_tokenRevision = token->getRevision();
        const int row = m_table->appendRow();
        appendToken(row, Zu::sToQs(token->token));
    }
    m_table->adjustColumnWidth();
    // At most one token is added through the panel.
    if (m_addButton)
        m_addButton->setEnabled(values.empty());
}

void CLevel2QuotesManagePanel::appendToken(int row, const QString& token) {
    m_table->setItemText(row, kTokenColumn, token);

    auto* delegate = qobject_cast<Zu::CBaseTableColumnMultiButtonsDelegate*>(
        m_table->columnDelegate(kActionColumn));
    if (!delegate) {
        delegate = new Zu::CBaseTableColumnMultiButtonsDelegate(m_table, 1);
        m_table->setColumnDelegate(kActionColumn, delegate);
    }

    QVector<Zu::ButtonData> buttons;
    if (CUserManager::instance()->checkUserAuth(CRightsTable::kLevel2Modify))
        buttons.append(Zu::ButtonData(EditRowButton, QStringLiteral("编辑"), 1, false, {}));
    if (CUserManager::instance()->checkUserAuth(CRightsTable::kLevel2Delete))
        buttons.append(Zu::ButtonData(DeleteRowButton, QStringLiteral("删除"), 1, false, {}));
    delegate->setItemButtons(std::to_string(row), buttons, true);
}

void CLevel2QuotesManagePanel::tryUpdateToken(const QString& token, int row) {
    Q_UNUSED(row);
    // Shown again after a refusal, the dialog holds what the operator typed: it is only raised.
    if (m_tokenDialog && m_tokenDialog->isVisible()) {
        m_tokenDialog->raise();
        m_tokenDialog->activateWindow();
        return;
    }
    if (!m_tokenDialog) {
        m_tokenDialog = new CLevel2QuoteDialog(this);
        m_tokenDialog->setFixedSize(450, 150);
        connect(m_tokenDialog, &QDialog::finished, this,
                &CLevel2QuotesManagePanel::slotTokenDialogFinished);
    }
    // An empty token keeps what the dialog last held.
    if (!token.isEmpty())
        m_tokenDialog->setTokenText(token);
    QPointer<CLevel2QuotesManagePanel> alive(this);
    const int result = m_tokenDialog->exec();
    // The panel may have been closed while the dialog ran: nothing of it is touched then.
    if (alive && result == QDialog::Accepted)
        submitToken();
}

void CLevel2QuotesManagePanel::submitToken() {
    const QString text = m_tokenDialog->getTokenText();
    if (text.isEmpty())
        return;

    auto request = CRequestFactory::operate(
        rkservice::kDataLevel2Tokens,
        m_table->rowCount() < 1 ? rkservice::kOperateAdd : rkservice::kOperateModify);
    auto record = boost::make_shared<rkservice::CLevel2Token>();
    record->token = Zu::qsToS(text);
    if (request->operateType == rkservice::kOperateModify)
        record->setRevision(m_tokenRevision);
    request->datas.push_back(record);

    // Tokens are kept by the centre, whichever sub-system the panel shows.
    CRequestRouter router(RoutePolicy::Centre, false, QString());
    router.operate(request, m_answerGuard.guardOperate(
                                boost::bind(&CLevel2QuotesManagePanel::onTokenSave, this, _1, _2)));
    if (m_loadingMask) {
        m_loadingMask->setText(QStringLiteral("正在提交数据"));
        m_loadingMask->attach(m_maskHost);
    }
}

void CLevel2QuotesManagePanel::onTokenSave(const utils::RKError& error, bson::BSONObj result) {
    // Any text is a refusal, as the panel's slot reads it; the dialog comes back before the box.
    if (!error.errorMsg().empty())
        emit sigTokenRefused();
    onOperationSave(error, result);
}

void CLevel2QuotesManagePanel::slotTokenRefused() {
    // The dialog still holds the operator's text. It comes back at once, without a modal run
    // nested in this answer's slot; its 确定 submits again, with the revision the panel holds by
    // then (a stale refusal reloads the row underneath).
    if (!m_tokenDialog || m_tokenDialog->isVisible())
        return;
    m_dialogReopened = true;
    m_tokenDialog->open();
}

void CLevel2QuotesManagePanel::slotTokenDialogFinished(int result) {
    // A run of exec() submits from tryUpdateToken; only the dialog shown again submits here.
    if (!m_dialogReopened)
        return;
    m_dialogReopened = false;
    if (result == QDialog::Accepted)
        submitToken();
}

void CLevel2QuotesManagePanel::removeToken(int row) {
    auto request =
        CRequestFactory::operate(rkservice::kDataLevel2Tokens, rkservice::kOperateDelete);
    auto record = boost::make_shared<rkservice::CLevel2Token>();
    record->token = Zu::qsToS(m_table->itemText(row, kTokenColumn));
    record->setRevision(m_tokenRevision);
    request->datas.push_back(record);

    CRequestRouter router(RoutePolicy::Centre, false, QString());
    router.operate(request, m_answerGuard.guardOperate(boost::bind(
                                &CLevel2QuotesManagePanel::onOperationSave, this, _1, _2)));
    if (m_loadingMask) {
        m_loadingMask->setText(QStringLiteral("正在提交删除"));
        m_loadingMask->attach(m_maskHost);
    }
}

void CLevel2QuotesManagePanel::onOperationSave(const utils::RKError& error, bson::BSONObj result) {
    // Taken by the row when the answer is shown, so that a second change in a row is not
    // refused before the reload has come.
    m_savedRevision =
        error.isSuccess() ? std::atoll(result.getStringField("revisions").c_str()) : 0;
    emit sigOnOperationFinished(!error.isSuccess(), Zu::sToQs(error.errorMsg()));
}

void CLevel2QuotesManagePanel::slotOnOperationFinished(bool bError, QString qsError) {
    // The service's message decides: any text is a failure, none is a success.
    Q_UNUSED(bError);
    if (m_loadingMask)
        m_loadingMask->hide();
    if (!qsError.isEmpty()) {
        COrinClientCenter::instance()->showServerMsgCallBack(1, false, this, messageTitle(),
                                                             qsError, true, false);
        // Changed by someone else since it was read: show what is stored now.
        if (CRevisionConflicts::isStale(qsError.toUtf8().constData()))
            refresh();
        return;
    }
    if (m_savedRevision > 0)
        m_tokenRevision = m_savedRevision;
    COrinClientCenter::instance()->showServerMsgCallBack(0, true, this, messageTitle(),
                                                         QStringLiteral("操作成功"), true, false);
    refresh();
}

bool CLevel2QuotesManagePanel::handleEvent(int eventId, int widgetId, int arg, QString text,
                                           void* data) {
    if (eventId == Zu::EventButtonClicked) {
        if (widgetId == RefreshButton)
            refresh();
        else if (widgetId == AddButton)
            tryUpdateToken(QString(), -1);
        return true;
    }
    if (eventId == Zu::EventRowButtonClicked) {
        const int row = text.toInt(nullptr, 10);
        if (arg == EditRowButton) {
            tryUpdateToken(m_table->itemText(row, kTokenColumn), row);
        } else if (arg == DeleteRowButton) {
            removeToken(row);
            // The row goes only with the reload after a successful delete.
            if (m_addButton && m_table->rowCount() >= 1)
                m_addButton->setEnabled(false);
        }
        return true;
    }
    return IorinDockableWidget::handleEvent(eventId, widgetId, arg, text, data);
}

}  // namespace Hlx
