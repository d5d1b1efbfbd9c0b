#include <QApplication>
#include <QElapsedTimer>
#include <QPointer>
#include <QSignalSpy>
#include <QtTest>
#include <boost/make_shared.hpp>
#include <climits>

#include "Hlx/COrinClientCenter.h"
#include "Hlx/CSafeLineEdit.h"
#include "ScriptedBackend.h"
#include "ServerMessages.h"
#include "TestIds.h"
#include "TestUsers.h"
#include "Zu/CBaseWidget.h"
#include "Zu/CComboBox.h"
#include "Zu/CLoadingMaskWidget.h"
#include "Zu/CMessageTip.h"
#include "Zu/CSimpleTextWidget.h"
#include "Zu/CSmallNormalButton.h"
#include "dialogs/CSetStockQuotesDialog.h"
#include "model/CFieldLimits.h"
#include "rkservice/COrinQuoterSourceInfo.h"

using namespace Hlx;
using namespace TestIds;
using rkservice::COrinQuoterSourceInfo;

namespace {

// Stands in for the panel: records the kit events that reach it.
class EventSink : public Zu::CBaseWidget {
public:
    bool handleEvent(int type, int id, int arg, QString text, void* extra) override {
        Q_UNUSED(arg);
        Q_UNUSED(text);
        Q_UNUSED(extra);
        events.append(qMakePair(type, id));
        return type == Zu::EventQuoteSourcesChanged;
    }
    int count(int type) const {
        int n = 0;
        for (const auto& event : events)
            n += event.first == type ? 1 : 0;
        return n;
    }
    QVector<QPair<int, int>> events;
};

// Counts close events, which a hidden dialog still receives.
class CloseCounter : public QObject {
public:
    bool eventFilter(QObject* watched, QEvent* event) override {
        if (event->type() == QEvent::Close)
            ++closes;
        return QObject::eventFilter(watched, event);
    }
    int closes = 0;
};

boost::shared_ptr<COrinQuoterSourceInfo> sourceRecord(int id, int platformId, int tradeType) {
    auto record = boost::make_shared<COrinQuoterSourceInfo>();
    record->m_nId = id;
    record->m_nPlatformId = platformId;
    record->m_nTradeType = tradeType;
    record->m_strAddress = "10.1.2.3";
    record->m_nPort = 7709;
    record->m_strUserName = "trader";
    record->m_strPassword = "secret";
    record->m_strMarkets = "SH,SZ";
    return record;
}

boost::shared_ptr<COrinQuoterSourceInfo> quoteSource(const rkservice::IDataPtr& data) {
    return boost::dynamic_pointer_cast<COrinQuoterSourceInfo>(data);
}

}  // namespace

class TestStockDialog : public QObject {
    Q_OBJECT

private:
    // A filled stock dialog, shown and submitted, its answer held by the backend.
    void submitHeld(EventSink* sink, CSetStockQuotesDialog** opened) {
        m_backend->setHolding(true);
        auto* dialog = new CSetStockQuotesDialog(2, sink, false);
        fillValid(dialog);
        dialog->show();
        QVERIFY(dialog->handleEvent(Zu::EventButtonClicked, CSetStockQuotesDialog::SubmitButton, 0,
                                    QString(), nullptr));
        QTRY_COMPARE(m_backend->heldCount(), 1);
        *opened = dialog;
    }

    boost::shared_ptr<ScriptedBackend> m_backend;
    ServerMessages m_messages;

    void fill(CSetStockQuotesDialog* dialog, const QString& address, const QString& port,
              const QString& user, const QString& password) {
        dialog->addressEdit()->setText(address);
        dialog->portEdit()->setText(port);
        dialog->userEdit()->setText(user);
        dialog->passwordEdit()->setText(password);
    }

    void fillValid(CSetStockQuotesDialog* dialog) {
        fill(dialog, "192.168.1.10", "7709", "trader", "pw123");
    }

    // Presses "提交" and waits until the request (if any) has reached the backend.
    void submit(CSetStockQuotesDialog* dialog) {
        QTest::mouseClick(kitButton(dialog, 0), Qt::LeftButton);
        COrinClientCenter::instance()->waitForIdle();
    }

    std::vector<ScriptedBackend::Request> operations() const {
        std::vector<ScriptedBackend::Request> result;
        for (const auto& request : m_backend->requests()) {
            if (!request.isQuery)
                result.push_back(request);
        }
        return result;
    }

    // Checks one field's text both ways: within a submission, and as the user leaves the field
    // (which only shows the tip).
    void verifyFieldCheck(int fieldId, const QString& text, bool passes, const QString& tip) {
        QStringList inputs{"1.2.3.4", "1", "u", "p"};
        inputs[fieldId - 1] = text;
        CSetStockQuotesDialog dialog(2, nullptr, false);
        fill(&dialog, inputs[0], inputs[1], inputs[2], inputs[3]);
        const QWidget* edits[] = {dialog.addressEdit(), dialog.portEdit(), dialog.userEdit(),
                                  dialog.passwordEdit()};
        QCOMPARE(dialog.checkInput(), passes);
        QCOMPARE(Zu::CMessageTip::tipCount(), passes ? 0 : 1);
        if (!passes) {
            QCOMPARE(Zu::CMessageTip::lastTipText(), tip);
            QCOMPARE(Zu::CMessageTip::lastTipTarget(), edits[fieldId - 1]);
        }
        Zu::CMessageTip::resetLastTip();
        QVERIFY(dialog.handleEvent(Zu::EventFieldLeft, fieldId, 0, text, nullptr));
        QCOMPARE(Zu::CMessageTip::tipCount(), passes ? 0 : 1);
    }

private slots:
    void initTestCase() { COrinClientCenter::instance()->setShowMessageBoxes(false); }

    void init() {
        m_backend = ScriptedBackend::install();
        TestUsers::setCurrent(TestUsers::allRights(), false);
        m_messages.clear();
        Zu::CMessageTip::resetLastTip();
    }

    void cleanup() {
        m_backend->setHolding(false);
        m_backend->releaseAll();
        COrinClientCenter::instance()->waitForIdle();
    }

    // ---- layout ----

