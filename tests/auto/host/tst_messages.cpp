#include <QAbstractButton>
#include <QApplication>
#include <QBitmap>
#include <QElapsedTimer>
#include <QLineEdit>
#include <QMessageBox>
#include <QPointer>
#include <QPushButton>
#include <QTest>
#include <QTimer>
#include <functional>

#include "Zu/CMessageBox.h"
#include "Zu/CMessageTip.h"

namespace {

// Once the next modal box is up, hands it to act; records what was seen.
struct BoxDriver {
    QString title;
    QString text;
    QStringList buttons;
    QString defaultButton;
    QMessageBox::Icon icon = QMessageBox::NoIcon;

    void arm(std::function<void(QMessageBox*)> act) {
        auto* timer = new QTimer(qApp);
        timer->setInterval(10);
        QObject::connect(timer, &QTimer::timeout, [this, timer, act]() {
            auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
            if (!box) {
                return;
            }
            timer->stop();
            timer->deleteLater();
            title = box->windowTitle();
            text = box->text();
            icon = box->icon();
            for (QAbstractButton* button : box->buttons()) {
                buttons.append(button->text());
            }
            if (box->defaultButton()) {
                defaultButton = box->defaultButton()->text();
            }
            act(box);
        });
        timer->start();
    }
};

// A shown window with one line edit, the target of a tip.
struct EditWindow {
    QWidget window;
    QLineEdit* edit = new QLineEdit(&window);

    bool show() {
        window.show();
        return QTest::qWaitForWindowExposed(&window);
    }
};

}  // namespace

class MessagesTest : public QObject {
    Q_OBJECT
private slots:
    void questionReturnsOk();
    void questionReturnsCancel();
    void informationReturnsYesOrNo();
    void warningReturnsOkOnEnter();
    void escapeGivesCancel();
    void questionsWithoutDefaultIgnoreEnterAndSpace_data();
    void questionsWithoutDefaultIgnoreEnterAndSpace();
    void tipRecordsTextAndTarget();
    void tipFadesAway();
    void newerTipReplacesOlder();
    void tipTargetGoneIsNull();
    void tipUntilEditedOutlivesItsTime();
    void tipUntilEditedGoesWhenEditedAfterItsTime();
    void tipIsShapedNotRectangular();
    void tipGoesWithItsWindow();
};

void MessagesTest::questionReturnsOk() {
    QWidget parent;
    BoxDriver driver;
    driver.arm([](QMessageBox* box) { box->button(QMessageBox::Ok)->click(); });
    const int result = Zu::CMessageBox::question(&parent, QStringLiteral("操作提示"),
                                                 QStringLiteral("确定删除证券行情源吗? "),
                                                 QMessageBox::Ok | QMessageBox::Cancel, 0);
    QCOMPARE(result, int(QMessageBox::Ok));
    QCOMPARE(driver.title, QStringLiteral("操作提示"));
    QCOMPARE(driver.text, QStringLiteral("确定删除证券行情源吗? "));
    QCOMPARE(driver.icon, QMessageBox::Question);
    QCOMPARE(driver.buttons.size(), 2);
    QVERIFY(driver.buttons.contains(QStringLiteral("确定")));
    QVERIFY(driver.buttons.contains(QStringLiteral("取消")));
}

void MessagesTest::questionReturnsCancel() {
    BoxDriver driver;
    driver.arm([](QMessageBox* box) { box->button(QMessageBox::Cancel)->click(); });
    QCOMPARE(Zu::CMessageBox::question(nullptr, QStringLiteral("t"), QStringLiteral("q"),
                                       QMessageBox::Ok | QMessageBox::Cancel, 0),
             int(QMessageBox::Cancel));
}

