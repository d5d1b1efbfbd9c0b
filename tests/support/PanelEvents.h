#pragma once

#include <QString>

#include "Zu/CEventDeliverer.h"
#include "panels/CQuotesManagePanel.h"

// What the operator's clicks and the quote-source dialogs deliver to a panel, named after what
// happens, as the widget kit delivers it (to the panel, then up its parents).
namespace PanelEvents {

// A tool-bar button of the panel.
inline bool press(Zu::CEventDeliverer& panel, int buttonId) {
    return panel.deliverEvent(Zu::EventButtonClicked, buttonId, 0, QString(), nullptr);
}

// A button in a row of a quote-source panel's table, the row as the delegate names it.
inline bool pressInRow(Zu::CEventDeliverer& panel, int buttonId, int row) {
    return panel.deliverEvent(Zu::EventRowButtonClicked, 0, buttonId, QString::number(row),
                              nullptr);
}

inline bool pressDeleteInRow(Zu::CEventDeliverer& panel, int row) {
    return pressInRow(panel, Hlx::CQuotesManagePanel::kBtnDeleteRow, row);
}

inline bool pressEditInRow(Zu::CEventDeliverer& panel, int row) {
    return pressInRow(panel, Hlx::CQuotesManagePanel::kBtnEditRow, row);
}

// What a quote-source dialog delivers after its change: the panel reloads.
inline bool sourcesChanged(Zu::CEventDeliverer& panel) {
    return panel.deliverEvent(Zu::EventQuoteSourcesChanged, 0, 0, QString(), nullptr);
}

}  // namespace PanelEvents
