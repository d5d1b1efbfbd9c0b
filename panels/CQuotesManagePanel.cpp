#include "panels/CQuotesManagePanel.h"

#include <log4cxx/logger.h>
#include <QApplication>
#include <QClipboard>
#include <QDialog>
#include <QInputDialog>
#include <QMessageBox>
#include <QPointer>
#include <QShortcut>
#include <QStringList>
#include <QTableView>
#include <array>
#include <boost/bind/bind.hpp>
#include <boost/make_shared.hpp>
#include <cstdlib>

#include "Hlx/CLogCenter.h"
#include "Hlx/COrinClientCenter.h"
#include "Hlx/CUserManager.h"
#include "Hlx/CWholeQuoteSettingDialog.h"
#include "Zu/CBaseTableColumnMultiButtonsDelegate.h"
#include "Zu/CEventDeliverer.h"
#include "Zu/CLoadingMaskWidget.h"
#include "Zu/CMessageBox.h"
#include "Zu/COddEvenRowTable.h"
#include "Zu/CPushButton.h"
#include "Zu/CSmallNormalButton.h"
#include "Zu/CWidgetList.h"
#include "Zu/StringConvert.h"
#include "dialogs/CSetFutureQuotesDialog.h"
#include "dialogs/CSetStockQuotesDialog.h"
#include "dialogs/CSourceHistoryDialog.h"
#include "model/CPlatformTable.h"
#include "model/CRequestFactory.h"
#include "model/CRequestRouter.h"
#include "model/CRightsTable.h"
#include "model/CTradeTypeTable.h"
#include "panels/CConnectionTest.h"
#include "panels/CFindBar.h"
#include "rkservice/COrinBrokerInfo.h"
#include "rkservice/DataTypeIds.h"

using namespace boost::placeholders;

