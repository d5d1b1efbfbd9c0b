// The console's read-only audit dock: the trail newest first in local time, its filters, the
// refusal of a caller without the administrator right, the CSV export, and a dock destroyed
// while its read is still on a worker.

#include <QAction>
#include <QCheckBox>
#include <QComboBox>
#include <QDateTimeEdit>
#include <QFile>
#include <QHeaderView>
#include <QJsonObject>
#include <QLabel>
#include <QLineEdit>
#include <QMainWindow>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QSettings>
#include <QTableView>
#include <QTableWidget>
#include <QTemporaryDir>
#include <QThreadPool>
#include <QtTest>
#include <ctime>
#include <memory>

#include "CAuditDock.h"
#include "CAuditRows.h"
#include "CCaller.h"
#include "CConsoleWindow.h"
#include "EmbeddedService.h"
#include "Hlx/COrinClientCenter.h"
#include "RecordBuilders.h"
#include "ScriptedAuditTrail.h"
#include "ScriptedBackend.h"
#include "TestIds.h"
#include "Zu/COddEvenRowTable.h"
#include "dialogs/CSourceHistoryDialog.h"
#include "model/CAuditVocabulary.h"
#include "rkservice/DataTypeIds.h"

using namespace TestIds;

namespace {

using Entries = std::vector<Hlx::CAuditEntry>;

// A zone far from UTC without daylight saving, so that a time shown in UTC cannot pass for local.
constexpr int kZoneOffsetSeconds = 8 * 3600;
const QString kShownTime = QStringLiteral("yyyy-MM-dd HH:mm:ss.zzz");

Hlx::CAuditEntry scriptedEntry(long long timeMs, const std::string& account, bool local,
                               const std::string& error) {
    Hlx::CAuditEntry entry;
    entry.timeMs = timeMs;
    entry.account = account;
    entry.local = local;
    entry.osUser = local ? "ops" : "";
    entry.clientAddress = local ? "" : "192.0.2.7";
    entry.subsystem = "sys1";
    entry.action = "modify";
    entry.dataType = "quote_source";
    entry.ids = "7,8";
    entry.error = error;
    return entry;
}

}  // namespace

class TestConsoleAudit : public QObject {
    Q_OBJECT

    std::unique_ptr<EmbeddedService> m_embedded;
    QTemporaryDir m_dir;

    utils::RKError change(int operateType, const rkservice::COrinQuoterSourceInfoPtr& source) {
        rkservice::COperateDataReq request;
        request.dataType = rkservice::kDataQuoteSources;
        request.operateType = operateType;
        request.datas.push_back(source);
        return m_embedded->admin()->operate(Hlx::CRequestTarget::subsystem("sys1"), request,
                                            nullptr);
    }

    utils::RKError addStock(int port) {
        return change(rkservice::kOperateAdd,
                      RecordBuilders::source(0, kKxStocks, kStocks, "10.0.0.1", port));
    }

    // The trail as its owner reads it, newest first.
    Entries stored(Hlx::CAuditFilter filter = Hlx::CAuditFilter()) {
        Entries entries;
        filter.limit = 100000;
        const utils::RKError error = m_embedded->administrator().auditEntries(filter, &entries);
        if (!error.isSuccess())
            qWarning("%s", error.errorMsg().c_str());
        return entries;
    }

    // Reads with the filters as they stand and waits for the answer.
    static bool reload(CAuditDock& dock) {
        dock.refresh();
        return QTest::qWaitFor([&] { return !dock.isLoading(); }, 10000);
    }

    static QStringList column(const CAuditDock& dock, int columnId) {
        QStringList texts;
        for (int row = 0; row < dock.table()->rowCount(); ++row)
            texts << dock.table()->itemText(row, columnId);
        return texts;
    }

    static QString expectedLocal(long long ms) {
        return QDateTime::fromMSecsSinceEpoch(ms, Qt::UTC)
            .addSecs(kZoneOffsetSeconds)
            .toString(kShownTime);
    }