    void layout() {
        CSetStockQuotesDialog dialog(2, nullptr, false);
        QCOMPARE(dialog.size(), QSize(380, 355));
        QCOMPARE(dialog.minimumSize(), QSize(380, 355));
        QCOMPARE(dialog.maximumSize(), QSize(380, 355));
        QVERIFY(dialog.isAdd());
        QCOMPARE(dialog.editId(), 0);
        QVERIFY(dialog.serverName().isEmpty());
        QCOMPARE(dialog.tradeType(), 2);
        QVERIFY(!dialog.isFutureOnly());
        QVERIFY(dialog.marketEdit() == nullptr);
        // The caller gives the title.
        QVERIFY(dialog.title().isEmpty());

        QStringList labels;
        for (auto* label : dialog.findChildren<Zu::CSimpleTextWidget*>()) {
            labels << label->text();
            QCOMPARE(label->height(), 24);
        }
        QCOMPARE(labels, QStringList({"平台名称:", "地址:", "端口:", "用户名:", "密码:"}));

        QCOMPARE(dialog.addressEdit()->id(), 1);
        QCOMPARE(dialog.portEdit()->id(), 2);
        QCOMPARE(dialog.userEdit()->id(), 3);
        QCOMPARE(dialog.passwordEdit()->id(), 4);
        QCOMPARE(dialog.passwordEdit()->echoMode(), QLineEdit::Password);
        QCOMPARE(dialog.addressEdit()->echoMode(), QLineEdit::Normal);
        for (QWidget* input :
             QList<QWidget*>{dialog.platformCombo(), dialog.addressEdit(), dialog.portEdit(),
                             dialog.userEdit(), dialog.passwordEdit()})
            QCOMPARE(input->size(), QSize(200, 24));
        for (auto* edit :
             {dialog.addressEdit(), dialog.portEdit(), dialog.userEdit(), dialog.passwordEdit()})
            QVERIFY(edit->validator() == nullptr);

        QCOMPARE(kitButton(&dialog, 0)->text(), QString("提交"));
        QCOMPARE(kitButton(&dialog, 1)->text(), QString("关闭"));
        QCOMPARE(kitButton(&dialog, 0)->size(), QSize(57, 24));
        QCOMPARE(kitButton(&dialog, 1)->size(), QSize(57, 24));

        QVERIFY(dialog.loadingMask());
        QCOMPARE(dialog.loadingMask()->text(), QString("正在加载数据"));
        QVERIFY(dialog.loadingMask()->isHidden());

        // Rows top to bottom in the order of the labels.
        dialog.show();
        QVERIFY(QTest::qWaitForWindowExposed(&dialog));
        QVERIFY(kitButton(&dialog, 0)->x() < kitButton(&dialog, 1)->x());
        int lastY = -1;
        for (QWidget* input :
             QList<QWidget*>{dialog.platformCombo(), dialog.addressEdit(), dialog.portEdit(),
                             dialog.userEdit(), dialog.passwordEdit(), kitButton(&dialog, 0)}) {
            const int y = input->mapTo(&dialog, QPoint()).y();
            QVERIFY2(y > lastY, qPrintable(QString::number(y)));
            lastY = y;
        }
    }

    void routeFlagFromUser() {
        TestUsers::setCurrent(TestUsers::allRights(), true);
        CSetStockQuotesDialog routed(2, nullptr, false);
        QVERIFY(routed.routeBySystem());
        TestUsers::setCurrent(TestUsers::allRights(), false);
        CSetStockQuotesDialog plain(2, nullptr, false);
        QVERIFY(!plain.routeBySystem());
    }

    // ---- platform list ----

    void platformList_data() {
        QTest::addColumn<int>("tradeType");
        QTest::addColumn<bool>("futureOnly");
        QTest::addColumn<QList<int>>("ids");
        QTest::addColumn<QStringList>("names");
        const QString kx = "高级行情";
        QTest::newRow("all types") << -1 << false << QList<int>{10000} << QStringList{kx};
        QTest::newRow("futures") << 1 << false << QList<int>{20000} << QStringList{"高级行情-期货"};
        QTest::newRow("stocks futures only")
            << 2 << true << QList<int>{20000} << QStringList{"高级行情-期货"};
        QTest::newRow("stocks") << 2 << false << QList<int>{10000} << QStringList{kx};
        QTest::newRow("gold") << 4 << false << QList<int>{31003} << QStringList{kx};
        QTest::newRow("futures options")
            << 5 << false << QList<int>{70000} << QStringList{"高级行情-期货期权"};
        QTest::newRow("stock options") << 6 << false << QList<int>{10001, 25011, 25012}
                                       << QStringList{kx, "CTP个股期权实盘", "CTP个股期权模拟"};
        QTest::newRow("hgt") << 7 << false << QList<int>{10003} << QStringList{kx};
        QTest::newRow("outer stocks") << 8 << false << QList<int>{32000} << QStringList{""};
        QTest::newRow("neeq") << 10 << false << QList<int>{10002} << QStringList{kx};
        QTest::newRow("sgt") << 11 << false << QList<int>{10004} << QStringList{kx};
        QTest::newRow("outer futures") << 16 << false << QList<int>{15000} << QStringList{kx};
        QTest::newRow("ib outer") << 1002 << false << QList<int>{32000} << QStringList{""};
        QTest::newRow("gold futures only") << 4 << true << QList<int>{31003} << QStringList{kx};
        QTest::newRow("type 0") << 0 << false << QList<int>{} << QStringList{};
        QTest::newRow("type 3") << 3 << false << QList<int>{} << QStringList{};
        QTest::newRow("type 9") << 9 << false << QList<int>{} << QStringList{};
    }

    void platformList() {
        QFETCH(int, tradeType);
        QFETCH(bool, futureOnly);
        QFETCH(QList<int>, ids);
        QFETCH(QStringList, names);
        CSetStockQuotesDialog dialog(tradeType, nullptr, futureOnly);
        Zu::CComboBox* combo = dialog.platformCombo();
        QCOMPARE(combo->count(), ids.size());
        for (int i = 0; i < ids.size(); ++i) {
            QCOMPARE(combo->itemData(i).type(), QVariant::Int);
            QCOMPARE(combo->itemData(i).toInt(), ids[i]);
            QCOMPARE(combo->itemText(i), names[i]);
        }
        QCOMPARE(combo->currentIndex(), ids.isEmpty() ? -1 : 0);
    }

    void platformNamesWithoutLoginType() {
        m_backend->setLoginTypeAuth(false);
        CSetStockQuotesDialog dialog(6, nullptr, false);
        QCOMPARE(dialog.platformCombo()->itemText(0), QString("Kx高级行情"));
        QCOMPARE(dialog.platformCombo()->itemText(1), QString("CTP个股期权实盘"));
        CSetStockQuotesDialog futures(1, nullptr, false);
        QCOMPARE(futures.platformCombo()->itemText(0), QString("Kx高级行情-期货"));
    }

    void emptyComboSendsNothing_data() {
        QTest::addColumn<int>("tradeType");
        QTest::newRow("0") << 0;
        QTest::newRow("3") << 3;
    }

    void emptyComboSendsNothing() {
        QFETCH(int, tradeType);
        CSetStockQuotesDialog dialog(tradeType, nullptr, false);
        QCOMPARE(dialog.platformCombo()->count(), 0);
        fillValid(&dialog);
        std::vector<rkservice::IDataPtr> datas;
        dialog.getOperateDatas(datas);
        QVERIFY(datas.empty());
        dialog.show();
        dialog.setResult(7);
        submit(&dialog);
        QCOMPARE(m_backend->requestCount(), 0);
        QVERIFY(dialog.isVisible());
        QCOMPARE(dialog.result(), 7);
        QVERIFY(m_messages.isEmpty());
        QVERIFY(dialog.loadingMask()->isHidden());
    }

    // ---- pre-filling ----

