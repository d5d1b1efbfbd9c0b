#pragma once

#include <qnamespace.h>
#include <QString>

class QWidget;

namespace Zu {

// Balloon tips shown next to a widget, fading out after a while.
class CMessageTip {
public:
    // Levels: 0 information, 1 success, 2 warning, 3 error.
    enum Level { LevelInfo = 0, LevelSuccess = 1, LevelWarning = 2, LevelError = 3 };
    enum Style { StylePlain = 1, StyleArrow = 2 };
    // The placement of the dialogs' tips: below the target, from its left edge.
    static constexpr int kBelowLeft = Qt::AlignLeft | Qt::AlignBottom;

    // placement: Qt::Alignment bits; AlignTop/AlignBottom put the balloon above or below target,
    // otherwise it sits beside it; AlignLeft/AlignRight/AlignHCenter align it along that edge.
    // style: 1 plain, 2 with a pointer arrow. Visible for ms milliseconds, then fades.
    static void showTip(QWidget* target, int placement, const QString& text, int style, int level,
                        int ms);
    // As showTip, but the balloon stays until the operator edits the target (a line edit's text
    // or a combo box's choice) or another tip replaces it, and at least minimumMs: a tip that
    // fades before it can be read helps nobody.
    static void showTipUntilEdited(QWidget* target, int placement, const QString& text, int style,
                                   int level, int minimumMs);

    // For tests and diagnostics.
    static QString lastTipText();
    static QWidget* lastTipTarget();
    static int tipCount();
    static void resetLastTip();
    // The balloon on screen, or null.
    static QWidget* currentTip();
};

}  // namespace Zu
