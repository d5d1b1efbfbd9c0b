// The history dialog (查看历史) on the embedded service: opened for a source through the client
// centre, it lists the source's changes, shows the chosen one side by side with the changed
// fields marked, says what happens to the password, and 恢复到此版本 restores the source; a
// deleted source's delete cannot be restored to, an earlier state brings it back.

#include <QApplication>
#include <QLabel>
#include <QPushButton>
#include <QTableWidget>
#include <QtTest>

#include "CCaller.h"
#include "CQuotesService.h"
#include "EmbeddedService.h"
#include "SourceAdds.h"
#include "dialogs/CSourceHistoryDialog.h"
#include "model/CHistoryTexts.h"
#include "model/CHistoryValues.h"
#include "model/CPlatformTable.h"
#include "model/CSubsystemNames.h"
#include "model/CTradeTypeTable.h"
#include "rkservice/DataTypeIds.h"

namespace {

QString label(const char* text) {
    return QString::fromUtf8(text);
}

}  // namespace

class TestHistoryDialog : public QObject {
    Q_OBJECT

    std::unique_ptr<EmbeddedService> m_embedded;

    int add(int port) {
        int id = 0;
        addStockSource(m_embedded->administrator(), "192.0.2.1", port, &id);
        return id;
    }

    void changePort(int id, int port) {
        Hlx::CSourcePatch patch;
        patch.port = port;
        patch.password = "kept-secret";
        QVERIFY(m_embedded->administrator().modifySource(id, patch).isSuccess());
    }

    rkservice::COrinQuoterSourceInfoPtr stored(int id) {
        rkservice::COrinQueryDataReq request;
        request.dataType = rkservice::kDataQuoteSources;
        std::vector<rkservice::IDataPtr> datas;
        m_embedded->administrator().query(Hlx::CRequestTarget::centre(), request, &datas);
        for (const auto& data : datas) {
            auto source = boost::dynamic_pointer_cast<rkservice::COrinQuoterSourceInfo>(data);
            if (source && source->m_nId == id)
                return source;
        }
        return nullptr;
    }

    static int boldRows(QTableWidget* table) {
        int rows = 0;
        for (int row = 0; row < table->rowCount(); ++row)
            rows += table->item(row, 0)->font().bold() ? 1 : 0;
        return rows;
    }

private slots:
    void init() {
        m_embedded.reset(new EmbeddedService);
        QVERIFY2(m_embedded->isOpen(), qPrintable(m_embedded->error()));
        QVERIFY(m_embedded->loginAs("admin"));
    }

    void cleanup() { m_embedded.reset(); }

    void showsTheChangesAndRestores() {
        const int id = add(9000);
        changePort(id, 9100);
        QPointer<Hlx::CSourceHistoryDialog> dialog =
            Hlx::CSourceHistoryDialog::openFor(nullptr, id);
        QVERIFY(dialog);
        QTRY_VERIFY(!dialog->isLoading());
        QCOMPARE(dialog->entryTable()->rowCount(), 2);
        QCOMPARE(dialog->entryTable()->item(1, 3)->text(), QStringLiteral("修改"));
        // Made as the owner on this machine: named by the operating-system user.
        QCOMPARE(dialog->entryTable()->item(1, 1)->text(),
                 QStringLiteral("本地 ") + QString::fromStdString(CCaller::operatingSystemUser()));
        QCOMPARE(dialog->beginLabel()->text(), label(CHistoryTexts::kBeginAdded));
        QCOMPARE(dialog->noteLabel()->text(), label(CHistoryTexts::kPasswordKept));
        // The newest change is chosen: port and password changed, side by side.
        QCOMPARE(boldRows(dialog->differenceTable()), 2);
        QCOMPARE(dialog->differenceTable()->item(6, 1)->text(), QStringLiteral("9000"));
        QCOMPARE(dialog->differenceTable()->item(6, 2)->text(), QStringLiteral("9100"));
        QCOMPARE(dialog->differenceTable()->item(8, 2)->text(), QStringLiteral("******"));

        dialog->entryTable()->selectRow(0);
        QVERIFY(dialog->restoreButton()->isEnabled());
        QTest::mouseClick(dialog->restoreButton(), Qt::LeftButton);
        QTRY_COMPARE(dialog->entryTable()->rowCount(), 3);
        QTRY_VERIFY(!dialog->isLoading());
        QCOMPARE(dialog->entryTable()->item(2, 3)->text(), QStringLiteral("恢复"));
        QCOMPARE(stored(id)->m_nPort, 9000);
        QCOMPARE(stored(id)->m_strPassword, std::string("kept-secret"));
        dialog->close();
        QTRY_VERIFY(!dialog);
    }

    void idsReadAsNames() {
        const int id = add(9000);
        Hlx::CSourceHistoryDialog dialog(m_embedded->admin(), id);
        dialog.reload();
        QTRY_COMPARE(dialog.entryTable()->rowCount(), 1);
        QTRY_VERIFY(!dialog.isLoading());
        QTableWidget* fields = dialog.differenceTable();
        // The add: nothing before, the names after, as the panels show them.
        const QString subsystem = Hlx::CSubsystemNames::current().value(QStringLiteral("sys1"));
        QVERIFY(!subsystem.isEmpty());
        QCOMPARE(fields->item(0, 2)->text(), subsystem);
        QCOMPARE(fields->item(1, 2)->text(), Hlx::CTradeTypeTable::tradeType2String(2, 10000));
        QCOMPARE(fields->item(2, 2)->text(), Hlx::getPlatformName(10000));
        QCOMPARE(fields->item(3, 2)->text(), label(Hlx::CHistoryValues::kNone));
        QCOMPARE(fields->item(4, 2)->text(), label(Hlx::CHistoryValues::kNone));
        QCOMPARE(fields->item(3, 1)->text(), QString());
        for (int row = 0; row < 5; ++row)
            QVERIFY2(!fields->item(row, 2)->text().at(0).isDigit(),
                     qPrintable(fields->item(row, 2)->text()));
    }

    void deletedSourceComesBackFromAnEarlierState() {
        const int id = add(9000);
        changePort(id, 9100);
        auto record = stored(id);
        rkservice::COperateDataReq request;
        request.dataType = rkservice::kDataQuoteSources;
        request.operateType = rkservice::kOperateDelete;
        request.datas = {record};
        QVERIFY(m_embedded->administrator()
                    .operate(Hlx::CRequestTarget::centre(), request, nullptr)
                    .isSuccess());

        Hlx::CSourceHistoryDialog dialog(m_embedded->admin(), id);
        dialog.reload();
        QTRY_COMPARE(dialog.entryTable()->rowCount(), 3);
        QTRY_VERIFY(!dialog.isLoading());
        QCOMPARE(dialog.noteLabel()->text(), label(CHistoryTexts::kPasswordNone));
        // The delete is chosen: nothing to restore to.
        QVERIFY(!dialog.restoreButton()->isEnabled());
        dialog.entryTable()->selectRow(1);
        QVERIFY(dialog.restoreButton()->isEnabled());
        dialog.restoreChosen();
        QTRY_VERIFY(stored(id));
        QCOMPARE(stored(id)->m_nPort, 9100);
        QCOMPARE(stored(id)->m_strPassword, std::string());
        QTRY_COMPARE(dialog.entryTable()->rowCount(), 4);
    }
};

QTEST_MAIN(TestHistoryDialog)
#include "tst_historydialog.moc"
