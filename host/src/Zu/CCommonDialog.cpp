#include "Zu/CCommonDialog.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QToolButton>
#include <QVBoxLayout>

#include "Zu/CUiResources.h"

namespace Zu {

CCommonDialog::CCommonDialog(QWidget* parent) : CCustomDialog(parent) {
    m_layout = new QVBoxLayout(this);
    m_layout->setContentsMargins(1, 1, 1, 1);
    m_layout->setSpacing(0);

    m_titleBar = new QWidget(this);
    m_titleBar->setObjectName(QStringLiteral("zuDialogTitleBar"));
    m_titleBar->setFixedHeight(TitleBarHeight);
    m_titleBar->setAutoFillBackground(true);
    QPalette barPalette = m_titleBar->palette();
    barPalette.setColor(QPalette::Window, CUiResources::color(QStringLiteral("clr_title_bar")));
    barPalette.setColor(QPalette::WindowText, Qt::white);
    m_titleBar->setPalette(barPalette);

    auto* barLayout = new QHBoxLayout(m_titleBar);
    barLayout->setContentsMargins(12, 0, 4, 0);
    barLayout->setSpacing(4);
    m_titleLabel = new QLabel(m_titleBar);
    m_titleLabel->setObjectName(QStringLiteral("zuDialogTitle"));
    QFont titleFont = m_titleLabel->font();
    titleFont.setBold(true);
    m_titleLabel->setFont(titleFont);
    barLayout->addWidget(m_titleLabel, 1);

    // A plain Qt control: its click must never reach the widgets behind the dialog as an event.
    m_closeButton = new QToolButton(m_titleBar);
    m_closeButton->setObjectName(QStringLiteral("zuDialogClose"));
    m_closeButton->setText(QStringLiteral("×"));
    m_closeButton->setToolTip(QStringLiteral("关闭"));
    m_closeButton->setAutoRaise(true);
    m_closeButton->setFixedSize(24, 24);
    m_closeButton->setStyleSheet(
        QStringLiteral("QToolButton{color:white;border:none;font-size:16px;}"
                       "QToolButton:hover{background:rgba(255,255,255,40);}"
                       "QToolButton:pressed{background:rgba(0,0,0,40);}"));
    connect(m_closeButton, &QToolButton::clicked, this, &QDialog::reject);
    barLayout->addWidget(m_closeButton, 0, Qt::AlignVCenter);

    m_layout->addWidget(m_titleBar);
    m_layout->addStretch(1);
    setDragHandle(m_titleBar);
}

CCommonDialog::~CCommonDialog() = default;

void CCommonDialog::setTitle(const QString& title) {
    m_titleLabel->setText(title);
    setWindowTitle(title);
}

QString CCommonDialog::title() const {
    return m_titleLabel->text();
}

void CCommonDialog::setInnerWidget(QWidget* widget) {
    if (widget == m_inner) {
        return;
    }
    // Index 1 holds either the placeholder stretch or the previous inner widget.
    if (QLayoutItem* item = m_layout->takeAt(1)) {
        delete item;
    }
    if (m_inner) {
        delete m_inner.data();
    }
    m_inner = widget;
    if (widget) {
        m_layout->insertWidget(1, widget, 1);
    } else {
        m_layout->insertStretch(1, 1);
    }
}

QWidget* CCommonDialog::innerWidget() const {
    return m_inner;
}

}  // namespace Zu
