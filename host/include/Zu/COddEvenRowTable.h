#pragma once

#include "Zu/CBaseNormalTable.h"

namespace Zu {

// The kit's list table with alternating row colours.
class COddEvenRowTable : public CBaseNormalTable {
    Q_OBJECT
public:
    COddEvenRowTable(QWidget* parent, int layoutId, int menuFlags);
    ~COddEvenRowTable() override;
};

}  // namespace Zu