    // Adds, adds and deletes the first as admin: three entries, the delete the newest.
    void makeThreeChanges() {
        QVERIFY(addStock(9001).isSuccess());
        QVERIFY(addStock(9002).isSuccess());
        const Entries entries = stored();
        QVERIFY(!entries.empty());
        const int firstId = std::stoi(entries.back().details.at(0).recordId);
        auto first = RecordBuilders::source(firstId, kKxStocks, kStocks, "10.0.0.1", 9001);
        first->setRevision(1);  // as added
        QVERIFY(change(rkservice::kOperateDelete, first).isSuccess());
    }

private slots:
    void initTestCase() {
        qputenv("TZ", "CST-8");
        ::tzset();
        const QDateTime probe = QDateTime::fromMSecsSinceEpoch(0);
        QCOMPARE(probe.offsetFromUtc(), kZoneOffsetSeconds);
    }

    void init() {
        m_embedded.reset(new EmbeddedService);
        QVERIFY2(m_embedded->isOpen(), qPrintable(m_embedded->error()));
        QVERIFY(m_embedded->loginAs("admin"));
    }

    void cleanup() {
        // Reads still on a worker hold the service: let them end before it closes.
        QThreadPool::globalInstance()->waitForDone();
        m_embedded.reset();
    }

    void entriesAppearNewestFirstInLocalTime() {
        makeThreeChanges();
        const Entries entries = stored();
        QCOMPARE(int(entries.size()), 3);
        CAuditDock dock(m_embedded->admin());
        QVERIFY(reload(dock));
        QCOMPARE(dock.table()->rowCount(), 3);
        QStringList times;
        for (const Hlx::CAuditEntry& entry : entries)
            times << expectedLocal(entry.timeMs);
        QCOMPARE(column(dock, CAuditRows::Time), times);
        QCOMPARE(column(dock, CAuditRows::Action), QStringList({"删除", "添加", "添加"}));
        QVERIFY(entries.front().id > entries.back().id);
        const QString who = QStringLiteral("admin (本地 %1)")
                                .arg(QString::fromStdString(CCaller::operatingSystemUser()));
        QCOMPARE(column(dock, CAuditRows::Account), QStringList({who, who, who}));
        QCOMPARE(dock.table()->itemText(0, CAuditRows::DataType), QString("行情源"));
        // The sub-system by its display name.
        QCOMPARE(dock.table()->itemText(0, CAuditRows::Subsystem), QString("上海主站"));
        QCOMPARE(dock.table()->itemText(0, CAuditRows::Ids),
                 QString::fromStdString(entries.front().ids));
    }

    // quotesctl on the data file and the demo act as the owner, with no account: the row names
    // the operating-system user, never a blank or a stray parenthesis.
    void aLocalChangeWithoutAnAccountNamesTheSystemUser() {
        auto admin = boost::make_shared<ScriptedAuditTrail>();
        admin->setEntries({scriptedEntry(1718000000000LL, "", true, "")});
        CAuditDock dock(admin);
        QVERIFY(reload(dock));
        QCOMPARE(dock.table()->itemText(0, CAuditRows::Account), QStringLiteral("本地 ops"));
    }

    void accountFilterNarrowsTheRows() {
        QVERIFY(addStock(9001).isSuccess());
        QVERIFY(m_embedded->loginAs("futures_op"));
        // Refused (no right on stock sources) and recorded under futures_op.
        QVERIFY(!addStock(9002).isSuccess());
        QVERIFY(m_embedded->loginAs("admin"));
        Hlx::CAuditFilter theirs;
        theirs.account = "futures_op";
        const Entries expected = stored(theirs);
        QCOMPARE(int(expected.size()), 1);
        QVERIFY(stored().size() > expected.size());

        CAuditDock dock(m_embedded->admin());
        dock.findChild<QLineEdit*>("auditAccount")->setText("futures_op");
        QVERIFY(reload(dock));
        QCOMPARE(dock.table()->rowCount(), 1);
        QVERIFY(dock.table()->itemText(0, CAuditRows::Account).startsWith("futures_op "));
        QVERIFY(!dock.table()->itemText(0, CAuditRows::Error).isEmpty());
    }