    void prefillForEdit() {
        CSetStockQuotesDialog dialog(6, nullptr, false);
        dialog.setIsAdd(false);
        dialog.setBasicInfo(sourceRecord(42, 25012, 6));
        QCOMPARE(dialog.editId(), 42);
        QCOMPARE(dialog.addressEdit()->text(), QString("10.1.2.3"));
        QCOMPARE(dialog.portEdit()->text(), QString("7709"));
        QCOMPARE(dialog.userEdit()->text(), QString("trader"));
        QCOMPARE(dialog.passwordEdit()->getOriginalText(), QString("secret"));
        QCOMPARE(dialog.platformCombo()->currentIndex(), 2);
        // Nothing is locked in edit mode.
        for (QWidget* input :
             QList<QWidget*>{dialog.platformCombo(), dialog.addressEdit(), dialog.portEdit(),
                             dialog.userEdit(), dialog.passwordEdit()}) {
            QVERIFY(input->isEnabled());
        }
        QVERIFY(!dialog.addressEdit()->isReadOnly());
    }

    void prefillFindsComboByText() {
        // 10000 reads like 10001, so the stock-options dialog selects its own Kx entry.
        CSetStockQuotesDialog dialog(6, nullptr, false);
        dialog.platformCombo()->setCurrentIndex(1);
        dialog.setBasicInfo(sourceRecord(1, 10000, 2));
        QCOMPARE(dialog.platformCombo()->currentIndex(), 0);
        QCOMPARE(dialog.platformCombo()->currentData().toInt(), 10001);
    }

    void prefillWithUnknownPlatformClearsSelection() {
        CSetStockQuotesDialog dialog(2, nullptr, false);
        dialog.setIsAdd(false);
        dialog.setBasicInfo(sourceRecord(5, 25011, 6));
        QCOMPARE(dialog.platformCombo()->currentIndex(), -1);
        std::vector<rkservice::IDataPtr> datas;
        dialog.getOperateDatas(datas);
        QVERIFY(datas.empty());
        dialog.show();
        submit(&dialog);
        QCOMPARE(m_backend->requestCount(), 0);
        QVERIFY(dialog.isVisible());
    }

    void prefillNullRecordDoesNothing() {
        CSetStockQuotesDialog dialog(2, nullptr, false);
        fillValid(&dialog);
        dialog.setBasicInfo(boost::shared_ptr<COrinQuoterSourceInfo>());
        QCOMPARE(dialog.editId(), 0);
        QCOMPARE(dialog.addressEdit()->text(), QString("192.168.1.10"));
    }

    void setIsAddEmptiesInputs() {
        CSetStockQuotesDialog dialog(2, nullptr, false);
        dialog.setTitle("keep");
        fillValid(&dialog);
        dialog.setIsAdd(false);
        QVERIFY(!dialog.isAdd());
        QVERIFY(dialog.addressEdit()->text().isEmpty());
        QVERIFY(dialog.portEdit()->text().isEmpty());
        QVERIFY(dialog.userEdit()->text().isEmpty());
        QVERIFY(dialog.passwordEdit()->getOriginalText().isEmpty());
        QCOMPARE(dialog.title(), QString("keep"));
        dialog.setIsAdd(true);
        QVERIFY(dialog.isAdd());
    }

    void reopenedDialogStartsAtTheAddress() {
        CSetStockQuotesDialog dialog(2, nullptr, false);
        dialog.show();
        QApplication::setActiveWindow(&dialog);
        QVERIFY(QTest::qWaitForWindowActive(&dialog));
        // The operator left the dialog in 密码; it opens again at 地址.
        dialog.passwordEdit()->setFocus();
        QTRY_COMPARE(QApplication::focusWidget(), static_cast<QWidget*>(dialog.passwordEdit()));
        dialog.hide();
        dialog.show();
        QApplication::setActiveWindow(&dialog);
        QVERIFY(QTest::qWaitForWindowActive(&dialog));
        QTRY_COMPARE(QApplication::focusWidget(), static_cast<QWidget*>(dialog.addressEdit()));
    }

    void serverName() {
        CSetStockQuotesDialog dialog(2, nullptr, false);
        dialog.setBasicInfo(QString("sys2"));
        QCOMPARE(dialog.serverName(), QString("sys2"));
    }

    // ---- checks ----

    void addressCheck_data() {
        QTest::addColumn<QString>("address");
        QTest::addColumn<bool>("passes");
        QTest::newRow("ipv4") << "192.168.1.1" << true;
        QTest::newRow("zeros") << "0.0.0.0" << true;
        QTest::newRow("max") << "255.255.255.255" << true;
        QTest::newRow("two digit") << "10.20.30.99" << true;
        QTest::newRow("trailing dot") << "192.168.1.1." << false;
        QTest::newRow("256") << "256.1.1.1" << false;
        QTest::newRow("leading zero") << "01.1.1.1" << false;
        QTest::newRow("three octets") << "1.1.1" << false;
        QTest::newRow("five octets") << "1.1.1.1.1" << false;
        QTest::newRow("double dot") << "1..1.1" << false;
        QTest::newRow("blank") << " 1.1.1.1" << false;
        QTest::newRow("letters") << "a.b.c.d" << false;
        QTest::newRow("host name") << "quotes.example.com" << false;
        QTest::newRow("empty") << "" << false;
        QTest::newRow("ipv6 loopback") << "::1" << true;
        QTest::newRow("ipv6 full") << "2001:0db8:0000:0000:0000:ff00:0042:8329" << true;
        QTest::newRow("ipv6 short") << "fe80::1" << true;
        QTest::newRow("ipv6 mapped") << "::ffff:192.168.1.1" << true;
        QTest::newRow("ipv6 bad digit") << "2001:db8::g" << false;
        QTest::newRow("ipv6 two gaps") << "1::2::3" << false;
        QTest::newRow("ipv6 nine groups") << "1:2:3:4:5:6:7:8:9" << false;
    }

    void addressCheck() {
        QFETCH(QString, address);
        QFETCH(bool, passes);
        verifyFieldCheck(1, address, passes, QString("请输入有效的服务器地址"));
    }

    void portCheck_data() {
        QTest::addColumn<QString>("port");
        QTest::addColumn<bool>("passes");
        QTest::addColumn<QString>("tip");
        const QString digits("只能输入数字 ");
        const QString range("请输入1-65535之间的端口");
        QTest::newRow("plain") << "7709" << true << QString();
        QTest::newRow("leading zeros") << "007" << true << QString();
        QTest::newRow("lowest") << "1" << true << QString();
        QTest::newRow("highest") << "65535" << true << QString();
        QTest::newRow("zero") << "0" << false << range;
        QTest::newRow("zeros only") << "000" << false << range;
        QTest::newRow("beyond 65535") << "65536" << false << range;
        QTest::newRow("70000") << "70000" << false << range;
        QTest::newRow("beyond int") << "99999999999" << false << range;
        QTest::newRow("blank inside") << "77 09" << false << digits;
        QTest::newRow("minus") << "-1" << false << digits;
        QTest::newRow("plus") << "+1" << false << digits;
        QTest::newRow("letters") << "80a" << false << digits;
        QTest::newRow("fullwidth digits") << "８０" << false << digits;
        QTest::newRow("empty") << "" << false << digits;
    }

    void portCheck() {
        QFETCH(QString, port);
        QFETCH(bool, passes);
        QFETCH(QString, tip);
        verifyFieldCheck(2, port, passes, tip);
        // Leaving the field gives the same tip as a submission.
        if (!passes)
            QCOMPARE(Zu::CMessageTip::lastTipText(), tip);
    }

