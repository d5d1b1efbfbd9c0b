#include <QApplication>
#include <QCheckBox>
#include <QPushButton>
#include <QSignalSpy>
#include <QTest>
#include <QTimer>
#include <QToolButton>

#include "Hlx/CSafeLineEdit.h"
#include "Hlx/CWholeQuoteSettingDialog.h"
#include "Zu/CBaseWidget.h"
#include "Zu/CComboBox.h"
#include "Zu/CCommonDialog.h"
#include "Zu/CPushButton.h"
#include "Zu/CSmallNormalButton.h"
#include "Zu/CUiResources.h"

namespace {

struct Seen {
    QString who;
    int type;
    int id;
    int arg;
    QString text;
};

// A widget that writes down every event offered to it and takes those of one type.
class Recorder : public Zu::CBaseWidget {
public:
    Recorder(const QString& name, QList<Seen>* log, QWidget* parent = nullptr, int takes = -1)
        : Zu::CBaseWidget(parent), m_name(name), m_log(log), m_takes(takes) {}

    bool handleEvent(int type, int id, int arg, QString text, void* extra) override {
        m_log->append({m_name, type, id, arg, text});
        if (type == m_takes) {
            return true;
        }
        return Zu::CBaseWidget::handleEvent(type, id, arg, text, extra);
    }

private:
    QString m_name;
    QList<Seen>* m_log;
    int m_takes;
};

// A dialog that records events reaching it.
class RecordingDialog : public Zu::CCommonDialog {
public:
    RecordingDialog(QList<Seen>* log, QWidget* parent) : Zu::CCommonDialog(parent), m_log(log) {}
    bool handleEvent(int type, int id, int arg, QString text, void* extra) override {
        m_log->append({QStringLiteral("dialog"), type, id, arg, text});
        return Zu::CCommonDialog::handleEvent(type, id, arg, text, extra);
    }

private:
    QList<Seen>* m_log;
};

}  // namespace

class EventsTest : public QObject {
    Q_OBJECT
private slots:
    void eventIdsAreThePlatforms();
    void baseTakesNothing();
    void offeredToSelfThenAncestorsUntilTaken();
    void plainQObjectsInTheChainAreSkipped();
    void smallButtonDelivers5WithItsId();
    void pushButtonDelivers5AndResolvesKeys();
    void comboDelivers71OnEveryIndexChange();
    void safeLineEditDelivers101WhenLeft();
    void dialogTitleCloseDeliversNothing();
    void wholeQuoteButtonsDeliverNothing();
};

// The ids the platform's panels and dialogs exchange: every other test names them.
void EventsTest::eventIdsAreThePlatforms() {
    QCOMPARE(int(Zu::EventButtonClicked), 5);
    QCOMPARE(int(Zu::EventComboIndexChanged), 71);
    QCOMPARE(int(Zu::EventFieldLeft), 101);
    QCOMPARE(int(Zu::EventRowButtonClicked), 228);
    QCOMPARE(int(Zu::EventQuoteSourcesChanged), 3026);
}

void EventsTest::baseTakesNothing() {
    Zu::CBaseWidget widget;
    QVERIFY(!widget.handleEvent(5, 1, 0, QString(), nullptr));
    QVERIFY(!widget.deliverEvent(5, 1, 0, QString(), nullptr));
}

void EventsTest::offeredToSelfThenAncestorsUntilTaken() {
    QList<Seen> log;
    Recorder top(QStringLiteral("top"), &log, nullptr, 5);
    Recorder middle(QStringLiteral("middle"), &log, &top, 71);
    Recorder leaf(QStringLiteral("leaf"), &log, &middle);

    QVERIFY(leaf.deliverEvent(5, 7, 3, QStringLiteral("x"), nullptr));
    QCOMPARE(log.size(), 3);
    QCOMPARE(log[0].who, QStringLiteral("leaf"));
    QCOMPARE(log[1].who, QStringLiteral("middle"));
    QCOMPARE(log[2].who, QStringLiteral("top"));
    QCOMPARE(log[2].id, 7);
    QCOMPARE(log[2].arg, 3);
    QCOMPARE(log[2].text, QStringLiteral("x"));

    // Taken by the middle one: the top never sees it.
    log.clear();
    QVERIFY(leaf.deliverEvent(71, 1, 0, QString(), nullptr));
    QCOMPARE(log.size(), 2);
    QCOMPARE(log.last().who, QStringLiteral("middle"));

    // Nobody takes it: everyone saw it, and the result says so.
    log.clear();
    QVERIFY(!leaf.deliverEvent(999, 1, 0, QString(), nullptr));
    QCOMPARE(log.size(), 3);
}

void EventsTest::plainQObjectsInTheChainAreSkipped() {
    QList<Seen> log;
    Recorder top(QStringLiteral("top"), &log, nullptr, 5);
    QWidget plain(&top);
    Recorder leaf(QStringLiteral("leaf"), &log, &plain);
    QVERIFY(leaf.deliverEvent(5, 2, 0, QString(), nullptr));
    QCOMPARE(log.size(), 2);
    QCOMPARE(log[1].who, QStringLiteral("top"));
}

