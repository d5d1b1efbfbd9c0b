#include "Zu/CLoadingMaskWidget.h"

#include <QEvent>
#include <QPainter>
#include <QVariantAnimation>

#include "Zu/CUiResources.h"

namespace Zu {

namespace {
const int kSpokes = 12;
}

CLoadingMaskWidget::CLoadingMaskWidget(QWidget* parent)
    : QWidget(parent), m_animationSize(150, 45) {
    setAttribute(Qt::WA_NoSystemBackground);
    // A mask over a busy widget swallows its clicks until the work is done.
    setAttribute(Qt::WA_TransparentForMouseEvents, false);
    m_animation = new QVariantAnimation(this);
    m_animation->setStartValue(0);
    m_animation->setEndValue(360);
    m_animation->setDuration(1000);
    m_animation->setLoopCount(-1);
    connect(m_animation, &QVariantAnimation::valueChanged, this, [this](const QVariant& value) {
        // Step in whole spokes, the way such wheels turn.
        const int step = 360 / kSpokes;
        const int angle = (value.toInt() / step) * step;
        if (angle != m_angle) {
            m_angle = angle;
            update();
        }
    });
    hide();
}

CLoadingMaskWidget::~CLoadingMaskWidget() = default;

void CLoadingMaskWidget::attach(QWidget* target) {
    if (!target) {
        return;
    }
    if (m_target && m_target != target) {
        m_target->removeEventFilter(this);
    }
    if (parentWidget() != target) {
        setParent(target);
    }
    m_target = target;
    m_target->installEventFilter(this);
    coverTarget();
    raise();
    show();
}

void CLoadingMaskWidget::coverTarget() {
    if (m_target) {
        setGeometry(m_target->rect());
    }
}

void CLoadingMaskWidget::setText(const QString& text) {
    m_text = text;
    update();
}

void CLoadingMaskWidget::setAnimationSize(const QSize& size) {
    m_animationSize = size;
    update();
}

bool CLoadingMaskWidget::isAnimating() const {
    return m_animation->state() == QAbstractAnimation::Running;
}

bool CLoadingMaskWidget::eventFilter(QObject* watched, QEvent* event) {
    if (watched == m_target && event->type() == QEvent::Resize) {
        coverTarget();
    }
    return QWidget::eventFilter(watched, event);
}

void CLoadingMaskWidget::showEvent(QShowEvent* event) {
    QWidget::showEvent(event);
    coverTarget();
    if (m_animation->state() != QAbstractAnimation::Running) {
        m_animation->start();
    }
}

void CLoadingMaskWidget::hideEvent(QHideEvent* event) {
    m_animation->stop();
    QWidget::hideEvent(event);
}

void CLoadingMaskWidget::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.fillRect(rect(), QColor(255, 255, 255, 190));

    // The wheel and text block, shrunk to fit the covered widget.
    QSize block = m_animationSize.isValid() ? m_animationSize : QSize(150, 45);
    block = block.boundedTo(size());
    const QRect area(QPoint((width() - block.width()) / 2, (height() - block.height()) / 2), block);
    const int diameter = qMax(8, qMin(area.height(), 40) - 4);

    const QFontMetrics metrics(font());
    const int textWidth = m_text.isEmpty() ? 0 : metrics.horizontalAdvance(m_text) + 8;
    const int contentWidth = qMin(area.width(), diameter + textWidth);
    const int left = area.x() + (area.width() - contentWidth) / 2;
    const QPointF centre(left + diameter / 2.0, area.center().y() + 0.5);

    const QColor base = CUiResources::color(QStringLiteral("clr_text_clickable"));
    const qreal outer = diameter / 2.0;
    const qreal inner = outer * 0.45;
    QPen pen;
    pen.setWidthF(qMax(1.5, diameter / 10.0));
    pen.setCapStyle(Qt::RoundCap);
    for (int i = 0; i < kSpokes; ++i) {
        // The leading spoke is solid; those behind it fade out.
        QColor color = base;
        color.setAlphaF(1.0 - (qreal(i) / kSpokes) * 0.85);
        pen.setColor(color);
        painter.setPen(pen);
        painter.save();
        painter.translate(centre);
        painter.rotate(m_angle - i * (360.0 / kSpokes));
        painter.drawLine(QPointF(0, -inner), QPointF(0, -outer + pen.widthF() / 2));
        painter.restore();
    }
    if (!m_text.isEmpty()) {
        painter.setPen(CUiResources::color(QStringLiteral("clr_text_normal")));
        const QRect textRect(left + diameter + 8, area.y(), contentWidth - diameter - 8,
                             area.height());
        painter.drawText(textRect, Qt::AlignLeft | Qt::AlignVCenter | Qt::TextSingleLine,
                         metrics.elidedText(m_text, Qt::ElideRight, textRect.width()));
    }
}

}  // namespace Zu