namespace Hlx {

namespace {

QString text(int value) {
    return QString::number(value);
}

// The broker id leading a broker key "<id>_<text>".
int brokerIdOfKey(const std::string& key) {
    return Zu::sToQs(key).split(QLatin1Char('_')).first().toInt(nullptr, 10);
}

log4cxx::LoggerPtr panelLogger() {
    return log4cxx::Logger::getLogger("PanelQuotesManage");
}

// Runs a modal dialog or box of the panel; false when the panel was destroyed while it ran, so
// that the caller touches nothing of it afterwards, its locks included.
template <typename Run>
bool survives(QObject* panel, Run run) {
    QPointer<QObject> alive(panel);
    run();
    return !alive.isNull();
}

}  // namespace

CQuotesManagePanel::CQuotesManagePanel(int tradeType, const QString& objectName, QWidget* parent)
    : IorinDockableWidget(objectName, parent), m_tradeType(tradeType) {
    const rkservice::CUserInfoPtr user = CUserManager::instance()->getUserInfoPtr();
    m_routeBySystem = user && user->routesBySystem();
    connect(this, &CQuotesManagePanel::sigOnDataQuotesInfo, this,
            &CQuotesManagePanel::slotOnDataQuotesInfo, Qt::AutoConnection);
    connect(this, &CQuotesManagePanel::sigOnDataBrokerInfo, this,
            &CQuotesManagePanel::slotOnDataBrokerInfo, Qt::AutoConnection);
    connect(this, &CQuotesManagePanel::sigOnDataFinished, this,
            &CQuotesManagePanel::slotOnDataFinished, Qt::AutoConnection);
    connect(this, &CQuotesManagePanel::sigOnDataKxFutureQuotesInfo, this,
            &CQuotesManagePanel::slotOnDataKxFutureQuotesInfo, Qt::AutoConnection);
    connect(this, &CQuotesManagePanel::sigMsgCallBack, this, &CQuotesManagePanel::slotMsgCallBack,
            Qt::AutoConnection);
    connect(this, &CQuotesManagePanel::sigOnDeleteFailed, this,
            &CQuotesManagePanel::slotOnDeleteFailed, Qt::AutoConnection);
    createUi();
}

CQuotesManagePanel::~CQuotesManagePanel() {
    // Release workers waiting on our locks, let running answers finish and drop later ones,
    // then cut the signals, so that nothing reaches a dying panel.
    m_dataMutex.abandon();
    m_permissionMutex.abandon();
    m_answerGuard.invalidate();
    disconnect(this, nullptr, nullptr, nullptr);
    // The table outlives our members: its computed rows must not reach them.
    if (m_table)
        m_table->setRowTexts({});
}

// ---------------------------------------------------------------------------------------------
// Frame

void CQuotesManagePanel::createUi() {
    auto* outer = new Zu::CWidgetList(this, Qt::Vertical);
    outer->setMargins(0, 10, 0, 0);
    outer->setSpacing(5);
    createToolBar(outer);
    createFindBar(outer);
    createTable(outer);
    setInnerStretchWidget(outer);
    createShortcuts();
    createRowMenu();
    updateFindState();
}

void CQuotesManagePanel::createFindBar(Zu::CWidgetList* outer) {
    m_findBar = new CFindBar(outer);
    outer->addFixedWidget(m_findBar);
    m_findBar->hide();
    connect(m_findBar, &CFindBar::textChanged, this, [this](const QString& text) {
        m_table->setFilterText(text);
        updateFindState();
    });
}

void CQuotesManagePanel::createShortcuts() {
    const auto onPanel = [this](const QKeySequence& keys, void (CQuotesManagePanel::*act)()) {
        connect(new QShortcut(keys, this, nullptr, nullptr, Qt::WidgetWithChildrenShortcut),
                &QShortcut::activated, this, act);
    };
    onPanel(QKeySequence(Qt::Key_F5), &CQuotesManagePanel::refresh);
    onPanel(QKeySequence::Find, &CQuotesManagePanel::openFind);
    // The row keys act where the rows are, so that typing in the find bar never deletes.
    QTableView* view = m_table->view();
    const auto onRows = [this, view](const QKeySequence& keys, void (CQuotesManagePanel::*act)()) {
        connect(new QShortcut(keys, view, nullptr, nullptr, Qt::WidgetShortcut),
                &QShortcut::activated, this, act);
    };
    onRows(QKeySequence(Qt::Key_Delete), &CQuotesManagePanel::deleteSelectedRowByKey);
    onRows(QKeySequence(Qt::Key_Return), &CQuotesManagePanel::editSelectedRowByKey);
    onRows(QKeySequence(Qt::Key_Enter), &CQuotesManagePanel::editSelectedRowByKey);
}

void CQuotesManagePanel::createRowMenu() {
    m_rowMenu.add(QStringLiteral("测试连接"), QStringLiteral("testConnection"),
                  [this](int, const rkservice::COrinQuoterSourceInfoPtr& record) {
                      CConnectionTest::start(this, record->m_nId);
                  });
    m_rowMenu.add(QStringLiteral("查看历史"), QStringLiteral("viewHistory"),
                  [this](int, const rkservice::COrinQuoterSourceInfoPtr& record) {
                      CSourceHistoryDialog::openFor(this, record->m_nId);
                  });
    m_rowMenu.add(
        QStringLiteral("复制地址"), QStringLiteral("copyAddress"),
        [this](int row, const rkservice::COrinQuoterSourceInfoPtr&) { copyAddress(row); });
    m_rowMenu.add(
        QStringLiteral("复制到分系统…"), QStringLiteral("copyToSubsystem"),
        [this](int, const rkservice::COrinQuoterSourceInfoPtr& record) { copyToSubsystem(record); },
        [this](int, const rkservice::COrinQuoterSourceInfoPtr& record) {
            return mayCopyToSubsystem(record);
        });
    // Only the user-interface thread writes the row records, and the menu runs on it.
    m_table->setMenuExtension(
        [this](QMenu* menu, int row) { m_rowMenu.fill(menu, row, m_rowRecords.value(row)); });
}

void CQuotesManagePanel::openFind() {
    m_findBar->open();
    updateFindState();
}

void CQuotesManagePanel::updateFindState() {
    if (!m_table)
        return;
    m_findBar->setMatches(m_table->shownRowCount(), m_table->rowCount());
    if (!m_deleteAllButton)
        return;
    // 全部删除 deletes every row of the panel, as its question says: not while some are hidden.
    const bool hides = m_table->hidesRows();
    m_deleteAllButton->setEnabled(!hides);
    m_deleteAllButton->setToolTip(hides ? QStringLiteral("清除筛选后可全部删除") : QString());
}

void CQuotesManagePanel::createToolBar(Zu::CWidgetList* outer) {
    auto* toolBar = new Zu::CWidgetList(outer, Qt::Horizontal);
    toolBar->setMargins(10, 0, 0, 0);
    toolBar->setSpacing(15);
    const CSourceRights* rights = CRightsTable::find(m_tradeType);
    const bool mayAdd = rights && CUserManager::instance()->checkUserAuth(rights->add);
    const QString name = ownTradeTypeName();

    if (m_tradeType != CTradeTypeTable::kAll && mayAdd) {
        m_addButton =
            new Zu::CSmallNormalButton(toolBar, kBtnAdd, QStringLiteral("+添加%1行情源").arg(name));
        m_addButton->setFixedSize(135, 26);
        toolBar->addWidget(m_addButton);
    }
    if (m_tradeType == CTradeTypeTable::kAll ||
        (CTradeTypeTable::isFuturesType(m_tradeType) && mayAdd)) {
        const QString brand = COrinClientCenter::instance()->hasClientLoginTypeAuth(0)
                                  ? QString()
                                  : QStringLiteral("Kx");
        auto* kxButton = new Zu::CSmallNormalButton(
            toolBar, kBtnKxAdd, QStringLiteral("+添加%1%2行情源").arg(brand, name));
        kxButton->setFixedSize(135, 26);
        toolBar->addWidget(kxButton);
    }
    auto* refreshButton = new Zu::CSmallNormalButton(toolBar, kBtnRefresh, QStringLiteral("刷新"));
    refreshButton->setFixedSize(70, 26);
    toolBar->addWidget(refreshButton);
    m_deleteAllButton =
        new Zu::CSmallNormalButton(toolBar, kBtnDeleteAll, QStringLiteral("全部删除"));
    m_deleteAllButton->setFixedSize(70, 26);
    toolBar->addWidget(m_deleteAllButton);
    if (m_tradeType == CTradeTypeTable::kAll) {
        auto* wholeQuoteButton = new Zu::CPushButton(toolBar, kBtnWholeQuote);
        wholeQuoteButton->setTextColorKey(QStringLiteral("clr_text_clickable"));
        wholeQuoteButton->setText(QStringLiteral("行情全推设置"));
        wholeQuoteButton->setIconKey(QStringLiteral("img_btn_set_small"));
        wholeQuoteButton->setFixedSize(wholeQuoteButton->minimumSizeHint().width(), 15);
        toolBar->addWidget(wholeQuoteButton);
    }

    toolBar->addStretch(1);
    m_maskHost = new Zu::CWidgetList(toolBar, Qt::Horizontal);
    m_maskHost->setMargins(0, 0, 0, 0);
    m_maskHost->setFixedSize(130, 40);
    m_loadingMask = new Zu::CLoadingMaskWidget(m_maskHost);
    m_loadingMask->resize(130, 40);
    m_loadingMask->setAnimationSize(QSize(150, 45));
    m_loadingMask->hide();
    toolBar->addWidget(m_maskHost);
    outer->addFixedWidget(toolBar);
}

void CQuotesManagePanel::createTable(Zu::CWidgetList* outer) {
    const CTradeTypeInfo* info = CTradeTypeTable::find(m_tradeType);
    m_table =
        new Zu::COddEvenRowTable(outer, info ? info->layoutId : 0, Zu::CBaseNormalTable::MenuAll);
    m_table->setTableFlags(Zu::CBaseNormalTable::TableShowGrid);
    m_table->setColumns({QStringLiteral("ID"), QStringLiteral("行情源类型"),
                         QStringLiteral("平台名称"), QStringLiteral("名称"),
                         QStringLiteral("服务器组"), QStringLiteral("地址"), QStringLiteral("端口"),
                         QStringLiteral("用户名"), QStringLiteral("密码"), QStringLiteral("操作"),
                         QStringLiteral("分系统")});
    m_table->setColumnHidden(kColId, true);
    m_table->setColumnHidden(kColPassword, true);
    m_table->setColumnHidden(kColSubsystem,
                             !(m_routeBySystem && COrinClientCenter::instance()->isMultiServers()));
    if (m_tradeType == CTradeTypeTable::kAll) {
        m_table->removeColumn(kColServerGroup);
        m_table->removeColumn(kColName);
    } else if (CTradeTypeTable::isFuturesType(m_tradeType)) {
        m_table->setColumnHidden(kColUser, true);
        m_table->removeColumn(kColPassword);
        m_table->removeColumn(kColTradeType);
    } else {
        m_table->removeColumn(kColName);
        m_table->removeColumn(kColServerGroup);
        m_table->removeColumn(kColTradeType);
    }
    // Source rows are computed from their records when shown, so that a large load stores no
    // text per cell.
    m_table->setRowTexts([this](int row, int columnId) { return sourceRowText(row, columnId); });
    m_buttonsDelegate = new Zu::CBaseTableColumnMultiButtonsDelegate(m_table);
    m_table->setColumnDelegate(kColOperation, m_buttonsDelegate);
    // Headers sort; ports as numbers, addresses by their value.
    m_table->setSortable(true);
    m_table->setColumnSortKind(kColId, Zu::CBaseNormalTable::SortNumber);
    m_table->setColumnSortKind(kColPort, Zu::CBaseNormalTable::SortNumber);
    m_table->setColumnSortKind(kColAddress, Zu::CBaseNormalTable::SortAddress);
    connect(m_table, &Zu::CBaseNormalTable::arranged, this, &CQuotesManagePanel::updateFindState);
    outer->addStretchWidget(m_table);
}

QString CQuotesManagePanel::tradeType2String(int tradeType, int platformId) const {
    return CTradeTypeTable::tradeType2String(tradeType, platformId);
}

QString CQuotesManagePanel::ownTradeTypeName() const {
    return tradeType2String(m_tradeType, -1);
}

namespace {

// The part of the saved state that keeps the sort and the find text, after the table's layout:
// "qf1|<column id>.<a|d>|<find text, percent-encoded>"; parts without the tag are ignored.
const QString kFindStateTag = QStringLiteral("qf1");

}  // namespace

void CQuotesManagePanel::setParam(const QString& param) {
    const QStringList parts = param.split(QLatin1Char(';'), Qt::KeepEmptyParts);
    if (parts.isEmpty() || !m_table)
        return;
    m_table->loadConfigStr(parts.first());
    for (const QString& part : parts.mid(1)) {
        const QStringList fields = part.split(QLatin1Char('|'));
        if (fields.size() == 3 && fields[0] == kFindStateTag)
            restoreFindState(fields[1], fields[2]);
    }
}

void CQuotesManagePanel::restoreFindState(const QString& sort, const QString& find) {
    const QStringList order = sort.split(QLatin1Char('.'));
    bool known = false;
    const int column = order.first().toInt(&known);
    if (known && order.size() == 2 && m_table->hasColumn(column))
        m_table->sortByColumnId(
            column, order.last() == QLatin1String("d") ? Qt::DescendingOrder : Qt::AscendingOrder);
    const QString text = QString::fromUtf8(QByteArray::fromPercentEncoding(find.toLatin1()));
    m_findBar->setText(text);
    m_findBar->setVisible(!text.isEmpty());
    updateFindState();
}

QString CQuotesManagePanel::param() const {
    QStringList parts;
    if (m_table)
        parts << m_table->saveConfigStr();
    // Only a sort or a find adds a part, so that a plain panel keeps the string it always had.
    const int sorted = m_table ? m_table->sortColumnId() : -1;
    const QString find = m_findBar ? m_findBar->text() : QString();
    if (sorted >= 0 || !find.isEmpty()) {
        const QString sort =
            sorted < 0 ? QString()
                       : QStringLiteral("%1.%2").arg(sorted).arg(
                             m_table->sortOrder() == Qt::DescendingOrder ? QLatin1String("d")
                                                                         : QLatin1String("a"));
        parts << QStringList{kFindStateTag, sort,
                             QString::fromLatin1(find.toUtf8().toPercentEncoding())}
                     .join(QLatin1Char('|'));
    }
    return parts.join(QLatin1Char(';'));
}

void CQuotesManagePanel::onActive() {
    IorinDockableWidget::onActive();
    refresh();
    if (m_tradeType == CTradeTypeTable::kAll)
        sendPermissionQuery();
}

void CQuotesManagePanel::switchSystem(int systemId, const QString& systemName) {
    IorinDockableWidget::switchSystem(systemId, systemName);
    m_systemName = systemName;
    refresh();
}

rkservice::COrinQuoterSourceInfoPtr CQuotesManagePanel::rowRecord(int row) {
    return m_dataMutex.read([this, row] { return m_rowRecords.value(row); });
}

int CQuotesManagePanel::rowRecordCount() {
    return m_dataMutex.read([this] { return m_rowRecords.size(); });
}

rkservice::CGlobalFeaturePermissionInfoPtr CQuotesManagePanel::permissionInfo() {
    return m_permissionMutex.read([this] { return m_permissionInfo; });
}

// ---------------------------------------------------------------------------------------------
// Loading

void CQuotesManagePanel::refresh() {
    {
        // Inside a nested loop of a locked action, the refresh waits for the action to end.
        CPanelMutex::Locker lock = m_dataMutex.lockOrPark([this] { refresh(); });
        if (!lock)
            return;
        // Whoever reloads (刷新, F5, the operator's own change), the selected source stays
        // selected.
        if (!m_reselect && m_table) {
            const rkservice::COrinQuoterSourceInfoPtr selected =
                m_rowRecords.value(m_table->selectedRow());
            m_reselectId = selected ? selected->m_nId : -1;
            m_reselect = m_reselectId >= 0;
        }
        if (m_loadingMask)
            m_loadingMask->attach(m_maskHost);
        m_loading = true;
        m_loadFlags[0] = m_loadFlags[1] = false;
        // A new load: answers of earlier ones are dropped from now on.
        m_answerGuard.startLoad();
        m_quoteSources.clear();
        if (CTradeTypeTable::isFuturesType(m_tradeType))
            m_brokerInfos.clear();
    }
    if (!CTradeTypeTable::isFuturesType(m_tradeType)) {
        brokerInfoReady(false, QString());
        return;
    }
    auto request = CRequestFactory::query(rkservice::kDataBrokers,
                                          CRequestFactory::queryCondition(m_tradeType));
    if (m_addButton && m_routeBySystem && COrinClientCenter::instance()->isMultiServers()) {
        const bool named = !m_systemName.isEmpty();
        m_addButton->setText(named ? QStringLiteral("+添加%1行情源").arg(ownTradeTypeName())
                                   : QStringLiteral("选择分系统后添加行情源"));
        m_addButton->setEnabled(named);
    }
    CRequestRouter(RoutePolicy::NamedOrCentre, m_routeBySystem, m_systemName)
        .query(request, m_answerGuard.guardLoad(boost::bind(
                            &CQuotesManagePanel::onQueryBrokerInfoData, this, _1, _2, _3, _4)));
}

bool CQuotesManagePanel::isCurrentAnswer() const {
    return CAnswerGuard::runningLoad() == m_answerGuard.currentLoad();
}

bool CQuotesManagePanel::takeTicket(QQueue<int>& tickets) {
    return !tickets.isEmpty() && tickets.dequeue() == m_answerGuard.currentLoad();
}

bool CQuotesManagePanel::isOwnDelivery() const {
    // Our answers reach the slots only through our own queued signals; anyone else calling a
    // slot directly has no ticket to give.
    return sender() == this;
}

void CQuotesManagePanel::onQueryBrokerInfoData(const utils::RKError& error,
                                               const std::vector<rkservice::IDataPtr>& datas,
                                               int /*count*/, bson::BSONObj /*result*/) {
    CPanelMutex::Locker lock(m_dataMutex);
    if (!lock || !isCurrentAnswer())
        return;
    m_brokerInfos.reserve(m_brokerInfos.size() + datas.size());
    m_brokerInfos.insert(m_brokerInfos.end(), datas.begin(), datas.end());
    m_brokerTickets.enqueue(CAnswerGuard::runningLoad());
    emit sigOnDataBrokerInfo(!error.isSuccess(), Zu::sToQs(error.errorMsg()));
}

void CQuotesManagePanel::slotOnDataBrokerInfo(bool bError, QString qsError) {
    brokerInfoDelivered(bError, qsError, isOwnDelivery());
}

void CQuotesManagePanel::brokerInfoDelivered(bool bError, const QString& qsError, bool delivered) {
    {
        CPanelMutex::Locker lock = m_dataMutex.lockOrPark([this, bError, qsError, delivered] {
            brokerInfoDelivered(bError, qsError, delivered);
        });
        if (!lock || (delivered && !takeTicket(m_brokerTickets)))
            return;
    }
    brokerInfoReady(bError, qsError);
}

void CQuotesManagePanel::brokerInfoReady(bool bError, const QString& qsError) {
    CPanelMutex::Locker lock =
        m_dataMutex.lockOrPark([this, bError, qsError] { brokerInfoReady(bError, qsError); });
    if (!lock)
        return;
    if (!qsError.isEmpty())
        showLoadFailure(qsError);
    if (m_loadingMask)
        m_loadingMask->hide();
    if (bError) {
        m_loading = false;
        return;
    }
    sendQuotesQuery();
}

void CQuotesManagePanel::sendQuotesQuery() {
    auto request = CRequestFactory::query(rkservice::kDataQuoteSources,
                                          CRequestFactory::queryCondition(m_tradeType));
    CRequestRouter(RoutePolicy::RoutedOrCentre, m_routeBySystem, m_systemName)
        .query(request, m_answerGuard.guardLoad(
                            boost::bind(&CQuotesManagePanel::onQueryData, this, _1, _2, _3, _4)));
}

void CQuotesManagePanel::onQueryData(const utils::RKError& error,
                                     const std::vector<rkservice::IDataPtr>& datas, int count,
                                     bson::BSONObj /*result*/) {
    CPanelMutex::Locker lock(m_dataMutex);
    if (!lock || !isCurrentAnswer())
        return;
    m_quoteSources = datas;
    m_unavailableLoad =
        error.kind() == utils::ErrorKind::Unavailable ? CAnswerGuard::runningLoad() : -1;
    m_quoteTickets.enqueue(CAnswerGuard::runningLoad());
    emit sigOnDataQuotesInfo(!error.isSuccess(), Zu::sToQs(error.errorMsg()), count);
}

void CQuotesManagePanel::slotOnDataQuotesInfo(bool bError, QString qsError, int count) {
    quotesDelivered(bError, qsError, count, isOwnDelivery());
}

void CQuotesManagePanel::quotesDelivered(bool bError, const QString& qsError, int count,
                                         bool delivered) {
    CPanelMutex::Locker lock = m_dataMutex.lockOrPark([this, bError, qsError, count, delivered] {
        quotesDelivered(bError, qsError, count, delivered);
    });
    if (!lock || (delivered && !takeTicket(m_quoteTickets)))
        return;
    if (bError && m_unavailableLoad == m_answerGuard.currentLoad()) {
        // Nothing was read, nothing is known to be gone: the rows shown stay, with the reason.
        showLoadFailure(qsError.isEmpty() ? QStringLiteral("请求数据失败") : qsError);
        if (m_loadingMask)
            m_loadingMask->hide();
        m_loading = false;
        m_reselect = false;
        return;
    }
    m_table->clear();
    m_table->update();
    m_rowRecords.clear();
    m_names.clear();
    m_rowRights = readRowRights();
    m_table->setTotalCount(count);
    if (bError) {
        showLoadFailure(qsError.isEmpty() ? QStringLiteral("请求数据失败") : qsError);
    } else {
        for (const rkservice::IDataPtr& data : m_quoteSources) {
            auto source = boost::dynamic_pointer_cast<rkservice::COrinQuoterSourceInfo>(data);
            if (!source)
                continue;
            if (CTradeTypeTable::isFuturesType(m_tradeType))
                appendBrokerRows(source);
            else if (m_tradeType == CTradeTypeTable::kAll) {
                if (source->m_nBrokerId == rkservice::COrinQuoterSourceInfo::kNoBroker)
                    appendSourceRow(source);
            } else if (source->m_nPlatformId != CPlatformTable::kKxFutures &&
                       source->m_nPlatformId != CPlatformTable::kKxFuturesOptions) {
                appendSourceRow(source);
            }
        }
    }
    m_table->adjustColumnWidth();
    m_table->update();
    if (m_loadingMask)
        m_loadingMask->hide();
    m_loading = false;
    reselectSource();
    updateFindState();
    if (CTradeTypeTable::isFuturesType(m_tradeType))
        queryKxFuture();
}

bool CQuotesManagePanel::shows(Content content) const {
    switch (content) {
        case QuoteSources:
            return true;
        case WholeQuoteSettings:
            return m_tradeType == CTradeTypeTable::kAll;
        case Level2Token:
            break;
    }
    return false;
}

void CQuotesManagePanel::reloadWholeQuoteSettings() {
    onActive();
}

void CQuotesManagePanel::reloadSources() {
    const int row = m_table ? m_table->selectedRow() : -1;
    const auto selected = m_rowRecords.constFind(row);
    m_reselectId =
        selected != m_rowRecords.constEnd() && selected.value() ? selected.value()->m_nId : -1;
    m_reselect = true;
    refresh();
}

void CQuotesManagePanel::reselectSource() {
    if (!m_reselect)
        return;
    m_reselect = false;
    int found = -1;
    for (auto it = m_rowRecords.constBegin(); it != m_rowRecords.constEnd() && found < 0; ++it) {
        if (m_reselectId >= 0 && it.value() && it.value()->m_nId == m_reselectId)
            found = it.key();
    }
    m_table->selectRow(found);
}

void CQuotesManagePanel::showLoadFailure(const QString& message) {
    COrinClientCenter::instance()->showServerMsgCallBack(
        1, false, this, QStringLiteral("%1行情源").arg(ownTradeTypeName()), message, true, false);
}

void CQuotesManagePanel::appendSourceRow(const rkservice::COrinQuoterSourceInfoPtr& source) {
    // The row's texts come from its record in m_rowRecords (sourceRowText).
    const int row = m_table->appendComputedRow();
    setRowButtons(row, m_rowRights.edit, m_rowRights.remove);
    m_rowRecords[row] = source;
}

QString CQuotesManagePanel::sourceRowText(int row, int columnId) {
    const auto found = m_rowRecords.constFind(row);
    if (found == m_rowRecords.constEnd() || !found.value())
        return QString();
    const rkservice::COrinQuoterSourceInfo& source = *found.value();
    switch (columnId) {
        case kColId:
            return text(source.m_nId);
        case kColTradeType:
            return m_names.tradeTypeName(source.m_nTradeType, source.m_nPlatformId);
        case kColPlatform:
            return m_names.platformName(source.m_nPlatformId);
        case kColAddress:
            return Zu::sToQs(source.m_strAddress);
        case kColPort:
            return text(source.m_nPort);
        case kColUser:
            return Zu::sToQs(source.m_strUserName);
        case kColPassword:
            return Zu::sToQs(source.m_strPassword);
        case kColServerGroup:
            // The server name deliberately goes to the server-group column in these rows.
            return m_names.serverName(source.getSystemTag());
        default:
            return QString();
    }
}

CQuotesManagePanel::RowRights CQuotesManagePanel::readRowRights() const {
    CUserManager* users = CUserManager::instance();
    RowRights rights;
    if (m_tradeType == CTradeTypeTable::kAll) {
        // The all-types panel offers both buttons on every row.
        rights.edit = rights.remove = true;
    } else if (const CSourceRights* own = CRightsTable::find(m_tradeType)) {
        rights.edit = users->checkUserAuth(own->modify);
        rights.remove = users->checkUserAuth(own->remove);
    }
    rights.brokerRemove =
        users->checkUserAuth(CRightsTable::find(CTradeTypeTable::kFutures)->remove);
    rights.kxRemove = rights.brokerRemove || users->checkUserAuth(CRightsTable::kKxRowDelete);
    return rights;
}

void CQuotesManagePanel::setRowButtons(int row, bool edit, bool remove) {
    // The four possible lists, built once and shared by every row (the UI thread's only).
    static const std::array<QVector<Zu::ButtonData>, 4> lists = [] {
        std::array<QVector<Zu::ButtonData>, 4> built;
        for (int kind = 0; kind < 4; ++kind) {
            if (kind & 2)
                built[kind] << Zu::ButtonData(kBtnEditRow, QStringLiteral("编辑"), 1, false, {});
            if (kind & 1)
                built[kind] << Zu::ButtonData(kBtnDeleteRow, QStringLiteral("删除"), 1, false, {});
        }
        return built;
    }();
    if (m_buttonsDelegate)
        m_buttonsDelegate->setItemButtons(std::to_string(row),
                                          lists[(edit ? 2 : 0) + (remove ? 1 : 0)], false);
}

void CQuotesManagePanel::appendBrokerRows(const rkservice::COrinQuoterSourceInfoPtr& source) {
    for (const rkservice::IDataPtr& data : m_brokerInfos) {
        auto broker = boost::dynamic_pointer_cast<rkservice::COrinBrokerInfo>(data);
        if (!broker || broker->platformId != source->m_nPlatformId ||
            brokerIdOfKey(broker->brokerKey) != source->m_nBrokerId ||
            broker->getSystemTag() != source->getSystemTag())
            continue;
        for (int i = 0; i < int(broker->serverGroups.size()); ++i) {
            const rkservice::COrinServerGroupPtr& group = broker->serverGroups[size_t(i)];
            if (group && group->serverGroupId == source->m_nServerGroupId)
                appendBrokerRow(source, *broker, i);
        }
    }
}

void CQuotesManagePanel::appendBrokerRow(const rkservice::COrinQuoterSourceInfoPtr& source,
                                         const rkservice::COrinBrokerInfo& broker, int groupIndex) {
    const rkservice::COrinServerGroup& group = *broker.serverGroups[size_t(groupIndex)];
    QStringList addresses;
    QStringList ports;
    for (const std::string& entry : group.serverAddresses) {
        const QString address = Zu::sToQs(entry);
        const int colon = address.lastIndexOf(QLatin1Char(':'));
        addresses << (colon < 0 ? address : address.left(colon));
        if (colon >= 0)
            ports << address.mid(colon + 1);
    }
    const int row = m_table->appendRow();
    m_table->setItemText(row, kColId, text(source->m_nId));
    m_table->setItemText(row, kColPlatform, Zu::sToQs(broker.platformName));
    m_table->setItemText(row, kColName, Zu::sToQs(broker.brokerName));
    m_table->setItemText(row, kColSubsystem, m_names.serverName(source->getSystemTag()));
    m_table->setItemText(row, kColServerGroup, Zu::sToQs(group.serverGroupName));
    m_table->setItemText(row, kColAddress, addresses.join(QLatin1Char(',')));
    m_table->setItemText(row, kColPort, ports.join(QLatin1Char(',')));
    setRowButtons(row, false, m_rowRights.brokerRemove);
    m_rowRecords[row] = source;
}

void CQuotesManagePanel::queryKxFuture() {
    auto request = CRequestFactory::query(
        rkservice::kDataQuoteSources, CRequestFactory::queryCondition(CTradeTypeTable::kStocks));
    CRequestRouter(RoutePolicy::Centre, m_routeBySystem, m_systemName)
        .query(request, m_answerGuard.guardLoad(boost::bind(
                            &CQuotesManagePanel::onQueryKxFutureData, this, _1, _2, _3, _4)));
}

void CQuotesManagePanel::onQueryKxFutureData(const utils::RKError& error,
                                             const std::vector<rkservice::IDataPtr>& datas,
                                             int /*count*/, bson::BSONObj /*result*/) {
    // Filled aside and swapped in under the lock: answers may run on several threads at once.
    std::vector<rkservice::COrinQuoterSourceInfoPtr> kept;
    for (const rkservice::IDataPtr& data : datas) {
        auto source = boost::dynamic_pointer_cast<rkservice::COrinQuoterSourceInfo>(data);
        if (!source)
            continue;
        if (m_tradeType == CTradeTypeTable::kFutures &&
            source->m_nPlatformId != CPlatformTable::kKxFutures)
            continue;
        if (m_tradeType == CTradeTypeTable::kFuturesOptions &&
            source->m_nPlatformId != CPlatformTable::kKxFuturesOptions)
            continue;
        kept.push_back(source);
    }
    CPanelMutex::Locker lock(m_dataMutex);
    if (!lock || !isCurrentAnswer())
        return;
    m_kxFutureSources.swap(kept);
    m_kxTickets.enqueue(CAnswerGuard::runningLoad());
    emit sigOnDataKxFutureQuotesInfo(!error.isSuccess(), Zu::sToQs(error.errorMsg()),
                                     int(m_kxFutureSources.size()));
}

void CQuotesManagePanel::slotOnDataKxFutureQuotesInfo(bool bError, QString qsError, int /*count*/) {
    kxQuotesDelivered(bError, qsError, isOwnDelivery());
}

void CQuotesManagePanel::kxQuotesDelivered(bool bError, const QString& qsError, bool delivered) {
    CPanelMutex::Locker lock = m_dataMutex.lockOrPark(
        [this, bError, qsError, delivered] { kxQuotesDelivered(bError, qsError, delivered); });
    if (!lock || (delivered && !takeTicket(m_kxTickets)))
        return;
    if (!qsError.isEmpty()) {
        const QString title = QStringLiteral("%1行情源").arg(ownTradeTypeName());
        if (!survives(this, [&] {
                Zu::CMessageBox::warning(this, title, qsError, QMessageBox::Ok, 0, false);
            })) {
            lock.release();
            return;
        }
        COrinClientCenter::instance()->showServerMsgCallBack(1, false, this, title, qsError, true,
                                                             false);
    }
    if (bError)
        return;
    m_names.clear();
    m_rowRights = readRowRights();
    for (const rkservice::COrinQuoterSourceInfoPtr& source : m_kxFutureSources)
        appendKxRow(source);
    m_table->adjustColumnWidth();
    m_table->update();
    updateFindState();
}

void CQuotesManagePanel::appendKxRow(const rkservice::COrinQuoterSourceInfoPtr& source) {
    const int row = m_table->appendRow();
    m_table->setItemText(row, kColId, text(source->m_nId));
    m_table->setItemText(row, kColName,
                         m_tradeType == CTradeTypeTable::kFutures ? QStringLiteral("Kx期货")
                                                                  : QStringLiteral("Kx期货期权"));
    m_table->setItemText(row, kColPlatform, m_names.platformName(source->m_nPlatformId));
    m_table->setItemText(row, kColId, text(source->m_nId));
    m_table->setItemText(row, kColAddress, Zu::sToQs(source->m_strAddress));
    m_table->setItemText(row, kColPort, text(source->m_nPort));
    m_table->setItemText(row, kColUser, Zu::sToQs(source->m_strUserName));
    m_table->setItemText(row, kColPassword, Zu::sToQs(source->m_strPassword));
    m_table->setItemText(row, kColServerGroup, m_names.serverName(source->getSystemTag()));
    setRowButtons(row, false, m_rowRights.kxRemove);
    m_rowRecords[row] = source;
}

void CQuotesManagePanel::sendPermissionQuery() {
    auto request = CRequestFactory::query(rkservice::kDataGlobalPermission, std::string());
    // Tagged with the load it belongs to: answers of two activations may arrive in any order.
    CRequestRouter(RoutePolicy::NamedClient, m_routeBySystem, m_systemName)
        .query(request, m_answerGuard.guardLoadTagged(boost::bind(
                            &CQuotesManagePanel::onQueryPermission, this, _1, _2, _3, _4)));
}

void CQuotesManagePanel::onQueryPermission(const utils::RKError& /*error*/,
                                           const std::vector<rkservice::IDataPtr>& datas,
                                           int /*count*/, bson::BSONObj /*result*/) {
    CPanelMutex::Locker lock(m_permissionMutex);
    const int load = CAnswerGuard::runningLoad();
    // An older answer never replaces what a newer one brought.
    if (!lock || datas.empty() || load < m_permissionLoad)
        return;
    m_permissionLoad = load;
    m_permissionInfo =
        boost::dynamic_pointer_cast<rkservice::CGlobalFeaturePermissionInfo>(datas.front());
    if (m_permissionInfo)
        CUserManager::instance()->setGlobalPermissionInfo(m_permissionInfo);
}

void CQuotesManagePanel::slotOnDataFinished() {
    refresh();
}

// ---------------------------------------------------------------------------------------------
// Actions

bool CQuotesManagePanel::handleEvent(int eventId, int subId, int param, QString data, void* extra) {
    switch (eventId) {
        case Zu::EventButtonClicked:
            switch (subId) {
                case kBtnAdd:
                    addSource();
                    break;
                case kBtnRefresh:
                    refresh();
                    break;
                case kBtnKxAdd:
                    addKxSource();
                    break;
                case kBtnDeleteAll:
                    deleteAllRows();
                    break;
                case kBtnWholeQuote:
                    editWholeQuote();
                    break;
                default:
                    break;
            }
            return true;
        case Zu::EventRowButtonClicked:
            if (param == kBtnDeleteRow)
                deleteRow(data);
            else
                editSelectedRow();
            return true;
        case Zu::EventQuoteSourcesChanged:
            refresh();
            return true;
        default:
            return IorinDockableWidget::handleEvent(eventId, subId, param, data, extra);
    }
}

bool CQuotesManagePanel::showStockDialog(const QString& title, bool isAdd,
                                         const rkservice::COrinQuoterSourceInfoPtr& record) {
    m_stockDialog->setTitle(title);
    m_stockDialog->setBasicInfo(m_systemName);
    m_stockDialog->setIsAdd(isAdd);
    if (!isAdd)
        m_stockDialog->setBasicInfo(record);
    CSetStockQuotesDialog* dialog = m_stockDialog;
    return survives(this, [dialog] { dialog->exec(); });
}

void CQuotesManagePanel::addSource() {
    // The rule as written before: ((m_tradeType - 1) & ~4) == 0.
    if (CTradeTypeTable::isFuturesType(m_tradeType)) {
        if (!m_futureDialog)
            m_futureDialog = new CSetFutureQuotesDialog(m_tradeType, this);
        if (!m_futureDialog)
            return;
        m_futureDialog->setBasicInfo(m_systemName);
        m_futureDialog->exec();
        return;
    }
    if (!m_stockDialog)
        m_stockDialog = new CSetStockQuotesDialog(m_tradeType, this, false);
    if (!m_stockDialog)
        return;
    showStockDialog(QStringLiteral("添加%1行情源").arg(ownTradeTypeName()), true, {});
}

void CQuotesManagePanel::addKxSource() {
    // The rule as written before: m_tradeType + 1 in [0, 6] and bit m_tradeType + 1 of 0x45 set.
    if (!CTradeTypeTable::isFuturesGroup(m_tradeType))
        return;
    if (!m_stockDialog)
        m_stockDialog = new CSetStockQuotesDialog(m_tradeType, this, true);
    showStockDialog(QStringLiteral("添加%1行情源").arg(ownTradeTypeName()), true, {});
}

void CQuotesManagePanel::editSelectedRow() {
    if (m_tradeType != CTradeTypeTable::kAll) {
        const CSourceRights* rights = CRightsTable::find(m_tradeType);
        if (!rights || !CUserManager::instance()->checkUserAuth(rights->modify))
            return;
    }
    // Held until the dialog has closed; answers that need it wait, slots are parked.
    CPanelMutex::Locker lock = m_dataMutex.lockOrPark([this] { editSelectedRow(); });
    if (!lock)
        return;
    const rkservice::COrinQuoterSourceInfoPtr record = m_rowRecords.value(m_table->selectedRow());
    if (!record)
        return;
    if (m_tradeType == CTradeTypeTable::kAll)
        m_stockDialog = new CSetStockQuotesDialog(record->m_nTradeType, this, false);
    else if (!m_stockDialog)
        m_stockDialog = new CSetStockQuotesDialog(m_tradeType, this, false);
    if (!m_stockDialog)
        return;
    // Named by trade type 0 only on a panel of type 0; every real panel gets an empty name.
    const QString name = m_tradeType == 0 ? tradeType2String(0, -1) : QString();
    if (!showStockDialog(QStringLiteral("编辑%1行情源").arg(name), false, record))
        lock.release();
}

rkservice::COrinQuoterSourceInfoPtr CQuotesManagePanel::deleteRecord(
    int id, const rkservice::COrinQuoterSourceInfo& of, long long revision) {
    auto record = boost::make_shared<rkservice::COrinQuoterSourceInfo>();
    record->m_nId = id;
    record->setRevision(revision);
    record->m_nTradeType = of.m_nTradeType;
    record->m_nPlatformId = of.m_nPlatformId;
    if (record->m_nPlatformId == CPlatformTable::kKxFutures)
        record->m_nTradeType = CTradeTypeTable::kStocks;
    return record;
}

void CQuotesManagePanel::deleteRow(const QString& rowText) {
    const QString name = m_tradeType == CTradeTypeTable::kAll ? QString() : ownTradeTypeName();
    int answer = 0;
    if (!survives(this,
                  [&] {
                      answer = Zu::CMessageBox::question(
                          this, QStringLiteral("操作提示"),
                          QStringLiteral("确定删除%1行情源吗? ").arg(name),
                          QMessageBox::Ok | QMessageBox::Cancel, 0);
                  }) ||
        answer != QMessageBox::Ok)
        return;
    const int row = rowText.toInt(nullptr, 10);
    if (!m_table || row >= m_table->rowCount())
        return;
    CPanelMutex::Locker lock = m_dataMutex.lockOrPark([this, rowText] { deleteRow(rowText); });
    if (!lock)
        return;
    const auto found = m_rowRecords.constFind(row);
    if (found == m_rowRecords.constEnd())
        return;
    m_deleteRefreshed = false;
    auto request =
        CRequestFactory::operate(rkservice::kDataQuoteSources, rkservice::kOperateDelete);
    // The id comes from the row selected now, not from the row whose button was pressed, and
    // so does the revision: both name the source of the selected row.
    const int selected = m_table->selectedRow();
    const int id = m_table->itemText(selected, kColId).toInt(nullptr, 10);
    const rkservice::COrinQuoterSourceInfoPtr shown = m_rowRecords.value(selected);
    request->datas.push_back(
        deleteRecord(id, found.value() ? *found.value() : rkservice::COrinQuoterSourceInfo(),
                     shown ? shown->getRevision() : 0));
    sendDelete(request);
}

void CQuotesManagePanel::deleteAllRows() {
    if (m_table->hidesRows())
        return;
    int answer = 0;
    if (!survives(this,
                  [&] {
                      answer = Zu::CMessageBox::information(
                          this, QStringLiteral("提示"), QStringLiteral("确定要删除全部行情源吗?"),
                          QMessageBox::Yes | QMessageBox::No, 0, false);
                  }) ||
        answer != QMessageBox::Yes)
        return;
    auto request =
        CRequestFactory::operate(rkservice::kDataQuoteSources, rkservice::kOperateDelete);
    request->datas.reserve(size_t(m_rowRecords.size()));
    // Only this thread writes the map, so it is read here without the lock.
    for (auto it = m_rowRecords.constBegin(); it != m_rowRecords.constEnd(); ++it) {
        if (it.value())
            request->datas.push_back(
                deleteRecord(it.value()->m_nId, *it.value(), it.value()->getRevision()));
    }
    if (request->datas.empty())
        return;
    sendDelete(request);
    clearRowRecords();
    m_table->clear();
    m_table->update();
}

bool CQuotesManagePanel::selectedRowHasButton(int buttonId) const {
    const int row = m_table->selectedRow();
    if (row < 0 || !m_buttonsDelegate)
        return false;
    for (const Zu::ButtonData& button : m_buttonsDelegate->itemButtons(std::to_string(row))) {
        if (button.id == buttonId && !button.flag)
            return true;
    }
    return false;
}

void CQuotesManagePanel::editSelectedRowByKey() {
    // Enter does what the row's 编辑 does, and only where the row has one.
    if (selectedRowHasButton(kBtnEditRow))
        editSelectedRow();
}

void CQuotesManagePanel::deleteSelectedRowByKey() {
    // Delete asks the row's own 删除 question, and only where the row has one.
    if (selectedRowHasButton(kBtnDeleteRow))
        deleteRow(QString::number(m_table->selectedRow()));
}

void CQuotesManagePanel::copyAddress(int row) {
    // As the row shows it: a broker row lists every address of its server group.
    QApplication::clipboard()->setText(m_table->itemText(row, kColAddress));
}

bool CQuotesManagePanel::mayCopyToSubsystem(
    const rkservice::COrinQuoterSourceInfoPtr& record) const {
    // Sources of the stock dialog only (a futures source belongs to its broker's server group),
    // for a user who may add them, when there is another sub-system to copy into.
    const CSourceRights* rights = CRightsTable::find(record->m_nTradeType);
    if (record->m_nBrokerId != rkservice::COrinQuoterSourceInfo::kNoBroker || !rights ||
        !CUserManager::instance()->checkUserAuth(rights->add))
        return false;
    const boost::shared_ptr<IDataServiceBackend> backend = COrinClientCenter::instance()->backend();
    if (!backend)
        return false;
    for (const SubsystemInfo& subsystem : backend->subsystems()) {
        if (subsystem.name != record->getSystemTag())
            return true;
    }
    return false;
}

void CQuotesManagePanel::copyToSubsystem(const rkservice::COrinQuoterSourceInfoPtr& record) {
    if (!mayCopyToSubsystem(record))
        return;
    QStringList names;
    QStringList shown;
    for (const SubsystemInfo& subsystem : COrinClientCenter::instance()->backend()->subsystems()) {
        if (subsystem.name == record->getSystemTag())
            continue;
        names << Zu::sToQs(subsystem.name);
        shown << Zu::sToQs(subsystem.displayName.empty() ? subsystem.name : subsystem.displayName);
    }
    QString chosen;
    bool ok = false;
    if (!survives(this,
                  [&] {
                      chosen =
                          QInputDialog::getItem(this, QStringLiteral("复制到分系统"),
                                                QStringLiteral("分系统:"), shown, 0, false, &ok);
                  }) ||
        !ok || shown.indexOf(chosen) < 0)
        return;
    // A dialog of its own, so that the panel's add and edit dialog keeps what it was built for;
    // the operator confirms the copied fields with 提交.
    const bool kx = record->m_nPlatformId == CPlatformTable::kKxFutures ||
                    record->m_nPlatformId == CPlatformTable::kKxFuturesOptions;
    auto* dialog = new CSetStockQuotesDialog(record->m_nTradeType, this, kx);
    dialog->setObjectName(QStringLiteral("copyToSubsystemDialog"));
    dialog->setTitle(
        QStringLiteral("添加%1行情源").arg(tradeType2String(record->m_nTradeType, -1)));
    dialog->setIsAdd(true);
    dialog->setBasicInfo(record);
    dialog->sendToSubsystem(names.at(shown.indexOf(chosen)));
    QPointer<CSetStockQuotesDialog> copy(dialog);
    if (survives(this, [dialog] { dialog->exec(); }) && copy)
        copy->deleteLater();
}

void CQuotesManagePanel::clearRowRecords() {
    CPanelMutex::Locker lock = m_dataMutex.lockOrPark([this] { clearRowRecords(); });
    if (lock)
        m_rowRecords = QMap<int, rkservice::COrinQuoterSourceInfoPtr>();
}

void CQuotesManagePanel::sendDelete(const rkservice::COperateDataReqPtr& request) {
    CRequestRouter(RoutePolicy::RoutedOrDrop, m_routeBySystem, m_systemName)
        .operate(request, m_answerGuard.guardOperate(boost::bind(
                              &CQuotesManagePanel::onOperationDeleteQuotes, this, _1, _2)));
}

void CQuotesManagePanel::onOperationDeleteQuotes(const utils::RKError& error,
                                                 bson::BSONObj /*result*/) {
    if (!error.isSuccess()) {
        emit sigOnDeleteFailed(Zu::sToQs(error.errorMsg()));
        return;
    }
    bool expected = false;
    if (m_deleteRefreshed.compare_exchange_strong(expected, true))
        emit sigOnDataFinished();
}

void CQuotesManagePanel::slotOnDeleteFailed(QString qsError) {
    // Delete all has emptied the table already: say why, and reload whatever an earlier answer
    // did, so that every source still stored shows again.
    COrinClientCenter::instance()->showServerMsgCallBack(
        1, false, this, QStringLiteral("%1行情源").arg(ownTradeTypeName()),
        qsError.isEmpty() ? QStringLiteral("删除失败") : qsError, true, false);
    refresh();
}

void CQuotesManagePanel::editWholeQuote() {
    // Held while the dialog runs and the save is sent; the permission answer waits for it.
    CPanelMutex::Locker lock = m_permissionMutex.lockOrPark([this] { editWholeQuote(); });
    if (!lock)
        return;
    if (!m_wholeQuoteDialog)
        m_wholeQuoteDialog = new CWholeQuoteSettingDialog(QString(), this);
    if (!m_permissionInfo)
        return;
    m_wholeQuoteDialog->setWholeQuote(m_permissionInfo->m_wholeQuote);
    CWholeQuoteSettingDialog* dialog = m_wholeQuoteDialog;
    int result = 0;
    if (!survives(this, [&] { result = dialog->exec(); })) {
        lock.release();
        return;
    }
    if (result != QDialog::Accepted)
        return;
    m_wholeQuoteDialog->getWholeQuote(m_permissionInfo->m_wholeQuote);
    if (m_loadingMask)
        m_loadingMask->attach(this);
    auto request = CRequestFactory::operate(rkservice::kDataGlobalPermission,
                                            rkservice::kOperateSaveWholeQuote);
    request->datas.push_back(m_permissionInfo);
    const rkservice::CGlobalFeaturePermissionInfoPtr saved = m_permissionInfo;
    CRequestRouter(RoutePolicy::NamedClient, m_routeBySystem, m_systemName)
        .operate(request, m_answerGuard.guardOperate(boost::bind(
                              &CQuotesManagePanel::onSaveCallBack, this, _1, _2, saved)));
}

void CQuotesManagePanel::onSaveCallBack(const utils::RKError& error, bson::BSONObj result,
                                        const rkservice::CGlobalFeaturePermissionInfoPtr& saved) {
    if (error.isSuccess()) {
        // The held record is what was stored now: the next save sends its new revision.
        const long long revision = std::atoll(result.getStringField("revisions").c_str());
        CPanelMutex::Locker lock(m_permissionMutex);
        if (lock && revision > 0 && m_permissionInfo == saved && saved)
            saved->setRevision(revision);
    }
    emit sigMsgCallBack(error.isSuccess(), Zu::sToQs(error.errorMsg()));
}

void CQuotesManagePanel::slotMsgCallBack(bool bSuccess, QString qsError) {
    if (m_loadingMask)
        m_loadingMask->hide();
    COrinClientCenter* centre = COrinClientCenter::instance();
    if (bSuccess) {
        centre->showServerMsgCallBack(0, true, this, QStringLiteral("提示"),
                                      QStringLiteral("保存成功"), true, false);
        return;
    }
    const log4cxx::LoggerPtr logger = panelLogger();
    if (CLogCenter::instance()->logEnabled() && logger->isEnabledFor(log4cxx::Level::getInfo()))
        rkStdLogNew(logger, log4cxx::Level::getInfo(), "[CQuotesManagePanel] saveData error:%s",
                    qsError.toStdString().c_str());
    centre->showServerMsgCallBack(1, false, this, QStringLiteral("提示"), qsError, true, false);
    // The refused flags were written into the held record: read what is stored again, so that
    // the dialog never shows settings that are not stored.
    if (m_tradeType == CTradeTypeTable::kAll)
        sendPermissionQuery();
}

}  // namespace Hlx
