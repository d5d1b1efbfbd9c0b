#pragma once

#include <QJsonObject>
#include <QMap>
#include <QString>
#include <string>

#include "model/PanelQuotesManageGlobal.h"

namespace Hlx {

// What the operator reads for a value of a source's history: the names of the ids the trail
// stores (sub-system, trade type, platform) and 无 for the broker and server group of a source that
// names no broker; every other field reads as stored.
class PANELQUOTESMANAGE_EXPORT CHistoryValues {
public:
    // subsystems: shown names by stored name (CSubsystemNames).
    explicit CHistoryValues(QMap<QString, QString> subsystems = {});

    // side: the fields of one side of a detail; stored: the field's text as stored, empty when
    // that side holds no source.
    QString shown(const std::string& field, const QJsonObject& side, const QString& stored) const;

    static constexpr const char* kNone = "无";

private:
    QMap<QString, QString> m_subsystems;
};

}  // namespace Hlx
