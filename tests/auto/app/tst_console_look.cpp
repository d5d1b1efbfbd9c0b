#include <QAbstractButton>
#include <QComboBox>
#include <QDockWidget>
#include <QLineEdit>
#include <QMessageBox>
#include <QStatusBar>
#include <QTabBar>
#include <QtTest>

#include "CConsoleLocale.h"
#include "CConsoleWindow.h"
#include "CPanelCatalogue.h"
#include "CScreenshotter.h"
#include "ConsolePanels.h"
#include "EmbeddedService.h"
#include "Hlx/COrinClientCenter.h"
#include "Hlx/CSafeLineEdit.h"
#include "Hlx/CWholeQuoteSettingDialog.h"
#include "ModalDriver.h"
#include "PanelEvents.h"
#include "ServerMessages.h"
#include "Zu/CMessageBox.h"
#include "Zu/CSmallNormalButton.h"
#include "dialogs/CLevel2QuoteDialog.h"
#include "dialogs/CSetFutureQuotesDialog.h"
#include "dialogs/CSetStockQuotesDialog.h"
#include "panels/QuotesManagePanel.h"

using namespace Hlx;

// What the operator sees of the console: Chinese boxes, whole button texts and tab titles,
// inputs inside their dialogs, and the latest outcome in the status bar.
class TestConsoleLook : public QObject {
    Q_OBJECT

    // The buttons of every message box shown from now on (modal ones answered with their
    // escape or first button).
    struct BoxWatch {
        QStringList texts;
        int boxes = 0;

        void take(QMessageBox* box) {
            ++boxes;
            for (QAbstractButton* button : box->buttons())
                texts << button->text();
        }
        void answerNext() {
            ModalDriver::onNext([this](QWidget* modal) {
                auto* box = qobject_cast<QMessageBox*>(modal);
                QVERIFY(box);
                take(box);
                box->buttons().first()->click();
            });
        }
        void takeServerBoxes() {
            for (QWidget* widget : QApplication::topLevelWidgets()) {
                auto* box = qobject_cast<QMessageBox*>(widget);
                if (box && box->objectName() == QStringLiteral("serverMessageBox") &&
                    box->isVisible()) {
                    take(box);
                    box->close();
                }
            }
        }
    };

    static QList<QWidget*> inputsOf(QWidget* dialog) {
        QList<QWidget*> inputs;
        for (QLineEdit* edit : dialog->findChildren<QLineEdit*>()) {
            if (!qobject_cast<QComboBox*>(edit->parentWidget()))
                inputs << edit;
        }
        for (QComboBox* combo : dialog->findChildren<QComboBox*>())
            inputs << combo;
        return inputs;
    }

    static QString widthOf(Zu::CSmallNormalButton* button) {
        return QStringLiteral("%1: text %2, room %3")
            .arg(button->text())
            .arg(button->fontMetrics().horizontalAdvance(button->text()))
            .arg(button->textRoom());
    }

    // Every kit button shows its whole text; every input lies inside the dialog with a margin.
    static void verifyFits(QWidget* dialog) {
        dialog->show();
        QVERIFY(QTest::qWaitForWindowExposed(dialog));
        for (Zu::CSmallNormalButton* button : dialog->findChildren<Zu::CSmallNormalButton*>())
            QVERIFY2(button->showsWholeText(), qPrintable(widthOf(button)));
        const QRect inside = dialog->rect().adjusted(10, 0, -10, -10);
        for (QWidget* input : inputsOf(dialog)) {
            const QRect at(input->mapTo(dialog, QPoint()), input->size());
            QVERIFY2(inside.contains(at),
                     qPrintable(QStringLiteral("%1: input at %2,%3 %4x%5 in %6x%7")
                                    .arg(dialog->metaObject()->className())
                                    .arg(at.x())
                                    .arg(at.y())
                                    .arg(at.width())
                                    .arg(at.height())
                                    .arg(dialog->width())
                                    .arg(dialog->height())));
        }
        dialog->hide();
    }

private slots:
    void initTestCase() {
        QString warning;
        QVERIFY2(CConsoleLocale::install(qApp, &warning), qPrintable(warning));
        QFont font = QApplication::font();
        font.setPixelSize(12);
        QApplication::setFont(font);
    }

    void init() {
        m_embedded.reset(new EmbeddedService);
        QVERIFY2(m_embedded->isOpen(), qPrintable(m_embedded->error()));
        m_admin = m_embedded->admin();
        COrinClientCenter::instance()->setShowMessageBoxes(true);
    }

    void cleanup() {
        CScreenshotter::waitUntilSettled();
        COrinClientCenter::instance()->setShowMessageBoxes(false);
        m_admin.reset();
        m_embedded.reset();
    }

    void qtsOwnButtonsAreChinese() {
        QMessageBox box(QMessageBox::Information, "t", "x", QMessageBox::Ok | QMessageBox::Cancel);
        QCOMPARE(box.button(QMessageBox::Ok)->text(), QString("确定"));
        QCOMPARE(box.button(QMessageBox::Cancel)->text(), QString("取消"));
    }

