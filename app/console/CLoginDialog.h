#pragma once

#include <QDialog>
#include <functional>

class QKeyEvent;
class QLabel;
class QLineEdit;
class QPushButton;

// Asks for an account and its password and tries them. The attempt runs on a thread of its own,
// so a slow or unreachable server never freezes the window; its error is shown in the dialog,
// which stays open until a login succeeds or the operator cancels. One attempt at a time, each
// asked for on purpose: an empty account is refused here, 登录 is disabled while one runs, and a
// held key's repeats start none (each failure counts towards a lockout).
class CLoginDialog : public QDialog {
    Q_OBJECT
public:
    // Tries a login; the error text, empty on success. Called on a worker thread.
    using Attempt = std::function<QString(const QString& name, const QString& password)>;

    CLoginDialog(const QString& servers, Attempt attempt, QWidget* parent = nullptr);

    QLineEdit* nameEdit() const { return m_name; }
    QLineEdit* passwordEdit() const { return m_password; }
    QLabel* errorLabel() const { return m_error; }
    QPushButton* loginButton() const { return m_login; }

protected:
    void keyPressEvent(QKeyEvent* event) override;

private:
    void tryLogin();
    void finishAttempt(const QString& error);

    Attempt m_attempt;
    QLineEdit* m_name;
    QLineEdit* m_password;
    QLabel* m_error;
    QPushButton* m_login;
    QPushButton* m_cancel;
    bool m_inFlight = false;
};
