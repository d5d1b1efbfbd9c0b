#pragma once

#include "Zu/CBaseWidget.h"

namespace Zu {

// A painted text label with Qt alignment and text flags.
class CSimpleTextWidget : public CBaseWidget {
    Q_OBJECT
public:
    CSimpleTextWidget(QWidget* parent, int id, const QString& text = QString());
    ~CSimpleTextWidget() override;

    int id() const { return m_id; }

    void setText(const QString& text);
    QString text() const { return m_text; }

    // Qt::AlignmentFlag and Qt::TextFlag bits, e.g. Qt::AlignRight | Qt::AlignVCenter |
    // Qt::TextSingleLine.
    void setTextFlags(int flags);
    int textFlags() const { return m_flags; }

    void setTextColor(const QColor& color);

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    int m_id;
    QString m_text;
    int m_flags;
    QColor m_color;
};

}  // namespace Zu
