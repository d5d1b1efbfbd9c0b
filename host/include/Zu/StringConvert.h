#pragma once

#include <QString>
#include <string>

namespace Zu {

// UTF-8 narrow string to QString.
inline QString sToQs(const std::string& text) {
    return QString::fromUtf8(text.data(), int(text.size()));
}

// QString to UTF-8 narrow string.
inline std::string qsToS(const QString& text) {
    return text.toUtf8().toStdString();
}

}  // namespace Zu