    void portOutOfRangeKeepsTheInput() {
        CSetStockQuotesDialog dialog(2, nullptr, false);
        fill(&dialog, "192.0.2.10", "70000", "trader", "pw123");
        dialog.show();
        submit(&dialog);
        QCOMPARE(m_backend->requestCount(), 0);
        QVERIFY(dialog.isVisible());
        QCOMPARE(Zu::CMessageTip::lastTipText(), QString("请输入1-65535之间的端口"));
        QCOMPARE(Zu::CMessageTip::lastTipTarget(), static_cast<QWidget*>(dialog.portEdit()));
        QCOMPARE(dialog.portEdit()->text(), QString("70000"));
        QCOMPARE(dialog.addressEdit()->text(), QString("192.0.2.10"));
    }

    // A tip stays until its field is edited, and at least three seconds.
    void tipStaysUntilTheFieldIsEdited() {
        CSetStockQuotesDialog dialog(2, nullptr, false);
        fill(&dialog, "1.2.3", "80", "u", "p");
        dialog.show();
        QVERIFY(QTest::qWaitForWindowExposed(&dialog));
        QVERIFY(!dialog.checkInput());
        QPointer<QWidget> tip = Zu::CMessageTip::currentTip();
        QVERIFY(tip && tip->isVisible());
        QElapsedTimer clock;
        clock.start();
        QTRY_VERIFY_WITH_TIMEOUT(tip.isNull() || clock.elapsed() > 3600, 8000);
        QVERIFY2(tip, "the tip went before the field was edited");
        QTest::keyClick(dialog.addressEdit(), Qt::Key_4);
        QTRY_VERIFY(tip.isNull());
    }

    void tipEditedAtOnceStaysThreeSeconds() {
        CSetStockQuotesDialog dialog(2, nullptr, false);
        fill(&dialog, "1.2.3.4", "80a", "u", "p");
        dialog.show();
        QVERIFY(QTest::qWaitForWindowExposed(&dialog));
        QVERIFY(dialog.handleEvent(Zu::EventFieldLeft, CSetStockQuotesDialog::PortField, 0,
                                   QString(), nullptr));
        QPointer<QWidget> tip = Zu::CMessageTip::currentTip();
        QVERIFY(tip);
        QElapsedTimer clock;
        clock.start();
        QTest::keyClick(dialog.portEdit(), Qt::Key_Backspace);
        QTRY_VERIFY_WITH_TIMEOUT(tip.isNull() || clock.elapsed() > 2700, 6000);
        QVERIFY2(tip, "the tip went before three seconds");
        QTRY_VERIFY_WITH_TIMEOUT(tip.isNull(), 3000);
        QVERIFY(clock.elapsed() >= 3000);
    }

    void anotherTipReplacesTheTip() {
        CSetStockQuotesDialog dialog(2, nullptr, false);
        fill(&dialog, "1.2.3", "80a", "u", "p");
        dialog.show();
        QVERIFY(QTest::qWaitForWindowExposed(&dialog));
        dialog.handleEvent(Zu::EventFieldLeft, CSetStockQuotesDialog::AddressField, 0, QString(),
                           nullptr);
        QPointer<QWidget> first = Zu::CMessageTip::currentTip();
        dialog.handleEvent(Zu::EventFieldLeft, CSetStockQuotesDialog::PortField, 0, QString(),
                           nullptr);
        QTRY_VERIFY(first.isNull());
        QVERIFY(Zu::CMessageTip::currentTip());
        QCOMPARE(Zu::CMessageTip::lastTipText(), QString("只能输入数字 "));
    }

    void userCheck_data() {
        QTest::addColumn<QString>("user");
        QTest::addColumn<bool>("passes");
        QTest::newRow("letters") << "trader01" << true;
        QTest::newRow("25 letters") << QString(25, 'a') << true;
        QTest::newRow("26 letters") << QString(26, 'a') << false;
        QTest::newRow("25 chinese") << QString(25, QChar(0x5F20)) << true;
        QTest::newRow("26 chinese") << QString(26, QChar(0x5F20)) << false;
        QTest::newRow("underscore") << "_" << true;
        QTest::newRow("e acute") << QString(QChar(0x00E9)) << false;
        QTest::newRow("cyrillic below range") << QString(QChar(0x0416)) << false;
        QTest::newRow("first of range") << QString(QChar(0x04BB)) << true;
        QTest::newRow("just below range") << QString(QChar(0x04BA)) << false;
        QTest::newRow("hangul") << QString(QChar(0xD55C)) << true;
        QTest::newRow("replacement char") << QString(QChar(0xFFFD)) << true;
        QTest::newRow("blank") << "a b" << false;
        QTest::newRow("minus") << "a-b" << false;
        QTest::newRow("dot") << "a.b" << false;
        QTest::newRow("empty") << "" << false;
    }

    void userCheck() {
        QFETCH(QString, user);
        QFETCH(bool, passes);
        verifyFieldCheck(3, user, passes, QString("请输入1-25位的字母或者数字"));
    }

    void passwordCheck_data() {
        QTest::addColumn<QString>("password");
        QTest::addColumn<bool>("passesSubmit");
        QTest::addColumn<bool>("passesLeaving");
        QTest::newRow("letters") << "abc123" << true << true;
        QTest::newRow("long") << QString(80, 'x') << true << true;
        QTest::newRow("chinese") << "密码" << true << true;
        QTest::newRow("underscore") << "a_b" << true << true;
        QTest::newRow("blank inside") << "a b" << true << false;
        QTest::newRow("punctuation") << "a!b" << true << false;
        QTest::newRow("e acute") << QString(QChar(0x00E9)) << true << false;
        QTest::newRow("empty") << "" << false << false;
    }

    // The dialog takes no more than the data service stores.
    void inputsFitTheServiceLimits() {
        CSetStockQuotesDialog dialog(2, nullptr, false);
        QCOMPARE(dialog.passwordEdit()->maxLength(),
                 CFieldLimits::of(CFieldLimit::Password).maxBytes);
        QCOMPARE(dialog.addressEdit()->maxLength(),
                 CFieldLimits::of(CFieldLimit::Address).maxBytes);
        dialog.passwordEdit()->setText(QString(300, 'p'));
        QCOMPARE(dialog.passwordEdit()->getOriginalText().size(),
                 CFieldLimits::of(CFieldLimit::Password).maxBytes);
        // The longest user name the dialog accepts fits the service's byte limit.
        const QString widest(25, QChar(0xFFFD));
        fill(&dialog, "1.2.3.4", "1", widest, "p");
        QVERIFY(dialog.checkInput());
        QVERIFY(widest.toUtf8().size() <= CFieldLimits::of(CFieldLimit::UserName).maxBytes);
    }

    // A Chinese password the edit holds but the service could not store is refused here, with
    // the limit named, instead of by the service after the dialog closed.
    void passwordFitsTheServiceInBytes() {
        const int maxBytes = CFieldLimits::of(CFieldLimit::Password).maxBytes;
        const QString fits(maxBytes / 3, QChar(0x5BC6));
        const QString tooLong(maxBytes / 3 + 1, QChar(0x5BC6));
        verifyFieldCheck(4, fits, true, QString());
        verifyFieldCheck(4, tooLong, false, QStringLiteral("密码不能超过%1字节").arg(maxBytes));
    }

