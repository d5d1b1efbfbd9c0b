#pragma once

#include <QMap>
#include <QString>

#include "model/PanelQuotesManageGlobal.h"

namespace Hlx {

// The shown names of the sub-systems the client centre's backend knows, by their stored names
// ("sys1"); a sub-system without a display name is left out and reads as stored.
class PANELQUOTESMANAGE_EXPORT CSubsystemNames {
public:
    static QMap<QString, QString> current();
};

}  // namespace Hlx
