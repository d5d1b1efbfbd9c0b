#include "Zu/CMessageBox.h"

#include <QAbstractButton>
#include <QMessageBox>
#include <QPointer>
#include <QPushButton>
#include <memory>

namespace Zu {

namespace {

// A box whose question has no default button: Qt makes the first accepting button the default
// as the box shows (QDialogButtonBox), so that Enter would answer it, and gives a button the
// focus, so that Space would. Here neither key answers: only a choice does (a click, or Tab to a
// button and then Space).
class NoDefaultBox : public QMessageBox {
public:
    using QMessageBox::QMessageBox;

protected:
    void showEvent(QShowEvent* event) override {
        QMessageBox::showEvent(event);
        for (QAbstractButton* button : buttons()) {
            if (auto* push = qobject_cast<QPushButton*>(button)) {
                push->setAutoDefault(false);
                push->setDefault(false);
            }
        }
        setFocusPolicy(Qt::StrongFocus);
        setFocus();
    }
};

int runBox(QMessageBox::Icon icon, QWidget* parent, const QString& title, const QString& text,
           int buttons, int defaultButton, Qt::TextFormat format) {
    if (buttons == 0) {
        buttons = QMessageBox::Ok;
    }
    const QMessageBox::StandardButtons choices(buttons);
    const bool hasDefault = defaultButton != 0 && (buttons & defaultButton) == defaultButton;
    // A single button is an acknowledgement, not a question: Enter may give it.
    const bool question = !hasDefault && (buttons & (buttons - 1)) != 0;
    // On the heap: a parent destroyed while the box runs deletes the box with it, which must
    // not be a stack object.
    QPointer<QMessageBox> owned = question ? new NoDefaultBox(icon, title, text, choices, parent)
                                           : new QMessageBox(icon, title, text, choices, parent);
    QMessageBox& box = *owned;
    box.setTextFormat(format);
    CMessageBox::localise(&box);
    if (hasDefault)
        box.setDefaultButton(QMessageBox::StandardButton(defaultButton));
    const int result = box.exec();
    if (!owned) {
        return QMessageBox::NoButton;  // gone with its parent: nothing was chosen
    }
    const std::unique_ptr<QMessageBox> done(owned.data());
    // Closing the box without an escape button: report the clicked button, if any.
    if (QAbstractButton* clicked = box.clickedButton()) {
        const int standard = box.standardButton(clicked);
        if (standard != QMessageBox::NoButton) {
            return standard;
        }
    }
    return result;
}

}  // namespace

void CMessageBox::localise(QMessageBox* box) {
    static const QList<QPair<QMessageBox::StandardButton, QString>> texts = {
        {QMessageBox::Ok, QStringLiteral("确定")},    {QMessageBox::Cancel, QStringLiteral("取消")},
        {QMessageBox::Yes, QStringLiteral("是")},     {QMessageBox::No, QStringLiteral("否")},
        {QMessageBox::Close, QStringLiteral("关闭")}, {QMessageBox::Save, QStringLiteral("保存")},
        {QMessageBox::Retry, QStringLiteral("重试")}, {QMessageBox::Ignore, QStringLiteral("忽略")},
        {QMessageBox::Abort, QStringLiteral("中止")}, {QMessageBox::Apply, QStringLiteral("应用")},
    };
    for (const auto& entry : texts) {
        if (QAbstractButton* button = box->button(entry.first)) {
            button->setText(entry.second);
        }
    }
}

int CMessageBox::question(QWidget* parent, const QString& title, const QString& text, int buttons,
                          int defaultButton) {
    return runBox(QMessageBox::Question, parent, title, text, buttons, defaultButton,
                  Qt::PlainText);
}

int CMessageBox::information(QWidget* parent, const QString& title, const QString& text,
                             int buttons, int defaultButton, bool richText) {
    return runBox(QMessageBox::Information, parent, title, text, buttons, defaultButton,
                  richText ? Qt::RichText : Qt::PlainText);
}

int CMessageBox::warning(QWidget* parent, const QString& title, const QString& text, int buttons,
                         int defaultButton, bool richText) {
    return runBox(QMessageBox::Warning, parent, title, text, buttons, defaultButton,
                  richText ? Qt::RichText : Qt::PlainText);
}

int CMessageBox::critical(QWidget* parent, const QString& title, const QString& text, int buttons,
                          int defaultButton, bool richText) {
    return runBox(QMessageBox::Critical, parent, title, text, buttons, defaultButton,
                  richText ? Qt::RichText : Qt::PlainText);
}

}  // namespace Zu
