#pragma once

#include "Zu/CLineEdit.h"

namespace Hlx {

// A line edit that asks to be checked when the user leaves it (event 101 with its id and
// text) and that, unless in normal echo mode, never lets its text out: no copy, cut, drag or
// context menu.
class CSafeLineEdit : public Zu::CLineEdit {
    Q_OBJECT
public:
    CSafeLineEdit(QWidget* parent, int id);
    ~CSafeLineEdit() override;

    // True when the text is masked and therefore guarded.
    bool isGuarded() const;

public slots:
    // Do nothing while guarded, whoever calls them.
    void copy() const;
    void cut();

protected:
    bool event(QEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    void contextMenuEvent(QContextMenuEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void focusOutEvent(QFocusEvent* event) override;

private:
    void suppressDrag();

    bool m_dragWanted = false;
};

}  // namespace Hlx