    void everyBoxIsChinese() {
        BoxWatch watch;
        // The kit's boxes with the buttons the panels and the console ask for.
        watch.answerNext();
        Zu::CMessageBox::question(nullptr, "操作提示", "q", QMessageBox::Ok | QMessageBox::Cancel,
                                  0);
        watch.answerNext();
        Zu::CMessageBox::information(nullptr, "提示", "i", 0x14000, 0, false);
        watch.answerNext();
        Zu::CMessageBox::warning(nullptr, "证券行情源", "w", QMessageBox::Ok, 0, false);
        watch.answerNext();
        Zu::CMessageBox::critical(nullptr, "行情源管理", "c", 0, 0, false);

        // The panel's questions before a delete and before deleting all.
        CConsoleWindow window(m_admin, m_embedded->path() + "/console.ini");
        auto* panel = qobject_cast<CQuotesManagePanel*>(window.openPanel(ConsolePanels::stocks()));
        QVERIFY(panel);
        watch.answerNext();
        PanelEvents::press(*panel, CQuotesManagePanel::kBtnDeleteAll);
        CScreenshotter::waitUntilSettled();

        // The service's outcome boxes, refused and accepted.
        COrinClientCenter::instance()->showServerMsgCallBack(1, false, panel, "添加行情源",
                                                             "端口无效", true, false);
        COrinClientCenter::instance()->showServerMsgCallBack(0, true, panel, "添加行情源",
                                                             "操作成功", true, false);
        watch.takeServerBoxes();

        QCOMPARE(watch.boxes, 7);
        const QStringList allowed{"确定", "取消", "是", "否"};
        for (const QString& text : watch.texts)
            QVERIFY2(allowed.contains(text), qPrintable(text));
    }

    void tabsShowWholeTitles() {
        CConsoleWindow window(m_admin, m_embedded->path() + "/console.ini");
        window.show();
        for (const CPanelEntry& entry : CPanelCatalogue::entries())
            window.openPanel(entry.objectName);
        CScreenshotter::waitUntilSettled();
        int tabs = 0;
        for (QTabBar* bar : window.findChildren<QTabBar*>()) {
            if (!bar->isVisible())
                continue;
            QCOMPARE(bar->elideMode(), Qt::ElideNone);
            QVERIFY(bar->usesScrollButtons());
            for (int i = 0; i < bar->count(); ++i, ++tabs) {
                const int textWidth = bar->fontMetrics().horizontalAdvance(bar->tabText(i));
                QVERIFY2(bar->tabRect(i).width() > textWidth, qPrintable(bar->tabText(i)));
            }
        }
        QCOMPARE(tabs, int(CPanelCatalogue::entries().size()));
    }

    void statusBarShowsTheLatestOutcomeOnly() {
        COrinClientCenter::instance()->setShowMessageBoxes(false);
        CConsoleWindow window(m_admin, m_embedded->path() + "/console.ini");
        COrinClientCenter::instance()->showServerMsgCallBack(1, false, &window, "修改行情源",
                                                             "端口无效", true, false);
        QCOMPARE(window.statusBar()->currentMessage(), QString("修改行情源: 端口无效"));
        COrinClientCenter::instance()->showServerMsgCallBack(0, true, &window, "修改行情源",
                                                             "操作成功", true, false);
        QCOMPARE(window.statusBar()->currentMessage(), QString("修改行情源: 操作成功"));
    }

    void panelButtonsShowTheirWholeText() {
        CConsoleWindow window(m_admin, m_embedded->path() + "/console.ini");
        window.show();
        int buttons = 0;
        for (const CPanelEntry& entry : CPanelCatalogue::entries()) {
            QWidget* panel = window.openPanel(entry.objectName);
            for (Zu::CSmallNormalButton* button : panel->findChildren<Zu::CSmallNormalButton*>()) {
                QVERIFY2(button->showsWholeText(), qPrintable(widthOf(button)));
                ++buttons;
            }
        }
        QVERIFY(buttons > 20);
    }

    void dialogsFitTheirContents() {
        CStockQuotesManagePanel panel(nullptr);
        CSetStockQuotesDialog stock(2, &panel, false);
        verifyFits(&stock);
        CSetStockQuotesDialog all(-1, &panel, false);
        verifyFits(&all);
        CSetFutureQuotesDialog future(1, &panel);
        verifyFits(&future);
        CLevel2QuoteDialog token(nullptr);
        token.setFixedSize(450, 150);
        verifyFits(&token);
        CWholeQuoteSettingDialog wholeQuote(QString(), &panel);
        verifyFits(&wholeQuote);
    }

private:
    std::unique_ptr<EmbeddedService> m_embedded;
    boost::shared_ptr<CEmbeddedAdmin> m_admin;
};

QTEST_MAIN(TestConsoleLook)
#include "tst_console_look.moc"