void EventsTest::smallButtonDelivers5WithItsId() {
    QList<Seen> log;
    Recorder panel(QStringLiteral("panel"), &log);
    auto* button = new Zu::CSmallNormalButton(&panel, 3, QStringLiteral("全部删除"));
    QCOMPARE(button->id(), 3);
    QCOMPARE(button->text(), QStringLiteral("全部删除"));
    panel.show();
    QVERIFY(QTest::qWaitForWindowExposed(&panel));
    QTest::mouseClick(button, Qt::LeftButton);
    QCOMPARE(log.size(), 1);
    QCOMPARE(log[0].type, 5);
    QCOMPARE(log[0].id, 3);

    button->setEnabled(false);
    QTest::mouseClick(button, Qt::LeftButton);
    QCOMPARE(log.size(), 1);
}

void EventsTest::pushButtonDelivers5AndResolvesKeys() {
    QList<Seen> log;
    Recorder panel(QStringLiteral("panel"), &log);
    auto* button = new Zu::CPushButton(&panel, 4);
    button->setTextColorKey(QStringLiteral("clr_text_clickable"));
    button->setText(QStringLiteral("行情全推设置"));
    button->setIconKey(QStringLiteral("img_btn_set_small"));
    QVERIFY(!button->icon().isNull());
    QVERIFY(button->styleSheet().contains(
        Zu::CUiResources::color(QStringLiteral("clr_text_clickable")).name()));
    // The minimum width covers text and icon, so a caller can size the button from it.
    QVERIFY(button->minimumWidth() >=
            button->fontMetrics().horizontalAdvance(QStringLiteral("行情全推设置")));
    button->setFixedSize(button->minimumWidth(), 15);
    button->click();
    QCOMPARE(log.size(), 1);
    QCOMPARE(log[0].type, 5);
    QCOMPARE(log[0].id, 4);
}

void EventsTest::comboDelivers71OnEveryIndexChange() {
    QList<Seen> log;
    Recorder panel(QStringLiteral("panel"), &log);
    auto* combo = new Zu::CComboBox(&panel, 1);
    combo->addItem(QStringLiteral("--请选择--"));  // becomes current: 0
    combo->addItem(QStringLiteral("期货"));
    QCOMPARE(log.size(), 1);
    QCOMPARE(log[0].type, 71);
    QCOMPARE(log[0].id, 1);
    QCOMPARE(log[0].arg, 0);

    combo->setCurrentIndex(1);
    QCOMPARE(log.size(), 2);
    QCOMPARE(log[1].arg, 1);
    QCOMPARE(log[1].text, QStringLiteral("期货"));

    combo->setCurrentIndex(1);  // no change, no event
    QCOMPARE(log.size(), 2);

    combo->clear();
    QCOMPARE(log.size(), 3);
    QCOMPARE(log[2].arg, -1);
}

void EventsTest::safeLineEditDelivers101WhenLeft() {
    QList<Seen> log;
    Recorder panel(QStringLiteral("panel"), &log);
    auto* edit = new Hlx::CSafeLineEdit(&panel, 2);
    auto* other = new Hlx::CSafeLineEdit(&panel, 9);
    other->move(0, 40);
    panel.show();
    QApplication::setActiveWindow(&panel);
    QVERIFY(QTest::qWaitForWindowActive(&panel));

    edit->setFocus(Qt::OtherFocusReason);
    QTRY_VERIFY(edit->hasFocus());
    QTest::keyClicks(edit, QStringLiteral("8080"));
    QVERIFY(log.isEmpty());
    other->setFocus(Qt::TabFocusReason);
    QTRY_COMPARE(log.size(), 1);
    QCOMPARE(log[0].type, 101);
    QCOMPARE(log[0].id, 2);
    QCOMPARE(log[0].text, QStringLiteral("8080"));
}

void EventsTest::dialogTitleCloseDeliversNothing() {
    QList<Seen> log;
    Recorder panel(QStringLiteral("panel"), &log);
    RecordingDialog dialog(&log, &panel);
    dialog.setTitle(QStringLiteral("添加证券行情源"));
    QCOMPARE(dialog.title(), QStringLiteral("添加证券行情源"));
    QSignalSpy rejected(&dialog, &QDialog::rejected);
    dialog.show();
    QVERIFY(QTest::qWaitForWindowExposed(&dialog));
    QTest::mouseClick(dialog.closeButton(), Qt::LeftButton);
    QCOMPARE(rejected.count(), 1);
    QVERIFY(!dialog.isVisible());
    QVERIFY(log.isEmpty());
}

void EventsTest::wholeQuoteButtonsDeliverNothing() {
    QList<Seen> log;
    Recorder panel(QStringLiteral("panel"), &log);
    Hlx::CWholeQuoteSettingDialog dialog(QString(), &panel);
    QTimer::singleShot(0, &dialog, [&dialog]() { dialog.okButton()->click(); });
    QCOMPARE(dialog.exec(), 1);
    QTimer::singleShot(0, &dialog, [&dialog]() { dialog.cancelButton()->click(); });
    QCOMPARE(dialog.exec(), 0);
    QVERIFY(log.isEmpty());
}

QTEST_MAIN(EventsTest)
#include "tst_events.moc"
