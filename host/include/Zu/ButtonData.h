#pragma once

#include <QMap>
#include <QString>

namespace Zu {

// One painted button of a table row.
class ButtonData {
public:
    // Looks: 1 link-like text button, 2 framed button.
    enum Type { TypeLink = 1, TypeFramed = 2 };

    ButtonData(int id = 0, const QString& text = QString(), int type = 1, bool flag = false,
               const QMap<QString, QString>& extra = {})
        : id(id), text(text), type(type), flag(flag), extra(extra) {}

    bool operator==(const ButtonData& other) const {
        return id == other.id && type == other.type && flag == other.flag && text == other.text &&
               extra == other.extra;
    }
    bool operator!=(const ButtonData& other) const { return !(*this == other); }

    int id;
    QString text;
    int type;
    // Set: the button is shown dimmed and cannot be clicked.
    bool flag;
    // Further texts by key; "tooltip" is shown when the mouse rests on the button.
    QMap<QString, QString> extra;
};

}  // namespace Zu
