#include "Zu/CSmallNormalButton.h"

namespace Zu {

namespace {

// The panels give their buttons fixed sizes, laid out for this font; a button's text must fit
// whatever font the application chose.
const int kFontPixels = 12;
const int kBorder = 1;
const int kPadding = 0;

QString styleFor(int buttonType) {
    switch (buttonType) {
        case CSmallNormalButton::TypePrimary:
            return QStringLiteral(
                "QPushButton{background:#2b6fd6;color:white;border:1px solid #2b6fd6;"
                "border-radius:3px;padding:0px;}"
                "QPushButton:hover{background:#3f80e0;}"
                "QPushButton:pressed{background:#1f58ad;}"
                "QPushButton:disabled{background:#a9c3ea;border-color:#a9c3ea;}");
        case CSmallNormalButton::TypeDialog:
            return QStringLiteral(
                "QPushButton{background:#f7f9fc;color:#333333;border:1px solid #9fb4cf;"
                "border-radius:3px;padding:0px;}"
                "QPushButton:hover{background:#e6effa;border-color:#2b6fd6;}"
                "QPushButton:pressed{background:#cfe0f6;}"
                "QPushButton:disabled{color:#a0a0a0;border-color:#d0d0d0;}");
        default:
            return QStringLiteral(
                "QPushButton{background:white;color:#333333;border:1px solid #c8cfd8;"
                "border-radius:3px;padding:0px;}"
                "QPushButton:hover{color:#1a6fd8;border-color:#1a6fd8;}"
                "QPushButton:pressed{background:#e6effa;}"
                "QPushButton:disabled{color:#a0a0a0;background:#f3f3f3;}");
    }
}

}  // namespace

CSmallNormalButton::CSmallNormalButton(QWidget* parent, int id, const QString& text, int buttonType)
    : CEventWidgetT<QPushButton>(text, parent), m_id(id), m_buttonType(buttonType) {
    setCursor(Qt::PointingHandCursor);
    QFont small = font();
    small.setPixelSize(kFontPixels);
    setFont(small);
    setStyleSheet(styleFor(m_buttonType));
    connect(this, &QPushButton::clicked, this, &CSmallNormalButton::onClicked);
}

CSmallNormalButton::~CSmallNormalButton() = default;

void CSmallNormalButton::setButtonType(int buttonType) {
    m_buttonType = buttonType;
    setStyleSheet(styleFor(m_buttonType));
}

int CSmallNormalButton::textRoom() const {
    return width() - 2 * (kBorder + kPadding);
}

bool CSmallNormalButton::showsWholeText() const {
    return fontMetrics().horizontalAdvance(text()) <= textRoom();
}

void CSmallNormalButton::onClicked() {
    deliverEvent(EventButtonClicked, m_id, 0, QString(), nullptr);
}

}  // namespace Zu
