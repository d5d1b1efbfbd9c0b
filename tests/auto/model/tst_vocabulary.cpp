#include <QtTest>

#include "Hlx/COrinClientCenter.h"
#include "ScriptedBackend.h"
#include "model/CFanOutTable.h"
#include "model/CPlatformTable.h"
#include "model/CRequestFactory.h"
#include "model/CRightsTable.h"
#include "model/CTradeTypeTable.h"
#include "rkservice/DataTypeIds.h"

using namespace Hlx;

class TestVocabulary : public QObject {
    Q_OBJECT
private slots:
    void initTestCase() { m_backend = ScriptedBackend::install(); }

    void tradeTypeNames_data() {
        QTest::addColumn<int>("tradeType");
        QTest::addColumn<int>("platformId");
        QTest::addColumn<QString>("name");
        QTest::newRow("2 futures platform") << 2 << 20000 << "期货";
        QTest::newRow("2 futures options platform") << 2 << 70000 << "期货期权";
        QTest::newRow("2 own name") << 2 << -1 << "证券";
        QTest::newRow("2 other platform") << 2 << 10000 << "证券";
        QTest::newRow("3 unknown") << 3 << -1 << "";
        QTest::newRow("9 unknown") << 9 << -1 << "";
        QTest::newRow("0 unknown") << 0 << -1 << "";
        QTest::newRow("14 unknown") << 14 << -1 << "";
        QTest::newRow("all") << -1 << -1 << "全部";
        QTest::newRow("all any platform") << -1 << 20000 << "全部";
        QTest::newRow("all zero") << -1 << 0 << "全部";
        QTest::newRow("futures") << 1 << -1 << "期货";
        QTest::newRow("futures options") << 5 << -1 << "期货期权";
        QTest::newRow("stock options") << 6 << -1 << "股票期权";
        QTest::newRow("hgt") << 7 << -1 << "沪港通";
        QTest::newRow("neeq") << 10 << -1 << "新三板";
        QTest::newRow("gold") << 4 << -1 << "贵金属";
        QTest::newRow("outer futures") << 16 << -1 << "外盘期货";
        QTest::newRow("ib") << 1002 << -1 << "IB外盘";
        QTest::newRow("swap") << 8 << -1 << "收益互换";
        QTest::newRow("sgt") << 11 << -1 << "深港通";
    }

    void tradeTypeNames() {
        QFETCH(int, tradeType);
        QFETCH(int, platformId);
        QFETCH(QString, name);
        QCOMPARE(CTradeTypeTable::tradeType2String(tradeType, platformId), name);
    }

    void tradeTypeTable_data() {
        QTest::addColumn<int>("tradeType");
        QTest::addColumn<QString>("objectName");
        QTest::addColumn<int>("addRight");
        QTest::addColumn<int>("layoutId");
        QTest::newRow("1") << 1 << "ftq" << 10385 << 1253;
        QTest::newRow("2") << 2 << "stq" << 10937 << 1254;
        QTest::newRow("5") << 5 << "foq" << 11231 << 1255;
        QTest::newRow("6") << 6 << "soq" << 10709 << 1256;
        QTest::newRow("7") << 7 << "hgq" << 11029 << 1258;
        QTest::newRow("10") << 10 << "nwq" << 11019 << 1257;
        QTest::newRow("4") << 4 << "god" << 12147 << 1259;
        QTest::newRow("1002") << 1002 << "oiq" << 12361 << 0;
        QTest::newRow("16") << 16 << "ofq" << 12353 << 1260;
        QTest::newRow("11") << 11 << "sgq" << 11222 << 0;
        QTest::newRow("8") << 8 << "osq" << 12369 << 1262;
        QTest::newRow("-1") << -1 << "allq" << 0 << 1263;
    }

    void tradeTypeTable() {
        QFETCH(int, tradeType);
        QFETCH(QString, objectName);
        QFETCH(int, addRight);
        QFETCH(int, layoutId);
        const CTradeTypeInfo* info = CTradeTypeTable::find(tradeType);
        QVERIFY(info);
        QCOMPARE(QString(info->objectName), objectName);
        const CSourceRights* rights = CRightsTable::find(tradeType);
        QCOMPARE(rights ? rights->add : 0, addRight);
        QCOMPARE(info->layoutId, layoutId);
    }

