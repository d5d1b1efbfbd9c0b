#include <QAction>
#include <QApplication>
#include <QClipboard>
#include <QFile>
#include <QHeaderView>
#include <QMenu>
#include <QSignalSpy>
#include <QTableView>
#include <QTemporaryDir>
#include <QTest>
#include <memory>

#include "Zu/CBaseTableColumnMultiButtonsDelegate.h"
#include "Zu/COddEvenRowTable.h"

namespace {

QStringList panelHeaders() {
    return {QStringLiteral("ID"),   QStringLiteral("行情源类型"), QStringLiteral("平台名称"),
            QStringLiteral("名称"), QStringLiteral("服务器组"),   QStringLiteral("地址"),
            QStringLiteral("端口"), QStringLiteral("用户名"),     QStringLiteral("密码"),
            QStringLiteral("操作"), QStringLiteral("分系统")};
}

// A table laid out like a stock panel's: ID and password hidden, 3, 4 and 1 removed.
std::unique_ptr<Zu::COddEvenRowTable> stockTable(int layoutId = 1262) {
    auto table = std::make_unique<Zu::COddEvenRowTable>(nullptr, layoutId, 255);
    table->setColumns(panelHeaders());
    table->setColumnHidden(0, true);
    table->setColumnHidden(8, true);
    table->setColumnHidden(10, true);
    table->removeColumn(3);
    table->removeColumn(4);
    table->removeColumn(1);
    return table;
}

int fillRow(Zu::CBaseNormalTable* table, int n) {
    const int row = table->appendRow();
    table->setItemText(row, 0, QString::number(100 + n));
    table->setItemText(row, 2, QStringLiteral("Kx证券"));
    table->setItemText(row, 5, QStringLiteral("10.0.0.%1").arg(n));
    table->setItemText(row, 6, QStringLiteral("700%1").arg(n));
    table->setItemText(row, 7, QStringLiteral("user%1").arg(n));
    table->setItemText(row, 8, QStringLiteral("secret%1").arg(n));
    return row;
}

}  // namespace

class TableTest : public QObject {
    Q_OBJECT
private slots:
    void columnIdsSurviveRemovals();
    void appendRowReturnsIndexesInOrder();
    void rowsReachTheViewInOneBatch();
    void clearEmptiesRows();
    void selection();
    void totalCountLabel();
    void configRoundTrip();
    void configNeverHoldsSemicolon();
    void damagedOrForeignConfigIsIgnored_data();
    void damagedOrForeignConfigIsIgnored();
    void configCannotShowProgramHiddenColumns();
    void userCannotChooseProgramHiddenColumns();
    void copyRowLeavesHiddenColumnsOut();
    void copyCellOfHiddenColumnCopiesNothing();
    void csvExportLeavesHiddenColumnsOut();
    void menuFlagsSelectEntries();
    void adjustColumnWidthFitsContents();
    void computedRowsReadTheirTexts();
    void adjustColumnWidthFitsComputedAndChineseTexts();
    void viewNeverSorts();
    void findRunsBetweenEventLoopTurnsAndKeepsTheSelection();
    void sortableTableSortsByColumnKind();
};

void TableTest::columnIdsSurviveRemovals() {
    auto table = stockTable();
    QVERIFY(table->hasColumn(0));
    QVERIFY(!table->hasColumn(1));
    QVERIFY(!table->hasColumn(3));
    QVERIFY(!table->hasColumn(4));
    QVERIFY(table->hasColumn(10));
    QCOMPARE(table->view()->model()->columnCount(), 8);
    QCOMPARE(table->columnHeader(5), QStringLiteral("地址"));

    const int row = fillRow(table.get(), 1);
    QCOMPARE(table->itemText(row, 5), QStringLiteral("10.0.0.1"));
    QCOMPARE(table->itemText(row, 6), QStringLiteral("7001"));
    // The view shows id 5 under its own header, wherever it now sits.
    QAbstractItemModel* model = table->view()->model();
    int addressColumn = -1;
    for (int c = 0; c < model->columnCount(); ++c) {
        if (model->headerData(c, Qt::Horizontal).toString() == QStringLiteral("地址")) {
            addressColumn = c;
        }
    }
    QVERIFY(addressColumn >= 0);
    QCOMPARE(model->index(row, addressColumn).data().toString(), QStringLiteral("10.0.0.1"));
    // Hidden flags stay with their ids after the removals.
    QVERIFY(table->isColumnHidden(0));
    QVERIFY(table->isColumnHidden(8));
    QVERIFY(!table->isColumnHidden(5));
    QVERIFY(table->view()->isColumnHidden(model->columnCount() - 1));  // id 10
    // Removed columns take no text.
    table->setItemText(row, 3, QStringLiteral("名称"));
    QCOMPARE(table->itemText(row, 3), QString());
}

