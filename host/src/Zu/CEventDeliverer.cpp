#include "Zu/CEventDeliverer.h"

#include <QObject>
#include <QPointer>

namespace Zu {

CEventDeliverer::~CEventDeliverer() = default;

bool CEventDeliverer::handleEvent(int, int, int, QString, void*) {
    return false;
}

bool CEventDeliverer::deliverEvent(int type, int id, int arg, QString text, void* extra) {
    QObject* self = delivererObject();
    // A handler may close and delete widgets of the chain; stop climbing when that happens.
    QPointer<QObject> guard(self);
    if (handleEvent(type, id, arg, text, extra)) {
        return true;
    }
    if (!guard) {
        return false;
    }
    QObject* node = self->parent();
    while (node) {
        QPointer<QObject> nodeGuard(node);
        if (auto* deliverer = dynamic_cast<CEventDeliverer*>(node)) {
            if (deliverer->handleEvent(type, id, arg, text, extra)) {
                return true;
            }
        }
        if (!nodeGuard) {
            return false;
        }
        node = node->parent();
    }
    return false;
}

}  // namespace Zu