    void twelveTradeTypesInPanelOrder() {
        QList<int> ids;
        for (const CTradeTypeInfo& info : CTradeTypeTable::all())
            ids << info.tradeType;
        QCOMPARE(ids, (QList<int>{1, 2, 5, 6, 7, 10, 4, 16, 1002, 8, -1, 11}));
        QVERIFY(!CTradeTypeTable::find(14));
        QVERIFY(!CTradeTypeTable::find(15));
    }

    // The named predicates hold exactly where the panels' bit rules do, on every id around the
    // known ones (and a few far off).
    void predicatesAreThePanelsBitRules() {
        QList<int> ids;
        for (int id = -20; id <= 1100; ++id)
            ids << id;
        ids << 2147483646 << -2147483647 - 1;
        for (int id : ids) {
            // In 64 bits, so that the rule is defined at the ends of int too.
            const bool futuresRule = ((static_cast<long long>(id) - 1) & ~4LL) == 0;
            const long long bit = (long long)id + 1;
            const bool groupRule = bit >= 0 && bit <= 6 && ((0x45u >> bit) & 1u);
            QVERIFY2(CTradeTypeTable::isFuturesType(id) == futuresRule,
                     qPrintable(QString::number(id)));
            QVERIFY2(CTradeTypeTable::isFuturesGroup(id) == groupRule,
                     qPrintable(QString::number(id)));
        }
    }

    void futuresGroup() {
        QVERIFY(CTradeTypeTable::isFuturesType(1));
        QVERIFY(CTradeTypeTable::isFuturesType(5));
        QVERIFY(!CTradeTypeTable::isFuturesType(-1));
        QVERIFY(CTradeTypeTable::isFuturesGroup(-1));
        QVERIFY(!CTradeTypeTable::isFuturesGroup(2));
        QCOMPARE(CTradeTypeTable::storedTradeType(1), 2);
        QCOMPARE(CTradeTypeTable::storedTradeType(5), 2);
        QCOMPARE(CTradeTypeTable::storedTradeType(-1), -1);
        QCOMPARE(CTradeTypeTable::storedTradeType(16), 16);
    }

    void platformNamesWithLoginType_data() {
        QTest::addColumn<int>("platformId");
        QTest::addColumn<QString>("plain");
        QTest::addColumn<QString>("branded");
        QTest::newRow("10000") << 10000 << "高级行情"
                               << "Kx高级行情";
        QTest::newRow("10001") << 10001 << "高级行情"
                               << "Kx高级行情";
        QTest::newRow("10002") << 10002 << "高级行情"
                               << "Kx高级行情";
        QTest::newRow("10003") << 10003 << "高级行情"
                               << "Kx高级行情";
        QTest::newRow("10004") << 10004 << "高级行情"
                               << "Kx高级行情";
        QTest::newRow("15000") << 15000 << "高级行情"
                               << "Kx高级行情";
        QTest::newRow("31003") << 31003 << "高级行情"
                               << "Kx高级行情";
        QTest::newRow("20000") << 20000 << "高级行情-期货"
                               << "Kx高级行情-期货";
        QTest::newRow("70000") << 70000 << "高级行情-期货期权"
                               << "Kx高级行情-期货期权";
        QTest::newRow("25011") << 25011 << "CTP个股期权实盘"
                               << "CTP个股期权实盘";
        QTest::newRow("25012") << 25012 << "CTP个股期权模拟"
                               << "CTP个股期权模拟";
        QTest::newRow("32000") << 32000 << ""
                               << "";
        QTest::newRow("0") << 0 << ""
                           << "";
        QTest::newRow("99999") << 99999 << ""
                               << "";
    }

    void platformNamesWithLoginType() {
        QFETCH(int, platformId);
        QFETCH(QString, plain);
        QFETCH(QString, branded);
        m_backend->setLoginTypeAuth(true);
        QCOMPARE(getPlatformName(platformId), plain);
        m_backend->setLoginTypeAuth(false);
        QCOMPARE(getPlatformName(platformId), branded);
        m_backend->setLoginTypeAuth(true);
    }

    void sharedNames() {
        QVERIFY(getPlatformName(32000).isEmpty());
        QVERIFY(getPlatformName(0).isEmpty());
        QCOMPARE(getPlatformName(10004), getPlatformName(10000));
        QCOMPARE(getPlatformName(15000), getPlatformName(10000));
    }

