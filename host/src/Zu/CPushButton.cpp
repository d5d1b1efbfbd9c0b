#include "Zu/CPushButton.h"

#include "Zu/CUiResources.h"

namespace Zu {

CPushButton::CPushButton(QWidget* parent, int id) : CEventWidgetT<QPushButton>(parent), m_id(id) {
    setCursor(Qt::PointingHandCursor);
    setFlat(true);
    setIconSize(QSize(12, 12));
    applyLook();
    connect(this, &QPushButton::clicked, this, &CPushButton::onClicked);
}

CPushButton::~CPushButton() = default;

void CPushButton::setTextColorKey(const QString& key) {
    m_colorKey = key;
    applyLook();
}

void CPushButton::setIconKey(const QString& key) {
    m_iconKey = key;
    setIcon(CUiResources::icon(key));
    updateMinimumWidth();
}

void CPushButton::setText(const QString& text) {
    QPushButton::setText(text);
    updateMinimumWidth();
}

void CPushButton::applyLook() {
    const QColor color =
        CUiResources::color(m_colorKey, CUiResources::color(QStringLiteral("clr_text_normal")));
    const QString name = color.name();
    setStyleSheet(QStringLiteral("QPushButton{border:none;background:transparent;padding:0 2px;"
                                 "text-align:left;color:%1;}"
                                 "QPushButton:hover{color:%1;text-decoration:underline;}"
                                 "QPushButton:pressed{color:%1;}"
                                 "QPushButton:disabled{color:%2;}")
                      .arg(name, CUiResources::color(QStringLiteral("clr_text_disabled")).name()));
    updateMinimumWidth();
}

void CPushButton::updateMinimumWidth() {
    // Callers size the button from its minimum width; keep that at what text and icon need.
    const QFontMetrics metrics(font());
    int width = metrics.horizontalAdvance(text()) + 6;
    if (!icon().isNull()) {
        width += iconSize().width() + 4;
    }
    setMinimumWidth(width);
}

void CPushButton::onClicked() {
    deliverEvent(EventButtonClicked, m_id, 0, QString(), nullptr);
}

}  // namespace Zu
