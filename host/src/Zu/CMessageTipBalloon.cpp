#include "CMessageTipBalloon.h"

#include <QApplication>
#include <QComboBox>
#include <QCursor>
#include <QLineEdit>
#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>
#include <QTimer>
#include <QVariantAnimation>

#include "Zu/CMessageTip.h"
#include "Zu/CUiResources.h"

namespace Zu {

namespace {

const int kArrow = 7;
const int kPadX = 10;
const int kPadY = 6;
const int kMaxTextWidth = 320;

struct LevelLook {
    QColor fill;
    QColor border;
    QColor text;
};

LevelLook lookOf(int level) {
    switch (level) {
        case CMessageTip::LevelSuccess:
            return {QColor(0xe9, 0xf7, 0xec), QColor(0x3c, 0xa0, 0x55), QColor(0x1f, 0x5c, 0x2e)};
        case CMessageTip::LevelWarning:
            return {CUiResources::color(QStringLiteral("clr_tip_warning")),
                    CUiResources::color(QStringLiteral("clr_tip_warning_border")),
                    QColor(0x8a, 0x4b, 0x00)};
        case CMessageTip::LevelError:
            return {QColor(0xfd, 0xec, 0xec), QColor(0xd9, 0x3b, 0x3b), QColor(0x9b, 0x1c, 0x1c)};
        default:
            return {QColor(0xee, 0xf4, 0xfd), QColor(0x1a, 0x6f, 0xd8), QColor(0x1d, 0x3f, 0x6e)};
    }
}

}  // namespace

CMessageTipBalloon::CMessageTipBalloon(QWidget* target, int placement, const QString& text,
                                       int style, int level, int ms)
    // Owned by the target's window, so a balloon never outlives the window it points into.
    : QWidget(target ? target->window() : nullptr, Qt::ToolTip | Qt::FramelessWindowHint),
      m_target(target),
      m_placement(placement),
      m_text(text),
      m_style(style),
      m_level(level),
      m_ms(ms > 0 ? ms : 2000) {
    // Shaped by a mask rather than a translucent background: without a compositing window
    // manager a translucent window shows black where nothing is painted.
    setAttribute(Qt::WA_ShowWithoutActivating);
    setAttribute(Qt::WA_DeleteOnClose);
    setObjectName(QStringLiteral("zuMessageTip"));
    if (target) {
        setFont(target->font());
        // A tip about a dialog's field goes when the dialog does.
        target->window()->installEventFilter(this);
    }

    m_timer = new QTimer(this);
    m_timer->setSingleShot(true);
    connect(m_timer, &QTimer::timeout, this, &CMessageTipBalloon::onTimeUp);

    m_fade = new QVariantAnimation(this);
    m_fade->setStartValue(1.0);
    m_fade->setEndValue(0.0);
    m_fade->setDuration(250);
    // The window's opacity, not the painter's: painting fainter would only blend the bubble
    // into its own background. Without a compositor the balloon simply goes at the end.
    connect(m_fade, &QVariantAnimation::valueChanged, this, [this](const QVariant& value) {
        m_opacity = value.toReal();
        setWindowOpacity(m_opacity);
    });
    connect(m_fade, &QVariantAnimation::finished, this, &QWidget::close);
}

CMessageTipBalloon::~CMessageTipBalloon() = default;

bool CMessageTipBalloon::isFading() const {
    return m_fade->state() == QAbstractAnimation::Running;
}

void CMessageTipBalloon::stayUntilEdited() {
    m_untilEdited = true;
    if (auto* edit = qobject_cast<QLineEdit*>(m_target.data()))
        connect(edit, &QLineEdit::textEdited, this, &CMessageTipBalloon::onTargetEdited);
    else if (auto* combo = qobject_cast<QComboBox*>(m_target.data()))
        connect(combo, QOverload<int>::of(&QComboBox::activated), this,
                &CMessageTipBalloon::onTargetEdited);
}

void CMessageTipBalloon::onTimeUp() {
    if (!m_untilEdited || m_edited)
        startFade();
}

void CMessageTipBalloon::onTargetEdited() {
    m_edited = true;
    if (!m_timer->isActive())
        startFade();
}

bool CMessageTipBalloon::eventFilter(QObject* watched, QEvent* event) {
    if (event->type() == QEvent::Hide && m_target && watched == m_target->window())
        close();
    return QWidget::eventFilter(watched, event);
}

void CMessageTipBalloon::popUp() {
    place();
    show();
    raise();
    // A short tip still stays long enough to be read before it fades.
    m_timer->start(m_ms);
}

void CMessageTipBalloon::place() {
    const QFontMetrics metrics(font());
    const QRect textRect = metrics.boundingRect(QRect(0, 0, kMaxTextWidth, 1000),
                                                Qt::TextWordWrap | Qt::AlignLeft, m_text);
    const bool arrow = m_style == CMessageTip::StyleArrow;
    // A little slack keeps rounding from wrapping the last character away.
    const QSize bubble(textRect.width() + 2 * kPadX + 4, textRect.height() + 2 * kPadY);

    const Qt::Alignment align(m_placement);
    QRect anchor = m_target ? QRect(m_target->mapToGlobal(QPoint(0, 0)), m_target->size())
                            : QRect(QCursor::pos(), QSize(1, 1));
    QPoint topLeft;
    QSize total = bubble;
    m_arrowSide = !(align & (Qt::AlignTop | Qt::AlignBottom));
    if (m_arrowSide) {
        // Beside the target, to its right, vertically centred.
        total.rwidth() += arrow ? kArrow : 0;
        topLeft = QPoint(anchor.right() + 2, anchor.center().y() - total.height() / 2);
    } else {
        total.rheight() += arrow ? kArrow : 0;
        m_arrowUp = (align & Qt::AlignBottom) != 0;
        const int y = m_arrowUp ? anchor.bottom() + 2 : anchor.top() - total.height() - 2;
        int x = anchor.left();
        if (align & Qt::AlignRight) {
            x = anchor.right() - total.width();
        } else if (align & Qt::AlignHCenter) {
            x = anchor.center().x() - total.width() / 2;
        }
        topLeft = QPoint(x, y);
        m_arrowX =
            qBound(10, qMin(anchor.width() / 2, 24) + (anchor.left() - x), total.width() - 10);
    }
    resize(total);
    move(topLeft);
}

void CMessageTipBalloon::startFade() {
    if (m_fade->state() != QAbstractAnimation::Running) {
        m_fade->start();
    }
}

void CMessageTipBalloon::mousePressEvent(QMouseEvent*) {
    startFade();
}

QRectF CMessageTipBalloon::bodyRect() const {
    QRectF body = QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5);
    if (m_style == CMessageTip::StyleArrow) {
        if (m_arrowSide) {
            body.setLeft(body.left() + kArrow);
        } else if (m_arrowUp) {
            body.setTop(body.top() + kArrow);
        } else {
            body.setBottom(body.bottom() - kArrow);
        }
    }
    return body;
}

