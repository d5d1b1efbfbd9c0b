#include <QApplication>
#include <QBoxLayout>
#include <QCheckBox>
#include <QClipboard>
#include <QContextMenuEvent>
#include <QMenu>
#include <QMouseEvent>
#include <QPushButton>
#include <QSignalSpy>
#include <QTest>
#include <QTimer>
#include <QToolButton>
#include <boost/make_shared.hpp>

#include "Hlx/CSafeLineEdit.h"
#include "Hlx/CWholeQuoteSettingDialog.h"
#include "Hlx/IorinDockableWidget.h"
#include "Zu/CComboBox.h"
#include "Zu/CCommonDialog.h"
#include "Zu/CLoadingMaskWidget.h"
#include "Zu/CSimpleTextWidget.h"
#include "Zu/CSmallNormalButton.h"
#include "Zu/CWidgetList.h"

class WidgetsTest : public QObject {
    Q_OBJECT
private slots:
    void maskCoversItsWidget();
    void maskFollowsResizeAndStopsWhenHidden();
    void maskMovesToAnotherTarget();
    void lineEditGivesOriginalText();
    void safeEditRefusesCopyAndCutInPasswordMode();
    void safeEditShowsNoContextMenuInPasswordMode();
    void safeEditRefusesDragInPasswordMode();
    void safeEditNormalModeBehavesNormally();
    void widgetListLaysOutChildren();
    void widgetListAnchorCentresFixedWidgets();
    void simpleTextWidget();
    void commonDialogFitsTitleAndInner();
    void wholeQuoteRoundTrip();
    void wholeQuoteCancelKeepsDivision();
    void dockableBase();
};

void WidgetsTest::maskCoversItsWidget() {
    Zu::CWidgetList host(nullptr, Qt::Horizontal);
    host.setFixedSize(130, 40);
    auto* mask = new Zu::CLoadingMaskWidget(&host);
    mask->resize(130, 40);
    mask->setAnimationSize(QSize(150, 45));
    auto* below = new QWidget(&host);
    below->setGeometry(0, 0, 130, 40);
    host.show();
    QVERIFY(QTest::qWaitForWindowExposed(&host));
    QVERIFY(!mask->isVisible());

    mask->setText(QStringLiteral("正在加载数据"));
    mask->attach(&host);
    QVERIFY(mask->isVisible());
    QCOMPARE(mask->attachedTo(), &host);
    QCOMPARE(mask->geometry(), host.rect());
    QCOMPARE(mask->text(), QStringLiteral("正在加载数据"));
    // Raised above the other children: it is what the mouse hits.
    QCOMPARE(host.childAt(65, 20), mask);
    QVERIFY(mask->isAnimating());
    const int angle = mask->angle();
    QTRY_VERIFY(mask->angle() != angle);

    mask->hide();
    QVERIFY(!mask->isVisible());
    QVERIFY(!mask->isAnimating());
}

void WidgetsTest::maskFollowsResizeAndStopsWhenHidden() {
    QWidget dialog;
    dialog.resize(380, 355);
    auto* mask = new Zu::CLoadingMaskWidget(&dialog);
    dialog.show();
    QVERIFY(QTest::qWaitForWindowExposed(&dialog));
    mask->attach(&dialog);
    QCOMPARE(mask->geometry(), QRect(0, 0, 380, 355));
    dialog.resize(450, 280);
    QTRY_COMPARE(mask->geometry(), QRect(0, 0, 450, 280));
    // Attaching again shows it again, animated.
    mask->hide();
    mask->attach(&dialog);
    QVERIFY(mask->isVisible());
    QVERIFY(mask->isAnimating());
}

void WidgetsTest::maskMovesToAnotherTarget() {
    QWidget window;
    window.resize(400, 300);
    auto* holder = new QWidget(&window);
    auto* other = new QWidget(&window);
    other->setGeometry(100, 100, 200, 100);
    auto* mask = new Zu::CLoadingMaskWidget(holder);
    window.show();
    QVERIFY(QTest::qWaitForWindowExposed(&window));
    mask->attach(other);
    QCOMPARE(mask->parentWidget(), other);
    QCOMPARE(mask->geometry(), other->rect());
    QVERIFY(mask->isVisible());
}

void WidgetsTest::lineEditGivesOriginalText() {
    Hlx::CSafeLineEdit edit(nullptr, 4);
    edit.setEchoMode(QLineEdit::Password);
    edit.setText(QStringLiteral("p@ss 密码"));
    QCOMPARE(edit.getOriginalText(), QStringLiteral("p@ss 密码"));
    QVERIFY(edit.displayText() != edit.getOriginalText());
    QCOMPARE(edit.id(), 4);
}

