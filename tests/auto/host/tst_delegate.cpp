#include <QHeaderView>
#include <QTableView>
#include <QTest>
#include <memory>

#include "Zu/CBaseTableColumnMultiButtonsDelegate.h"
#include "Zu/COddEvenRowTable.h"
#include "Zu/IDockableWidget.h"

namespace {

struct Click {
    int type;
    int id;
    int arg;
    QString text;
    int selectedAtDelivery;
};

// Stands in for a panel: receives the row-button events through the parent chain.
class Panel : public Zu::IDockableWidget {
public:
    Panel() {
        table = new Zu::COddEvenRowTable(this, 1262, 255);
        table->setColumns({QStringLiteral("名称"), QStringLiteral("地址"), QStringLiteral("操作")});
        delegate = new Zu::CBaseTableColumnMultiButtonsDelegate(table, 7);
        table->setColumnDelegate(2, delegate);
        table->setGeometry(0, 0, 600, 400);
        resize(600, 400);
    }

    bool handleEvent(int type, int id, int arg, QString text, void* extra) override {
        if (type == Zu::EventRowButtonClicked) {
            clicks.append({type, id, arg, text, table->selectedRow()});
            return true;
        }
        return Zu::IDockableWidget::handleEvent(type, id, arg, text, extra);
    }

    int addRow(const QString& name, bool withDelete = true) {
        const int row = table->appendRow();
        table->setItemText(row, 0, name);
        table->setItemText(row, 1, QStringLiteral("10.0.0.%1").arg(row));
        QVector<Zu::ButtonData> buttons;
        buttons.append(Zu::ButtonData(5, QStringLiteral("编辑"), 1, false, {}));
        if (withDelete) {
            buttons.append(Zu::ButtonData(6, QStringLiteral("删除"), 1, false, {}));
        }
        delegate->setItemButtons(std::to_string(row), buttons, true);
        return row;
    }

    Zu::COddEvenRowTable* table;
    Zu::CBaseTableColumnMultiButtonsDelegate* delegate;
    QList<Click> clicks;
};

}  // namespace

class DelegateTest : public QObject {
    Q_OBJECT
private slots:
    void buttonsAreKeptPerRowKey();
    void clickSelectsRowThenDelivers228();
    void mouseClickOnPaintedButton();
    void pressAndReleaseOnDifferentButtonsIsNoClick();
    void hoverFollowsTheMouse();
    void disabledButtonIsNotClickable();
    void noStaleButtonsAfterClear();
    void noWidgetPerRow();
};

void DelegateTest::buttonsAreKeptPerRowKey() {
    Panel panel;
    panel.addRow(QStringLiteral("a"));
    panel.addRow(QStringLiteral("b"), false);
    QCOMPARE(panel.delegate->itemButtons("0").size(), 2);
    QCOMPARE(panel.delegate->itemButtons("1").size(), 1);
    QCOMPARE(panel.delegate->itemButtons("1")[0].text, QStringLiteral("编辑"));
    QCOMPARE(panel.delegate->itemButtons("1")[0].type, 1);
    QVERIFY(panel.delegate->itemButtons("2").isEmpty());
    QCOMPARE(panel.table->columnDelegate(2), panel.delegate);
}

void DelegateTest::clickSelectsRowThenDelivers228() {
    Panel panel;
    for (int i = 0; i < 5; ++i) {
        panel.addRow(QStringLiteral("row%1").arg(i));
    }
    panel.table->selectRow(0);
    QVERIFY(panel.delegate->clickButton(3, 6));
    QCOMPARE(panel.clicks.size(), 1);
    const Click& click = panel.clicks[0];
    QCOMPARE(click.type, int(Zu::EventRowButtonClicked));
    QCOMPARE(click.id, 7);
    QCOMPARE(click.arg, 6);
    QCOMPARE(click.text, QStringLiteral("3"));
    QCOMPARE(click.selectedAtDelivery, 3);
    QVERIFY(!panel.delegate->clickButton(3, 99));
    QCOMPARE(panel.clicks.size(), 1);
}

