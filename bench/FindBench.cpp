// Find figures: the kit's table laid out as a stock panel's, 100,000 computed rows, filtered and
// sorted as the find bar and a header click do it.
#include <QApplication>
#include <QElapsedTimer>
#include <memory>
#include <string>
#include <vector>

#include "BenchRegistry.h"
#include "Zu/CBaseTableColumnMultiButtonsDelegate.h"
#include "Zu/COddEvenRowTable.h"

namespace {

const int kRows = 100000;

struct Row {
    QString platform;
    QString address;
    int port;
    QString user;
};

std::vector<Row> makeRows() {
    std::vector<Row> rows;
    rows.reserve(kRows);
    for (int i = 0; i < kRows; ++i) {
        rows.push_back(
            {QStringLiteral("Kx证券"),
             QStringLiteral("10.%1.%2.%3").arg(i / 65536 % 256).arg(i / 256 % 256).arg(i % 256),
             7000 + i % 1000, QStringLiteral("user%1").arg(i)});
    }
    return rows;
}

// The stock panel's columns: ID, platform, address, port, user, buttons (password hidden).
std::unique_ptr<Zu::COddEvenRowTable> makeTable(const std::vector<Row>& rows) {
    auto table = std::make_unique<Zu::COddEvenRowTable>(nullptr, 1262, 255);
    table->setColumns({QStringLiteral("ID"), QStringLiteral("行情源类型"),
                       QStringLiteral("平台名称"), QStringLiteral("名称"),
                       QStringLiteral("服务器组"), QStringLiteral("地址"), QStringLiteral("端口"),
                       QStringLiteral("用户名"), QStringLiteral("密码"), QStringLiteral("操作"),
                       QStringLiteral("分系统")});
    table->setColumnHidden(0, true);
    table->setColumnHidden(8, true);
    table->setColumnHidden(10, true);
    table->removeColumn(3);
    table->removeColumn(4);
    table->removeColumn(1);
    table->setColumnDelegate(9, new Zu::CBaseTableColumnMultiButtonsDelegate(table.get(), 0));
    table->setSortable(true);
    table->setColumnSortKind(6, Zu::CBaseNormalTable::SortNumber);
    table->setColumnSortKind(5, Zu::CBaseNormalTable::SortAddress);
    table->setRowTexts([&rows](int row, int column) {
        const Row& r = rows[size_t(row)];
        switch (column) {
            case 0:
                return QString::number(100000 + row);
            case 2:
                return r.platform;
            case 5:
                return r.address;
            case 6:
                return QString::number(r.port);
            case 7:
                return r.user;
            default:
                return QString();
        }
    });
    for (int i = 0; i < kRows; ++i)
        table->appendComputedRow();
    table->resize(1200, 800);
    table->show();
    table->flushRows();
    return table;
}

// Runs the event loop until the table's order is made; the time from the change to the order.
template <typename Change>
double arrange(Zu::COddEvenRowTable* table, Change change) {
    QElapsedTimer timer;
    timer.start();
    change();
    while (table->isArranging())
        QApplication::processEvents(QEventLoop::AllEvents, 5);
    return double(timer.nsecsElapsed()) / 1e6;
}

void runFindBench() {
    const std::vector<Row> rows = makeRows();
    auto table = makeTable(rows);
    Zu::COddEvenRowTable* t = table.get();
    // The first find reads every row's texts once; later keystrokes reuse them.
    benchReport("find_first_filter_ms_100k",
                arrange(t, [t] { t->setFilterText(QStringLiteral("10.1")); }), "ms");
    benchReport("find_first_filter_block_ms_100k", double(t->longestArrangeSliceMs()), "ms");
    const double keystroke = arrange(t, [t] { t->setFilterText(QStringLiteral("10.1.")); });
    benchReport("find_filter_ms_100k", keystroke, "ms");
    benchReport("find_filter_block_ms_100k", double(t->longestArrangeSliceMs()), "ms");
    benchReport("find_filter_shown_100k", t->shownRowCount(), "rows");
    arrange(t, [t] { t->setFilterText(QString()); });
    benchReport("find_sort_port_ms_100k",
                arrange(t, [t] { t->sortByColumnId(6, Qt::AscendingOrder); }), "ms");
    benchReport("find_sort_block_ms_100k", double(t->longestArrangeSliceMs()), "ms");
    benchReport("find_sort_address_ms_100k",
                arrange(t, [t] { t->sortByColumnId(5, Qt::DescendingOrder); }), "ms");
    benchReport("find_sort_address_block_ms_100k", double(t->longestArrangeSliceMs()), "ms");
    benchReport("find_filter_sorted_ms_100k",
                arrange(t, [t] { t->setFilterText(QStringLiteral("user9")); }), "ms");
    benchReport("find_filter_sorted_block_ms_100k", double(t->longestArrangeSliceMs()), "ms");
}

static BenchRegistrar reg("find", &runFindBench);

}  // namespace
