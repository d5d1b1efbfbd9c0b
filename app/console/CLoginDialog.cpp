#include "CLoginDialog.h"

#include <QApplication>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QPointer>
#include <QPushButton>
#include <QVBoxLayout>
#include <thread>

CLoginDialog::CLoginDialog(const QString& servers, Attempt attempt, QWidget* parent)
    : QDialog(parent), m_attempt(std::move(attempt)) {
    setObjectName(QStringLiteral("loginDialog"));
    setWindowTitle(QStringLiteral("登录行情源管理服务器"));
    m_name = new QLineEdit(this);
    m_name->setObjectName(QStringLiteral("loginName"));
    m_password = new QLineEdit(this);
    m_password->setObjectName(QStringLiteral("loginPassword"));
    m_password->setEchoMode(QLineEdit::Password);
    m_error = new QLabel(this);
    m_error->setObjectName(QStringLiteral("loginError"));
    m_error->setWordWrap(true);
    // The operator may need to pass the text on: it can be selected and copied.
    m_error->setTextInteractionFlags(Qt::TextSelectableByMouse);
    m_error->setStyleSheet(QStringLiteral("color: #c0392b"));
    m_login = new QPushButton(QStringLiteral("登录"), this);
    m_login->setObjectName(QStringLiteral("loginButton"));
    m_login->setDefault(true);
    m_cancel = new QPushButton(QStringLiteral("取消"), this);

    auto* form = new QFormLayout;
    form->addRow(QStringLiteral("服务器:"), new QLabel(servers, this));
    form->addRow(QStringLiteral("账户:"), m_name);
    form->addRow(QStringLiteral("密码:"), m_password);
    auto* buttons = new QHBoxLayout;
    buttons->addStretch();
    buttons->addWidget(m_login);
    buttons->addWidget(m_cancel);
    auto* layout = new QVBoxLayout(this);
    layout->addLayout(form);
    layout->addWidget(m_error);
    layout->addLayout(buttons);
    setMinimumWidth(420);

    connect(m_login, &QPushButton::clicked, this, &CLoginDialog::tryLogin);
    connect(m_cancel, &QPushButton::clicked, this, &QDialog::reject);
}

void CLoginDialog::keyPressEvent(QKeyEvent* event) {
    const bool enter = event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter;
    if (enter && event->isAutoRepeat()) {
        event->accept();  // a held Enter asks once
        return;
    }
    QDialog::keyPressEvent(event);
}

void CLoginDialog::tryLogin() {
    if (m_inFlight)
        return;
    if (m_name->text().trimmed().isEmpty()) {
        m_error->setText(QStringLiteral("请输入账户"));
        m_name->setFocus();
        return;
    }
    m_inFlight = true;
    m_login->setEnabled(false);
    m_error->setText(QStringLiteral("正在登录…"));
    const QString name = m_name->text();
    const QString password = m_password->text();
    QPointer<CLoginDialog> self(this);
    Attempt attempt = m_attempt;
    // The thread owns copies of what it needs; the dialog may be gone when it ends.
    std::thread([self, attempt, name, password] {
        const QString error = attempt(name, password);
        QMetaObject::invokeMethod(
            qApp,
            [self, error] {
                if (self)
                    self->finishAttempt(error);
            },
            Qt::QueuedConnection);
    }).detach();
}

void CLoginDialog::finishAttempt(const QString& error) {
    m_inFlight = false;
    m_login->setEnabled(true);
    if (error.isEmpty()) {
        m_password->clear();
        accept();
        return;
    }
    m_error->setText(error);
    // A long error (an unreachable server names each address) must show whole.
    adjustSize();
    m_password->selectAll();
    m_password->setFocus();
}
