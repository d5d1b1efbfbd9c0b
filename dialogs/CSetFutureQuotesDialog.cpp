#include "dialogs/CSetFutureQuotesDialog.h"

#include <QMetaType>
#include <QVariant>
#include <boost/bind/bind.hpp>
#include <boost/format.hpp>
#include <boost/make_shared.hpp>

#include "Hlx/COrinClientCenter.h"
#include "Hlx/CSafeLineEdit.h"
#include "Hlx/CUserManager.h"
#include "Zu/CComboBox.h"
#include "Zu/CLoadingMaskWidget.h"
#include "Zu/CMessageTip.h"
#include "Zu/CSimpleTextWidget.h"
#include "Zu/CSmallNormalButton.h"
#include "Zu/CWidgetList.h"
#include "Zu/StringConvert.h"
#include "model/CRequestFactory.h"
#include "model/CRequestRouter.h"
#include "model/CTradeTypeTable.h"
#include "rkservice/COrinPlatformInfo.h"
#include "rkservice/COrinQuoterSourceInfo.h"
#include "rkservice/DataTypeIds.h"

using namespace boost::placeholders;

namespace Hlx {

namespace {

// Long enough to be read; the tip then stays until the combo's choice is made.
const int kTipMinimumMs = 3000;
const int kLabelWidth = 70;
const int kLabelHeight = 24;
const int kLabelFlags = int(Qt::AlignRight | Qt::AlignVCenter) | Qt::TextSingleLine;
const int kInputWidth = 200;
const int kInputHeight = 24;
const int kButtonWidth = 57;
const int kButtonHeight = 24;

QString chooseText() {
    return QStringLiteral("--请选择--");
}

}  // namespace

CSetFutureQuotesDialog::CSetFutureQuotesDialog(int tradeType, QWidget* parent)
    : Zu::CCommonDialog(parent),
      m_platformsPending(true),
      m_brokersPending(true),
      m_routeBySystem(false),
      m_platformCombo(nullptr),
      m_brokerCombo(nullptr),
      m_serverGroupCombo(nullptr),
      m_spare(nullptr),
      m_marketEdit(nullptr),
      m_tradeType(tradeType),
      m_loadingMask(nullptr) {
    Q_UNUSED(m_spare);
    // The lists arrive on a worker thread and cross into the user-interface thread by value.
    qRegisterMetaType<std::vector<rkservice::IDataPtr>>("std::vector<rkservice::IDataPtr>");
    if (rkservice::CUserInfoPtr user = CUserManager::instance()->getUserInfoPtr())
        m_routeBySystem = user->routesBySystem();
    createUi();
    setFixedSize(450, 280);
    connect(this, &CSetFutureQuotesDialog::sigOnOperationFinished, this,
            &CSetFutureQuotesDialog::slotOnOperationFinished);
    connect(this, &CSetFutureQuotesDialog::sigInitPlatform, this,
            &CSetFutureQuotesDialog::slotInitPlatform);
}

CSetFutureQuotesDialog::~CSetFutureQuotesDialog() {
    // Answers still on their way must not reach a dialog that is going away.
    m_answerGuard.invalidate();
    disconnect();
}

void CSetFutureQuotesDialog::createUi() {
    setTitle(m_tradeType == CTradeTypeTable::kFuturesOptions ? QStringLiteral("添加期货期权行情源")
                                                             : QStringLiteral("添加期货行情源"));

    auto* outer = new Zu::CWidgetList(this, Qt::Vertical);
    outer->setMargins(20, 20, 0, 0);
    outer->setSpacing(10);

    auto addRow = [outer](int labelId, const QString& label, QWidget* input) {
        auto* row = new Zu::CWidgetList(outer, Qt::Horizontal);
        row->setMargins(0, 0, 0, 0);
        row->setSpacing(10);
        auto* text = new Zu::CSimpleTextWidget(row, labelId, label);
        text->setFixedSize(kLabelWidth, kLabelHeight);
        text->setTextFlags(kLabelFlags);
        row->addWidget(text);
        input->setParent(row);
        input->setFixedSize(kInputWidth, kInputHeight);
        row->addWidget(input);
        outer->addWidget(row, 0, Zu::CWidgetList::AnchorFill);
    };

    m_platformCombo = new Zu::CComboBox(outer, PlatformCombo);
    m_platformCombo->addItem(chooseText(), QVariant());
    addRow(0, QStringLiteral("平台名称:"), m_platformCombo);
    m_brokerCombo = new Zu::CComboBox(outer, BrokerCombo);
    addRow(1, QStringLiteral("期货公司:"), m_brokerCombo);
    m_serverGroupCombo = new Zu::CComboBox(outer, ServerGroupCombo);
    addRow(2, QStringLiteral("服务器组:"), m_serverGroupCombo);
    m_marketEdit = new CSafeLineEdit(outer, 0);
    m_marketEdit->setText(m_tradeType == CTradeTypeTable::kFuturesOptions
                              ? QStringLiteral("DFO,IFO,SFO,ZFO")
                              : QStringLiteral("DF,IF,SF,ZF,INE"));
    addRow(2, QStringLiteral("市场:"), m_marketEdit);

    auto* buttons = new Zu::CWidgetList(outer, Qt::Horizontal);
    buttons->setMargins(0, 0, 20, 0);
    buttons->setSpacing(10);
    buttons->addStretch(1);
    auto* submit = new Zu::CSmallNormalButton(buttons, SubmitButton, QStringLiteral("提交"),
                                              Zu::CSmallNormalButton::TypeDialog);
    submit->setFixedSize(kButtonWidth, kButtonHeight);
    buttons->addWidget(submit);
    auto* close = new Zu::CSmallNormalButton(buttons, CloseButton, QStringLiteral("关闭"),
                                             Zu::CSmallNormalButton::TypeDialog);
    close->setFixedSize(kButtonWidth, kButtonHeight);
    buttons->addWidget(close);
    outer->addWidget(buttons, 0, Zu::CWidgetList::AnchorFill);

    setInnerWidget(outer);

    m_loadingMask = new Zu::CLoadingMaskWidget(this);
    m_loadingMask->setText(QStringLiteral("正在加载数据"));
    m_loadingMask->hide();
}

void CSetFutureQuotesDialog::setBasicInfo(const QString& systemName) {
    m_systemName = systemName;
    initPlatform();
}

void CSetFutureQuotesDialog::initPlatform() {
    m_platformsPending = true;
    m_brokersPending = true;

    const std::string condition = (boost::format("%d") % m_tradeType).str();
    auto platforms = CRequestFactory::query(rkservice::kDataPlatforms, condition);

    m_platformIds.clear();
    m_brokersByPlatform.clear();
    m_serverGroupAddresses.clear();
    m_serverGroupNames.clear();
    m_platformCombo->clear();
    m_brokerCombo->clear();
    m_serverGroupCombo->clear();
    m_platformCombo->addItem(chooseText(), QVariant());

    // Both lists come back through the same answer; a multi-server user without a chosen
    // sub-system gets neither.
    CRequestRouter router(RoutePolicy::RoutedOrDrop, m_routeBySystem, m_systemName);
    const QueryCallback answer = m_answerGuard.guardQuery(
        boost::bind(&CSetFutureQuotesDialog::onQueryData, this, _1, _2, _3, _4));
    router.query(platforms, answer);
    router.query(CRequestFactory::query(rkservice::kDataBrokers, condition), answer);
}

void CSetFutureQuotesDialog::onQueryData(const utils::RKError& error,
                                         const std::vector<rkservice::IDataPtr>& datas, int count,
                                         bson::BSONObj result) {
    Q_UNUSED(error);
    Q_UNUSED(count);
    Q_UNUSED(result);
    emit sigInitPlatform(datas);
}

void CSetFutureQuotesDialog::slotInitPlatform(const std::vector<rkservice::IDataPtr>& values) {
    if (m_platformsPending) {
        for (const rkservice::IDataPtr& value : values) {
            auto platform = boost::dynamic_pointer_cast<rkservice::COrinPlatformInfo>(value);
            if (!platform)
                continue;
            const QString name = Zu::sToQs(platform->platformName);
            // A repeated name keeps its one item; the later id wins.
            if (!m_platformIds.contains(name))
                m_platformCombo->addItem(name, QVariant());
            m_platformIds.insert(name, platform->platformId);
            m_platformsPending = false;
        }
    }
    if (m_brokersPending) {
        m_brokersByPlatform.clear();
        for (const rkservice::IDataPtr& value : values) {
            auto broker = boost::dynamic_pointer_cast<rkservice::COrinBrokerInfo>(value);
            if (!broker)
                continue;
            m_brokersByPlatform[broker->platformId].append(broker);
            m_brokersPending = false;
        }
    }
}

void CSetFutureQuotesDialog::onPlatformChanged() {
    if (!m_platformCombo || !m_brokerCombo)
        return;
    resetChoices(m_brokerCombo, &m_brokerNames);
    const QVector<boost::shared_ptr<rkservice::COrinBrokerInfo>>* brokers =
        brokersOfChosenPlatform();
    if (!brokers)
        return;
    for (const auto& broker : *brokers) {
        if (!broker)
            continue;
        const QString name = Zu::sToQs(broker->brokerName);
        m_brokerCombo->addItem(name, QVariant());
        m_brokerNames.append(name);
    }
}

void CSetFutureQuotesDialog::resetChoices(Zu::CComboBox* combo, QStringList* texts) {
    combo->clear();
    texts->clear();
    combo->addItem(chooseText(), QVariant());
    texts->append(chooseText());
}

const QVector<boost::shared_ptr<rkservice::COrinBrokerInfo>>*
CSetFutureQuotesDialog::brokersOfChosenPlatform() const {
    const auto platform = m_platformIds.constFind(m_platformCombo->currentText());
    if (platform == m_platformIds.constEnd())
        return nullptr;
    const auto brokers = m_brokersByPlatform.constFind(platform.value());
    return brokers == m_brokersByPlatform.constEnd() ? nullptr : &brokers.value();
}

void CSetFutureQuotesDialog::onBrokerChanged() {
    if (!m_serverGroupCombo || !m_brokerCombo || !m_platformCombo)
        return;
    resetChoices(m_serverGroupCombo, &m_serverGroupNameList);
    m_serverGroupAddresses.clear();
    m_serverGroupNames.clear();

    const int index = m_brokerCombo->currentIndex();
    const QString chosen =
        (index > 0 && index < m_brokerNames.size()) ? m_brokerNames.at(index) : QString();

    const QVector<boost::shared_ptr<rkservice::COrinBrokerInfo>>* brokers =
        brokersOfChosenPlatform();
    if (!brokers)
        return;
    // Brokers of the same name pool their server groups.
    for (const auto& broker : *brokers) {
        if (!broker || Zu::sToQs(broker->brokerName) != chosen)
            continue;
        for (const rkservice::COrinServerGroupPtr& group : broker->serverGroups) {
            if (!group)
                continue;
            const QString name = Zu::sToQs(group->serverGroupName);
            m_serverGroupCombo->addItem(name, QVariant());
            m_serverGroupNameList.append(name);
            m_serverGroupNames.insert(group->serverGroupId, group->serverGroupName);
            m_serverGroupAddresses.insert(name, group->serverAddresses);
        }
    }
}

void CSetFutureQuotesDialog::submit() {
    for (Zu::CComboBox* combo : {m_platformCombo, m_brokerCombo, m_serverGroupCombo}) {
        if (combo->currentText().isEmpty() || combo->currentIndex() == 0) {
            // As the stock dialog's tips: until the choice is made, and long enough to be read.
            Zu::CMessageTip::showTipUntilEdited(
                combo, Zu::CMessageTip::kBelowLeft, QStringLiteral("请选择 "),
                Zu::CMessageTip::StyleArrow, Zu::CMessageTip::LevelWarning, kTipMinimumMs);
            return;
        }
    }

    auto request = CRequestFactory::operate(rkservice::kDataQuoteSources, rkservice::kOperateAdd);
    auto record = boost::make_shared<rkservice::COrinQuoterSourceInfo>();

    const int platformId = m_platformIds.value(m_platformCombo->currentText(), 0);
    const QVector<boost::shared_ptr<rkservice::COrinBrokerInfo>> brokers =
        m_brokersByPlatform.value(platformId);
    const QString brokerName = m_brokerCombo->currentText();
    const QString groupName = m_serverGroupCombo->currentText();

    for (const auto& broker : brokers) {
        if (!broker || Zu::sToQs(broker->brokerName) != brokerName)
            continue;
        for (const rkservice::COrinServerGroupPtr& group : broker->serverGroups) {
            if (!group || Zu::sToQs(group->serverGroupName) != groupName)
                continue;
            record->m_nPlatformId = broker->platformId;
            // The key is "<broker id>_<text>"; only the leading id names the broker.
            record->m_nBrokerId =
                Zu::sToQs(broker->brokerKey)
                    .split(QLatin1Char('_'), Qt::KeepEmptyParts, Qt::CaseSensitive)
                    .first()
                    .toInt(nullptr, 10);
            record->m_nServerGroupId = group->serverGroupId;
            record->m_nTradeType = m_tradeType;
            request->datas.push_back(record);

            CRequestRouter router(RoutePolicy::RoutedOrDrop, m_routeBySystem, m_systemName);
            router.operate(request,
                           m_answerGuard.guardOperate(boost::bind(
                               &CSetFutureQuotesDialog::onOperationAddQuotes, this, _1, _2)));
            if (m_loadingMask) {
                m_loadingMask->setText(QStringLiteral("正在提交数据"));
                m_loadingMask->attach(this);
            }
            return;
        }
    }
}

bool CSetFutureQuotesDialog::handleEvent(int type, int id, int arg, QString text, void* extra) {
    if (type == Zu::EventComboIndexChanged) {
        if (id == PlatformCombo)
            onPlatformChanged();
        else if (id == BrokerCombo)
            onBrokerChanged();
        return true;
    }
    if (type != Zu::EventButtonClicked)
        return Zu::CCommonDialog::handleEvent(type, id, arg, text, extra);

    if (id == SubmitButton) {
        submit();
    } else {
        // Ends with the button's id, so "关闭" reports 1 like an accept; callers ignore it.
        close();
        done(id);
    }
    return true;
}

void CSetFutureQuotesDialog::onOperationAddQuotes(const utils::RKError& err, bson::BSONObj result) {
    Q_UNUSED(result);
    emit sigOnOperationFinished(!err.isSuccess(), Zu::sToQs(err.errorMsg()));
}

void CSetFutureQuotesDialog::slotOnOperationFinished(bool bError, QString qsError) {
    if (m_loadingMask)
        m_loadingMask->hide();
    const QString title = QStringLiteral("添加行情源");
    if (bError) {
        const QString text = qsError.isEmpty() ? QStringLiteral("操作失败") : qsError;
        COrinClientCenter::instance()->showServerMsgCallBack(1, false, this, title, text, true,
                                                             false);
        return;
    }
    COrinClientCenter::instance()->showServerMsgCallBack(0, true, this, title,
                                                         QStringLiteral("操作成功"), true, false);
    QPointer<CSetFutureQuotesDialog> self(this);
    deliverEvent(Zu::EventQuoteSourcesChanged, 0, 0, QString(), nullptr);
    if (self)
        close();
}

}  // namespace Hlx
