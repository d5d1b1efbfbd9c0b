#pragma once

#include <QObject>
#include <QString>
#include <QVector>

#include "Hlx/COrinClientCenter.h"
#include "Zu/CSmallNormalButton.h"

// One server message the client centre showed.
struct ServerMessage {
    int type;
    bool success;
    QWidget* parent;
    QString title;
    QString text;
};

// Every server message shown while it lives, in order.
class ServerMessages : public QVector<ServerMessage> {
public:
    ServerMessages() {
        m_connection = QObject::connect(Hlx::COrinClientCenter::instance(),
                                        &Hlx::COrinClientCenter::serverMessageShown,
                                        [this](int type, bool success, QWidget* parent,
                                               const QString& title, const QString& text) {
                                            append({type, success, parent, title, text});
                                        });
    }
    ~ServerMessages() { QObject::disconnect(m_connection); }
    ServerMessages(const ServerMessages&) = delete;
    ServerMessages& operator=(const ServerMessages&) = delete;

private:
    QMetaObject::Connection m_connection;
};

// The kit button with the given id among a widget's children.
inline Zu::CSmallNormalButton* kitButton(QWidget* widget, int id) {
    for (auto* candidate : widget->findChildren<Zu::CSmallNormalButton*>()) {
        if (candidate->id() == id)
            return candidate;
    }
    return nullptr;
}
