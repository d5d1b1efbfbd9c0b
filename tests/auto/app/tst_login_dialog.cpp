// The console's login dialog asks the server once per deliberate attempt: an empty account is
// refused without a call, 登录 is disabled while an attempt runs, and a held Enter (its key
// repeats) sends one login, since each failure counts towards the address's lockout.

#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QtTest>
#include <atomic>

#include "CLoginDialog.h"

namespace {

void pressEnter(QWidget* target, bool autoRepeat) {
    QKeyEvent press(QEvent::KeyPress, Qt::Key_Return, Qt::NoModifier, QStringLiteral("\r"),
                    autoRepeat);
    QApplication::sendEvent(target, &press);
}

}  // namespace

class TestLoginDialog : public QObject {
    Q_OBJECT

private slots:
    void emptyAccountIsRefusedWithoutACall() {
        std::atomic<int> attempts{0};
        CLoginDialog dialog(QStringLiteral("127.0.0.1:1"), [&](const QString&, const QString&) {
            ++attempts;
            return QString();
        });
        dialog.show();
        dialog.nameEdit()->setText(QStringLiteral("   "));
        dialog.passwordEdit()->setText(QStringLiteral("secret"));
        dialog.loginButton()->click();
        QCOMPARE(dialog.errorLabel()->text(), QStringLiteral("请输入账户"));
        QVERIFY(dialog.loginButton()->isEnabled());
        QCOMPARE(attempts.load(), 0);
    }

    void oneAttemptAtATime() {
        std::atomic<int> attempts{0};
        std::atomic<bool> release{false};
        CLoginDialog dialog(QStringLiteral("127.0.0.1:1"), [&](const QString&, const QString&) {
            ++attempts;
            while (!release)
                QThread::yieldCurrentThread();
            return QStringLiteral("用户名或密码错误");
        });
        dialog.show();
        dialog.nameEdit()->setText(QStringLiteral("admin"));
        dialog.loginButton()->click();
        QVERIFY(!dialog.loginButton()->isEnabled());
        // Neither another click nor Enter starts a second one while the first runs.
        dialog.loginButton()->click();
        pressEnter(dialog.passwordEdit(), false);
        QTRY_COMPARE(attempts.load(), 1);
        release = true;
        QTRY_VERIFY(dialog.loginButton()->isEnabled());
        QCOMPARE(attempts.load(), 1);
        QCOMPARE(dialog.errorLabel()->text(), QStringLiteral("用户名或密码错误"));
    }

    void heldEnterSendsOneLogin() {
        std::atomic<int> attempts{0};
        CLoginDialog dialog(QStringLiteral("127.0.0.1:1"), [&](const QString&, const QString&) {
            ++attempts;
            return QStringLiteral("用户名或密码错误");
        });
        dialog.show();
        dialog.nameEdit()->setText(QStringLiteral("admin"));
        dialog.passwordEdit()->setText(QStringLiteral("wrong"));
        pressEnter(dialog.passwordEdit(), false);
        QTRY_COMPARE(attempts.load(), 1);
        QTRY_VERIFY(dialog.loginButton()->isEnabled());
        // The key's repeats, each after the previous answer came back.
        for (int i = 0; i < 15; ++i) {
            pressEnter(dialog.passwordEdit(), true);
            QTRY_VERIFY(dialog.loginButton()->isEnabled());
        }
        QCOMPARE(attempts.load(), 1);
        // Released and pressed again: a new, deliberate attempt.
        pressEnter(dialog.passwordEdit(), false);
        QTRY_COMPARE(attempts.load(), 2);
    }
};

QTEST_MAIN(TestLoginDialog)
#include "tst_login_dialog.moc"