    void passwordCheck() {
        QFETCH(QString, password);
        QFETCH(bool, passesSubmit);
        QFETCH(bool, passesLeaving);
        CSetStockQuotesDialog dialog(2, nullptr, false);
        fill(&dialog, "1.2.3.4", "1", "u", password);
        QCOMPARE(dialog.checkInput(), passesSubmit);
        QCOMPARE(Zu::CMessageTip::tipCount(), passesSubmit ? 0 : 1);
        if (!passesSubmit) {
            QCOMPARE(Zu::CMessageTip::lastTipText(), QString("请输入字母或者数字 "));
            QCOMPARE(Zu::CMessageTip::lastTipTarget(), dialog.passwordEdit());
        }
        Zu::CMessageTip::resetLastTip();
        QVERIFY(dialog.handleEvent(Zu::EventFieldLeft, CSetStockQuotesDialog::PasswordField, 0,
                                   QString(), nullptr));
        QCOMPARE(Zu::CMessageTip::tipCount(), passesLeaving ? 0 : 1);
        if (!passesLeaving) {
            QCOMPARE(Zu::CMessageTip::lastTipText(), QString("请输入字母或者数字 "));
            QCOMPARE(Zu::CMessageTip::lastTipTarget(), dialog.passwordEdit());
        }
    }

    void checkInputStopsAtFirstFailure_data() {
        QTest::addColumn<QString>("address");
        QTest::addColumn<QString>("port");
        QTest::addColumn<QString>("user");
        QTest::addColumn<QString>("password");
        QTest::addColumn<int>("failing");
        QTest::newRow("all bad") << "x"
                                 << "y"
                                 << ""
                                 << "" << 1;
        QTest::newRow("port first") << "1.1.1.1"
                                    << "y"
                                    << ""
                                    << "" << 2;
        QTest::newRow("user next") << "1.1.1.1"
                                   << "1"
                                   << "a b"
                                   << "" << 3;
        QTest::newRow("password last") << "1.1.1.1"
                                       << "1"
                                       << "u"
                                       << "" << 4;
        QTest::newRow("none") << "1.1.1.1"
                              << "1"
                              << "u"
                              << "p" << 0;
    }

    void checkInputStopsAtFirstFailure() {
        QFETCH(QString, address);
        QFETCH(QString, port);
        QFETCH(QString, user);
        QFETCH(QString, password);
        QFETCH(int, failing);
        CSetStockQuotesDialog dialog(2, nullptr, false);
        fill(&dialog, address, port, user, password);
        QCOMPARE(dialog.checkInput(), failing == 0);
        QCOMPARE(Zu::CMessageTip::tipCount(), failing == 0 ? 0 : 1);
        if (failing == 0)
            return;
        QWidget* targets[] = {nullptr, dialog.addressEdit(), dialog.portEdit(), dialog.userEdit(),
                              dialog.passwordEdit()};
        QCOMPARE(Zu::CMessageTip::lastTipTarget(), targets[failing]);
        // A refused submission sends nothing and keeps the dialog open.
        dialog.show();
        submit(&dialog);
        QCOMPARE(m_backend->requestCount(), 0);
        QVERIFY(dialog.isVisible());
    }

    void fieldCheckOfOtherIdsDoesNothing() {
        CSetStockQuotesDialog dialog(2, nullptr, false);
        QVERIFY(dialog.handleEvent(Zu::EventFieldLeft, 0, 0, QString(), nullptr));
        QVERIFY(dialog.handleEvent(Zu::EventFieldLeft, 5, 0, QString(), nullptr));
        QCOMPARE(Zu::CMessageTip::tipCount(), 0);
        // Other events go to the kit's dialog, which takes none of them.
        QVERIFY(!dialog.handleEvent(Zu::EventComboIndexChanged, 0, 0, QString(), nullptr));
        QVERIFY(!dialog.handleEvent(Zu::EventQuoteSourcesChanged, 0, 0, QString(), nullptr));
    }

    void leavingAFieldChecksIt() {
        CSetStockQuotesDialog dialog(2, nullptr, false);
        dialog.show();
        QVERIFY(QTest::qWaitForWindowExposed(&dialog));
        dialog.activateWindow();
        dialog.portEdit()->setFocus();
        QTRY_VERIFY(dialog.portEdit()->hasFocus());
        QTest::keyClicks(dialog.portEdit(), "8 0");
        dialog.userEdit()->setFocus();
        QTRY_COMPARE(Zu::CMessageTip::lastTipText(), QString("只能输入数字 "));
        QCOMPARE(Zu::CMessageTip::lastTipTarget(), dialog.portEdit());
    }

    // ---- records ----

    void recordsOfASingleType_data() {
        QTest::addColumn<int>("tradeType");
        QTest::addColumn<bool>("futureOnly");
        QTest::addColumn<bool>("isAdd");
        QTest::addColumn<int>("comboIndex");
        QTest::addColumn<int>("platformId");
        QTest::addColumn<int>("storedType");
        const int types[] = {1, 2, 4, 5, 6, 7, 8, 10, 11, 16, 1002};
        const int platforms[] = {20000, 10000, 31003, 70000, 10001, 10003,
                                 32000, 10002, 10004, 15000, 32000};
        const int stored[] = {2, 2, 4, 2, 6, 7, 8, 10, 11, 16, 1002};
        for (int i = 0; i < 11; ++i) {
            for (bool add : {true, false}) {
                QTest::addRow("%d %s", types[i], add ? "add" : "edit")
                    << types[i] << false << add << 0 << platforms[i] << stored[i];
            }
        }
        QTest::newRow("6 add ctp simulated") << 6 << false << true << 2 << 25012 << 6;
        QTest::newRow("2 futures only add") << 2 << true << true << 0 << 20000 << 2;
        QTest::newRow("all types edit") << -1 << false << false << 0 << 10000 << -1;
    }

    void recordsOfASingleType() {
        QFETCH(int, tradeType);
        QFETCH(bool, futureOnly);
        QFETCH(bool, isAdd);
        QFETCH(int, comboIndex);
        QFETCH(int, platformId);
        QFETCH(int, storedType);
        CSetStockQuotesDialog dialog(tradeType, nullptr, futureOnly);
        dialog.setIsAdd(isAdd);
        if (!isAdd)
            dialog.setBasicInfo(sourceRecord(77, 0, 0));
        dialog.platformCombo()->setCurrentIndex(comboIndex);
        fill(&dialog, "10.0.0.1", "9001", "user_1", "pw");
        dialog.show();
        submit(&dialog);

        const auto sent = operations();
        QCOMPARE(int(sent.size()), 1);
        QCOMPARE(sent[0].dataType, kDataQuoteSources);
        QCOMPARE(sent[0].operateType, isAdd ? 2 : 0);
        QVERIFY(sent[0].toCentre);
        QCOMPARE(int(sent[0].datas.size()), 1);
        auto record = quoteSource(sent[0].datas[0]);
        QVERIFY(record);
        QCOMPARE(record->m_nId, isAdd ? 0 : 77);
        QCOMPARE(record->m_nPlatformId, platformId);
        QCOMPARE(record->m_nTradeType, storedType);
        QCOMPARE(record->m_strAddress, std::string("10.0.0.1"));
        QCOMPARE(record->m_nPort, 9001);
        QCOMPARE(record->m_strUserName, std::string("user_1"));
        QCOMPARE(record->m_strPassword, std::string("pw"));
        // Fields the dialog does not set keep their defaults.
        QCOMPARE(record->m_nBrokerId, INT_MAX);
        QCOMPARE(record->m_nServerGroupId, 0);
        QVERIFY(record->m_strMarkets.empty());
    }

