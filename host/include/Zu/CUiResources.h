#pragma once

#include <QColor>
#include <QIcon>
#include <QPixmap>
#include <QString>

namespace Zu {

// The kit's one table of named colours and images, so that widgets refer to looks by key.
class CUiResources {
public:
    // The colour under key, or fallback when the key is unknown.
    static QColor color(const QString& key, const QColor& fallback = QColor());
    static bool hasColor(const QString& key);

    // The image under key; a null icon or pixmap when the key is unknown.
    static QIcon icon(const QString& key);
    static QPixmap pixmap(const QString& key, const QSize& size);
    static bool hasImage(const QString& key);
};

}  // namespace Zu