    void pagesThroughEveryEntry() {
        makeThreeChanges();
        QVERIFY(addStock(9003).isSuccess());
        QVERIFY(addStock(9004).isSuccess());
        const Entries entries = stored();
        QCOMPARE(int(entries.size()), 5);
        CAuditDock dock(m_embedded->admin());
        dock.setPageSize(2);
        QVERIFY(reload(dock));
        QCOMPARE(dock.table()->rowCount(), 2);
        QVERIFY(dock.hasOlder());
        QCOMPARE(dock.findChild<QLabel*>("auditMore")->text(), QStringLiteral("还有更早的记录"));
        auto* older = dock.findChild<QPushButton*>("auditOlder");
        QVERIFY(older->isEnabled());
        older->click();
        QTRY_COMPARE(dock.table()->rowCount(), 4);
        older->click();
        QTRY_COMPARE(dock.table()->rowCount(), 5);
        QVERIFY(!dock.hasOlder());
        QVERIFY(!older->isEnabled());
        QVERIFY(dock.findChild<QLabel*>("auditMore")->text().isEmpty());
        std::vector<long long> shown;
        for (const Hlx::CAuditEntry& entry : dock.entries())
            shown.push_back(entry.id);
        std::vector<long long> expected;
        for (const Hlx::CAuditEntry& entry : entries)
            expected.push_back(entry.id);
        QCOMPARE(shown, expected);
    }

    // Repeated refusals of one action are one row counting them, in the table and the CSV.
    void repeatedRefusalsShowTheirCount() {
        QVERIFY(m_embedded->loginAs("futures_op"));
        for (int port = 9001; port <= 9003; ++port)
            QVERIFY(!addStock(port).isSuccess());
        QVERIFY(m_embedded->loginAs("admin"));
        CAuditDock dock(m_embedded->admin());
        QVERIFY(reload(dock));
        QCOMPARE(dock.table()->rowCount(), 1);
        QCOMPARE(dock.table()->itemText(0, CAuditRows::Count), QStringLiteral("3"));
        const QString csv = QString::fromUtf8(CAuditRows::csv(dock.entries()));
        QVERIFY(csv.contains(QStringLiteral("次数")));
    }

    void actionFilterNarrowsTheRows() {
        makeThreeChanges();
        CAuditDock dock(m_embedded->admin());
        auto* actions = dock.findChild<QComboBox*>("auditAction");
        QCOMPARE(actions->itemText(0), QString("全部"));
        for (const char* action : CAuditVocabulary::kActions)
            QVERIFY2(actions->findData(QString(action)) > 0, action);
        actions->setCurrentIndex(actions->findData(QString("delete")));
        QVERIFY(reload(dock));
        QCOMPARE(column(dock, CAuditRows::Action), QStringList({"删除"}));
        actions->setCurrentIndex(actions->findData(QString("add")));
        QVERIFY(reload(dock));
        QCOMPARE(column(dock, CAuditRows::Action), QStringList({"添加", "添加"}));
        actions->setCurrentIndex(0);
        QVERIFY(reload(dock));
        QCOMPARE(dock.table()->rowCount(), 3);
    }

    void timeFiltersNarrowTheRows() {
        QVERIFY(addStock(9001).isSuccess());
        const long long first = stored().front().timeMs;
        // The edits hold whole seconds: the second change lands in a later one.
        QVERIFY(QTest::qWaitFor(
            [&] { return QDateTime::currentMSecsSinceEpoch() / 1000 > first / 1000; }, 3000));
        QVERIFY(addStock(9002).isSuccess());
        const long long second = stored().front().timeMs;
        QVERIFY(second / 1000 > first / 1000);

        CAuditDock dock(m_embedded->admin());
        auto* since = dock.findChild<QDateTimeEdit*>("auditSince");
        auto* until = dock.findChild<QDateTimeEdit*>("auditUntil");
        since->setDateTime(QDateTime::fromMSecsSinceEpoch(second));
        dock.findChild<QCheckBox*>("auditSinceEnabled")->setChecked(true);
        QVERIFY(since->isEnabled());
        QVERIFY(reload(dock));
        QCOMPARE(column(dock, CAuditRows::Time), QStringList({expectedLocal(second)}));

        dock.findChild<QCheckBox*>("auditSinceEnabled")->setChecked(false);
        until->setDateTime(QDateTime::fromMSecsSinceEpoch(first));
        dock.findChild<QCheckBox*>("auditUntilEnabled")->setChecked(true);
        QVERIFY(reload(dock));
        // The second shown is included.
        QCOMPARE(column(dock, CAuditRows::Time), QStringList({expectedLocal(first)}));

        dock.findChild<QCheckBox*>("auditUntilEnabled")->setChecked(false);
        QVERIFY(reload(dock));
        QCOMPARE(dock.table()->rowCount(), 2);
    }

