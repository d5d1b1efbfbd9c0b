#pragma once

#include <QHash>
#include <QString>
#include <string>
#include <unordered_map>

#include "model/PanelQuotesManageGlobal.h"

namespace Hlx {

// The display names a table of sources repeats on every row (platform, trade type, server),
// each looked up once per load instead of once per row.
class PANELQUOTESMANAGE_EXPORT CNameCache {
public:
    QString platformName(int platformId);
    QString tradeTypeName(int tradeType, int platformId);
    QString serverName(const std::string& systemTag);
    void clear();

private:
    QHash<int, QString> m_platforms;
    QHash<quint64, QString> m_tradeTypes;
    std::unordered_map<std::string, QString> m_servers;
};

}  // namespace Hlx