QPainterPath CMessageTipBalloon::outline() const {
    const bool arrow = m_style == CMessageTip::StyleArrow;
    const QRectF body = bodyRect();
    QPainterPath path;
    path.addRoundedRect(body, 4, 4);
    if (!arrow) {
        return path;
    }
    QPainterPath tip;
    if (m_arrowSide) {
        const qreal y = body.center().y();
        tip.moveTo(body.left() + 1, y - kArrow);
        tip.lineTo(body.left() - kArrow + 0.5, y);
        tip.lineTo(body.left() + 1, y + kArrow);
    } else if (m_arrowUp) {
        tip.moveTo(m_arrowX - kArrow, body.top() + 1);
        tip.lineTo(m_arrowX, body.top() - kArrow + 0.5);
        tip.lineTo(m_arrowX + kArrow, body.top() + 1);
    } else {
        tip.moveTo(m_arrowX - kArrow, body.bottom() - 1);
        tip.lineTo(m_arrowX, body.bottom() + kArrow - 0.5);
        tip.lineTo(m_arrowX + kArrow, body.bottom() - 1);
    }
    tip.closeSubpath();
    return path.united(tip);
}

void CMessageTipBalloon::resizeEvent(QResizeEvent* event) {
    QWidget::resizeEvent(event);
    // Only the bubble and its arrow belong to the window; around them the screen shows through.
    setMask(QRegion(outline().toFillPolygon().toPolygon()));
}

void CMessageTipBalloon::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const LevelLook look = lookOf(m_level);
    const QPainterPath path = outline();
    painter.setPen(QPen(look.border, 1));
    painter.setBrush(look.fill);
    painter.drawPath(path);
    painter.setPen(look.text);
    painter.drawText(bodyRect().toRect().adjusted(kPadX, kPadY, -kPadX, -kPadY),
                     Qt::TextWordWrap | Qt::AlignLeft | Qt::AlignVCenter, m_text);
}

}  // namespace Zu
