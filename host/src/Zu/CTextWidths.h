#pragma once

#include <QFontMetrics>
#include <QHash>
#include <QString>
#include <array>

namespace Zu {

// Widths of cell texts in one font, for sizing columns over many rows: a text of printable
// Latin-1 characters is measured as the sum of its characters' advances (each measured once), any
// other text by the font metrics, remembered per text.
class CTextWidths {
public:
    explicit CTextWidths(const QFont& font);

    int width(const QString& text);

private:
    int latin1Width(const QString& text, bool* measured);

    QFontMetrics m_metrics;
    std::array<int, 256> m_advances;
    QHash<QString, int> m_others;
};

}  // namespace Zu
