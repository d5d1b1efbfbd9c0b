#include <QApplication>
#include <QPointer>
#include <QRegExpValidator>
#include <QtTest>

#include "Hlx/CSafeLineEdit.h"
#include "Zu/CSimpleTextWidget.h"
#include "Zu/CSmallNormalButton.h"
#include "dialogs/CLevel2QuoteDialog.h"

using namespace Hlx;

namespace {

class CloseCounter : public QObject {
public:
    bool eventFilter(QObject* watched, QEvent* event) override {
        if (event->type() == QEvent::Close)
            ++closes;
        return QObject::eventFilter(watched, event);
    }
    int closes = 0;
};

// Types text key by key, as a keyboard would; works for characters without a key code.
void typeText(QWidget* widget, const QString& text) {
    for (const QChar ch : text) {
        QKeyEvent press(QEvent::KeyPress, Qt::Key_unknown, Qt::NoModifier, QString(ch));
        QApplication::sendEvent(widget, &press);
        QKeyEvent release(QEvent::KeyRelease, Qt::Key_unknown, Qt::NoModifier, QString(ch));
        QApplication::sendEvent(widget, &release);
    }
}

Zu::CSmallNormalButton* button(QWidget* dialog, int id) {
    for (auto* candidate : dialog->findChildren<Zu::CSmallNormalButton*>()) {
        if (candidate->id() == id)
            return candidate;
    }
    return nullptr;
}

}  // namespace

class TestLevel2Dialog : public QObject {
    Q_OBJECT

    // Runs the dialog modally, types into it, presses a button; returns the result.
    int runTyping(CLevel2QuoteDialog* dialog, const QString& typed, int buttonId) {
        QTimer::singleShot(0, this, [dialog, typed, buttonId] {
            QCOMPARE(QApplication::activeModalWidget(), static_cast<QWidget*>(dialog));
            if (!typed.isEmpty()) {
                dialog->tokenEdit()->setFocus();
                typeText(dialog->tokenEdit(), typed);
            }
            QTest::mouseClick(button(dialog, buttonId), Qt::LeftButton);
        });
        return dialog->exec();
    }

private slots:
    void parentIsIgnored() {
        QWidget owner;
        QPointer<CLevel2QuoteDialog> dialog = new CLevel2QuoteDialog(&owner);
        QVERIFY(dialog->parent() == nullptr);
        QVERIFY(dialog->parentWidget() == nullptr);
        delete dialog.data();
    }

    void opensCentredOverTheWindowOfTheWidgetGiven() {
        QWidget window;
        window.setGeometry(120, 90, 900, 600);
        auto* panel = new QWidget(&window);
        panel->setGeometry(600, 400, 200, 100);
        window.show();
        QVERIFY(QTest::qWaitForWindowExposed(&window));
        CLevel2QuoteDialog dialog(panel);
        dialog.setFixedSize(450, 150);
        dialog.show();
        QVERIFY(QTest::qWaitForWindowExposed(&dialog));
        QVERIFY(!dialog.parent());
        const QPoint offset = dialog.frameGeometry().center() - window.frameGeometry().center();
        QVERIFY2(offset.manhattanLength() <= 2,
                 qPrintable(QString("%1,%2").arg(offset.x()).arg(offset.y())));
    }

