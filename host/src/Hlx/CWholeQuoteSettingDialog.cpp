#include "Hlx/CWholeQuoteSettingDialog.h"

#include <QCheckBox>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

#include "Zu/StringConvert.h"

namespace Hlx {

CWholeQuoteSettingDialog::CWholeQuoteSettingDialog(const QString& name, QWidget* parent)
    : Zu::CCommonDialog(parent) {
    if (!name.isEmpty()) {
        setObjectName(name);
    }
    setModal(true);
    setTitle(QStringLiteral("行情全推设置"));
    createUi();
}

CWholeQuoteSettingDialog::~CWholeQuoteSettingDialog() = default;

void CWholeQuoteSettingDialog::createUi() {
    auto* inner = new QWidget(this);
    auto* layout = new QVBoxLayout(inner);
    layout->setContentsMargins(20, 16, 20, 16);
    layout->setSpacing(12);

    auto* hint = new QLabel(QStringLiteral("勾选需要全推行情的市场:"), inner);
    layout->addWidget(hint);

    auto* grid = new QGridLayout();
    grid->setHorizontalSpacing(24);
    grid->setVerticalSpacing(10);
    const int columns = 4;
    int index = 0;
    for (const std::string& code : rkservice::CWholeQuotedivision::knownMarkets()) {
        const QString text = Zu::sToQs(code);
        auto* box = new QCheckBox(text, inner);
        box->setObjectName(QStringLiteral("market_") + text);
        m_boxes.insert(text, box);
        grid->addWidget(box, index / columns, index % columns);
        ++index;
    }
    layout->addLayout(grid);
    layout->addStretch(1);

    // Plain Qt buttons: their clicks end the dialog and never travel on as kit events.
    auto* buttons = new QHBoxLayout();
    buttons->addStretch(1);
    m_okButton = new QPushButton(QStringLiteral("确定"), inner);
    m_okButton->setObjectName(QStringLiteral("okButton"));
    m_okButton->setFixedSize(57, 24);
    m_okButton->setDefault(true);
    m_cancelButton = new QPushButton(QStringLiteral("取消"), inner);
    m_cancelButton->setObjectName(QStringLiteral("cancelButton"));
    m_cancelButton->setFixedSize(57, 24);
    buttons->addWidget(m_okButton);
    buttons->addSpacing(10);
    buttons->addWidget(m_cancelButton);
    layout->addLayout(buttons);
    connect(m_okButton, &QPushButton::clicked, this, &QDialog::accept);
    connect(m_cancelButton, &QPushButton::clicked, this, &QDialog::reject);

    setInnerWidget(inner);
    const int rows = (index + columns - 1) / columns;
    setFixedSize(400, TitleBarHeight + 130 + rows * 28);
}

void CWholeQuoteSettingDialog::setWholeQuote(const rkservice::CWholeQuotedivisionPtr& division) {
    for (auto it = m_boxes.begin(); it != m_boxes.end(); ++it) {
        it.value()->setChecked(division && division->isEnabled(Zu::qsToS(it.key())));
    }
}

void CWholeQuoteSettingDialog::getWholeQuote(
    const rkservice::CWholeQuotedivisionPtr& division) const {
    if (!division) {
        return;
    }
    for (auto it = m_boxes.begin(); it != m_boxes.end(); ++it) {
        division->setEnabled(Zu::qsToS(it.key()), it.value()->isChecked());
    }
}

QCheckBox* CWholeQuoteSettingDialog::marketCheckBox(const std::string& code) const {
    return m_boxes.value(Zu::sToQs(code), nullptr);
}

}  // namespace Hlx
