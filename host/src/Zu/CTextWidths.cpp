#include "CTextWidths.h"

namespace Zu {

CTextWidths::CTextWidths(const QFont& font) : m_metrics(font) {
    m_advances.fill(-1);
}

int CTextWidths::width(const QString& text) {
    bool measured = false;
    const int sum = latin1Width(text, &measured);
    if (measured) {
        return sum;
    }
    auto found = m_others.constFind(text);
    if (found == m_others.constEnd()) {
        found = m_others.insert(text, m_metrics.horizontalAdvance(text));
    }
    return found.value();
}

int CTextWidths::latin1Width(const QString& text, bool* measured) {
    int sum = 0;
    for (const QChar c : text) {
        const ushort code = c.unicode();
        if (code < 0x20 || code >= 0x100 || (code >= 0x7f && code < 0xa0)) {
            *measured = false;
            return 0;
        }
        int& advance = m_advances[code];
        if (advance < 0) {
            advance = m_metrics.horizontalAdvance(c);
        }
        sum += advance;
    }
    *measured = true;
    return sum;
}

}  // namespace Zu