    void editingAFuturesSourceStoresType2() {
        CSetStockQuotesDialog dialog(1, nullptr, false);
        dialog.setIsAdd(false);
        dialog.setBasicInfo(sourceRecord(9, 20000, 2));
        QCOMPARE(dialog.platformCombo()->currentData().toInt(), 20000);
        std::vector<rkservice::IDataPtr> datas;
        dialog.getOperateDatas(datas);
        QCOMPARE(int(datas.size()), 1);
        QCOMPARE(quoteSource(datas[0])->m_nTradeType, 2);
        QCOMPARE(quoteSource(datas[0])->m_nPlatformId, 20000);
        QCOMPARE(quoteSource(datas[0])->m_nId, 9);
        // The pre-filled market list is not carried: this form has no market field.
        QVERIFY(quoteSource(datas[0])->m_strMarkets.empty());
    }

    // An edit sends back the revision of the row it was opened on.
    void editSendsTheRevisionItRead() {
        CSetStockQuotesDialog dialog(2, nullptr, false);
        dialog.setIsAdd(false);
        auto record = sourceRecord(9, 10000, 2);
        record->setRevision(12);
        dialog.setBasicInfo(record);
        std::vector<rkservice::IDataPtr> datas;
        dialog.getOperateDatas(datas);
        QCOMPARE(int(datas.size()), 1);
        QCOMPARE(datas[0]->getRevision(), 12LL);
        // An add sends none.
        dialog.setIsAdd(true);
        datas.clear();
        dialog.addressEdit()->setText("10.0.0.1");
        dialog.getOperateDatas(datas);
        QCOMPARE(int(datas.size()), 1);
        QCOMPARE(datas[0]->getRevision(), 0LL);
    }

    void portConversion_data() {
        QTest::addColumn<QString>("port");
        QTest::addColumn<int>("value");
        QTest::newRow("007") << "007" << 7;
        QTest::newRow("1") << "1" << 1;
        QTest::newRow("65535") << "65535" << 65535;
        QTest::newRow("leading zeros of 65535") << "0065535" << 65535;
    }

    void portConversion() {
        QFETCH(QString, port);
        QFETCH(int, value);
        CSetStockQuotesDialog dialog(2, nullptr, false);
        fill(&dialog, "1.1.1.1", port, "u", "p");
        dialog.show();
        submit(&dialog);
        const auto sent = operations();
        QCOMPARE(int(sent.size()), 1);
        QCOMPARE(quoteSource(sent[0].datas[0])->m_nPort, value);
    }

    void textsAreNotTrimmed() {
        CSetStockQuotesDialog dialog(2, nullptr, false);
        const QString user = QString(QChar(0x3000)) + "abc" + QChar(0x3000);
        fill(&dialog, "1.1.1.1", "1", user, " p w ");
        QVERIFY(dialog.checkInput());
        std::vector<rkservice::IDataPtr> datas;
        dialog.getOperateDatas(datas);
        QCOMPARE(int(datas.size()), 1);
        QCOMPARE(quoteSource(datas[0])->m_strUserName, user.toStdString());
        QCOMPARE(quoteSource(datas[0])->m_strPassword, std::string(" p w "));
    }

    void getOperateDatasAppends() {
        CSetStockQuotesDialog dialog(2, nullptr, false);
        fillValid(&dialog);
        std::vector<rkservice::IDataPtr> datas(1);
        dialog.getOperateDatas(datas);
        QCOMPARE(int(datas.size()), 2);
        QVERIFY(!datas[0]);
        QVERIFY(quoteSource(datas[1]));
    }

    // ---- the all-types fan-out ----

    void fanOut_data() {
        QTest::addColumn<QList<int>>("rights");
        QTest::addColumn<QList<int>>("platforms");
        QTest::addColumn<QList<int>>("types");
        QTest::newRow("none") << QList<int>{} << QList<int>{} << QList<int>{};
        QTest::newRow("unrelated rights")
            << QList<int>{12532, 10389} << QList<int>{} << QList<int>{};
        QTest::newRow("futures and gold")
            << QList<int>{10385, 12147} << QList<int>{20000, 31003} << QList<int>{2, 4};
        QTest::newRow("ib and outer stocks share a platform")
            << QList<int>{12369, 12361} << QList<int>{32000, 32000} << QList<int>{1002, 8};
        QTest::newRow("all eleven") << QList<int>{10385, 10937, 11231, 10709, 11029, 11222,
                                                  11019, 12147, 12361, 12369, 12353}
                                    << QList<int>{20000, 10000, 70000, 10001, 10003, 10004,
                                                  10002, 31003, 32000, 32000, 15000}
                                    << QList<int>{2, 2, 2, 6, 7, 11, 10, 4, 1002, 8, 16};
    }

    void fanOut() {
        QFETCH(QList<int>, rights);
        QFETCH(QList<int>, platforms);
        QFETCH(QList<int>, types);
        TestUsers::setCurrent(std::set<int>(rights.begin(), rights.end()), false);
        CSetStockQuotesDialog dialog(-1, nullptr, false);
        dialog.setIsAdd(true);
        fill(&dialog, "2001:db8::7", "007", "张三", "pw");
        dialog.show();
        dialog.setResult(9);
        submit(&dialog);

        const auto sent = operations();
        if (platforms.isEmpty()) {
            // Nothing to send: no message, the dialog stays open.
            QCOMPARE(int(sent.size()), 0);
            QVERIFY(dialog.isVisible());
            QCOMPARE(dialog.result(), 9);
            QVERIFY(dialog.loadingMask()->isHidden());
            return;
        }
        QCOMPARE(int(sent.size()), 1);
        QCOMPARE(sent[0].operateType, 2);
        QCOMPARE(sent[0].dataType, kDataQuoteSources);
        QCOMPARE(int(sent[0].datas.size()), platforms.size());
        for (int i = 0; i < platforms.size(); ++i) {
            auto record = quoteSource(sent[0].datas[i]);
            QVERIFY(record);
            QCOMPARE(record->m_nPlatformId, platforms[i]);
            QCOMPARE(record->m_nTradeType, types[i]);
            QCOMPARE(record->m_nId, 0);
            QCOMPARE(record->m_strAddress, std::string("2001:db8::7"));
            QCOMPARE(record->m_nPort, 7);
            QCOMPARE(record->m_strUserName, std::string("张三"));
            QCOMPARE(record->m_strPassword, std::string("pw"));
            QVERIFY(record->m_strMarkets.empty());
        }
    }

    void fanOutIgnoresTheCombo() {
        TestUsers::setCurrent({12147}, false);
        CSetStockQuotesDialog dialog(-1, nullptr, false);
        fillValid(&dialog);
        std::vector<rkservice::IDataPtr> datas;
        dialog.getOperateDatas(datas);
        QCOMPARE(int(datas.size()), 1);
        QCOMPARE(quoteSource(datas[0])->m_nPlatformId, 31003);
        // Without a current item nothing is built at all.
        dialog.platformCombo()->setCurrentIndex(-1);
        datas.clear();
        dialog.getOperateDatas(datas);
        QVERIFY(datas.empty());
    }

