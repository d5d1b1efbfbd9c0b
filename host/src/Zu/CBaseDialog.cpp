#include "Zu/CBaseDialog.h"

namespace Zu {

CBaseDialog::CBaseDialog(QWidget* parent) : CEventWidgetT<QDialog>(parent) {}

CBaseDialog::~CBaseDialog() = default;

bool CBaseDialog::handleEvent(int, int, int, QString, void*) {
    return false;
}

}  // namespace Zu