    void layout() {
        CLevel2QuoteDialog dialog(nullptr);
        QCOMPARE(dialog.title(), QString("添加Level-2行情源token"));
        QVERIFY(dialog.tokenEdit());
        QCOMPARE(dialog.tokenEdit()->id(), 0);
        QCOMPARE(dialog.tokenEdit()->size(), QSize(340, 25));
        auto labels = dialog.findChildren<Zu::CSimpleTextWidget*>();
        QCOMPARE(labels.size(), 1);
        QCOMPARE(labels[0]->text(), QString("token:"));
        QCOMPARE(labels[0]->id(), 2);
        QCOMPARE(labels[0]->height(), 24);
        QCOMPARE(button(&dialog, 1)->text(), QString("确定"));
        QCOMPARE(button(&dialog, 0)->text(), QString("关闭"));
        for (int id : {0, 1}) {
            QCOMPARE(button(&dialog, id)->size(), QSize(57, 24));
            QCOMPARE(button(&dialog, id)->buttonType(), 1);
        }
        auto* validator = qobject_cast<const QRegExpValidator*>(dialog.tokenEdit()->validator());
        QVERIFY(validator);
        QCOMPARE(validator->regExp().pattern(), QString("^[a-zA-Z0-9]{0,100}$"));
        QCOMPARE(validator->regExp().caseSensitivity(), Qt::CaseSensitive);
        QCOMPARE(validator->regExp().patternSyntax(), QRegExp::RegExp);

        dialog.setFixedSize(450, 150);
        dialog.show();
        QVERIFY(QTest::qWaitForWindowExposed(&dialog));
        QVERIFY(button(&dialog, 1)->x() < button(&dialog, 0)->x());
        QVERIFY(dialog.tokenEdit()->mapTo(&dialog, QPoint()).y() <
                button(&dialog, 1)->mapTo(&dialog, QPoint()).y());
    }

    void typingIsValidated_data() {
        QTest::addColumn<QString>("typed");
        QTest::addColumn<QString>("kept");
        QTest::newRow("ascii") << "abcXYZ0189"
                               << "abcXYZ0189";
        QTest::newRow("punctuation") << "ab-c_d.e!f g"
                                     << "abcdefg";
        QTest::newRow("non ascii") << QString("a") + QChar(0x00E9) + QChar(0x4E2D) + "b"
                                   << "ab";
        QTest::newRow("101 characters") << QString(101, 'k') << QString(100, 'k');
    }

    void typingIsValidated() {
        QFETCH(QString, typed);
        QFETCH(QString, kept);
        CLevel2QuoteDialog dialog(nullptr);
        dialog.show();
        QVERIFY(QTest::qWaitForWindowExposed(&dialog));
        dialog.tokenEdit()->setFocus();
        typeText(dialog.tokenEdit(), typed);
        QCOMPARE(dialog.getTokenText(), kept);
    }

    void okEndsWithOneCloseWithZero() {
        CLevel2QuoteDialog dialog(nullptr);
        CloseCounter closes;
        dialog.installEventFilter(&closes);
        QCOMPARE(runTyping(&dialog, "Tok3n", 1), 1);
        QCOMPARE(closes.closes, 0);
        QCOMPARE(dialog.getTokenText(), QString("Tok3n"));
        QCOMPARE(runTyping(&dialog, QString(), 0), 0);
        QCOMPARE(closes.closes, 1);
    }

    void emptyTextIsAccepted() {
        CLevel2QuoteDialog dialog(nullptr);
        QCOMPARE(runTyping(&dialog, QString(), 1), 1);
        QVERIFY(dialog.getTokenText().isEmpty());
    }

    void keepsItsTextBetweenRuns() {
        CLevel2QuoteDialog dialog(nullptr);
        QCOMPARE(runTyping(&dialog, "first", 0), 0);
        QCOMPARE(runTyping(&dialog, "Second", 1), 1);
        QCOMPARE(dialog.getTokenText(), QString("firstSecond"));
    }

    void tokenTextIsFullAndUnmasked() {
        CLevel2QuoteDialog dialog(nullptr);
        dialog.tokenEdit()->setEchoMode(QLineEdit::Password);
        dialog.setTokenText("Abc123");
        QCOMPARE(dialog.getTokenText(), QString("Abc123"));
        dialog.setTokenText(QString());
        QVERIFY(dialog.getTokenText().isEmpty());
    }

    void otherEventsGoToTheBase() {
        CLevel2QuoteDialog dialog(nullptr);
        QVERIFY(!dialog.handleEvent(Zu::EventFieldLeft, 0, 0, QString(), nullptr));
        QVERIFY(!dialog.handleEvent(Zu::EventComboIndexChanged, 0, 0, QString(), nullptr));
        dialog.show();
        QVERIFY(dialog.handleEvent(Zu::EventButtonClicked, 7, 0, QString(), nullptr));
        QVERIFY(!dialog.isVisible());
        QCOMPARE(dialog.result(), 7);
    }
};

QTEST_MAIN(TestLevel2Dialog)
#include "tst_level2dialog.moc"