void MessagesTest::informationReturnsYesOrNo() {
    BoxDriver yes;
    yes.arm([](QMessageBox* box) { box->button(QMessageBox::Yes)->click(); });
    QCOMPARE(Zu::CMessageBox::information(nullptr, QStringLiteral("提示"),
                                          QStringLiteral("确定要删除全部行情源吗?"),
                                          QMessageBox::Yes | QMessageBox::No, 0, false),
             int(QMessageBox::Yes));
    QCOMPARE(yes.icon, QMessageBox::Information);
    QVERIFY(yes.buttons.contains(QStringLiteral("是")));
    QVERIFY(yes.buttons.contains(QStringLiteral("否")));

    BoxDriver no;
    no.arm([](QMessageBox* box) { box->button(QMessageBox::No)->click(); });
    QCOMPARE(Zu::CMessageBox::information(nullptr, QStringLiteral("提示"), QStringLiteral("?"),
                                          QMessageBox::Yes | QMessageBox::No, 0, false),
             int(QMessageBox::No));
}

void MessagesTest::warningReturnsOkOnEnter() {
    BoxDriver driver;
    driver.arm([](QMessageBox* box) { QTest::keyClick(box, Qt::Key_Return); });
    QCOMPARE(
        Zu::CMessageBox::warning(nullptr, QStringLiteral("警告"), QStringLiteral("w"),
                                 QMessageBox::Ok | QMessageBox::Cancel, QMessageBox::Ok, false),
        int(QMessageBox::Ok));
    QCOMPARE(driver.icon, QMessageBox::Warning);
    QCOMPARE(driver.defaultButton, QStringLiteral("确定"));
}

void MessagesTest::escapeGivesCancel() {
    BoxDriver driver;
    driver.arm([](QMessageBox* box) { QTest::keyClick(box, Qt::Key_Escape); });
    QCOMPARE(Zu::CMessageBox::question(nullptr, QStringLiteral("t"), QStringLiteral("q"),
                                       QMessageBox::Ok | QMessageBox::Cancel, 0),
             int(QMessageBox::Cancel));
}

void MessagesTest::questionsWithoutDefaultIgnoreEnterAndSpace_data() {
    QTest::addColumn<int>("kind");
    QTest::addColumn<int>("buttons");
    QTest::addColumn<int>("cancel");
    QTest::newRow("question Ok/Cancel")
        << 0 << int(QMessageBox::Ok | QMessageBox::Cancel) << int(QMessageBox::Cancel);
    QTest::newRow("information Yes/No")
        << 1 << int(QMessageBox::Yes | QMessageBox::No) << int(QMessageBox::No);
    QTest::newRow("warning Ok/Cancel")
        << 2 << int(QMessageBox::Ok | QMessageBox::Cancel) << int(QMessageBox::Cancel);
    QTest::newRow("critical Yes/No")
        << 3 << int(QMessageBox::Yes | QMessageBox::No) << int(QMessageBox::No);
}

// Keys typed at the box's window go where a real key goes (the focused widget): neither Enter
// nor Space answers a box without a default button; the answer is the button then clicked.
void MessagesTest::questionsWithoutDefaultIgnoreEnterAndSpace() {
    QFETCH(int, kind);
    QFETCH(int, buttons);
    QFETCH(int, cancel);
    QWidget parent;
    parent.show();
    QVERIFY(QTest::qWaitForWindowExposed(&parent));
    BoxDriver driver;
    bool stayedOpen = false;
    driver.arm([&](QMessageBox* box) {
        QVERIFY(QTest::qWaitForWindowExposed(box));
        for (Qt::Key key : {Qt::Key_Return, Qt::Key_Enter, Qt::Key_Space}) {
            QTest::keyClick(box->windowHandle(), key);
            QCoreApplication::processEvents();
        }
        stayedOpen = box->isVisible();
        if (box->isVisible())
            box->button(QMessageBox::StandardButton(cancel))->click();
    });
    const QString title = QStringLiteral("提示");
    const QString text = QStringLiteral("确定要删除全部行情源吗?");
    int answer = 0;
    switch (kind) {
        case 0:
            answer = Zu::CMessageBox::question(&parent, title, text, buttons, 0);
            break;
        case 1:
            answer = Zu::CMessageBox::information(&parent, title, text, buttons, 0, false);
            break;
        case 2:
            answer = Zu::CMessageBox::warning(&parent, title, text, buttons, 0, false);
            break;
        default:
            answer = Zu::CMessageBox::critical(&parent, title, text, buttons, 0, false);
    }
    QVERIFY(stayedOpen);
    QCOMPARE(answer, cancel);
    QVERIFY(driver.defaultButton.isEmpty());
}

