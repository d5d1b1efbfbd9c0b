#pragma once

#include <QPointer>
#include <QWidget>

class QPainterPath;
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

    // Keeps the balloon, once its time is up, until the target is edited.
    void stayUntilEdited();
    // Shows the balloon next to its target and starts its timer.
    void popUp();

protected:
    void paintEvent(QPaintEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void place();
    void startFade();
    void onTimeUp();
    void onTargetEdited();
    QRectF bodyRect() const;
    QPainterPath outline() const;

    QPointer<QWidget> m_target;
    int m_placement;
    QString m_text;
    int m_style;
    int m_level;
    int m_ms;
    bool m_untilEdited = false;
    bool m_edited = false;
    bool m_arrowUp = true;
    bool m_arrowSide = false;
    int m_arrowX = 16;
    qreal m_opacity = 1.0;
    QTimer* m_timer = nullptr;
    QVariantAnimation* m_fade = nullptr;
};

}  // namespace Zu
