#pragma once

#include <QLineEdit>

#include "Zu/CEventWidgetT.h"

namespace Zu {

// The kit's line edit, with an id for event delivery.
class CLineEdit : public CEventWidgetT<QLineEdit> {
    Q_OBJECT
public:
    CLineEdit(QWidget* parent, int id);
    ~CLineEdit() override;

    int id() const { return m_id; }

    // The full text as typed, never the masked form shown in password mode.
    QString getOriginalText() const;

private:
    int m_id;
};

}  // namespace Zu
