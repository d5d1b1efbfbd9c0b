#pragma once

#include <QComboBox>

#include "Zu/CEventWidgetT.h"

namespace Zu {

// A combo box that delivers event 71 (arg = new index, text = its text) whenever its current
// index changes, by the user or by the program.
class CComboBox : public CEventWidgetT<QComboBox> {
    Q_OBJECT
public:
    CComboBox(QWidget* parent, int id);
    ~CComboBox() override;

    int id() const { return m_id; }

private:
    void onCurrentIndexChanged(int index);

    int m_id;
};

}  // namespace Zu
