#pragma once

#include <QWidget>

#include "Zu/CEventWidgetT.h"
#include "Zu/CUiResourceChangeHandler.h"

namespace Zu {

// The base of the kit's plain widgets and of the panels.
class CBaseWidget : public CEventWidgetT<QWidget>, public CUiResourceChangeHandler {
    Q_OBJECT
public:
    explicit CBaseWidget(QWidget* parent = nullptr);
    ~CBaseWidget() override;

    bool handleEvent(int type, int id, int arg, QString text, void* extra) override;
};

}  // namespace Zu