void TableTest::appendRowReturnsIndexesInOrder() {
    auto table = stockTable();
    for (int i = 0; i < 5; ++i) {
        QCOMPARE(fillRow(table.get(), i), i);
    }
    QCOMPARE(table->rowCount(), 5);
    QCOMPARE(table->itemText(3, 7), QStringLiteral("user3"));
}

void TableTest::rowsReachTheViewInOneBatch() {
    auto table = stockTable();
    QAbstractItemModel* model = table->view()->model();
    QSignalSpy inserted(model, &QAbstractItemModel::rowsInserted);
    for (int i = 0; i < 1000; ++i) {
        fillRow(table.get(), i);
    }
    QCOMPARE(table->rowCount(), 1000);
    QTRY_COMPARE(model->rowCount(), 1000);
    QCOMPARE(inserted.count(), 1);
    // Later edits of shown rows reach the view at once.
    QSignalSpy changed(model, &QAbstractItemModel::dataChanged);
    table->setItemText(10, 5, QStringLiteral("192.168.1.1"));
    QCOMPARE(changed.count(), 1);
}

void TableTest::clearEmptiesRows() {
    auto table = stockTable();
    fillRow(table.get(), 1);
    fillRow(table.get(), 2);
    table->clear();
    QCOMPARE(table->rowCount(), 0);
    QCOMPARE(table->view()->model()->rowCount(), 0);
    QCOMPARE(table->itemText(0, 5), QString());
    QCOMPARE(fillRow(table.get(), 3), 0);
}

void TableTest::selection() {
    auto table = stockTable();
    QCOMPARE(table->selectedRow(), -1);
    for (int i = 0; i < 4; ++i) {
        fillRow(table.get(), i);
    }
    table->selectRow(2);
    QCOMPARE(table->selectedRow(), 2);
    table->selectRow(99);
    QCOMPARE(table->selectedRow(), -1);
    table->selectRow(1);
    table->clear();
    QCOMPARE(table->selectedRow(), -1);
}

void TableTest::totalCountLabel() {
    auto table = stockTable();
    // Without a total of its own, the label counts the rows.
    table->appendRow();
    table->appendRow();
    QTRY_COMPARE(table->totalText(), QStringLiteral("共 2 条"));
    table->clear();
    QTRY_COMPARE(table->totalText(), QStringLiteral("共 0 条"));
    table->setTotalCount(42);
    QCOMPARE(table->totalCount(), 42);
    QCOMPARE(table->totalText(), QStringLiteral("共 42 条"));
}

void TableTest::configRoundTrip() {
    auto table = stockTable();
    table->resize(900, 400);
    QHeaderView* header = table->view()->horizontalHeader();
    // The user widens the address column, moves the port column first, hides the user column.
    const int address = 2;  // model column of id 5 after the removals
    QCOMPARE(table->view()->model()->headerData(address, Qt::Horizontal).toString(),
             QStringLiteral("地址"));
    header->setProperty("zuDragging", true);
    header->resizeSection(address, 222);
    header->setProperty("zuDragging", false);
    header->moveSection(header->visualIndex(3), 0);  // id 6
    QVERIFY(table->setColumnUserHidden(7, true));
    const QString config = table->saveConfigStr();

    auto other = stockTable();
    other->resize(900, 400);
    QVERIFY(other->loadConfigStr(config));
    QHeaderView* otherHeader = other->view()->horizontalHeader();
    QCOMPARE(otherHeader->sectionSize(address), 222);
    QCOMPARE(otherHeader->logicalIndex(0), 3);
    QVERIFY(other->isColumnUserHidden(7));
    QVERIFY(other->isColumnHidden(7));
    QCOMPARE(other->saveConfigStr(), config);

    // adjustColumnWidth leaves the user's width alone.
    fillRow(other.get(), 1);
    other->adjustColumnWidth();
    QCOMPARE(otherHeader->sectionSize(address), 222);
}

