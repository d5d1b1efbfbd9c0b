#pragma once

#include <QDialog>
#include <functional>

class QLabel;
class QLineEdit;
class QPushButton;

// Asks for an account and its password and tries them. The attempt runs on a thread of its own,
// so a slow or unreachable server never freezes the window; its error is shown in the dialog,
// which stays open until a login succeeds or the operator cancels.
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

private:
    void tryLogin();
    void finishAttempt(const QString& error);

    Attempt m_attempt;
    QLineEdit* m_name;
    QLineEdit* m_password;
    QLabel* m_error;
    QPushButton* m_login;
    QPushButton* m_cancel;
};