void MessagesTest::tipRecordsTextAndTarget() {
    Zu::CMessageTip::resetLastTip();
    QCOMPARE(Zu::CMessageTip::tipCount(), 0);
    QWidget window;
    auto* edit = new QLineEdit(&window);
    window.resize(300, 100);
    window.show();
    QVERIFY(QTest::qWaitForWindowExposed(&window));
    Zu::CMessageTip::showTip(edit, Zu::CMessageTip::kBelowLeft,
                             QStringLiteral("请输入有效的服务器地址"), Zu::CMessageTip::StyleArrow,
                             Zu::CMessageTip::LevelWarning, 300);
    QCOMPARE(Zu::CMessageTip::lastTipText(), QStringLiteral("请输入有效的服务器地址"));
    QCOMPARE(Zu::CMessageTip::lastTipTarget(), edit);
    QCOMPARE(Zu::CMessageTip::tipCount(), 1);
    QWidget* tip = Zu::CMessageTip::currentTip();
    QVERIFY(tip);
    QVERIFY(tip->isVisible());
    // Placement kBelowLeft (bottom, left): below the target, starting at its left edge.
    const QPoint targetBottomLeft = edit->mapToGlobal(QPoint(0, edit->height()));
    QVERIFY(tip->geometry().top() >= targetBottomLeft.y());
    QCOMPARE(tip->geometry().left(), targetBottomLeft.x());
}

void MessagesTest::tipFadesAway() {
    QWidget window;
    window.show();
    QVERIFY(QTest::qWaitForWindowExposed(&window));
    Zu::CMessageTip::showTip(&window, Zu::CMessageTip::kBelowLeft, QStringLiteral("只能输入数字 "),
                             Zu::CMessageTip::StyleArrow, Zu::CMessageTip::LevelWarning, 300);
    QPointer<QWidget> tip = Zu::CMessageTip::currentTip();
    QVERIFY(tip);
    QTRY_VERIFY_WITH_TIMEOUT(tip.isNull(), 3000);
    QVERIFY(!Zu::CMessageTip::currentTip());
    // The record of the last tip outlives the balloon.
    QCOMPARE(Zu::CMessageTip::lastTipText(), QStringLiteral("只能输入数字 "));
}

void MessagesTest::newerTipReplacesOlder() {
    QWidget window;
    auto* first = new QLineEdit(&window);
    auto* second = new QLineEdit(&window);
    second->move(0, 40);
    window.show();
    QVERIFY(QTest::qWaitForWindowExposed(&window));
    Zu::CMessageTip::resetLastTip();
    Zu::CMessageTip::showTip(first, Zu::CMessageTip::kBelowLeft, QStringLiteral("请选择 "),
                             Zu::CMessageTip::StyleArrow, Zu::CMessageTip::LevelWarning, 5000);
    QPointer<QWidget> older = Zu::CMessageTip::currentTip();
    Zu::CMessageTip::showTip(second, Zu::CMessageTip::kBelowLeft,
                             QStringLiteral("请输入字母或者数字 "), Zu::CMessageTip::StyleArrow,
                             Zu::CMessageTip::LevelWarning, 5000);
    QCOMPARE(Zu::CMessageTip::tipCount(), 2);
    QCOMPARE(Zu::CMessageTip::lastTipTarget(), second);
    QTRY_VERIFY(older.isNull());
    QVERIFY(Zu::CMessageTip::currentTip());
}

