#include "CPanelCatalogue.h"

#include <QStringList>

#include "model/CTradeTypeTable.h"
#include "panels/CLevel2QuotesManagePanel.h"
#include "panels/QuotesManagePanel.h"

const std::vector<CPanelEntry>& CPanelCatalogue::entries() {
    static const std::vector<CPanelEntry> catalogue = [] {
        std::vector<CPanelEntry> list;
        for (const Hlx::CTradeTypeInfo& info : Hlx::CTradeTypeTable::all()) {
            const int tradeType = info.tradeType;
            list.push_back(
                {QString::fromLatin1(info.objectName),
                 Hlx::CTradeTypeTable::tradeType2String(tradeType, -1) + QStringLiteral("行情源"),
                 [tradeType](QWidget* parent) -> Hlx::IorinDockableWidget* {
                     return Hlx::createQuotesPanel(tradeType, parent);
                 }});
        }
        list.push_back({QStringLiteral("level2quote"), QStringLiteral("Level-2行情源token"),
                        [](QWidget* parent) -> Hlx::IorinDockableWidget* {
                            return new Hlx::CLevel2QuotesManagePanel(parent);
                        }});
        return list;
    }();
    return catalogue;
}

const CPanelEntry* CPanelCatalogue::find(const QString& objectName) {
    for (const CPanelEntry& entry : entries()) {
        if (entry.objectName == objectName)
            return &entry;
    }
    return nullptr;
}

QStringList CPanelCatalogue::defaultPanels() {
    return {QStringLiteral("stq"), QStringLiteral("ftq"), QStringLiteral("allq"),
            QStringLiteral("level2quote")};
}