    void fanOutRecordsAreSeparateObjects() {
        CSetStockQuotesDialog dialog(-1, nullptr, false);
        fillValid(&dialog);
        std::vector<rkservice::IDataPtr> datas;
        dialog.getOperateDatas(datas);
        QCOMPARE(int(datas.size()), 11);
        QSet<const void*> objects;
        for (const auto& data : datas) {
            QVERIFY(quoteSource(data));
            objects.insert(data.get());
            QCOMPARE(data.use_count(), 1L);
        }
        QCOMPARE(objects.size(), 11);
        quoteSource(datas[0])->m_strAddress = "changed";
        QCOMPARE(quoteSource(datas[1])->m_strAddress, std::string("192.168.1.10"));
    }

    // ---- routing ----

    void routingSingleServer() {
        TestUsers::setCurrent(TestUsers::allRights(), true);
        m_backend->setSubsystems({{"sys1", "上海"}});
        CSetStockQuotesDialog dialog(2, nullptr, false);
        fillValid(&dialog);
        dialog.show();
        submit(&dialog);
        const auto sent = operations();
        QCOMPARE(int(sent.size()), 1);
        QVERIFY(sent[0].toCentre);
    }

    void routingMultiServerNotRouted() {
        m_backend->setSubsystems({{"sys1", "上海"}, {"sys2", "深圳"}});
        CSetStockQuotesDialog dialog(2, nullptr, false);
        dialog.setBasicInfo(QString("sys2"));
        fillValid(&dialog);
        dialog.show();
        submit(&dialog);
        const auto sent = operations();
        QCOMPARE(int(sent.size()), 1);
        QVERIFY(sent[0].toCentre);
    }

    void routingMultiServerWithName() {
        TestUsers::setCurrent(TestUsers::allRights(), true);
        m_backend->setSubsystems({{"sys1", "上海"}, {"sys2", "深圳"}});
        CSetStockQuotesDialog dialog(2, nullptr, false);
        dialog.setBasicInfo(QString("sys2"));
        fillValid(&dialog);
        dialog.show();
        submit(&dialog);
        const auto sent = operations();
        QCOMPARE(int(sent.size()), 1);
        QVERIFY(!sent[0].toCentre);
        QCOMPARE(sent[0].subsystem, std::string("sys2"));
        QTRY_COMPARE(m_messages.size(), 1);
        QCOMPARE(m_messages[0].type, 0);
    }

    void routingMultiServerWithoutName() {
        TestUsers::setCurrent(TestUsers::allRights(), true);
        m_backend->setSubsystems({{"sys1", "上海"}, {"sys2", "深圳"}});
        EventSink sink;
        auto* dialog = new CSetStockQuotesDialog(2, &sink, false);
        fillValid(dialog);
        dialog->show();
        dialog->setResult(9);
        submit(dialog);
        QCOMPARE(m_backend->requestCount(), 0);
        // Nothing is sent: the dialog closes at once (mask up as before), and no answer comes.
        QCOMPARE(dialog->loadingMask()->attachedTo(), static_cast<QWidget*>(dialog));
        QVERIFY(!dialog->loadingMask()->isHidden());
        QCOMPARE(dialog->loadingMask()->text(), QString("正在提交数据"));
        QVERIFY(!dialog->isVisible());
        QCOMPARE(dialog->result(), 0);
        m_backend->settle();
        QVERIFY(m_messages.isEmpty());
        QCOMPARE(sink.count(Zu::EventQuoteSourcesChanged), 0);
    }

    // ---- completion ----

    void openUnderItsMaskUntilTheAnswer_data() {
        QTest::addColumn<bool>("success");
        QTest::newRow("accepted") << true;
        QTest::newRow("refused") << false;
    }

    void openUnderItsMaskUntilTheAnswer() {
        QFETCH(bool, success);
        m_backend->setHolding(true);
        m_backend->setOperateAnswer(kDataQuoteSources,
                                    utils::RKError(success, success ? "" : "端口无效"));
        EventSink sink;
        auto* dialog = new CSetStockQuotesDialog(2, &sink, false);
        fillValid(dialog);
        dialog->show();
        QTest::mouseClick(kitButton(dialog, 0), Qt::LeftButton);
        QVERIFY(dialog->isVisible());
        QCOMPARE(dialog->loadingMask()->text(), QString("正在提交数据"));
        QCOMPARE(dialog->loadingMask()->attachedTo(), static_cast<QWidget*>(dialog));
        QVERIFY(!dialog->loadingMask()->isHidden());
        QTRY_COMPARE(m_backend->heldCount(), 1);
        QVERIFY(m_messages.isEmpty());
        m_backend->releaseAll();
        QTRY_COMPARE(m_messages.size(), 1);
        QVERIFY(dialog->loadingMask()->isHidden());
        QCOMPARE(sink.count(Zu::EventQuoteSourcesChanged), 1);
        // Closed on success; a refusal leaves everything typed for another try.
        QCOMPARE(dialog->isVisible(), !success);
        QCOMPARE(dialog->addressEdit()->text(), QString("192.168.1.10"));
        QCOMPARE(dialog->passwordEdit()->getOriginalText(), QString("pw123"));
    }

    void oneSubmissionAtATime() {
        EventSink sink;
        CSetStockQuotesDialog* dialog = nullptr;
        submitHeld(&sink, &dialog);
        QVERIFY(dialog);
        // Pressed again while the first is out (the button keeps the keyboard focus).
        QVERIFY(dialog->handleEvent(Zu::EventButtonClicked, CSetStockQuotesDialog::SubmitButton, 0,
                                    QString(), nullptr));
        // A request counts as pending from the moment it is posted.
        QCOMPARE(COrinClientCenter::instance()->pendingCount(), 1);
        QCOMPARE(int(operations().size()), 1);
        m_backend->releaseAll();
        QTRY_COMPARE(m_messages.size(), 1);
        // After the answer a new submission goes out again.
        m_backend->setHolding(false);
        dialog->show();
        QVERIFY(dialog->handleEvent(Zu::EventButtonClicked, CSetStockQuotesDialog::SubmitButton, 0,
                                    QString(), nullptr));
        QTRY_COMPARE(int(operations().size()), 2);
    }

    void closedAndOpenedAgainWhileItsAnswerIsOut() {
        EventSink sink;
        CSetStockQuotesDialog* dialog = nullptr;
        submitHeld(&sink, &dialog);
        QVERIFY(dialog);
        // The operator leaves it with Esc, opens it again and submits anew.
        QTest::keyClick(dialog, Qt::Key_Escape);
        QVERIFY(!dialog->isVisible());
        dialog->show();
        QVERIFY(dialog->handleEvent(Zu::EventButtonClicked, CSetStockQuotesDialog::SubmitButton, 0,
                                    QString(), nullptr));
        QTRY_COMPARE(m_backend->heldCount(), 2);
    }

