#include "CPanelCatalogue.h"

#include <QStringList>

#include "model/CLevel2Names.h"
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
        list.push_back({level2Panel(), QString::fromUtf8(Hlx::CLevel2Names::kTokenNoun),
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

QString CPanelCatalogue::sourcesPanel(int tradeType) {
    const Hlx::CTradeTypeInfo* info = Hlx::CTradeTypeTable::find(tradeType);
    return info ? QString::fromLatin1(info->objectName) : QString();
}

QString CPanelCatalogue::level2Panel() {
    return QString::fromLatin1(Hlx::CLevel2Names::kPanelObjectName);
}

QStringList CPanelCatalogue::defaultPanels() {
    using Hlx::CTradeTypeTable;
    return {sourcesPanel(CTradeTypeTable::kStocks), sourcesPanel(CTradeTypeTable::kFutures),
            sourcesPanel(CTradeTypeTable::kAll), level2Panel()};
}