void TableTest::configNeverHoldsSemicolon() {
    auto table = stockTable(-7);
    table->setColumnUserHidden(2, true);
    const QString config = table->saveConfigStr();
    QVERIFY(!config.isEmpty());
    QVERIFY(!config.contains(QLatin1Char(';')));
    // The panel's state string is split at ';' and the first part handed back.
    QVERIFY(table->loadConfigStr(config.split(QLatin1Char(';')).first()));
}

void TableTest::damagedOrForeignConfigIsIgnored_data() {
    QTest::addColumn<QString>("config");
    auto table = stockTable();
    table->setColumnUserHidden(6, true);
    const QString good = table->saveConfigStr();
    auto foreign = stockTable(1261);
    QTest::newRow("empty") << QString();
    QTest::newRow("garbage") << QStringLiteral("hello world");
    QTest::newRow("foreign layout") << foreign->saveConfigStr();
    QTest::newRow("truncated") << good.left(good.size() / 2);
    QTest::newRow("extra field") << good + QStringLiteral("|x");
    QString flipped = good;
    flipped.replace(QStringLiteral("6.0.1"), QStringLiteral("6.0.0"));
    QTest::newRow("edited without checksum") << flipped;
    QString wrongVersion = good;
    wrongVersion.replace(0, 3, QStringLiteral("zt9"));
    QTest::newRow("unknown version") << wrongVersion;
    QTest::newRow("semicolon tail") << good + QStringLiteral(";more");
}

void TableTest::damagedOrForeignConfigIsIgnored() {
    QFETCH(QString, config);
    auto table = stockTable();
    table->resize(800, 300);
    QHeaderView* header = table->view()->horizontalHeader();
    QVector<int> before;
    for (int i = 0; i < header->count(); ++i) {
        before.append(header->logicalIndex(i));
    }
    const QString saved = table->saveConfigStr();
    QVERIFY(!table->loadConfigStr(config));
    QCOMPARE(table->saveConfigStr(), saved);
    for (int i = 0; i < header->count(); ++i) {
        QCOMPARE(header->logicalIndex(i), before[i]);
    }
    QVERIFY(!table->isColumnHidden(6));
}

void TableTest::configCannotShowProgramHiddenColumns() {
    auto table = stockTable();
    // A string from a table where the password column was not hidden by the program.
    Zu::COddEvenRowTable open(nullptr, 1262, 255);
    open.setColumns(panelHeaders());
    open.removeColumn(3);
    open.removeColumn(4);
    open.removeColumn(1);
    QVERIFY(table->loadConfigStr(open.saveConfigStr()));
    QVERIFY(table->isColumnHidden(8));
    QVERIFY(table->isColumnHidden(0));
}

void TableTest::userCannotChooseProgramHiddenColumns() {
    auto table = stockTable();
    QVERIFY(!table->setColumnUserHidden(8, false));
    QVERIFY(table->isColumnHidden(8));
    const QVector<int> choosable = table->userChoosableColumns();
    QVERIFY(!choosable.contains(8));
    QVERIFY(!choosable.contains(0));
    QVERIFY(choosable.contains(5));
    std::unique_ptr<QMenu> menu(table->createContextMenu(0, 5, nullptr));
    QAction* columns = menu->findChild<QAction*>(QStringLiteral("chooseColumns"));
    QVERIFY(columns && columns->menu());
    QStringList texts;
    for (QAction* action : columns->menu()->actions()) {
        texts.append(action->text());
    }
    QVERIFY(!texts.contains(QStringLiteral("密码")));
    QVERIFY(!texts.contains(QStringLiteral("ID")));
    QVERIFY(texts.contains(QStringLiteral("地址")));
    // Unchecking a column in the menu hides it for the user.
    QAction* address = columns->menu()->findChild<QAction*>(QStringLiteral("column5"));
    QVERIFY(address);
    address->setChecked(false);
    QVERIFY(table->isColumnUserHidden(5));
    QVERIFY(table->isColumnHidden(5));
}

