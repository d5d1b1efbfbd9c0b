#include <QApplication>
#include <QElapsedTimer>
#include <QPointer>
#include <QScreen>
#include <QtTest>
#include <cstdio>

#include "Hlx/COrinClientCenter.h"
#include "Hlx/CSafeLineEdit.h"
#include "ScriptedBackend.h"
#include "TestUsers.h"
#include "XvfbDisplay.h"
#include "Zu/CMessageTip.h"
#include "dialogs/CSetStockQuotesDialog.h"

using namespace Hlx;

// A balloon tip on a real X server under a window manager without compositing: no black band
// around it, and it stays long enough to be read.
class TestTipOnScreen : public QObject {
    Q_OBJECT

    static QImage screen() {
        return QGuiApplication::primaryScreen()->grabWindow(0).toImage().convertToFormat(
            QImage::Format_RGB32);
    }

    // Two grabs in a row agree: everything due has been painted.
    static bool screenSettled(QImage* image) {
        const QImage first = screen();
        *image = screen();
        return first == *image;
    }

    // Where the balloon must not paint: a ring of 3 pixels around its window, its window's
    // corners (the bubble is rounded), and the band beside its arrow (placement 65 puts the
    // balloon below the field with the arrow near its left end, pointing up).
    static QRegion aroundTip(const QWidget* tip) {
        const QRect window = tip->geometry();
        QRegion around = QRegion(window.adjusted(-3, -3, 3, 3)) - QRegion(window);
        for (const QPoint& corner :
             {window.topLeft(), window.topRight(), window.bottomLeft(), window.bottomRight()})
            around += QRect(corner, QSize(1, 1));
        around += QRect(window.left() + window.width() / 2, window.top(), window.width() / 2, 5);
        return around;
    }

    static int changedPixels(const QRegion& where, const QImage& before, const QImage& after) {
        int changed = 0;
        for (const QRect& rect : where) {
            for (int y = rect.top(); y <= rect.bottom(); ++y) {
                for (int x = rect.left(); x <= rect.right(); ++x)
                    changed += before.pixel(x, y) != after.pixel(x, y) ? 1 : 0;
            }
        }
        return changed;
    }

    // The middle of the bubble, where its text is.
    static QRegion insideTip(const QWidget* tip) {
        const QRect window = tip->geometry();
        return QRegion(window.adjusted(10, 12, -10, -6));
    }

private slots:
    void initTestCase() {
        ScriptedBackend::install();
        TestUsers::setCurrent(TestUsers::allRights(), false);
        // A caret that blinks would change pixels of its own.
        QApplication::setCursorFlashTime(0);
    }

    void tipShowsTheDialogAroundIt() {
        CSetStockQuotesDialog dialog(2, nullptr, false);
        dialog.move(300, 200);
        dialog.show();
        QVERIFY(QTest::qWaitForWindowExposed(&dialog));
        dialog.addressEdit()->setText("1.2.3");
        QImage before;
        QTRY_VERIFY(screenSettled(&before));

        QVERIFY(!dialog.checkInput());
        QPointer<QWidget> tip = Zu::CMessageTip::currentTip();
        QVERIFY(tip);
        QVERIFY(QTest::qWaitForWindowExposed(tip));
        QVERIFY(dialog.geometry().contains(tip->geometry()));
        QImage after;
        QTRY_VERIFY(changedPixels(insideTip(tip), before, screen()) > 0 && screenSettled(&after));
        QCOMPARE(changedPixels(aroundTip(tip), before, after), 0);

        // Still on screen after two and a half seconds, unedited.
        QElapsedTimer clock;
        clock.start();
        QTRY_VERIFY_WITH_TIMEOUT(tip.isNull() || clock.elapsed() > 2500, 5000);
        QVERIFY2(tip, "the tip went within 2.5 s");
        QVERIFY(tip->isVisible());
        const QImage later = screen();
        QVERIFY(changedPixels(insideTip(tip), before, later) > 0);
        QCOMPARE(changedPixels(aroundTip(tip), before, later), 0);
    }
};

int main(int argc, char** argv) {
    // The display must exist before the application connects to it.
    XvfbDisplay display;
    std::string error;
    if (!display.start(true, &error)) {
        std::fprintf(stderr, "%s\n", error.c_str());
        return 1;
    }
    qputenv("DISPLAY", QByteArray::fromStdString(display.name()));
    qputenv("QT_QPA_PLATFORM", "xcb");
    // Widgets only: no OpenGL driver to load (and to keep until the process ends).
    qputenv("QT_XCB_GL_INTEGRATION", "none");
    QApplication app(argc, argv);
    QFont font = QApplication::font();
    font.setPixelSize(12);
    QApplication::setFont(font);
    TestTipOnScreen test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_tip.moc"
