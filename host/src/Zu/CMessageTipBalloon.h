#pragma once

#include <QPointer>
#include <QWidget>

class QTimer;
class QVariantAnimation;

namespace Zu {

// The balloon of a message tip: a painted bubble with an arrow towards its target widget.
class CMessageTipBalloon : public QWidget {
    Q_OBJECT
public:
    CMessageTipBalloon(QWidget* target, int placement, const QString& text, int style, int level,
                       int ms);
    ~CMessageTipBalloon() override;

    QString text() const { return m_text; }
    QWidget* target() const { return m_target; }
    int level() const { return m_level; }
    qreal opacity() const { return m_opacity; }
    bool isFading() const;

    // Shows the balloon next to its target and starts its timer.
    void popUp();

protected:
    void paintEvent(QPaintEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;

private:
    void place();
    void startFade();

    QPointer<QWidget> m_target;
    int m_placement;
    QString m_text;
    int m_style;
    int m_level;
    int m_ms;
    bool m_arrowUp = true;
    bool m_arrowSide = false;
    int m_arrowX = 16;
    qreal m_opacity = 1.0;
    QTimer* m_timer = nullptr;
    QVariantAnimation* m_fade = nullptr;
};

}  // namespace Zu
