#pragma once

#include <QString>

class QObject;

namespace Zu {

// Event types the kit's widgets deliver.
enum KitEventType {
    EventButtonClicked = 5,
    EventComboIndexChanged = 71,
    EventFieldLeft = 101,
    EventRowButtonClicked = 228,
    // Quote sources changed: the quote-source dialogs deliver it to their panel, which reloads.
    EventQuoteSourcesChanged = 3026,
};

// Receives the kit's widget events. An event is offered to the widget that raised it and then to
// each ancestor that is also a deliverer, until one of them takes it.
class CEventDeliverer {
public:
    virtual ~CEventDeliverer();

    // Returns true when the event was taken; the base takes nothing.
    virtual bool handleEvent(int type, int id, int arg, QString text, void* extra);

    // Offers the event to this object, then up the parent chain; true when one took it.
    bool deliverEvent(int type, int id, int arg, QString text, void* extra);

protected:
    virtual QObject* delivererObject() = 0;
};

}  // namespace Zu
