#pragma once

#include <QString>
#include <QVector>
#include <functional>

#include "rkservice/COrinQuoterSourceInfo.h"

class QMenu;

namespace Hlx {

// The entries a quote-source panel adds to its table's row context menu, after the table's own.
// Each entry acts on the row under the mouse and its record; adding one is one call of add().
class CSourceRowMenu {
public:
    using Action = std::function<void(int row, const rkservice::COrinQuoterSourceInfoPtr& record)>;
    using Enabled = std::function<bool(int row, const rkservice::COrinQuoterSourceInfoPtr& record)>;

    // An entry shown with `text`, found by tests by `objectName`; without `enabled` it is enabled
    // on every row that has a record.
    void add(const QString& text, const QString& objectName, Action action, Enabled enabled = {});
    // Appends the entries for a row (-1: no row under the mouse, every entry disabled).
    void fill(QMenu* menu, int row, const rkservice::COrinQuoterSourceInfoPtr& record) const;
    int size() const { return m_entries.size(); }

private:
    struct Entry {
        QString text;
        QString objectName;
        Action action;
        Enabled enabled;
    };
    QVector<Entry> m_entries;
};

}  // namespace Hlx
