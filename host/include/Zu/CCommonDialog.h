#pragma once

#include <QPointer>

#include "Zu/CCustomDialog.h"

class QLabel;
class QToolButton;
class QVBoxLayout;

namespace Zu {

// A dialog frame with a title bar (title and close button) above one inner widget.
class CCommonDialog : public CCustomDialog {
    Q_OBJECT
public:
    explicit CCommonDialog(QWidget* parent = nullptr);
    ~CCommonDialog() override;

    void setTitle(const QString& title);
    QString title() const;

    // The dialog's content; a previous inner widget is deleted.
    void setInnerWidget(QWidget* widget);
    QWidget* innerWidget() const;

    QWidget* titleBar() const { return m_titleBar; }
    QToolButton* closeButton() const { return m_closeButton; }

    static const int TitleBarHeight = 30;

private:
    QWidget* m_titleBar = nullptr;
    QLabel* m_titleLabel = nullptr;
    QToolButton* m_closeButton = nullptr;
    QVBoxLayout* m_layout = nullptr;
    QPointer<QWidget> m_inner;
};

}  // namespace Zu
