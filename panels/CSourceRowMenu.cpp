#include "panels/CSourceRowMenu.h"

#include <QAction>
#include <QMenu>

namespace Hlx {

void CSourceRowMenu::add(const QString& text, const QString& objectName, Action action,
                         Enabled enabled) {
    m_entries.append({text, objectName, std::move(action), std::move(enabled)});
}

void CSourceRowMenu::fill(QMenu* menu, int row,
                          const rkservice::COrinQuoterSourceInfoPtr& record) const {
    if (m_entries.isEmpty())
        return;
    menu->addSeparator();
    for (const Entry& entry : m_entries) {
        QAction* action = menu->addAction(entry.text);
        action->setObjectName(entry.objectName);
        action->setEnabled(record && (!entry.enabled || entry.enabled(row, record)));
        // The menu runs in a nested loop: the action acts after it has closed, on a copy of the
        // record, so that a reload meanwhile cannot take it away.
        const Action act = entry.action;
        QObject::connect(action, &QAction::triggered, menu, [act, row, record] {
            if (record)
                act(row, record);
        });
    }
}

}  // namespace Hlx