    void platformsPerTradeType() {
        using V = std::vector<int>;
        QCOMPARE(CPlatformTable::platformsFor(-1, false), V{10000});
        QCOMPARE(CPlatformTable::platformsFor(1, false), V{20000});
        QCOMPARE(CPlatformTable::platformsFor(2, true), V{20000});
        QCOMPARE(CPlatformTable::platformsFor(2, false), V{10000});
        QCOMPARE(CPlatformTable::platformsFor(4, false), V{31003});
        QCOMPARE(CPlatformTable::platformsFor(5, false), V{70000});
        QCOMPARE(CPlatformTable::platformsFor(6, false), (V{10001, 25011, 25012}));
        QCOMPARE(CPlatformTable::platformsFor(7, false), V{10003});
        QCOMPARE(CPlatformTable::platformsFor(8, false), V{32000});
        QCOMPARE(CPlatformTable::platformsFor(10, false), V{10002});
        QCOMPARE(CPlatformTable::platformsFor(11, false), V{10004});
        QCOMPARE(CPlatformTable::platformsFor(16, false), V{15000});
        QCOMPARE(CPlatformTable::platformsFor(1002, false), V{32000});
        QVERIFY(CPlatformTable::platformsFor(0, false).empty());
        QVERIFY(CPlatformTable::platformsFor(3, false).empty());
    }

    void marketLists() {
        QCOMPARE(QString(CTradeTypeTable::find(2)->markets), QString("SH,SZ"));
        QCOMPARE(QString(CTradeTypeTable::find(4)->markets), QString("GOLD"));
        QCOMPARE(QString(CTradeTypeTable::find(6)->markets), QString("SHO,SZO"));
        QCOMPARE(QString(CTradeTypeTable::find(7)->markets), QString("HGT"));
        QCOMPARE(QString(CTradeTypeTable::find(8)->markets), QString("IB"));
        QCOMPARE(QString(CTradeTypeTable::find(10)->markets), QString("NEEQ"));
        QCOMPARE(QString(CTradeTypeTable::find(11)->markets), QString("SGT"));
        QCOMPARE(QString(CTradeTypeTable::find(16)->markets), QString("YSWP"));
        QCOMPARE(QString(CTradeTypeTable::find(1002)->markets), QString("IB"));
        QCOMPARE(QString(CTradeTypeTable::find(-1)->markets), QString());
        QCOMPARE(QString(CTradeTypeTable::find(1)->markets), QString());
        QCOMPARE(QString(CTradeTypeTable::find(5)->markets), QString());
    }

    void fanOutRows() {
        const auto& rows = CFanOutTable::rows();
        QCOMPARE(int(rows.size()), 11);
        QCOMPARE(rows[0].right, 10385);
        QCOMPARE(rows[0].platformId, 20000);
        QCOMPARE(rows[0].tradeType, 2);
        QCOMPARE(rows[2].platformId, 70000);
        QCOMPARE(rows[8].tradeType, 1002);
        QCOMPARE(rows[9].tradeType, 8);
        QCOMPARE(rows[8].platformId, rows[9].platformId);
        QCOMPARE(rows[10].right, 12353);
        QCOMPARE(rows[10].tradeType, 16);
    }

    void queryConditions() {
        QCOMPARE(CRequestFactory::queryCondition(2), std::string("2"));
        QCOMPARE(CRequestFactory::queryCondition(1002), std::string("1002"));
        QCOMPARE(CRequestFactory::queryCondition(-1), std::string());
        auto query = CRequestFactory::query(rkservice::kDataQuoteSources, "5");
        QCOMPARE(query->dataType, int(rkservice::kDataQuoteSources));
        QCOMPARE(query->condition, std::string("5"));
        auto operate = CRequestFactory::operate(rkservice::kDataGlobalPermission,
                                                rkservice::kOperateSaveWholeQuote);
        QCOMPARE(operate->dataType, int(rkservice::kDataGlobalPermission));
        QCOMPARE(operate->operateType, int(rkservice::kOperateSaveWholeQuote));
        QVERIFY(operate->datas.empty());
    }

private:
    boost::shared_ptr<ScriptedBackend> m_backend;
};

QTEST_MAIN(TestVocabulary)
#include "tst_vocabulary.moc"