void WidgetsTest::safeEditRefusesCopyAndCutInPasswordMode() {
    Hlx::CSafeLineEdit edit(nullptr, 4);
    edit.setEchoMode(QLineEdit::Password);
    edit.setText(QStringLiteral("secret"));
    edit.show();
    QVERIFY(QTest::qWaitForWindowExposed(&edit));
    edit.selectAll();
    QApplication::clipboard()->setText(QStringLiteral("before"));
    QTest::keySequence(&edit, QKeySequence::Copy);
    QCOMPARE(QApplication::clipboard()->text(), QStringLiteral("before"));
    QTest::keySequence(&edit, QKeySequence::Cut);
    QCOMPARE(QApplication::clipboard()->text(), QStringLiteral("before"));
    QCOMPARE(edit.text(), QStringLiteral("secret"));
    edit.copy();
    edit.cut();
    QCOMPARE(QApplication::clipboard()->text(), QStringLiteral("before"));
    QCOMPARE(edit.text(), QStringLiteral("secret"));
}

void WidgetsTest::safeEditShowsNoContextMenuInPasswordMode() {
    Hlx::CSafeLineEdit edit(nullptr, 4);
    edit.setEchoMode(QLineEdit::Password);
    edit.setText(QStringLiteral("secret"));
    edit.show();
    QVERIFY(QTest::qWaitForWindowExposed(&edit));
    bool menuShown = false;
    bool looked = false;
    // A menu would run its own loop inside the event: the timer looks for it (and closes it).
    QTimer::singleShot(50, [&menuShown, &looked]() {
        if (QWidget* popup = QApplication::activePopupWidget()) {
            menuShown = true;
            popup->close();
        }
        looked = true;
    });
    QContextMenuEvent event(QContextMenuEvent::Mouse, QPoint(5, 5), edit.mapToGlobal(QPoint(5, 5)));
    QApplication::sendEvent(&edit, &event);
    QTRY_VERIFY(looked);
    QVERIFY(!menuShown);
    QVERIFY(!QApplication::activePopupWidget());
}

