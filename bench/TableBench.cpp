// Table figures: filling the kit's table (11 columns, two painted buttons per row) against the
// usual QTableWidget with a two-button widget per row.
#include <QApplication>
#include <QElapsedTimer>
#include <QHBoxLayout>
#include <QPushButton>
#include <QTableView>
#include <QTableWidget>
#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "BenchRegistry.h"
#include "Zu/CBaseTableColumnMultiButtonsDelegate.h"
#include "Zu/COddEvenRowTable.h"
#include "Zu/StringConvert.h"

namespace {

const int kColumns = 11;
const int kButtonColumn = 9;

// What a quote-source answer carries, before any of it becomes text.
struct Record {
    int id;
    int tradeType;
    int platformId;
    std::string name;
    std::string group;
    std::string address;
    int port;
    std::string user;
    std::string password;
    std::string system;
};

std::vector<Record> makeRecords(int count) {
    std::vector<Record> records;
    records.reserve(size_t(count));
    for (int i = 0; i < count; ++i) {
        records.push_back({100000 + i, 2, 10000, "行情源" + std::to_string(i % 97),
                           "服务器组" + std::to_string(i % 5),
                           "10." + std::to_string(i / 65536 % 256) + "." +
                               std::to_string(i / 256 % 256) + "." + std::to_string(i % 256),
                           7000 + i % 1000, "user" + std::to_string(i), "pw" + std::to_string(i),
                           "sys" + std::to_string(i % 3)});
    }
    return records;
}

QStringList headers() {
    return {QStringLiteral("ID"),   QStringLiteral("行情源类型"), QStringLiteral("平台名称"),
            QStringLiteral("名称"), QStringLiteral("服务器组"),   QStringLiteral("地址"),
            QStringLiteral("端口"), QStringLiteral("用户名"),     QStringLiteral("密码"),
            QStringLiteral("操作"), QStringLiteral("分系统")};
}

void settle() {
    for (int i = 0; i < 3; ++i) {
        QApplication::processEvents();
    }
}

double fillKitTable(const std::vector<Record>& records) {
    auto table = std::make_unique<Zu::COddEvenRowTable>(nullptr, 1262, 255);
    table->setColumns(headers());
    table->setColumnHidden(0, true);
    table->setColumnHidden(8, true);
    auto* delegate = new Zu::CBaseTableColumnMultiButtonsDelegate(table.get(), 0);
    table->setColumnDelegate(kButtonColumn, delegate);
    table->resize(1200, 800);
    table->show();
    settle();

    const QString typeName = QStringLiteral("证券");
    const QString platformName = QStringLiteral("Kx证券");
    const QString editText = QStringLiteral("编辑");
    const QString deleteText = QStringLiteral("删除");
    QElapsedTimer timer;
    timer.start();
    table->clear();
    for (const Record& record : records) {
        const int row = table->appendRow();
        table->setItemText(row, 0, QString::number(record.id));
        table->setItemText(row, 1, typeName);
        table->setItemText(row, 2, platformName);
        table->setItemText(row, 3, Zu::sToQs(record.name));
        table->setItemText(row, 4, Zu::sToQs(record.group));
        table->setItemText(row, 5, Zu::sToQs(record.address));
        table->setItemText(row, 6, QString::number(record.port));
        table->setItemText(row, 7, Zu::sToQs(record.user));
        table->setItemText(row, 8, Zu::sToQs(record.password));
        table->setItemText(row, 10, Zu::sToQs(record.system));
        QVector<Zu::ButtonData> buttons;
        buttons.reserve(2);
        buttons.append(Zu::ButtonData(5, editText, 1, false, {}));
        buttons.append(Zu::ButtonData(6, deleteText, 1, false, {}));
        delegate->setItemButtons(std::to_string(row), buttons, true);
    }
    table->setTotalCount(int(records.size()));
    table->view()->viewport()->repaint();
    const double ms = timer.nsecsElapsed() / 1e6;
    if (table->view()->model()->rowCount() != int(records.size())) {
        std::fprintf(stderr, "table bench: rows missing\n");
    }
    return ms;
}

double fillNaiveTable(const std::vector<Record>& records) {
    auto table = std::make_unique<QTableWidget>();
    table->setColumnCount(kColumns);
    table->setHorizontalHeaderLabels(headers());
    table->setColumnHidden(0, true);
    table->setColumnHidden(8, true);
    table->setAlternatingRowColors(true);
    table->resize(1200, 800);
    table->show();
    settle();

    const QString typeName = QStringLiteral("证券");
    const QString platformName = QStringLiteral("Kx证券");
    QElapsedTimer timer;
    timer.start();
    table->setRowCount(int(records.size()));
    for (int row = 0; row < int(records.size()); ++row) {
        const Record& record = records[size_t(row)];
        const QString texts[kColumns] = {QString::number(record.id),
                                         typeName,
                                         platformName,
                                         Zu::sToQs(record.name),
                                         Zu::sToQs(record.group),
                                         Zu::sToQs(record.address),
                                         QString::number(record.port),
                                         Zu::sToQs(record.user),
                                         Zu::sToQs(record.password),
                                         QString(),
                                         Zu::sToQs(record.system)};
        for (int column = 0; column < kColumns; ++column) {
            table->setItem(row, column, new QTableWidgetItem(texts[column]));
        }
        auto* cell = new QWidget;
        auto* layout = new QHBoxLayout(cell);
        layout->setContentsMargins(4, 2, 4, 2);
        layout->addWidget(new QPushButton(QStringLiteral("编辑"), cell));
        layout->addWidget(new QPushButton(QStringLiteral("删除"), cell));
        table->setIndexWidget(table->model()->index(row, kButtonColumn), cell);
    }
    table->viewport()->repaint();
    return timer.nsecsElapsed() / 1e6;
}

// Median of three runs. A warm-up run of the same size comes first, so that the process's
// first growth of its heap is not charged to the table; that cost is reported on its own.
template <typename Fill>
double medianOfThree(Fill fill, const std::vector<Record>& records) {
    std::vector<double> runs;
    for (int i = 0; i < 3; ++i) {
        runs.push_back(fill(records));
    }
    std::sort(runs.begin(), runs.end());
    return runs[1];
}

void runTableBench() {
    const std::vector<Record> records1k = makeRecords(1000);
    const std::vector<Record> records10k = makeRecords(10000);
    const std::vector<Record> records100k = makeRecords(100000);

    fillKitTable(records1k);
    benchReport("table_fill_ms_1k", medianOfThree(fillKitTable, records1k), "ms");
    fillKitTable(records10k);
    const double ours10k = medianOfThree(fillKitTable, records10k);
    benchReport("table_fill_ms_10k", ours10k, "ms");
    benchReport("table_fill_ms_100k_cold", fillKitTable(records100k), "ms");
    benchReport("table_fill_ms_100k", medianOfThree(fillKitTable, records100k), "ms");

    // Memory held by a filled 100k table, measured with the table alive.
    {
        auto kept = std::make_unique<Zu::COddEvenRowTable>(nullptr, 1262, 255);
        kept->setColumns(headers());
        auto* delegate = new Zu::CBaseTableColumnMultiButtonsDelegate(kept.get(), 0);
        kept->setColumnDelegate(kButtonColumn, delegate);
        for (const Record& record : records100k) {
            const int row = kept->appendRow();
            kept->setItemText(row, 0, QString::number(record.id));
            kept->setItemText(row, 3, Zu::sToQs(record.name));
            kept->setItemText(row, 4, Zu::sToQs(record.group));
            kept->setItemText(row, 5, Zu::sToQs(record.address));
            kept->setItemText(row, 6, QString::number(record.port));
            kept->setItemText(row, 7, Zu::sToQs(record.user));
            kept->setItemText(row, 8, Zu::sToQs(record.password));
            kept->setItemText(row, 10, Zu::sToQs(record.system));
            delegate->setItemButtons(std::to_string(row),
                                     {Zu::ButtonData(5, QStringLiteral("编辑")),
                                      Zu::ButtonData(6, QStringLiteral("删除"))},
                                     false);
        }
        kept->flushRows();
        benchReport("table_rss_mb_100k", benchRssMb(), "MB");
    }

    fillNaiveTable(records1k);
    benchReport("naive_fill_ms_1k", medianOfThree(fillNaiveTable, records1k), "ms");
    fillNaiveTable(records10k);
    const double naive10k = medianOfThree(fillNaiveTable, records10k);
    benchReport("naive_fill_ms_10k", naive10k, "ms");
    benchReport("table_speedup_10k", ours10k > 0 ? naive10k / ours10k : 0.0, "x");
}

static BenchRegistrar reg("table", &runTableBench);

}  // namespace