void MessagesTest::tipTargetGoneIsNull() {
    auto* window = new QWidget;
    window->show();
    Zu::CMessageTip::showTip(window, Zu::CMessageTip::kBelowLeft, QStringLiteral("x"),
                             Zu::CMessageTip::StyleArrow, Zu::CMessageTip::LevelWarning, 5000);
    QCOMPARE(Zu::CMessageTip::lastTipTarget(), window);
    delete window;
    QVERIFY(!Zu::CMessageTip::lastTipTarget());
    QVERIFY(!Zu::CMessageTip::currentTip());
    QCOMPARE(Zu::CMessageTip::lastTipText(), QStringLiteral("x"));
}

void MessagesTest::tipUntilEditedOutlivesItsTime() {
    EditWindow shown;
    QVERIFY(shown.show());
    QLineEdit* edit = shown.edit;
    Zu::CMessageTip::showTipUntilEdited(
        edit, Zu::CMessageTip::kBelowLeft, QStringLiteral("只能输入数字 "),
        Zu::CMessageTip::StyleArrow, Zu::CMessageTip::LevelWarning, 200);
    QPointer<QWidget> tip = Zu::CMessageTip::currentTip();
    QVERIFY(tip);
    QElapsedTimer clock;
    clock.start();
    // Four times its time, unedited: still there.
    QTRY_VERIFY_WITH_TIMEOUT(tip.isNull() || clock.elapsed() > 800, 3000);
    QVERIFY(tip);
    QVERIFY(tip->isVisible());
    QTest::keyClick(edit, Qt::Key_1);
    QTRY_VERIFY(tip.isNull());
}

void MessagesTest::tipUntilEditedGoesWhenEditedAfterItsTime() {
    EditWindow shown;
    QVERIFY(shown.show());
    QLineEdit* edit = shown.edit;
    Zu::CMessageTip::showTipUntilEdited(edit, Zu::CMessageTip::kBelowLeft, QStringLiteral("x"),
                                        Zu::CMessageTip::StyleArrow, Zu::CMessageTip::LevelWarning,
                                        400);
    QPointer<QWidget> tip = Zu::CMessageTip::currentTip();
    QElapsedTimer clock;
    clock.start();
    // Edited at once: the tip keeps its time first.
    QTest::keyClick(edit, Qt::Key_1);
    QTRY_VERIFY_WITH_TIMEOUT(tip.isNull(), 3000);
    QVERIFY(clock.elapsed() >= 400);
}

void MessagesTest::tipIsShapedNotRectangular() {
    EditWindow shown;
    QVERIFY(shown.show());
    QLineEdit* edit = shown.edit;
    Zu::CMessageTip::showTip(edit, Zu::CMessageTip::kBelowLeft,
                             QStringLiteral("请输入有效的服务器地址"), Zu::CMessageTip::StyleArrow,
                             Zu::CMessageTip::LevelWarning, 5000);
    QWidget* tip = Zu::CMessageTip::currentTip();
    QVERIFY(tip);
    // A window manager without compositing paints whatever lies outside the mask black in a
    // translucent window: there must be no translucency, and the corners beside the arrow and
    // of the rounded bubble must lie outside the window's shape.
    QVERIFY(!tip->testAttribute(Qt::WA_TranslucentBackground));
    const QRegion shape = tip->mask();
    QVERIFY(!shape.isEmpty());
    QVERIFY(!shape.contains(QPoint(0, 0)));
    QVERIFY(!shape.contains(QPoint(tip->width() - 1, 0)));
    QVERIFY(!shape.contains(QPoint(0, tip->height() - 1)));
    QVERIFY(shape.contains(tip->rect().center()));
}

void MessagesTest::tipGoesWithItsWindow() {
    EditWindow shown;
    QVERIFY(shown.show());
    QLineEdit* edit = shown.edit;
    Zu::CMessageTip::showTipUntilEdited(edit, Zu::CMessageTip::kBelowLeft, QStringLiteral("x"),
                                        Zu::CMessageTip::StyleArrow, Zu::CMessageTip::LevelWarning,
                                        3000);
    QPointer<QWidget> tip = Zu::CMessageTip::currentTip();
    QVERIFY(tip);
    shown.window.hide();
    QTRY_VERIFY(tip.isNull() || !tip->isVisible());
}

QTEST_MAIN(MessagesTest)
#include "tst_messages.moc"