    void callerWithoutTheRightSeesTheRefusal() {
        QVERIFY(addStock(9001).isSuccess());
        CAuditDock dock(m_embedded->admin());
        dock.show();
        QTRY_COMPARE(dock.table()->rowCount(), 1);
        QVERIFY(dock.message().isEmpty());

        QVERIFY(m_embedded->loginAs("viewer"));
        Entries ignored;
        const utils::RKError refusal =
            m_embedded->admin()->auditEntries(Hlx::CAuditFilter(), &ignored);
        QVERIFY(!refusal.isSuccess());
        const QString expected = QString::fromStdString(refusal.errorMsg());
        QVERIFY(!expected.isEmpty());
        // A shown dock reads again for the new user.
        QTRY_COMPARE(dock.message(), expected);
        QCOMPARE(dock.table()->rowCount(), 0);
        QVERIFY(dock.findChild<QLabel*>("auditMessage")->isVisible());

        QVERIFY(m_embedded->loginAs("admin"));
        // The change, and viewer's refused reads of the trail (one entry counting them).
        QTRY_COMPARE(dock.table()->rowCount(), 2);
        QVERIFY(dock.message().isEmpty());
        QCOMPARE(dock.table()->itemText(0, CAuditRows::Action), QStringLiteral("读取"));
        QVERIFY(!dock.table()->itemText(0, CAuditRows::Error).isEmpty());
    }

    void csvExportIsExact() {
        auto admin = boost::make_shared<ScriptedAuditTrail>();
        admin->setEntries({scriptedEntry(1718000000123LL, "张三,\"老\"\n王", false, ""),
                           scriptedEntry(1718000001000LL, "admin", true, "拒绝, 没有权限")});
        CAuditDock dock(admin);
        QVERIFY(reload(dock));
        QCOMPARE(dock.table()->rowCount(), 2);
        const QString path = m_dir.filePath("audit.csv");
        QVERIFY(dock.exportCsv(path));
        QFile file(path);
        QVERIFY(file.open(QIODevice::ReadOnly));
        const QByteArray expected =
            QByteArray("\xEF\xBB\xBF") +
            QStringLiteral(
                "时间,账户,客户端地址,分系统,操作,数据类型,编号,次数,错误信息\r\n"
                "2024-06-10T06:13:20.123Z,\"张三,\"\"老\"\"\n王\",192.0.2.7,上海主站,修改,"
                "行情源,\"7,8\",1,\r\n"
                "2024-06-10T06:13:21.000Z,admin (本地 ops),,上海主站,修改,行情源,\"7,8\",1,"
                "\"拒绝, 没有权限\"\r\n")
                .toUtf8();
        QCOMPARE(file.readAll(), expected);
    }

    void actionsDataTypesAndSubsystemsReadInChinese() {
        auto subsystems = boost::make_shared<ScriptedBackend>();
        subsystems->setSubsystems({{"sys1", "上海分系统"}});
        Hlx::COrinClientCenter::instance()->setBackend(subsystems);
        auto admin = boost::make_shared<ScriptedAuditTrail>();
        Hlx::CAuditEntry entry = scriptedEntry(1718000000123LL, "admin", false, "");
        admin->setEntries({entry});
        CAuditDock dock(admin);
        QVERIFY(reload(dock));
        QCOMPARE(dock.table()->itemText(0, CAuditRows::Action), QStringLiteral("修改"));
        QCOMPARE(dock.table()->itemText(0, CAuditRows::DataType), QStringLiteral("行情源"));
        QCOMPARE(dock.table()->itemText(0, CAuditRows::Subsystem), QStringLiteral("上海分系统"));
        const QString csv =
            QString::fromUtf8(CAuditRows::csv(dock.entries(), {{"sys1", "上海分系统"}}));
        QVERIFY(csv.contains(QStringLiteral(",上海分系统,修改,行情源,")));
        QVERIFY(dock.exportCsv(m_dir.filePath("chinese.csv")));
        QFile file(m_dir.filePath("chinese.csv"));
        QVERIFY(file.open(QIODevice::ReadOnly));
        QVERIFY(
            QString::fromUtf8(file.readAll()).contains(QStringLiteral(",上海分系统,修改,行情源,")));
        // The filter offers every action in Chinese and sends the stored name.
        auto* actions = dock.findChild<QComboBox*>("auditAction");
        const int modify = actions->findData(QString("modify"));
        QCOMPARE(actions->itemText(modify), QStringLiteral("修改"));
        for (int i = 1; i < actions->count(); ++i) {
            const QString shown = actions->itemText(i);
            QVERIFY2(shown != actions->itemData(i).toString(), qPrintable(shown));
            QVERIFY2(shown.at(0).unicode() >= 0x4e00, qPrintable(shown));
        }
        actions->setCurrentIndex(modify);
        QVERIFY(reload(dock));
        QCOMPARE(admin->lastFilter().action, std::string("modify"));
        Hlx::COrinClientCenter::instance()->setBackend({});
    }