void DelegateTest::mouseClickOnPaintedButton() {
    Panel panel;
    for (int i = 0; i < 3; ++i) {
        panel.addRow(QStringLiteral("row%1").arg(i));
    }
    panel.show();
    QVERIFY(QTest::qWaitForWindowExposed(&panel));
    QWidget* viewport = panel.table->view()->viewport();
    const QRect rect = panel.delegate->buttonRect(2, 5);
    QVERIFY(rect.isValid());
    QVERIFY(viewport->rect().contains(rect));
    QTest::mouseClick(viewport, Qt::LeftButton, Qt::NoModifier, rect.center());
    QCOMPARE(panel.clicks.size(), 1);
    QCOMPARE(panel.clicks[0].arg, 5);
    QCOMPARE(panel.clicks[0].text, QStringLiteral("2"));
    QCOMPARE(panel.clicks[0].selectedAtDelivery, 2);

    // A click in the same cell but beside the buttons only selects.
    const QRect deleteRect = panel.delegate->buttonRect(1, 6);
    QTest::mouseClick(viewport, Qt::LeftButton, Qt::NoModifier,
                      QPoint(deleteRect.right() + 30, deleteRect.center().y()));
    QCOMPARE(panel.clicks.size(), 1);
    QCOMPARE(panel.table->selectedRow(), 1);
}

void DelegateTest::pressAndReleaseOnDifferentButtonsIsNoClick() {
    Panel panel;
    panel.addRow(QStringLiteral("a"));
    panel.show();
    QVERIFY(QTest::qWaitForWindowExposed(&panel));
    QWidget* viewport = panel.table->view()->viewport();
    QTest::mousePress(viewport, Qt::LeftButton, Qt::NoModifier,
                      panel.delegate->buttonRect(0, 5).center());
    QCOMPARE(panel.delegate->pressedButton(), 5);
    QTest::mouseRelease(viewport, Qt::LeftButton, Qt::NoModifier,
                        panel.delegate->buttonRect(0, 6).center());
    QCOMPARE(panel.delegate->pressedButton(), -1);
    QVERIFY(panel.clicks.isEmpty());
}

void DelegateTest::hoverFollowsTheMouse() {
    Panel panel;
    panel.addRow(QStringLiteral("a"));
    panel.addRow(QStringLiteral("b"));
    panel.show();
    QVERIFY(QTest::qWaitForWindowExposed(&panel));
    QWidget* viewport = panel.table->view()->viewport();
    QTest::mouseMove(viewport, panel.delegate->buttonRect(1, 6).center());
    QTRY_COMPARE(panel.delegate->hoveredButton(), 6);
    QCOMPARE(panel.delegate->hoveredRow(), 1);
    QTest::mouseMove(viewport, QPoint(5, panel.delegate->buttonRect(1, 6).center().y()));
    QTRY_COMPARE(panel.delegate->hoveredButton(), -1);
}

void DelegateTest::disabledButtonIsNotClickable() {
    Panel panel;
    const int row = panel.table->appendRow();
    panel.delegate->setItemButtons("0", {Zu::ButtonData(5, QStringLiteral("编辑"), 1, true)},
                                   false);
    QVERIFY(!panel.delegate->clickButton(row, 5));
    QVERIFY(panel.clicks.isEmpty());
}

void DelegateTest::noStaleButtonsAfterClear() {
    Panel panel;
    for (int i = 0; i < 4; ++i) {
        panel.addRow(QStringLiteral("row%1").arg(i));
    }
    panel.table->clear();
    QVERIFY(panel.delegate->itemButtons("0").isEmpty());
    QVERIFY(panel.delegate->itemButtons("3").isEmpty());
    // A reload with fewer rows, and with rows that have no buttons, finds none from before.
    panel.table->appendRow();
    const int second = panel.table->appendRow();
    QVERIFY(panel.delegate->itemButtons(std::to_string(second)).isEmpty());
    QVERIFY(!panel.delegate->clickButton(second, 5));
    QVERIFY(panel.clicks.isEmpty());

    // Clearing also reaches a delegate installed after it was made for another table.
    Zu::COddEvenRowTable other(nullptr, 3, 0);
    other.setColumns({QStringLiteral("x")});
    other.appendRow();
    other.setColumnDelegate(0, panel.delegate);
    panel.delegate->setItemButtons("0", {Zu::ButtonData(1, QStringLiteral("x"))}, false);
    other.clear();
    QVERIFY(panel.delegate->itemButtons("0").isEmpty());
}

void DelegateTest::noWidgetPerRow() {
    Panel panel;
    for (int i = 0; i < 200; ++i) {
        panel.addRow(QStringLiteral("row%1").arg(i));
    }
    panel.show();
    QVERIFY(QTest::qWaitForWindowExposed(&panel));
    const int widgets = panel.findChildren<QWidget*>().size();
    for (int i = 0; i < 200; ++i) {
        panel.addRow(QStringLiteral("more%1").arg(i));
    }
    panel.table->view()->viewport()->repaint();
    QCOMPARE(panel.findChildren<QWidget*>().size(), widgets);
    QVERIFY(!panel.table->view()->indexWidget(panel.table->view()->model()->index(0, 2)));
}

QTEST_MAIN(DelegateTest)
#include "tst_delegate.moc"
