#pragma once

#include <QPointer>
#include <QString>

#include "Zu/IDockableWidget.h"

class QVBoxLayout;

namespace Hlx {

// The base of the platform's dockable panels: bound to a sub-system, with one inner widget that
// fills the panel.
class IorinDockableWidget : public Zu::IDockableWidget {
    Q_OBJECT
public:
    IorinDockableWidget(const QString& objectName, QWidget* parent);
    IorinDockableWidget(bool floating, const QString& objectName, QWidget* parent, bool closable);
    ~IorinDockableWidget() override;

    void onActive() override;
    // Binds the panel to a sub-system; the base only keeps the name.
    virtual void switchSystem(int systemId, const QString& systemName);
    QString systemName() const { return m_systemName; }
    int systemId() const { return m_systemId; }

    bool isFloatingPanel() const { return m_floating; }
    bool isClosablePanel() const { return m_closable; }

    // Puts widget into the panel's own layout, filling it without margins.
    void setInnerStretchWidget(QWidget* widget);
    QWidget* innerStretchWidget() const { return m_inner; }

signals:
    void activated();

private:
    void init();

    QString m_systemName;
    int m_systemId = -1;
    bool m_floating = false;
    bool m_closable = true;
    QVBoxLayout* m_layout = nullptr;
    QPointer<QWidget> m_inner;
};

}  // namespace Hlx
