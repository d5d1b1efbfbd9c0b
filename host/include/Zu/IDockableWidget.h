#pragma once

#include <QString>

#include "Zu/CBaseWidget.h"

namespace Zu {

// A widget the host can dock as a panel: activated by the host, with a persisted state string.
class IDockableWidget : public CBaseWidget {
    Q_OBJECT
public:
    explicit IDockableWidget(QWidget* parent = nullptr);
    ~IDockableWidget() override;

    // Called by the host when the panel becomes the active one.
    virtual void onActive();

    // The state string the host persists for the panel.
    virtual void setParam(const QString& param);
    virtual QString param() const;

private:
    QString m_param;
};

}  // namespace Zu
