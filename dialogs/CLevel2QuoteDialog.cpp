#include "dialogs/CLevel2QuoteDialog.h"

#include <QRegExp>
#include <QRegExpValidator>

#include "Hlx/CSafeLineEdit.h"
#include "Zu/CSimpleTextWidget.h"
#include "Zu/CSmallNormalButton.h"
#include "Zu/CWidgetList.h"
#include "model/CLevel2Names.h"

namespace Hlx {

CLevel2QuoteDialog::CLevel2QuoteDialog(QWidget* parent)
    : Zu::CCommonDialog(nullptr), m_tokenEdit(nullptr), m_anchor(parent) {
    // Owned by no widget, whatever the caller passes: the caller deletes it.
    createUi();
}

CLevel2QuoteDialog::~CLevel2QuoteDialog() = default;

void CLevel2QuoteDialog::showEvent(QShowEvent* event) {
    // A parentless dialog would open wherever the window system puts it, often far from the
    // panel that asked for it.
    if (m_anchor) {
        QRect frame = frameGeometry();
        frame.moveCenter(m_anchor->window()->frameGeometry().center());
        move(frame.topLeft());
    }
    Zu::CCommonDialog::showEvent(event);
}

void CLevel2QuoteDialog::createUi() {
    setTitle(QStringLiteral("添加") + QString::fromUtf8(CLevel2Names::kTokenNoun));

    auto* outer = new Zu::CWidgetList(this, Qt::Vertical);
    outer->setMargins(20, 20, 0, 0);
    outer->setSpacing(10);

    auto* tokenRow = new Zu::CWidgetList(outer, Qt::Horizontal);
    tokenRow->setMargins(0, 0, 0, 0);
    tokenRow->setSpacing(10);
    auto* label = new Zu::CSimpleTextWidget(tokenRow, 2, QStringLiteral("token:"));
    label->setFixedHeight(24);
    tokenRow->addWidget(label);
    m_tokenEdit = new CSafeLineEdit(tokenRow, 0);
    m_tokenEdit->setFixedSize(340, 25);
    // Tokens are plain ASCII letters and digits, at most 100 of them.
    m_tokenEdit->setValidator(new QRegExpValidator(
        QRegExp(QStringLiteral("^[a-zA-Z0-9]{0,100}$"), Qt::CaseSensitive, QRegExp::RegExp),
        m_tokenEdit));
    tokenRow->addWidget(m_tokenEdit);
    // The label keeps its own width; the slack goes after the input, inside the dialog.
    tokenRow->addStretch(1);
    outer->addWidget(tokenRow, 0, Zu::CWidgetList::AnchorFill);

    auto* buttons = new Zu::CWidgetList(outer, Qt::Horizontal);
    buttons->setMargins(0, 0, 20, 0);
    buttons->setSpacing(10);
    buttons->addStretch(1);
    auto* ok = new Zu::CSmallNormalButton(buttons, OkButton, QStringLiteral("确定"),
                                          Zu::CSmallNormalButton::TypeDialog);
    ok->setFixedSize(57, 24);
    buttons->addWidget(ok);
    auto* close = new Zu::CSmallNormalButton(buttons, CloseButton, QStringLiteral("关闭"),
                                             Zu::CSmallNormalButton::TypeDialog);
    close->setFixedSize(57, 24);
    buttons->addWidget(close);
    outer->addWidget(buttons);

    setInnerWidget(outer);
}

QString CLevel2QuoteDialog::getTokenText() const {
    return m_tokenEdit ? m_tokenEdit->getOriginalText() : QString();
}

void CLevel2QuoteDialog::setTokenText(const QString& token) {
    if (m_tokenEdit)
        m_tokenEdit->setText(token);
}

bool CLevel2QuoteDialog::handleEvent(int eventId, int widgetId, int arg, QString text, void* data) {
    if (eventId != Zu::EventButtonClicked)
        return Zu::CCommonDialog::handleEvent(eventId, widgetId, arg, text, data);
    if (widgetId == CloseButton)
        close();
    // "确定" ends the modal run with 1, "关闭" with 0; an empty text is the caller's business.
    done(widgetId);
    return true;
}

}  // namespace Hlx
