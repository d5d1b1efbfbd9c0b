#include "Zu/CSimpleTextWidget.h"

#include <QPainter>

#include "Zu/CUiResources.h"

namespace Zu {

CSimpleTextWidget::CSimpleTextWidget(QWidget* parent, int id, const QString& text)
    : CBaseWidget(parent),
      m_id(id),
      m_text(text),
      m_flags(Qt::AlignLeft | Qt::AlignVCenter | Qt::TextSingleLine),
      m_color(CUiResources::color(QStringLiteral("clr_text_normal"))) {
    setSizePolicy(QSizePolicy::Preferred, QSizePolicy::Fixed);
}

CSimpleTextWidget::~CSimpleTextWidget() = default;

void CSimpleTextWidget::setText(const QString& text) {
    if (text == m_text) {
        return;
    }
    m_text = text;
    updateGeometry();
    update();
}

void CSimpleTextWidget::setTextFlags(int flags) {
    m_flags = flags;
    updateGeometry();
    update();
}

void CSimpleTextWidget::setTextColor(const QColor& color) {
    m_color = color;
    update();
}

QSize CSimpleTextWidget::sizeHint() const {
    const QFontMetrics metrics(font());
    const QRect bounds = metrics.boundingRect(QRect(0, 0, 10000, 10000), m_flags, m_text);
    return QSize(bounds.width() + 2, qMax(bounds.height(), metrics.height()) + 2);
}

QSize CSimpleTextWidget::minimumSizeHint() const {
    return sizeHint();
}

void CSimpleTextWidget::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setPen(isEnabled() ? m_color
                               : CUiResources::color(QStringLiteral("clr_text_disabled")));
    painter.drawText(rect().adjusted(1, 0, -1, 0), m_flags, m_text);
}

}  // namespace Zu