void TableTest::copyRowLeavesHiddenColumnsOut() {
    auto table = stockTable();
    auto* delegate = new Zu::CBaseTableColumnMultiButtonsDelegate(table.get(), 0);
    table->setColumnDelegate(9, delegate);
    const int row = fillRow(table.get(), 4);
    QApplication::clipboard()->setText(QStringLiteral("before"));
    table->copyRow(row);
    const QString copied = QApplication::clipboard()->text();
    QCOMPARE(copied, QStringLiteral("Kx证券\t10.0.0.4\t7004\tuser4"));
    QVERIFY(!copied.contains(QStringLiteral("secret")));
    QVERIFY(!copied.contains(QStringLiteral("104")));

    // The copy key of the view follows the same rules.
    table->selectRow(row);
    table->view()->setCurrentIndex(table->view()->model()->index(row, 2));
    QApplication::clipboard()->setText(QStringLiteral("before"));
    QTest::keySequence(table->view(), QKeySequence::Copy);
    QCOMPARE(QApplication::clipboard()->text(), QStringLiteral("10.0.0.4"));
}

void TableTest::copyCellOfHiddenColumnCopiesNothing() {
    auto table = stockTable();
    const int row = fillRow(table.get(), 1);
    QApplication::clipboard()->setText(QStringLiteral("before"));
    table->copyCell(row, 8);
    QCOMPARE(QApplication::clipboard()->text(), QStringLiteral("before"));
    QCOMPARE(table->copyCellText(row, 8), QString());
    table->copyCell(row, 7);
    QCOMPARE(QApplication::clipboard()->text(), QStringLiteral("user1"));
    std::unique_ptr<QMenu> menu(table->createContextMenu(row, 8, nullptr));
    QAction* copyCell = menu->findChild<QAction*>(QStringLiteral("copyCell"));
    QVERIFY(copyCell);
    QVERIFY(!copyCell->isEnabled());
}

void TableTest::csvExportLeavesHiddenColumnsOut() {
    auto table = stockTable();
    auto* delegate = new Zu::CBaseTableColumnMultiButtonsDelegate(table.get(), 0);
    table->setColumnDelegate(9, delegate);
    fillRow(table.get(), 1);
    const int row = fillRow(table.get(), 2);
    table->setItemText(row, 2, QStringLiteral("a,\"b\""));
    table->setColumnUserHidden(6, true);

    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    const QString path = dir.filePath(QStringLiteral("rows.csv"));
    QVERIFY(table->exportCsv(path));
    QFile file(path);
    QVERIFY(file.open(QIODevice::ReadOnly));
    QByteArray bytes = file.readAll();
    QVERIFY(bytes.startsWith("\xEF\xBB\xBF"));
    const QString csv = QString::fromUtf8(bytes.mid(3));
    QCOMPARE(csv, QStringLiteral("平台名称,地址,用户名\r\n"
                                 "Kx证券,10.0.0.1,user1\r\n"
                                 "\"a,\"\"b\"\"\",10.0.0.2,user2\r\n"));
    QVERIFY(!csv.contains(QStringLiteral("secret")));
    QVERIFY(!csv.contains(QStringLiteral("密码")));
}

