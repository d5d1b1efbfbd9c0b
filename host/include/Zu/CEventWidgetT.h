#pragma once

#include <utility>

#include "Zu/CEventDeliverer.h"

namespace Zu {

// Any Qt widget class that also takes part in the kit's event delivery.
template <class Base>
class CEventWidgetT : public Base, public CEventDeliverer {
public:
    template <typename... Args>
    explicit CEventWidgetT(Args&&... args) : Base(std::forward<Args>(args)...) {}

protected:
    QObject* delivererObject() override { return this; }
};

}  // namespace Zu
