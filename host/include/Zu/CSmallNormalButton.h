#pragma once

#include <QPushButton>

#include "Zu/CEventWidgetT.h"

namespace Zu {

// The kit's ordinary push button; a click delivers event 5 with the button's id.
class CSmallNormalButton : public CEventWidgetT<QPushButton> {
    Q_OBJECT
public:
    // Looks: 0 plain, 1 dialog button, 2 primary (filled).
    enum ButtonType { TypeNormal = 0, TypeDialog = 1, TypePrimary = 2 };

    CSmallNormalButton(QWidget* parent, int id, const QString& text = QString(),
                       int buttonType = 0);
    ~CSmallNormalButton() override;

    int id() const { return m_id; }
    int buttonType() const { return m_buttonType; }
    void setButtonType(int buttonType);
    // The width left for the text inside border and padding, and whether the text fits it.
    int textRoom() const;
    bool showsWholeText() const;

private:
    void onClicked();

    int m_id;
    int m_buttonType;
};

}  // namespace Zu