    void submitInsideExecReturnsZeroAfterTheAnswer() {
        m_backend->setHolding(true);
        CSetStockQuotesDialog dialog(2, nullptr, false);
        fillValid(&dialog);
        QTimer::singleShot(0, this, [&dialog, this] {
            QCOMPARE(QApplication::activeModalWidget(), static_cast<QWidget*>(&dialog));
            QTest::mouseClick(kitButton(&dialog, 0), Qt::LeftButton);
        });
        QTimer::singleShot(0, this, [this] {
            QTRY_COMPARE(m_backend->heldCount(), 1);
            QVERIFY(m_messages.isEmpty());
            m_backend->releaseAll();
        });
        QCOMPARE(dialog.exec(), 0);
        // The run ends with the answer, not with the send.
        QCOMPARE(m_messages.size(), 1);
        QCOMPARE(m_messages[0].type, 0);
    }

    void completion_data() {
        QTest::addColumn<bool>("isAdd");
        QTest::addColumn<bool>("success");
        QTest::addColumn<QString>("serverText");
        QTest::addColumn<QString>("title");
        QTest::addColumn<QString>("text");
        QTest::newRow("add ok") << true << true << ""
                                << "添加行情源"
                                << "操作成功";
        QTest::newRow("edit ok") << false << true << ""
                                 << "修改行情源"
                                 << "操作成功";
        QTest::newRow("add failed with message") << true << false << "端口无效"
                                                 << "添加行情源"
                                                 << "端口无效";
        QTest::newRow("add failed without message") << true << false << ""
                                                    << "添加行情源"
                                                    << "操作失败";
        QTest::newRow("edit failed with message") << false << false << "记录不存在"
                                                  << "修改行情源"
                                                  << "记录不存在";
        QTest::newRow("edit failed without message") << false << false << ""
                                                     << "修改行情源"
                                                     << "操作失败";
    }

    void completion() {
        QFETCH(bool, isAdd);
        QFETCH(bool, success);
        QFETCH(QString, serverText);
        QFETCH(QString, title);
        QFETCH(QString, text);
        m_backend->setOperateAnswer(kDataQuoteSources,
                                    utils::RKError(success, serverText.toStdString()));
        EventSink sink;
        auto* dialog = new CSetStockQuotesDialog(2, &sink, false);
        CloseCounter closes;
        dialog->installEventFilter(&closes);
        dialog->setIsAdd(isAdd);
        if (!isAdd)
            dialog->setBasicInfo(sourceRecord(3, 10000, 2));
        fill(dialog, "1.2.3.4", "80", "user", "pass");
        dialog->show();
        QTest::mouseClick(kitButton(dialog, 0), Qt::LeftButton);
        const int closesAfterSend = closes.closes;
        QTRY_COMPARE(m_messages.size(), 1);
        const ServerMessage message = m_messages[0];
        QCOMPARE(message.type, success ? 0 : 1);
        QCOMPARE(message.success, success);
        QCOMPARE(message.parent, static_cast<QWidget*>(dialog));
        QCOMPARE(message.title, title);
        QCOMPARE(message.text, text);
        // The panel reloads after every completion.
        QCOMPARE(sink.count(Zu::EventQuoteSourcesChanged), 1);
        QVERIFY(dialog->loadingMask()->isHidden());
        QCOMPARE(closes.closes, closesAfterSend + (success ? 1 : 0));
        QCOMPARE(dialog->isVisible(), !success);
        // The inputs survive for another try.
        QCOMPARE(dialog->addressEdit()->text(), QString("1.2.3.4"));
        QCOMPARE(dialog->portEdit()->text(), QString("80"));
        QCOMPARE(dialog->userEdit()->text(), QString("user"));
        QCOMPARE(dialog->passwordEdit()->getOriginalText(), QString("pass"));
        QCOMPARE(dialog->isAdd(), isAdd);
    }

    void completionThroughTheSlot() {
        EventSink sink;
        auto* dialog = new CSetStockQuotesDialog(5, &sink, false);
        dialog->slotOnOperationFinished(true, QString());
        QCOMPARE(m_messages.size(), 1);
        QCOMPARE(m_messages[0].text, QString("操作失败"));
        QCOMPARE(sink.count(Zu::EventQuoteSourcesChanged), 1);
        dialog->slotOnOperationFinished(false, QString("ignored"));
        QCOMPARE(m_messages.size(), 2);
        QCOMPARE(m_messages[1].text, QString("操作成功"));
        QCOMPARE(sink.count(Zu::EventQuoteSourcesChanged), 2);
    }

    void closeSendsNothing() {
        EventSink sink;
        auto* dialog = new CSetStockQuotesDialog(2, &sink, false);
        fillValid(dialog);
        QTimer::singleShot(
            0, this, [dialog, this] { QTest::mouseClick(kitButton(dialog, 1), Qt::LeftButton); });
        QCOMPARE(dialog->exec(), 1);
        QVERIFY(!dialog->isVisible());
        COrinClientCenter::instance()->waitForIdle();
        QCOMPARE(m_backend->requestCount(), 0);
        QVERIFY(m_messages.isEmpty());
        QCOMPARE(sink.count(Zu::EventQuoteSourcesChanged), 0);
        QCOMPARE(sink.count(5), 0);
    }

    // ---- lifetime ----

    void destroyedWhileSubmissionHeld() {
        m_backend->setHolding(true);
        auto* panel = new EventSink;
        auto* dialog = new CSetStockQuotesDialog(-1, panel, false);
        fillValid(dialog);
        dialog->show();
        QTest::mouseClick(kitButton(dialog, 0), Qt::LeftButton);
        QTRY_COMPARE(m_backend->heldCount(), 1);
        delete panel;
        m_backend->releaseAll();
        COrinClientCenter::instance()->waitForIdle();
        QCoreApplication::processEvents();
        QVERIFY(m_messages.isEmpty());
    }

    void closedWhileSubmissionHeld() {
        m_backend->setHolding(true);
        EventSink panel;
        QPointer<CSetStockQuotesDialog> dialog = new CSetStockQuotesDialog(2, &panel, false);
        fillValid(dialog);
        dialog->show();
        QTest::mouseClick(kitButton(dialog, 0), Qt::LeftButton);
        QTRY_COMPARE(m_backend->heldCount(), 1);
        QVERIFY(dialog);
        // Closed for good: the dialog goes away with its submission still out.
        dialog->setAttribute(Qt::WA_DeleteOnClose);
        dialog->close();
        QTRY_VERIFY(dialog.isNull());
        m_backend->releaseAll();
        COrinClientCenter::instance()->waitForIdle();
        QCoreApplication::processEvents();
        QVERIFY(m_messages.isEmpty());
        QCOMPARE(panel.count(Zu::EventQuoteSourcesChanged), 0);
    }

    void answerQueuedWhenDestroyed() {
        // The answer has run and its completion is queued when the dialog goes away.
        EventSink* panel = new EventSink;
        auto* dialog = new CSetStockQuotesDialog(2, panel, false);
        fillValid(dialog);
        dialog->show();
        QTest::mouseClick(kitButton(dialog, 0), Qt::LeftButton);
        COrinClientCenter::instance()->waitForIdle();
        delete panel;
        QCoreApplication::processEvents();
        QVERIFY(m_messages.isEmpty());
    }
};

QTEST_MAIN(TestStockDialog)
#include "tst_stockdialog.moc"
