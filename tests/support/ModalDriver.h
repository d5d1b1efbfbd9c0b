#pragma once

#include <QAbstractButton>
#include <QApplication>
#include <QDialog>
#include <QMessageBox>
#include <QPointer>
#include <QTest>
#include <QTimer>
#include <functional>
#include <memory>

// Acts on the next modal widget that opens: the test's hand on a dialog run by exec().
class ModalDriver {
public:
    // Calls `act` once with the next active modal widget (polled every 10 ms).
    static void onNext(std::function<void(QWidget*)> act) {
        auto* timer = new QTimer(qApp);
        auto shared = std::make_shared<std::function<void(QWidget*)>>(std::move(act));
        QObject::connect(timer, &QTimer::timeout, timer, [timer, shared] {
            QWidget* modal = QApplication::activeModalWidget();
            if (!modal || !modal->isVisible())
                return;
            timer->stop();
            timer->deleteLater();
            QPointer<QWidget> guard(modal);
            (*shared)(modal);
            // A check that failed inside the action returned early: never leave the dialog
            // blocking the test until its time runs out.
            if (QTest::currentTestFailed() && guard && guard->isVisible()) {
                if (auto* dialog = qobject_cast<QDialog*>(guard.data()))
                    dialog->reject();
                else
                    guard->close();
            }
        });
        timer->start(10);
    }

    // Answers the next message box with the given button, recording its title and text.
    static void answerNextBox(QMessageBox::StandardButton button, QString* title = nullptr,
                              QString* text = nullptr, int* buttons = nullptr) {
        onNext([=](QWidget* modal) {
            auto* box = qobject_cast<QMessageBox*>(modal);
            if (!box) {
                modal->close();  // not what the test expected: never leave it blocking
                return;
            }
            if (title)
                *title = box->windowTitle();
            if (text)
                *text = box->text();
            if (buttons)
                *buttons = int(box->standardButtons());
            box->button(button)->click();
        });
    }
};
