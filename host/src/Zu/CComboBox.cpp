#include "Zu/CComboBox.h"

namespace Zu {

CComboBox::CComboBox(QWidget* parent, int id) : CEventWidgetT<QComboBox>(parent), m_id(id) {
    connect(this, QOverload<int>::of(&QComboBox::currentIndexChanged), this,
            &CComboBox::onCurrentIndexChanged);
}

CComboBox::~CComboBox() = default;

void CComboBox::onCurrentIndexChanged(int index) {
    deliverEvent(EventComboIndexChanged, m_id, index, currentText(), nullptr);
}

}  // namespace Zu
