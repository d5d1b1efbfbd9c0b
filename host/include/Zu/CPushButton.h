#pragma once

#include <QPushButton>

#include "Zu/CEventWidgetT.h"

namespace Zu {

// A flat, link-like button whose colour and icon come from the resource table by key; a click
// delivers event 5 with the button's id.
class CPushButton : public CEventWidgetT<QPushButton> {
    Q_OBJECT
public:
    CPushButton(QWidget* parent, int id);
    ~CPushButton() override;

    int id() const { return m_id; }

    // Text colour for every state (normal, hover, pressed, disabled keeps it dimmed).
    void setTextColorKey(const QString& key);
    QString textColorKey() const { return m_colorKey; }
    void setIconKey(const QString& key);
    QString iconKey() const { return m_iconKey; }

    // Also keeps the minimum width at what text and icon need.
    void setText(const QString& text);

private:
    void onClicked();
    void applyLook();
    void updateMinimumWidth();

    int m_id;
    QString m_colorKey;
    QString m_iconKey;
};

}  // namespace Zu
