#include "Zu/CUiResources.h"

#include <QHash>
#include <QPainter>
#include <QPainterPath>
#include <QtMath>

namespace Zu {

namespace {

const QHash<QString, QColor>& colorTable() {
    static const QHash<QString, QColor> table = {
        {QStringLiteral("clr_text_clickable"), QColor(0x1a, 0x6f, 0xd8)},
        {QStringLiteral("clr_text_clickable_hover"), QColor(0x10, 0x52, 0xa8)},
        {QStringLiteral("clr_text_normal"), QColor(0x33, 0x33, 0x33)},
        {QStringLiteral("clr_text_disabled"), QColor(0xa0, 0xa0, 0xa0)},
        {QStringLiteral("clr_row_alternate"), QColor(0xf4, 0xf7, 0xfb)},
        {QStringLiteral("clr_row_selected"), QColor(0xd6, 0xe6, 0xfa)},
        {QStringLiteral("clr_border"), QColor(0xc8, 0xcf, 0xd8)},
        {QStringLiteral("clr_title_bar"), QColor(0x2b, 0x5c, 0x9e)},
        {QStringLiteral("clr_tip_warning"), QColor(0xfd, 0xf2, 0xe0)},
        {QStringLiteral("clr_tip_warning_border"), QColor(0xe6, 0x8a, 0x1e)},
    };
    return table;
}

// A small gear: eight teeth around a ring.
QPixmap drawGear(const QSize& size, const QColor& color) {
    QPixmap pixmap(size);
    pixmap.fill(Qt::transparent);
    QPainter painter(&pixmap);
    painter.setRenderHint(QPainter::Antialiasing);
    const qreal side = qMin(size.width(), size.height());
    const QPointF centre(size.width() / 2.0, size.height() / 2.0);
    const qreal outer = side * 0.48;
    const qreal inner = side * 0.34;
    const int teeth = 8;
    QPainterPath body;
    for (int i = 0; i < teeth * 2; ++i) {
        // Alternate tooth tops and roots, each spanning half a tooth pitch.
        const qreal radius = (i % 2 == 0) ? outer : inner;
        const qreal a0 = (i - 0.5) * M_PI / teeth;
        const qreal a1 = (i + 0.5) * M_PI / teeth;
        const QPointF p0 = centre + QPointF(qCos(a0) * radius, qSin(a0) * radius);
        const QPointF p1 = centre + QPointF(qCos(a1) * radius, qSin(a1) * radius);
        if (i == 0) {
            body.moveTo(p0);
        } else {
            body.lineTo(p0);
        }
        body.lineTo(p1);
    }
    body.closeSubpath();
    QPainterPath hole;
    hole.addEllipse(centre, side * 0.15, side * 0.15);
    painter.fillPath(body.subtracted(hole), color);
    return pixmap;
}

}  // namespace

QColor CUiResources::color(const QString& key, const QColor& fallback) {
    return colorTable().value(key, fallback);
}

bool CUiResources::hasColor(const QString& key) {
    return colorTable().contains(key);
}

bool CUiResources::hasImage(const QString& key) {
    return key == QLatin1String("img_btn_set_small");
}

QPixmap CUiResources::pixmap(const QString& key, const QSize& size) {
    if (key == QLatin1String("img_btn_set_small")) {
        return drawGear(size, QColor(0x5a, 0x6b, 0x80));
    }
    return QPixmap();
}

QIcon CUiResources::icon(const QString& key) {
    if (!hasImage(key)) {
        return QIcon();
    }
    QIcon icon;
    for (int side : {12, 16, 24, 32}) {
        icon.addPixmap(pixmap(key, QSize(side, side)));
    }
    return icon;
}

}  // namespace Zu
