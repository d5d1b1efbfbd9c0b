#include "dialogs/CSetStockQuotesDialog.h"

#include <QHideEvent>
#include <QPointer>
#include <QRegExp>
#include <QVariant>
#include <boost/bind/bind.hpp>
#include <boost/make_shared.hpp>

#include "Hlx/COrinClientCenter.h"
#include "Hlx/CSafeLineEdit.h"
#include "Hlx/CUserManager.h"
#include "Zu/CComboBox.h"
#include "Zu/CLineEdit.h"
#include "Zu/CLoadingMaskWidget.h"
#include "Zu/CMessageTip.h"
#include "Zu/CSimpleTextWidget.h"
#include "Zu/CSmallNormalButton.h"
#include "Zu/CWidgetList.h"
#include "Zu/StringConvert.h"
#include "model/CFanOutTable.h"
#include "model/CFieldLimits.h"
#include "model/CPlatformTable.h"
#include "model/CRequestFactory.h"
#include "model/CRequestRouter.h"
#include "model/CRevisionConflicts.h"
#include "model/CTradeTypeTable.h"
#include "rkservice/DataTypeIds.h"

using namespace boost::placeholders;

namespace Hlx {

namespace {

// Long enough to be read; the tip then stays until the field is edited.
const int kTipMinimumMs = 3000;
const int kPortMin = 1;
const int kPortMax = 65535;

const int kLabelHeight = 24;
const int kInputWidth = 200;
const int kInputHeight = 24;
const int kButtonWidth = 57;
const int kButtonHeight = 24;

const char* const kIpv4Pattern =
    "^((25[0-5]|2[0-4][0-9]|1[0-9][0-9]|[1-9][0-9]|[0-9])($|(?!\\.$)\\.)){4}$";
const char* const kDigitsPattern = "^[0-9]+$";

// Letters, digits, "_" and everything from U+04BB up: the range the product has always
// accepted, which admits every CJK ideograph.
QString wideClass() {
    return QStringLiteral("[a-zA-Z0-9_") + QChar(0x04BB) + QLatin1Char('-') + QChar(0xFFFD) +
           QLatin1Char(']');
}

QString userPattern() {
    return QStringLiteral("^") + wideClass() + QStringLiteral("{1,25}$");
}

QString passwordPattern() {
    return QStringLiteral("^") + wideClass() + QStringLiteral("+$");
}

bool matches(const QString& pattern, const QString& text) {
    QRegExp regExp(pattern, Qt::CaseSensitive, QRegExp::RegExp);
    return regExp.exactMatch(text);
}

}  // namespace

CSetStockQuotesDialog::CSetStockQuotesDialog(int tradeType, QWidget* parent, bool futureOnly)
    : Zu::CCommonDialog(parent),
      m_routeBySystem(false),
      m_nEditId(0),
      m_bIsAdd(true),
      m_pReserved(nullptr),
      m_pPlatformCombo(nullptr),
      m_pAddressEdit(nullptr),
      m_pPortEdit(nullptr),
      m_pUserEdit(nullptr),
      m_pPasswordEdit(nullptr),
      m_pMarketEdit(nullptr),
      m_nTradeType(tradeType),
      m_pLoadingMask(nullptr),
      m_bFutureOnly(futureOnly) {
    Q_UNUSED(m_pReserved);
    if (rkservice::CUserInfoPtr user = CUserManager::instance()->getUserInfoPtr())
        m_routeBySystem = user->routesBySystem();
    createUi();
    setFixedSize(380, 355);
    connect(this, &CSetStockQuotesDialog::sigOnOperationFinished, this,
            &CSetStockQuotesDialog::slotOnOperationFinished, Qt::AutoConnection);
    connect(this, &CSetStockQuotesDialog::sigStoredRowRead, this,
            &CSetStockQuotesDialog::slotStoredRowRead, Qt::AutoConnection);
    initPlatform();
}

CSetStockQuotesDialog::~CSetStockQuotesDialog() {
    // An answer still on its way must not reach a dialog that is going away.
    m_answerGuard.invalidate();
    disconnect();
}

void CSetStockQuotesDialog::createUi() {
    auto* outer = new Zu::CWidgetList(this, Qt::Vertical);
    outer->setMargins(20, 20, 0, 0);
    outer->setSpacing(10);

    // Left margins line up the colons of labels of different length.
    auto addRow = [outer](int leftMargin, int labelId, const QString& label, QWidget* input) {
        auto* row = new Zu::CWidgetList(outer, Qt::Horizontal);
        row->setMargins(leftMargin, 0, 0, 0);
        row->setSpacing(10);
        auto* text = new Zu::CSimpleTextWidget(row, labelId, label);
        text->setFixedHeight(kLabelHeight);
        row->addWidget(text);
        input->setParent(row);
        input->setFixedSize(kInputWidth, kInputHeight);
        row->addWidget(input);
        // The slack goes after the input: labels keep their own width, so the colons line up
        // and the inputs keep a margin to the dialog's edge.
        row->addStretch(1);
        outer->addWidget(row, 0, Zu::CWidgetList::AnchorFill);
    };

    m_pPlatformCombo = new Zu::CComboBox(outer, 0);
    addRow(0, 0, QStringLiteral("平台名称:"), m_pPlatformCombo);
    m_pAddressEdit = new CSafeLineEdit(outer, AddressField);
    addRow(25, 1, QStringLiteral("地址:"), m_pAddressEdit);
    m_pPortEdit = new CSafeLineEdit(outer, PortField);
    addRow(25, 2, QStringLiteral("端口:"), m_pPortEdit);
    m_pUserEdit = new CSafeLineEdit(outer, UserField);
    addRow(13, 3, QStringLiteral("用户名:"), m_pUserEdit);
    m_pPasswordEdit = new CSafeLineEdit(outer, PasswordField);
    m_pPasswordEdit->setEchoMode(QLineEdit::Password);
    addRow(25, 4, QStringLiteral("密码:"), m_pPasswordEdit);
    // No longer than the data service stores (a stored value always fits: bytes >= characters).
    m_pAddressEdit->setMaxLength(CFieldLimits::of(CFieldLimit::Address).maxBytes);
    m_pPasswordEdit->setMaxLength(CFieldLimits::of(CFieldLimit::Password).maxBytes);

    auto* buttons = new Zu::CWidgetList(outer, Qt::Horizontal);
    buttons->setMargins(0, 0, 20, 0);
    buttons->setSpacing(10);
    buttons->addStretch(1);
    auto* submit = new Zu::CSmallNormalButton(buttons, SubmitButton, QStringLiteral("提交"));
    submit->setFixedSize(kButtonWidth, kButtonHeight);
    buttons->addWidget(submit);
    auto* close = new Zu::CSmallNormalButton(buttons, CloseButton, QStringLiteral("关闭"));
    close->setFixedSize(kButtonWidth, kButtonHeight);
    buttons->addWidget(close);
    outer->addWidget(buttons, 0, Zu::CWidgetList::AnchorFill);

    setInnerWidget(outer);

    m_pLoadingMask = new Zu::CLoadingMaskWidget(this);
    m_pLoadingMask->setText(QStringLiteral("正在加载数据"));
    m_pLoadingMask->hide();
}

void CSetStockQuotesDialog::initPlatform() {
    if (!m_pPlatformCombo)
        return;
    m_pPlatformCombo->clear();
    for (int platformId : CPlatformTable::platformsFor(m_nTradeType, m_bFutureOnly))
        m_pPlatformCombo->addItem(getPlatformName(platformId), QVariant(platformId));

    // A futures-only stock dialog carries no market list.
    if (m_pMarketEdit && !(m_bFutureOnly && m_nTradeType == CTradeTypeTable::kStocks)) {
        const CTradeTypeInfo* info = CTradeTypeTable::find(m_nTradeType);
        if (info && info->markets[0] != '\0')
            m_pMarketEdit->setText(QString::fromUtf8(info->markets));
    }
}

void CSetStockQuotesDialog::setIsAdd(bool isAdd) {
    m_bIsAdd = isAdd;
    m_editBase.reset();
    for (CSafeLineEdit* edit : {m_pAddressEdit, m_pPortEdit, m_pUserEdit, m_pPasswordEdit}) {
        if (edit)
            edit->clear();
    }
}

void CSetStockQuotesDialog::setBasicInfo(
    const boost::shared_ptr<rkservice::COrinQuoterSourceInfo>& info) {
    if (!info)
        return;
    m_nEditId = info->m_nId;
    // A copy: the panel's row record stays as the panel read it.
    m_editBase = boost::make_shared<rkservice::COrinQuoterSourceInfo>(*info);
    if (m_pAddressEdit)
        m_pAddressEdit->setText(Zu::sToQs(info->m_strAddress));
    if (m_pPortEdit)
        m_pPortEdit->setText(QString::number(info->m_nPort));
    if (m_pUserEdit)
        m_pUserEdit->setText(Zu::sToQs(info->m_strUserName));
    if (m_pPasswordEdit)
        m_pPasswordEdit->setText(Zu::sToQs(info->m_strPassword));
    // Found by its text, as the operator sees it; no match leaves no selection.
    if (m_pPlatformCombo) {
        const int index = m_pPlatformCombo->findText(getPlatformName(info->m_nPlatformId),
                                                     Qt::MatchExactly | Qt::MatchCaseSensitive);
        m_pPlatformCombo->setCurrentIndex(index);
    }
    if (m_pMarketEdit)
        m_pMarketEdit->setText(Zu::sToQs(info->m_strMarkets));
}

long long CSetStockQuotesDialog::editRevision() const {
    return m_editBase ? m_editBase->getRevision() : 0;
}

void CSetStockQuotesDialog::setBasicInfo(const QString& serverName) {
    m_strServerName = serverName;
}

void CSetStockQuotesDialog::sendToSubsystem(const QString& systemName) {
    m_strServerName = systemName;
    m_routeBySystem = true;
}

bool CSetStockQuotesDialog::checkField(int fieldId, bool strict) {
    QWidget* target = nullptr;
    QString tip;
    bool passed = true;
    switch (fieldId) {
        case AddressField: {
            if (!m_pAddressEdit)
                return true;
            const QString text = m_pAddressEdit->text();
            passed =
                !text.isEmpty() && (matches(QString::fromLatin1(kIpv4Pattern), text) ||
                                    COrinClientCenter::instance()->isIPv6Addr(Zu::qsToS(text)));
            target = m_pAddressEdit;
            tip = QStringLiteral("请输入有效的服务器地址");
            break;
        }
        case PortField: {
            if (!m_pPortEdit)
                return true;
            target = m_pPortEdit;
            tip = portTip(m_pPortEdit->text());
            passed = tip.isEmpty();
            break;
        }
        case UserField: {
            if (!m_pUserEdit)
                return true;
            const QString text = m_pUserEdit->text();
            passed = !text.isEmpty() && matches(userPattern(), text);
            target = m_pUserEdit;
            tip = QStringLiteral("请输入1-25位的字母或者数字");
            break;
        }
        case PasswordField: {
            if (!m_pPasswordEdit)
                return true;
            const QString text = m_pPasswordEdit->getOriginalText();
            // A submission only insists on a password; the pattern is a hint while typing.
            passed = !text.isEmpty() && (!strict || matches(passwordPattern(), text));
            target = m_pPasswordEdit;
            tip = QStringLiteral("请输入字母或者数字 ");
            // The edit counts characters, the service bytes: a Chinese password can fill the
            // edit and still not fit.
            const int maxBytes = CFieldLimits::of(CFieldLimit::Password).maxBytes;
            if (passed && text.toUtf8().size() > maxBytes) {
                passed = false;
                tip = QStringLiteral("密码不能超过%1字节").arg(maxBytes);
            }
            break;
        }
        default:
            return true;
    }
    if (!passed)
        Zu::CMessageTip::showTipUntilEdited(target, Zu::CMessageTip::kBelowLeft, tip,
                                            Zu::CMessageTip::StyleArrow,
                                            Zu::CMessageTip::LevelWarning, kTipMinimumMs);
    return passed;
}

QString CSetStockQuotesDialog::portTip(const QString& text) {
    if (text.isEmpty() || !matches(QString::fromLatin1(kDigitsPattern), text))
        return QStringLiteral("只能输入数字 ");
    // Leading zeros are fine ("007"); a port the service would refuse is caught here, before
    // the operator's input could be lost to a refused submission.
    bool inInt = false;
    const int port = text.toInt(&inInt, 10);
    if (!inInt || port < kPortMin || port > kPortMax)
        return QStringLiteral("请输入1-65535之间的端口");
    return QString();
}

bool CSetStockQuotesDialog::checkInput() {
    for (int field : {AddressField, PortField, UserField, PasswordField}) {
        if (!checkField(field, false))
            return false;
    }
    return true;
}

void CSetStockQuotesDialog::getOperateDatas(std::vector<rkservice::IDataPtr>& datas) {
    if (!m_pPlatformCombo)
        return;
    const QVariant platform = m_pPlatformCombo->currentData();
    if (!platform.isValid())
        return;

    auto record = boost::make_shared<rkservice::COrinQuoterSourceInfo>();
    record->m_strAddress = Zu::qsToS(m_pAddressEdit ? m_pAddressEdit->text() : QString());
    record->m_nPort = m_pPortEdit ? m_pPortEdit->text().toInt(nullptr, 10) : 0;
    record->m_strUserName = Zu::qsToS(m_pUserEdit ? m_pUserEdit->text() : QString());
    record->m_strPassword =
        Zu::qsToS(m_pPasswordEdit ? m_pPasswordEdit->getOriginalText() : QString());

    if (m_bIsAdd && m_nTradeType == CTradeTypeTable::kAll) {
        // One record per trade type the user administers; the combo's choice does not matter.
        for (const CFanOutRow& row : CFanOutTable::rows()) {
            if (!CUserManager::instance()->checkUserAuth(row.right))
                continue;
            auto copy = boost::make_shared<rkservice::COrinQuoterSourceInfo>(*record);
            copy->m_nPlatformId = row.platformId;
            copy->m_nTradeType = row.tradeType;
            datas.push_back(copy);
        }
        return;
    }

    if (!m_bIsAdd) {
        record->m_nId = m_nEditId;
        record->setRevision(editRevision());
    }
    record->m_nPlatformId = platform.toInt();
    record->m_nTradeType = CTradeTypeTable::storedTradeType(m_nTradeType);
    if (m_pMarketEdit)
        record->m_strMarkets = Zu::qsToS(m_pMarketEdit->text());
    datas.push_back(record);
}

CSetStockQuotesDialog::Submission CSetStockQuotesDialog::submit() {
    auto request =
        CRequestFactory::operate(rkservice::kDataQuoteSources,
                                 m_bIsAdd ? rkservice::kOperateAdd : rkservice::kOperateModify);
    getOperateDatas(request->datas);
    if (request->datas.empty())
        return Submission::NothingBuilt;

    // A multi-server client without a chosen server sends nothing, and no completion comes.
    CRequestRouter router(RoutePolicy::RoutedOrDrop, m_routeBySystem, m_strServerName);
    const bool sent =
        router.operate(request, m_answerGuard.guardOperate(boost::bind(
                                    &CSetStockQuotesDialog::onOperationQuotes, this, _1, _2)));

    if (m_pLoadingMask) {
        m_pLoadingMask->setText(QStringLiteral("正在提交数据"));
        m_pLoadingMask->attach(this);
    }
    m_bSubmitting = sent;
    return sent ? Submission::Sent : Submission::Dropped;
}

bool CSetStockQuotesDialog::handleEvent(int type, int id, int arg, QString text, void* extra) {
    if (type == Zu::EventFieldLeft) {
        if (id >= AddressField && id <= PasswordField)
            checkField(id, true);
        return true;
    }
    if (type != Zu::EventButtonClicked)
        return Zu::CCommonDialog::handleEvent(type, id, arg, text, extra);

    if (id == SubmitButton) {
        // One submission at a time: the dialog stays open while it runs.
        if (m_bSubmitting)
            return true;
        // Refused input or nothing to build: the dialog stays open. A request on its way keeps
        // it open under its mask, so that a refusal leaves everything typed for another try;
        // the answer closes it on success.
        if (!checkInput() || submit() != Submission::Dropped)
            return true;
    } else {
        close();
    }
    done(id);
    return true;
}

void CSetStockQuotesDialog::hideEvent(QHideEvent* event) {
    // Closed while its answer is out: the operator gave up waiting, and the dialog opened
    // again takes a new submission.
    m_bSubmitting = false;
    Zu::CCommonDialog::hideEvent(event);
}

void CSetStockQuotesDialog::showEvent(QShowEvent* event) {
    Zu::CCommonDialog::showEvent(event);
    // The dialog is kept and shown again for the next add or edit: it starts at 地址 again,
    // wherever the last one left the cursor (the first showing takes the first field).
    if (m_bShownBefore && m_pAddressEdit)
        m_pAddressEdit->setFocus(Qt::OtherFocusReason);
    m_bShownBefore = true;
}

void CSetStockQuotesDialog::onOperationQuotes(const utils::RKError& error, bson::BSONObj result) {
    Q_UNUSED(result);
    emit sigOnOperationFinished(!error.isSuccess(), Zu::sToQs(error.errorMsg()));
}

void CSetStockQuotesDialog::slotOnOperationFinished(bool bError, QString qsError) {
    m_bSubmitting = false;
    if (m_pLoadingMask)
        m_pLoadingMask->hide();

    const QString title = m_bIsAdd ? QStringLiteral("添加行情源") : QStringLiteral("修改行情源");
    QPointer<CSetStockQuotesDialog> self(this);
    const QString text = !bError             ? QStringLiteral("操作成功")
                         : qsError.isEmpty() ? QStringLiteral("操作失败")
                                             : qsError;
    COrinClientCenter::instance()->showServerMsgCallBack(bError ? 1 : 0, !bError, this, title, text,
                                                         true, false);
    deliverEvent(Zu::EventQuoteSourcesChanged, 0, 0, QString(), nullptr);
    // A refusal leaves everything typed for another try. When the row changed since it was read
    // (by another operator, or an import), the dialog reads it again, so that the next try sends
    // the stored revision and the fields the operator did not touch as they are stored now.
    if (bError && !m_bIsAdd && CRevisionConflicts::isStale(qsError.toUtf8().constData()))
        readStoredRow();
    // The panel's reload may replace this dialog; close it only while it is still there.
    if (self && !bError)
        close();
}

void CSetStockQuotesDialog::readStoredRow() {
    if (!m_editBase)
        return;
    auto request = CRequestFactory::query(
        rkservice::kDataQuoteSources, CRequestFactory::queryCondition(m_editBase->m_nTradeType));
    CRequestRouter(RoutePolicy::RoutedOrCentre, m_routeBySystem, m_strServerName)
        .query(request, m_answerGuard.guardQuery(boost::bind(
                            &CSetStockQuotesDialog::onStoredRowRead, this, _1, _2, _3, _4)));
}

void CSetStockQuotesDialog::onStoredRowRead(const utils::RKError& error,
                                            const std::vector<rkservice::IDataPtr>& datas,
                                            int /*count*/, bson::BSONObj /*result*/) {
    if (!error.isSuccess())
        return;
    for (const rkservice::IDataPtr& data : datas) {
        auto source = boost::dynamic_pointer_cast<rkservice::COrinQuoterSourceInfo>(data);
        if (source && source->m_nId == m_nEditId) {
            boost::recursive_mutex::scoped_lock lock(m_mutex);
            m_reread = source;
            emit sigStoredRowRead();
            return;
        }
    }
}

void CSetStockQuotesDialog::slotStoredRowRead() {
    boost::shared_ptr<rkservice::COrinQuoterSourceInfo> stored;
    {
        boost::recursive_mutex::scoped_lock lock(m_mutex);
        stored.swap(m_reread);
    }
    if (stored && m_editBase && !m_bIsAdd && stored->m_nId == m_nEditId)
        rebase(*stored);
}

void CSetStockQuotesDialog::rebase(const rkservice::COrinQuoterSourceInfo& stored) {
    const rkservice::COrinQuoterSourceInfo& base = *m_editBase;
    const auto keep = [](CSafeLineEdit* edit, const QString& was, const QString& now) {
        if (edit && edit->getOriginalText() == was)
            edit->setText(now);
    };
    keep(m_pAddressEdit, Zu::sToQs(base.m_strAddress), Zu::sToQs(stored.m_strAddress));
    keep(m_pPortEdit, QString::number(base.m_nPort), QString::number(stored.m_nPort));
    keep(m_pUserEdit, Zu::sToQs(base.m_strUserName), Zu::sToQs(stored.m_strUserName));
    keep(m_pPasswordEdit, Zu::sToQs(base.m_strPassword), Zu::sToQs(stored.m_strPassword));
    if (m_pPlatformCombo && m_pPlatformCombo->currentText() == getPlatformName(base.m_nPlatformId))
        m_pPlatformCombo->setCurrentIndex(m_pPlatformCombo->findText(
            getPlatformName(stored.m_nPlatformId), Qt::MatchExactly | Qt::MatchCaseSensitive));
    if (m_pMarketEdit && m_pMarketEdit->text() == Zu::sToQs(base.m_strMarkets))
        m_pMarketEdit->setText(Zu::sToQs(stored.m_strMarkets));
    m_editBase = boost::make_shared<rkservice::COrinQuoterSourceInfo>(stored);
}

}  // namespace Hlx
