#include "Zu/CLineEdit.h"

namespace Zu {

CLineEdit::CLineEdit(QWidget* parent, int id) : CEventWidgetT<QLineEdit>(parent), m_id(id) {}

CLineEdit::~CLineEdit() = default;

QString CLineEdit::getOriginalText() const {
    return text();
}

}  // namespace Zu
