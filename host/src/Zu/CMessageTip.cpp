#include "Zu/CMessageTip.h"

#include <QPointer>
#include <QWidget>

#include "CMessageTipBalloon.h"

namespace Zu {

namespace {

struct TipState {
    QString lastText;
    QPointer<QWidget> lastTarget;
    int count = 0;
    QPointer<CMessageTipBalloon> current;
};

TipState& state() {
    static TipState tips;
    return tips;
}

void popUpTip(QWidget* target, int placement, const QString& text, int style, int level, int ms,
              bool untilEdited) {
    TipState& tips = state();
    tips.lastText = text;
    tips.lastTarget = target;
    ++tips.count;
    // One balloon at a time: a newer message replaces the older one.
    if (tips.current) {
        tips.current->close();
    }
    auto* balloon = new CMessageTipBalloon(target, placement, text, style, level, ms);
    if (untilEdited)
        balloon->stayUntilEdited();
    tips.current = balloon;
    balloon->popUp();
}

}  // namespace

void CMessageTip::showTip(QWidget* target, int placement, const QString& text, int style, int level,
                          int ms) {
    popUpTip(target, placement, text, style, level, ms, false);
}

void CMessageTip::showTipUntilEdited(QWidget* target, int placement, const QString& text, int style,
                                     int level, int minimumMs) {
    popUpTip(target, placement, text, style, level, minimumMs, true);
}

QString CMessageTip::lastTipText() {
    return state().lastText;
}

QWidget* CMessageTip::lastTipTarget() {
    return state().lastTarget;
}

int CMessageTip::tipCount() {
    return state().count;
}

void CMessageTip::resetLastTip() {
    TipState& tips = state();
    tips.lastText.clear();
    tips.lastTarget = nullptr;
    tips.count = 0;
}

QWidget* CMessageTip::currentTip() {
    return state().current;
}

}  // namespace Zu