void TableTest::menuFlagsSelectEntries() {
    Zu::COddEvenRowTable table(nullptr, 1, 1 | 4);
    table.setColumns({QStringLiteral("a"), QStringLiteral("b")});
    table.appendRow();
    std::unique_ptr<QMenu> menu(table.createContextMenu(0, 0, nullptr));
    QVERIFY(menu->findChild<QAction*>(QStringLiteral("copyCell")));
    QVERIFY(!menu->findChild<QAction*>(QStringLiteral("copyRow")));
    QVERIFY(menu->findChild<QAction*>(QStringLiteral("exportCsv")));
    QVERIFY(!menu->findChild<QAction*>(QStringLiteral("chooseColumns")));

    Zu::COddEvenRowTable all(nullptr, 1, 255);
    all.setColumns({QStringLiteral("a")});
    std::unique_ptr<QMenu> full(all.createContextMenu(-1, -1, nullptr));
    QCOMPARE(full->actions().size(), 4);
}

void TableTest::adjustColumnWidthFitsContents() {
    auto table = stockTable();
    table->resize(1200, 300);
    table->show();
    QVERIFY(QTest::qWaitForWindowExposed(table.get()));
    const int row = fillRow(table.get(), 1);
    const QString longAddress = QStringLiteral("fe80::1234:5678:9abc:def0:1234:5678");
    table->setItemText(row, 5, longAddress);
    table->adjustColumnWidth();
    const int width = table->view()->horizontalHeader()->sectionSize(2);
    QVERIFY(width >= table->view()->fontMetrics().horizontalAdvance(longAddress));
}

void TableTest::computedRowsReadTheirTexts() {
    auto table = stockTable();
    int asked = 0;
    table->setRowTexts([&](int row, int columnId) {
        ++asked;
        return QStringLiteral("r%1c%2").arg(row).arg(columnId);
    });
    const int plain = fillRow(table.get(), 1);
    const int computed = table->appendComputedRow();
    QCOMPARE(asked, 0);
    QCOMPARE(table->itemText(computed, 5), QStringLiteral("r%1c5").arg(computed));
    QCOMPARE(table->itemText(plain, 5), QStringLiteral("10.0.0.1"));
    QCOMPARE(table->itemText(plain, 10), QString());
    // A text set on a computed row takes precedence over the computed one.
    table->setItemText(computed, 7, QStringLiteral("set"));
    QCOMPARE(table->itemText(computed, 7), QStringLiteral("set"));
    table->flushRows();
    const QModelIndex shown = table->view()->model()->index(computed, 2);
    QCOMPARE(shown.data().toString(), QStringLiteral("r%1c5").arg(computed));
    QVERIFY(table->csvText().contains(QStringLiteral("r%1c5").arg(computed)));
    table->clear();
    QCOMPARE(table->rowCount(), 0);
    const int again = table->appendRow();
    QCOMPARE(table->itemText(again, 5), QString());
}

void TableTest::adjustColumnWidthFitsComputedAndChineseTexts() {
    auto table = stockTable();
    table->resize(1200, 300);
    table->show();
    QVERIFY(QTest::qWaitForWindowExposed(table.get()));
    const QString longAddress = QStringLiteral("fe80::1234:5678:9abc:def0:1234:5678:1");
    const QString chinese = QStringLiteral("上海期货交易所测试用户名称很长的一个");
    table->setRowTexts([&](int row, int columnId) {
        if (row == 900 && columnId == 5)
            return longAddress;
        if (row == 900 && columnId == 7)
            return chinese;
        return QStringLiteral("x");
    });
    for (int i = 0; i < 2000; ++i)
        table->appendComputedRow();
    table->adjustColumnWidth();
    const QFontMetrics metrics = table->view()->fontMetrics();
    const QHeaderView* header = table->view()->horizontalHeader();
    auto columnTitled = [&](const QString& title) {
        for (int column = 0; column < header->count(); ++column) {
            if (table->view()->model()->headerData(column, Qt::Horizontal).toString() == title)
                return column;
        }
        return -1;
    };
    const int address = columnTitled(QStringLiteral("地址"));
    const int user = columnTitled(QStringLiteral("用户名"));
    QVERIFY(address >= 0 && user >= 0);
    QVERIFY(header->sectionSize(address) >= metrics.horizontalAdvance(longAddress));
    QVERIFY(header->sectionSize(user) >= metrics.horizontalAdvance(chinese));
}

