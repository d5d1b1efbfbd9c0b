#pragma once

#include <QPointer>
#include <QWidget>

class QVariantAnimation;

namespace Zu {

// A busy indicator laid over a widget: a spinning wheel and an optional text.
class CLoadingMaskWidget : public QWidget {
    Q_OBJECT
public:
    explicit CLoadingMaskWidget(QWidget* parent);
    ~CLoadingMaskWidget() override;

    // Covers target (becoming its child when it is not already), raises and shows itself, and
    // keeps covering it when target is resized. Hiding stops the animation.
    void attach(QWidget* target);
    QWidget* attachedTo() const { return m_target; }

    void setText(const QString& text);
    QString text() const { return m_text; }

    // Preferred size of the wheel and text block; scaled down to fit the covered widget.
    void setAnimationSize(const QSize& size);
    QSize animationSize() const { return m_animationSize; }

    bool isAnimating() const;
    // The wheel's current angle in degrees, for inspection.
    int angle() const { return m_angle; }

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;
    void paintEvent(QPaintEvent* event) override;
    void showEvent(QShowEvent* event) override;
    void hideEvent(QHideEvent* event) override;

private:
    void coverTarget();

    QPointer<QWidget> m_target;
    QString m_text;
    QSize m_animationSize;
    QVariantAnimation* m_animation = nullptr;
    int m_angle = 0;
};

}  // namespace Zu