void WidgetsTest::safeEditRefusesDragInPasswordMode() {
    Hlx::CSafeLineEdit edit(nullptr, 4);
    edit.setDragEnabled(true);
    edit.setEchoMode(QLineEdit::Password);
    edit.setText(QStringLiteral("secretsecret"));
    edit.resize(200, 24);
    edit.show();
    QVERIFY(QTest::qWaitForWindowExposed(&edit));
    edit.selectAll();
    const QPoint start(20, 12);
    QMouseEvent press(QEvent::MouseButtonPress, start, edit.mapToGlobal(start), Qt::LeftButton,
                      Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(&edit, &press);
    QVERIFY(!edit.dragEnabled());
    // Moving on the selection selects instead of dragging (a drag would not return here).
    const QPoint end(120, 12);
    QMouseEvent move(QEvent::MouseMove, end, edit.mapToGlobal(end), Qt::NoButton, Qt::LeftButton,
                     Qt::NoModifier);
    QApplication::sendEvent(&edit, &move);
    QMouseEvent release(QEvent::MouseButtonRelease, end, edit.mapToGlobal(end), Qt::LeftButton,
                        Qt::NoButton, Qt::NoModifier);
    QApplication::sendEvent(&edit, &release);
    QCOMPARE(edit.text(), QStringLiteral("secretsecret"));
    // Shown as plain text again, dragging comes back.
    edit.setEchoMode(QLineEdit::Normal);
    QApplication::sendEvent(&edit, &press);
    QVERIFY(edit.dragEnabled());
    QApplication::sendEvent(&edit, &release);
}

void WidgetsTest::safeEditNormalModeBehavesNormally() {
    Hlx::CSafeLineEdit edit(nullptr, 1);
    edit.setText(QStringLiteral("192.168.1.1"));
    edit.show();
    QVERIFY(QTest::qWaitForWindowExposed(&edit));
    edit.selectAll();
    QTest::keySequence(&edit, QKeySequence::Copy);
    QCOMPARE(QApplication::clipboard()->text(), QStringLiteral("192.168.1.1"));
}

void WidgetsTest::widgetListLaysOutChildren() {
    QWidget window;
    auto* outer = new Zu::CWidgetList(&window, Qt::Vertical);
    outer->setMargins(0, 10, 0, 0);
    outer->setSpacing(5);
    auto* bar = new Zu::CWidgetList(nullptr, Qt::Horizontal);
    bar->setMargins(10, 0, 0, 0);
    bar->setSpacing(15);
    auto* add = new Zu::CSmallNormalButton(nullptr, 0, QStringLiteral("+添加证券行情源"));
    add->setFixedSize(135, 26);
    auto* refresh = new Zu::CSmallNormalButton(nullptr, 1, QStringLiteral("刷新"));
    refresh->setFixedSize(70, 26);
    bar->addWidget(add);
    bar->addWidget(refresh);
    bar->addStretch(1);
    outer->addFixedWidget(bar);
    auto* body = new QWidget;
    outer->addStretchWidget(body, 1);
    QCOMPARE(add->parentWidget(), bar);
    QCOMPARE(bar->parentWidget(), outer);
    QCOMPARE(body->parentWidget(), outer);
    QCOMPARE(bar->count(), 3);
    QCOMPARE(outer->count(), 2);
    outer->resize(600, 400);
    window.resize(600, 400);
    window.show();
    QVERIFY(QTest::qWaitForWindowExposed(&window));
    QVERIFY(add->isVisible());
    QCOMPARE(bar->geometry().top(), 10);
    QCOMPARE(bar->width(), 600);
    QCOMPARE(add->geometry().left(), 10);
    QCOMPARE(refresh->geometry().left(), 10 + 135 + 15);
    QCOMPARE(body->geometry().top(), bar->geometry().bottom() + 1 + 5);
    QCOMPARE(body->geometry().bottom(), 399);
}

void WidgetsTest::widgetListAnchorCentresFixedWidgets() {
    Zu::CWidgetList row(nullptr, Qt::Horizontal);
    row.setMargins(0, 0, 0, 0);
    auto* label = new Zu::CSimpleTextWidget(nullptr, 0, QStringLiteral("地址:"));
    label->setFixedHeight(24);
    auto* edit = new Hlx::CSafeLineEdit(nullptr, 1);
    edit->setFixedSize(200, 24);
    row.addWidget(label, 0, 3);
    row.addWidget(edit, 0, 3);
    row.resize(400, 40);
    row.show();
    QVERIFY(QTest::qWaitForWindowExposed(&row));
    QCOMPARE(edit->geometry().top(), 8);
    QCOMPARE(edit->size(), QSize(200, 24));
    QCOMPARE(label->geometry().top(), 8);

    // Rows added with anchor 3 into a vertical list fill its width.
    Zu::CWidgetList column(nullptr, Qt::Vertical);
    column.setMargins(20, 20, 0, 0);
    auto* inner = new Zu::CWidgetList(nullptr, Qt::Horizontal);
    inner->addStretch(1);
    auto* submit = new Zu::CSmallNormalButton(nullptr, 0, QStringLiteral("提交"), 1);
    submit->setFixedSize(57, 24);
    inner->addWidget(submit);
    column.addWidget(inner, 0, 3);
    column.addStretch(1);
    column.resize(380, 300);
    column.show();
    QVERIFY(QTest::qWaitForWindowExposed(&column));
    QCOMPARE(inner->geometry().left(), 20);
    QCOMPARE(inner->width(), 360);
    QCOMPARE(submit->geometry().right(), 359);
}

void WidgetsTest::simpleTextWidget() {
    Zu::CSimpleTextWidget label(nullptr, 2, QStringLiteral("平台名称:"));
    QCOMPARE(label.text(), QStringLiteral("平台名称:"));
    QCOMPARE(label.id(), 2);
    label.setTextFlags(386);
    QCOMPARE(label.textFlags(), 386);
    label.setText(QStringLiteral("服务器组:"));
    QCOMPARE(label.text(), QStringLiteral("服务器组:"));
    QVERIFY(label.sizeHint().width() >=
            label.fontMetrics().horizontalAdvance(QStringLiteral("服务器组:")));
    label.setFixedSize(70, 24);
    const QImage image = label.grab().toImage();
    bool inked = false;
    for (int x = 0; x < image.width() && !inked; ++x) {
        for (int y = 0; y < image.height() && !inked; ++y) {
            inked = qGray(image.pixel(x, y)) < 128;
        }
    }
    QVERIFY(inked);
}

void WidgetsTest::commonDialogFitsTitleAndInner() {
    Zu::CCommonDialog dialog;
    dialog.setTitle(QStringLiteral("添加Level-2行情源token"));
    auto* inner = new Zu::CWidgetList(nullptr, Qt::Vertical);
    inner->setMargins(20, 20, 0, 0);
    inner->setSpacing(10);
    auto* edit = new Hlx::CSafeLineEdit(nullptr, 0);
    edit->setFixedSize(340, 25);
    inner->addWidget(edit, 0, 3);
    auto* ok = new Zu::CSmallNormalButton(nullptr, 1, QStringLiteral("确定"), 1);
    ok->setFixedSize(57, 24);
    inner->addWidget(ok, 0, 3);
    dialog.setInnerWidget(inner);
    QCOMPARE(dialog.innerWidget(), inner);
    dialog.setFixedSize(450, 150);
    dialog.show();
    QVERIFY(QTest::qWaitForWindowExposed(&dialog));
    QCOMPARE(dialog.size(), QSize(450, 150));
    QVERIFY(dialog.titleBar()->geometry().bottom() < inner->geometry().top());
    const QRect okRect(ok->mapTo(&dialog, QPoint(0, 0)), ok->size());
    QVERIFY(dialog.rect().contains(okRect));
    QCOMPARE(dialog.windowTitle(), QStringLiteral("添加Level-2行情源token"));

    // Replacing the inner widget deletes the old one.
    QPointer<QWidget> old = inner;
    dialog.setInnerWidget(new QWidget);
    QVERIFY(old.isNull());
}

void WidgetsTest::wholeQuoteRoundTrip() {
    Hlx::CWholeQuoteSettingDialog dialog(QString(), nullptr);
    QCOMPARE(dialog.title(), QStringLiteral("行情全推设置"));
    const auto& markets = rkservice::CWholeQuotedivision::knownMarkets();
    QVERIFY(!markets.empty());
    auto division = boost::make_shared<rkservice::CWholeQuotedivision>();
    division->setEnabled(markets.front(), true);
    division->setEnabled(markets.back(), false);
    dialog.setWholeQuote(division);
    for (const std::string& code : markets) {
        QCheckBox* box = dialog.marketCheckBox(code);
        QVERIFY2(box, code.c_str());
        QCOMPARE(box->isChecked(), division->isEnabled(code));
        QCOMPARE(box->text(), QString::fromStdString(code));
    }
    QVERIFY(!dialog.marketCheckBox("NOPE"));

    // The user flips two boxes and accepts.
    QTimer::singleShot(0, &dialog, [&dialog, &markets]() {
        dialog.marketCheckBox(markets.front())->click();
        dialog.marketCheckBox(markets.back())->click();
        dialog.okButton()->click();
    });
    QCOMPARE(dialog.exec(), 1);
    auto edited = boost::make_shared<rkservice::CWholeQuotedivision>(*division);
    dialog.getWholeQuote(edited);
    QVERIFY(!edited->isEnabled(markets.front()));
    QVERIFY(edited->isEnabled(markets.back()));
    for (size_t i = 1; i + 1 < markets.size(); ++i) {
        QCOMPARE(edited->isEnabled(markets[i]), division->isEnabled(markets[i]));
    }
    // Shown again, the dialog reflects what it was given.
    dialog.setWholeQuote(edited);
    QVERIFY(dialog.marketCheckBox(markets.back())->isChecked());
    dialog.getWholeQuote(rkservice::CWholeQuotedivisionPtr());  // null: nothing happens
    dialog.setWholeQuote(rkservice::CWholeQuotedivisionPtr());
    QVERIFY(!dialog.marketCheckBox(markets.back())->isChecked());
}

void WidgetsTest::wholeQuoteCancelKeepsDivision() {
    Hlx::CWholeQuoteSettingDialog dialog(QStringLiteral("wq"), nullptr);
    QCOMPARE(dialog.objectName(), QStringLiteral("wq"));
    QTimer::singleShot(0, &dialog, [&dialog]() { dialog.closeButton()->click(); });
    QCOMPARE(dialog.exec(), 0);
}

void WidgetsTest::dockableBase() {
    Hlx::IorinDockableWidget panel(false, QStringLiteral("level2quote"), nullptr, true);
    QCOMPARE(panel.objectName(), QStringLiteral("level2quote"));
    QSignalSpy activated(&panel, &Hlx::IorinDockableWidget::activated);
    panel.onActive();
    QCOMPARE(activated.count(), 1);
    QCOMPARE(panel.systemName(), QString());
    panel.switchSystem(3, QStringLiteral("分系统A"));
    QCOMPARE(panel.systemName(), QStringLiteral("分系统A"));
    panel.setParam(QStringLiteral("abc"));
    QCOMPARE(panel.param(), QStringLiteral("abc"));
    QVERIFY(!panel.handleEvent(5, 0, 0, QString(), nullptr));

    auto* inner = new Zu::CWidgetList(nullptr, Qt::Vertical);
    panel.setInnerStretchWidget(inner);
    QCOMPARE(panel.innerStretchWidget(), inner);
    QCOMPARE(inner->parentWidget(), &panel);
    panel.resize(500, 300);
    panel.show();
    QVERIFY(QTest::qWaitForWindowExposed(&panel));
    QCOMPARE(inner->geometry(), QRect(0, 0, 500, 300));

    Hlx::IorinDockableWidget other(QStringLiteral("stockquote"), nullptr);
    QCOMPARE(other.objectName(), QStringLiteral("stockquote"));
}

QTEST_MAIN(WidgetsTest)
#include "tst_widgets.moc"
