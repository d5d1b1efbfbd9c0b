#include <QtTest>

#include "model/CRightsTable.h"

using namespace Hlx;

Q_DECLARE_METATYPE(std::vector<int>)

// The rights table, written out here by hand: a change to it must change this test too.
class TestRights : public QObject {
    Q_OBJECT
private slots:
    void sourceRights_data() {
        QTest::addColumn<int>("tradeType");
        QTest::addColumn<int>("platformId");
        QTest::addColumn<std::vector<int>>("add");
        QTest::addColumn<std::vector<int>>("modify");
        QTest::addColumn<std::vector<int>>("remove");
        using V = std::vector<int>;
        QTest::newRow("stocks") << 2 << 10000 << V{10937} << V{10389} << V{10563};
        QTest::newRow("stocks, other platform") << 2 << 25011 << V{10937} << V{10389} << V{10563};
        QTest::newRow("futures") << 1 << 20001 << V{10385} << V{10385} << V{10387};
        QTest::newRow("futures on 20000") << 1 << 20000 << V{10385} << V{10385} << V{10387};
        QTest::newRow("Kx futures") << 2 << 20000 << V{10385} << V{10385} << V{10387, 11230};
        QTest::newRow("futures options") << 5 << 70001 << V{11231} << V{11231} << V{10387};
        QTest::newRow("Kx futures options")
            << 2 << 70000 << V{11231} << V{11231} << V{10387, 11230};
        QTest::newRow("stock options") << 6 << 10001 << V{10709} << V{10711} << V{10713};
        QTest::newRow("HGT") << 7 << 10003 << V{11029} << V{11031} << V{11033};
        QTest::newRow("NEEQ") << 10 << 10002 << V{11019} << V{11021} << V{11023};
        QTest::newRow("gold") << 4 << 31003 << V{12147} << V{12149} << V{12151};
        QTest::newRow("IB outer") << 1002 << 32000 << V{12361} << V{12363} << V{12365};
        QTest::newRow("outer futures") << 16 << 15000 << V{12353} << V{12355} << V{12357};
        QTest::newRow("SGT") << 11 << 10004 << V{11222} << V{11223} << V{11224};
        QTest::newRow("outer stocks") << 8 << 32000 << V{12369} << V{12370} << V{12372};
        QTest::newRow("unknown type") << 3 << 10000 << V{} << V{} << V{};
        QTest::newRow("all types") << -1 << 10000 << V{} << V{} << V{};
    }

    void sourceRights() {
        QFETCH(int, tradeType);
        QFETCH(int, platformId);
        QFETCH(std::vector<int>, add);
        QFETCH(std::vector<int>, modify);
        QFETCH(std::vector<int>, remove);
        QCOMPARE(CRightsTable::sourceRights(CRecordAction::Add, tradeType, platformId), add);
        QCOMPARE(CRightsTable::sourceRights(CRecordAction::Modify, tradeType, platformId), modify);
        QCOMPARE(CRightsTable::sourceRights(CRecordAction::Delete, tradeType, platformId), remove);
    }

    void kxRowsAreTypeTwoOnTheKxFuturesPlatforms() {
        QVERIFY(CRightsTable::isKxRow(2, 20000));
        QVERIFY(CRightsTable::isKxRow(2, 70000));
        QVERIFY(!CRightsTable::isKxRow(1, 20000));
        QVERIFY(!CRightsTable::isKxRow(5, 70000));
        QVERIFY(!CRightsTable::isKxRow(2, 10000));
        QCOMPARE(CRightsTable::kindOf(2, 20000), 1);
        QCOMPARE(CRightsTable::kindOf(2, 70000), 5);
        QCOMPARE(CRightsTable::kindOf(2, 10000), 2);
        QCOMPARE(CRightsTable::kindOf(16, 20000), 16);
    }

    void panelRowsOfEachTradeType() {
        const CSourceRights* futures = CRightsTable::find(1);
        QVERIFY(futures);
        QCOMPARE(futures->add, 10385);
        QCOMPARE(futures->modify, 10385);
        QCOMPARE(futures->remove, 10387);
        QVERIFY(!CRightsTable::find(-1));
        QVERIFY(!CRightsTable::find(14));
        QCOMPARE(int(CRightsTable::sources().size()), 11);
    }

    void level2AndAdditionalRights() {
        QCOMPARE(CRightsTable::level2Right(CRecordAction::Add), 12532);
        QCOMPARE(CRightsTable::level2Right(CRecordAction::Modify), 12534);
        QCOMPARE(CRightsTable::level2Right(CRecordAction::Delete), 12536);
        QCOMPARE(int(CRightsTable::kWholeQuoteSave), 90001);
        QCOMPARE(int(CRightsTable::kAdminister), 90002);
    }

    void refusalsNameTheAction() {
        QCOMPARE(
            QString::fromStdString(CRightsTable::sourceRefusal(CRecordAction::Delete, 2, 10000)),
            QString("没有权限：删除证券行情源"));
        QCOMPARE(QString::fromStdString(CRightsTable::sourceRefusal(CRecordAction::Add, 2, 20000)),
                 QString("没有权限：添加期货行情源"));
        QCOMPARE(
            QString::fromStdString(CRightsTable::sourceRefusal(CRecordAction::Modify, 10, 10002)),
            QString("没有权限：修改新三板行情源"));
        QCOMPARE(QString::fromStdString(CRightsTable::sourceRefusal(CRecordAction::Add, 3, 0)),
                 QString("没有权限：添加交易类型 3 的行情源"));
        QCOMPARE(QString::fromStdString(CRightsTable::level2Refusal(CRecordAction::Delete)),
                 QString("没有权限：删除Level-2行情源token"));
    }
};

QTEST_GUILESS_MAIN(TestRights)
#include "tst_rights.moc"