void TableTest::viewNeverSorts() {
    auto table = stockTable();
    QVERIFY(!table->view()->isSortingEnabled());
    QVERIFY(!table->view()->horizontalHeader()->sectionsClickable());
    fillRow(table.get(), 9);
    fillRow(table.get(), 1);
    table->view()->sortByColumn(2, Qt::AscendingOrder);
    QCOMPARE(table->view()->model()->index(0, 2).data().toString(), QStringLiteral("10.0.0.9"));
}

void TableTest::findRunsBetweenEventLoopTurnsAndKeepsTheSelection() {
    auto table = stockTable();
    const int rows = 50000;
    table->setRowTexts([](int row, int id) {
        return id == 5 ? QStringLiteral("10.%1.%2.1").arg(row / 256).arg(row % 256)
                       : QStringLiteral("用户%1").arg(row);
    });
    for (int i = 0; i < rows; ++i) {
        table->appendComputedRow();
    }
    table->selectRow(rows - 1);
    table->setFilterText(QStringLiteral("用户4999"));
    // Not all at once: the rows are looked at a slice per event-loop turn.
    QVERIFY(table->isArranging());
    QVERIFY(table->hidesRows());
    QTRY_VERIFY(!table->isArranging());
    QCOMPARE(table->shownRowCount(), 11);  // 4999 and 49990..49999
    QCOMPARE(table->selectedRow(), rows - 1);
    QCOMPARE(table->storedRowOf(table->viewRowOf(rows - 1)), rows - 1);
    QVERIFY(table->longestArrangeSliceMs() < 1000);
    // The find looks at shown columns only: the hidden password column is not searched.
    table->setItemText(7, 8, QStringLiteral("secret"));
    table->setFilterText(QStringLiteral("secret"));
    table->finishArranging();
    QCOMPARE(table->shownRowCount(), 0);
    // A row the find hides is no longer selected: no action reaches a row the operator cannot
    // see.
    QCOMPARE(table->selectedRow(), -1);
    table->setFilterText(QString());
    QVERIFY(!table->isArranging());
    QCOMPARE(table->shownRowCount(), rows);
}

void TableTest::sortableTableSortsByColumnKind() {
    auto table = stockTable();
    table->setSortable(true);
    QVERIFY(table->view()->horizontalHeader()->sectionsClickable());
    table->setColumnSortKind(6, Zu::CBaseNormalTable::SortNumber);
    table->setColumnSortKind(5, Zu::CBaseNormalTable::SortAddress);
    const QStringList addresses = {QStringLiteral("10.0.0.10"), QStringLiteral("10.0.0.9"),
                                   QStringLiteral("2001:db8::1"), QStringLiteral("host.example")};
    const QStringList ports = {QStringLiteral("80"), QStringLiteral("8000"), QStringLiteral("443"),
                               QStringLiteral("9")};
    for (int i = 0; i < addresses.size(); ++i) {
        const int row = table->appendRow();
        table->setItemText(row, 5, addresses[i]);
        table->setItemText(row, 6, ports[i]);
    }
    const auto shownColumn = [&](int id) {
        QStringList texts;
        for (int v = 0; v < table->shownRowCount(); ++v) {
            texts << table->itemText(table->storedRowOf(v), id);
        }
        return texts;
    };
    table->sortByColumnId(6, Qt::AscendingOrder);
    table->finishArranging();
    QCOMPARE(shownColumn(6), (QStringList{"9", "80", "443", "8000"}));
    table->sortByColumnId(5, Qt::AscendingOrder);
    table->finishArranging();
    QCOMPARE(shownColumn(5), (QStringList{"10.0.0.9", "10.0.0.10", "2001:db8::1", "host.example"}));
    table->sortByColumnId(-1, Qt::AscendingOrder);
    QCOMPARE(shownColumn(5), addresses);
}

QTEST_MAIN(TableTest)
#include "tst_table.moc"
