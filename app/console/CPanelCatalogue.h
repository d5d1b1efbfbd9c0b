#pragma once

#include <QString>
#include <functional>
#include <vector>

class QWidget;

namespace Hlx {
class IorinDockableWidget;
}

// The panels the console can dock: the quote-source panels of every trade type and the Level-2
// token panel. The one place the console takes panel names and titles from.
struct CPanelEntry {
    QString objectName;
    QString title;
    std::function<Hlx::IorinDockableWidget*(QWidget* parent)> create;
};

class CPanelCatalogue {
public:
    static const std::vector<CPanelEntry>& entries();
    static const CPanelEntry* find(const QString& objectName);
    // The object name of a trade type's quote-source panel (empty for a type without a panel).
    static QString sourcesPanel(int tradeType);
    static QString level2Panel();
    // Opened on the first start.
    static QStringList defaultPanels();
};