    void selectedEntryShowsItsFieldsBeforeAndAfter() {
        auto admin = boost::make_shared<ScriptedAuditTrail>();
        Hlx::CAuditEntry entry = scriptedEntry(1718000000123LL, "admin", false, "");
        Hlx::CAuditEntry::Detail detail;
        detail.recordId = "7";
        detail.before = QJsonObject{{"address", "10.0.0.1"},
                                    {"port", 8000},
                                    {"password", "******"},
                                    {"broker_id", 2147483647}};
        detail.after = QJsonObject{{"address", "10.0.0.1"},
                                   {"port", 9000},
                                   {"password", "******"},
                                   {"password_changed", true},
                                   {"broker_id", 2147483647}};
        entry.details.push_back(detail);
        admin->setEntries({entry, scriptedEntry(1718000000000LL, "admin", false, "")});
        CAuditDock dock(admin);
        QVERIFY(reload(dock));
        QVERIFY(dock.detailText().isEmpty());
        dock.table()->selectRow(0);
        const QString shown = dock.detailText();
        QVERIFY2(shown.contains(QStringLiteral("记录 7")), qPrintable(shown));
        // Fields by the names the panels give them.
        QVERIFY2(shown.contains(QStringLiteral("* 端口: 8000 → 9000")), qPrintable(shown));
        QVERIFY2(shown.contains(QStringLiteral("  地址: 10.0.0.1 → 10.0.0.1")), qPrintable(shown));
        // A source reads as its history does: the password as whether it changed, no broker as
        // 无, in the order a source shows its fields.
        QVERIFY2(shown.contains(QStringLiteral("* 密码: ****** → ******")), qPrintable(shown));
        QVERIFY2(!shown.contains(QStringLiteral("password_changed")), qPrintable(shown));
        QVERIFY2(shown.contains(QStringLiteral("  期货公司: 无 → 无")), qPrintable(shown));
        QVERIFY2(shown.indexOf(QStringLiteral("期货公司")) < shown.indexOf(QStringLiteral("地址")),
                 qPrintable(shown));
        dock.table()->selectRow(1);
        QCOMPARE(dock.detailText(), QStringLiteral("此记录没有变更前后的内容"));
    }

    void dockOpensAtLeastEightRowsHigh() {
        auto admin = boost::make_shared<ScriptedAuditTrail>();
        QMainWindow window;
        window.setCentralWidget(new QWidget);
        window.resize(1000, 700);
        auto* dock = new CAuditDock(admin, &window);
        window.addDockWidget(Qt::BottomDockWidgetArea, dock);
        window.show();
        QVERIFY(QTest::qWaitForWindowExposed(&window));
        QTableView* view = dock->table()->view();
        const int rowHeight = view->verticalHeader()->defaultSectionSize();
        QVERIFY2(view->viewport()->height() >= 8 * rowHeight,
                 qPrintable(QString::number(view->viewport()->height())));
        QVERIFY(dock->findChild<QPlainTextEdit*>("auditDetail")->isVisible());
    }

    void exportFailureIsShown() {
        auto admin = boost::make_shared<ScriptedAuditTrail>();
        CAuditDock dock(admin);
        QVERIFY(!dock.exportCsv(m_dir.filePath("missing/dir/audit.csv")));
        QVERIFY(dock.message().contains("missing/dir/audit.csv"));
    }

