#pragma once

#include <QDialog>

#include "Zu/CEventWidgetT.h"
#include "Zu/CUiResourceChangeHandler.h"

namespace Zu {

// The base of the kit's dialogs: a QDialog that takes part in event delivery.
class CBaseDialog : public CEventWidgetT<QDialog>, public CUiResourceChangeHandler {
    Q_OBJECT
public:
    explicit CBaseDialog(QWidget* parent = nullptr);
    ~CBaseDialog() override;

    bool handleEvent(int type, int id, int arg, QString text, void* extra) override;
};

}  // namespace Zu
