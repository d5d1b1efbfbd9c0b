#include <QtTest>
#include <boost/make_shared.hpp>

#include "Hlx/CLogCenter.h"
#include "Hlx/CUserManager.h"
#include "Hlx/NeeqString.h"
#include "bson/BSONObj.h"
#include "rkservice/CGlobalFeaturePermissionInfo.h"
#include "rkservice/CLevel2Token.h"
#include "rkservice/COrinBrokerInfo.h"
#include "rkservice/COrinQuoterSourceInfo.h"
#include "rkservice/DataTypeIds.h"
#include "utils/RKError.h"

#include <log4cxx/logger.h>

class TestRecords : public QObject {
    Q_OBJECT
private slots:
    // The protocol's ids: every other test names them.
    void dataTypeIdsAreTheProtocols() {
        QCOMPARE(int(rkservice::kDataGlobalPermission), 676);
        QCOMPARE(int(rkservice::kDataBrokers), 12261);
        QCOMPARE(int(rkservice::kDataPlatforms), 12262);
        QCOMPARE(int(rkservice::kDataQuoteSources), 12300);
        QCOMPARE(int(rkservice::kDataLevel2Tokens), 12417);
        QCOMPARE(int(rkservice::kOperateModify), 0);
        QCOMPARE(int(rkservice::kOperateSaveWholeQuote), 1);
        QCOMPARE(int(rkservice::kOperateAdd), 2);
        QCOMPARE(int(rkservice::kOperateDelete), 3);
    }

    void quoteSourceDefaults() {
        rkservice::COrinQuoterSourceInfo source;
        QCOMPARE(source.m_nId, 0);
        QCOMPARE(source.m_nPlatformId, 0);
        QCOMPARE(source.m_nBrokerId, 2147483647);
        QCOMPARE(source.m_nServerGroupId, 0);
        QCOMPARE(source.m_nPort, 0);
        QCOMPARE(source.m_nTradeType, 0);
        QVERIFY(source.m_strAddress.empty());
        QVERIFY(source.m_strUserName.empty());
        QVERIFY(source.m_strPassword.empty());
        QVERIFY(source.m_strMarkets.empty());
        QVERIFY(source.getSystemTag().empty());
    }

    void quoteSourceCopyIsIndependent() {
        auto source = boost::make_shared<rkservice::COrinQuoterSourceInfo>();
        source->m_nId = 7;
        source->m_strAddress = "10.1.1.1";
        source->setSystemTag("sys1");
        rkservice::IDataPtr copy = source->clone();
        auto typed = boost::dynamic_pointer_cast<rkservice::COrinQuoterSourceInfo>(copy);
        QVERIFY(typed);
        QVERIFY(typed.get() != source.get());
        QCOMPARE(typed->m_nId, 7);
        QCOMPARE(typed->getSystemTag(), std::string("sys1"));
        source->m_strAddress = "changed";
        QCOMPARE(typed->m_strAddress, std::string("10.1.1.1"));
    }

    void brokerCloneCopiesServerGroups() {
        rkservice::COrinBrokerInfo broker;
        auto group = boost::make_shared<rkservice::COrinServerGroup>();
        group->serverGroupName = "电信";
        broker.serverGroups.push_back(group);
        auto copy = boost::dynamic_pointer_cast<rkservice::COrinBrokerInfo>(broker.clone());
        QVERIFY(copy->serverGroups.front().get() != group.get());
        QCOMPARE(copy->serverGroups.front()->serverGroupName, std::string("电信"));
    }

    void permissionCopyOwnsItsDivision() {
        rkservice::CGlobalFeaturePermissionInfo info;
        QVERIFY(info.m_wholeQuote);
        info.m_wholeQuote->setEnabled("SH", true);
        rkservice::CGlobalFeaturePermissionInfo copy(info);
        QVERIFY(copy.m_wholeQuote.get() != info.m_wholeQuote.get());
        QVERIFY(copy.m_wholeQuote->isEnabled("SH"));
        QVERIFY(!copy.m_wholeQuote->isEnabled("SZ"));
    }

    void errorValues() {
        utils::RKError ok;
        QVERIFY(ok.isSuccess());
        QVERIFY(ok.errorMsg().empty());
        utils::RKError failed = utils::RKError::fail("失败");
        QVERIFY(!failed.isSuccess());
        QCOMPARE(failed.errorMsg(), std::string("失败"));
    }

    void bsonIsAValue() {
        bson::BSONObj empty;
        QVERIFY(empty.isEmpty());
        bson::BSONObj doc;
        doc.appendInt("n", 3);
        doc.appendString("s", "文本");
        bson::BSONObj copy = doc;
        doc.appendInt("m", 4);
        QCOMPARE(copy.nFields(), 2);
        QCOMPARE(copy.getIntField("n"), 3);
        QCOMPARE(copy.getStringField("s"), std::string("文本"));
        copy = empty;
        QVERIFY(copy.isEmpty());
        QCOMPARE(doc.nFields(), 3);
    }

    void rightsAndRouting() {
        auto user = boost::make_shared<rkservice::CUserInfo>();
        user->m_rights = {10385, 12532};
        user->m_nSystemId = 2147483647;
        Hlx::CUserManager::instance()->setCurrentUser(user);
        QVERIFY(Hlx::CUserManager::instance()->checkUserAuth(10385));
        QVERIFY(!Hlx::CUserManager::instance()->checkUserAuth(10937));
        QVERIFY(Hlx::CUserManager::instance()->getUserInfoPtr()->routesBySystem());
        user->m_nSystemId = -1;
        QVERIFY(user->routesBySystem());
        user->m_nSystemId = 0;
        QVERIFY(!user->routesBySystem());
        user->m_nSystemId = 3;
        QVERIFY(!user->routesBySystem());
    }

    void permissionRecordIsKept() {
        auto info = boost::make_shared<rkservice::CGlobalFeaturePermissionInfo>();
        Hlx::CUserManager::instance()->setGlobalPermissionInfo(info);
        QCOMPARE(Hlx::CUserManager::instance()->getGlobalPermissionInfo().get(), info.get());
    }

    void logLines() {
        Hlx::CLogCenter::instance()->clearRecentLines();
        log4cxx::LoggerPtr logger = log4cxx::Logger::getLogger("test.records");
        logger->setLevel(log4cxx::Level::getInfo());
        rkStdLogNew(logger, log4cxx::Level::getInfo(), "[CQuotesManagePanel] saveData error:%s",
                    "断开");
        rkStdLogNew(logger, log4cxx::Level::getDebug(), "hidden %d", 1);
        const QStringList lines = Hlx::CLogCenter::instance()->recentLines();
        QCOMPARE(lines, QStringList{"[CQuotesManagePanel] saveData error:断开"});
        Hlx::CLogCenter::instance()->setLogEnabled(false);
        QVERIFY(!Hlx::CLogCenter::instance()->logEnabled());
        Hlx::CLogCenter::instance()->setLogEnabled(true);
    }

    void neeqName() { QCOMPARE(Hlx::getNeeqString(), QString("新三板")); }
};

QTEST_GUILESS_MAIN(TestRecords)
#include "tst_records.moc"