    void dockDestroyedWithAReadInFlightIsSafe() {
        auto admin = boost::make_shared<ScriptedAuditTrail>();
        admin->setEntries({scriptedEntry(1718000000123LL, "admin", false, "")});
        admin->holdNextRead();
        auto* dock = new CAuditDock(admin);
        // The read runs on a worker: refresh returns while the server holds the answer.
        dock->refresh();
        QVERIFY(dock->isLoading());
        QTRY_COMPARE(admin->readsStarted(), 1);
        delete dock;
        admin->release();
        QTRY_COMPARE(admin->readsAnswered(), 1);
        QThreadPool::globalInstance()->waitForDone();
        QCoreApplication::sendPostedEvents();
        QCoreApplication::processEvents();
    }

    void onlyTheNewestReadIsShown() {
        auto admin = boost::make_shared<ScriptedAuditTrail>();
        admin->setRefusal("older read");
        admin->holdNextRead();
        CAuditDock dock(admin);
        dock.refresh();
        QTRY_COMPARE(admin->readsStarted(), 1);
        admin->setEntries({scriptedEntry(1718000000123LL, "admin", false, "")});
        QVERIFY(reload(dock));
        QCOMPARE(dock.table()->rowCount(), 1);
        // The older read answers last, with its refusal: it must not replace the newer rows.
        admin->release();
        QTRY_COMPARE(admin->readsAnswered(), 2);
        QThreadPool::globalInstance()->waitForDone();
        QCoreApplication::sendPostedEvents();
        QCoreApplication::processEvents();
        QCOMPARE(dock.table()->rowCount(), 1);
        QVERIFY(dock.message().isEmpty());
        QVERIFY(!dock.isLoading());
    }

    void opensFromTheMenuAndKeepsItsPlace() {
        QVERIFY(addStock(9001).isSuccess());
        const QString settings = m_dir.filePath("console.ini");
        QFile::remove(settings);
        {
            CConsoleWindow window(m_embedded->admin(), settings);
            window.restoreSettings();
            window.show();
            auto* dock = window.findChild<CAuditDock*>("auditTrail");
            QVERIFY(dock);
            QVERIFY(!dock->isVisible());
            QCOMPARE(dock->windowTitle(), QString("操作记录"));
            window.findChild<QAction*>("open_auditTrail")->trigger();
            QVERIFY(dock->isVisible());
            QTRY_COMPARE(dock->table()->rowCount(), 1);
            window.saveSettings();
        }
        CConsoleWindow window(m_embedded->admin(), settings);
        QVERIFY(window.restoreSettings());
        window.show();
        auto* dock = window.findChild<CAuditDock*>("auditTrail");
        QVERIFY(dock->isVisible());
        QTRY_COMPARE(dock->table()->rowCount(), 1);
    }

    // A double click on a quote source's row opens that source's history with the entry chosen;
    // an entry of anything else opens none.
    void doubleClickOpensTheSourcesHistory() {
        makeThreeChanges();
        CAuditDock dock(m_embedded->admin());
        dock.resize(900, 500);
        dock.show();
        QVERIFY(QTest::qWaitForWindowExposed(&dock));
        QVERIFY(reload(dock));
        QTableView* view = dock.table()->view();
        const QRect cell = view->visualRect(view->model()->index(0, 0));
        QTest::mouseClick(view->viewport(), Qt::LeftButton, {}, cell.center());
        QTest::mouseDClick(view->viewport(), Qt::LeftButton, {}, cell.center());
        Hlx::CSourceHistoryDialog* dialog = nullptr;
        QTRY_VERIFY((dialog = dock.findChild<Hlx::CSourceHistoryDialog*>()));
        QTRY_VERIFY(!dialog->isLoading());
        QTRY_COMPARE(dialog->entryTable()->rowCount(), 2);
        // The delete the row shows is chosen.
        QCOMPARE(dialog->entryTable()->selectedItems().front()->row(), 1);
        QCOMPARE(dialog->history().sourceId, std::stoi(dock.entries().front().details[0].recordId));
        dialog->close();
        QThreadPool::globalInstance()->waitForDone();
    }
};

QTEST_MAIN(TestConsoleAudit)
#include "tst_console_audit.moc"
