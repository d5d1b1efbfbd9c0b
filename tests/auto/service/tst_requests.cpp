// Every data type, condition and operation of the data service, and every refusal, through the
// client centre as the panels send them.

#include <sys/stat.h>

#include <QSqlQuery>

#include "CDatabase.h"
#include "CSchema.h"
#include "SampleData.h"
#include "ServiceResults.h"
#include "ServiceTestUtil.h"
#include "StoredRevisions.h"
#include "rkservice/CUserInfo.h"

using namespace svctest;

class TestRequests : public QObject {
    Q_OBJECT

private:
    QTemporaryDir* m_dir = nullptr;
    boost::shared_ptr<CQuotesService> m_service;

    void openService(bool seed = true) {
        CServiceOptions options = SampleData::inDirectory(m_dir->path());
        options.seed = seed;
        QString error;
        m_service = CQuotesService::open(options, &error);
        QVERIFY2(m_service, qPrintable(error));
        Hlx::COrinClientCenter::instance()->setBackend(
            CEmbeddedBackends::backendAsOwner(m_service));
    }
    void closeService() {
        Hlx::COrinClientCenter::instance()->waitForIdle();
        Hlx::COrinClientCenter::instance()->setBackend(nullptr);
        m_service.reset();
    }
    std::vector<rkservice::COrinQuoterSourceInfoPtr> sources(const std::string& condition = "",
                                                             const std::string& subsystem = "") {
        const QueryResult r = subsystem.empty()
                                  ? query(rkservice::kDataQuoteSources, condition)
                                  : queryAt(rkservice::kDataQuoteSources, condition, subsystem);
        if (!r.error.isSuccess())
            qWarning("query failed: %s", r.error.errorMsg().c_str());
        return as<rkservice::COrinQuoterSourceInfo>(r.datas);
    }
    int addOne(const rkservice::COrinQuoterSourceInfoPtr& source,
               const std::string& subsystem = "") {
        const OperateResult r = operate(rkservice::kDataQuoteSources, rkservice::kOperateAdd,
                                        list({source}), subsystem);
        if (!r.error.isSuccess()) {
            qWarning("add failed: %s", r.error.errorMsg().c_str());
            return -1;
        }
        return QString::fromStdString(r.result.getStringField("ids")).toInt();
    }
    // The requests of these tests, each modify or delete naming the revision stored now:
    // validation is the subject here.
    OperateResult operate(int dataType, int operateType,
                          const std::vector<rkservice::IDataPtr>& datas,
                          const std::string& subsystem = std::string()) {
        if (operateType != rkservice::kOperateAdd)
            StoredRevisions::fill(*m_service, dataType, datas, subsystem);
        return svctest::operate(dataType, operateType, datas, subsystem);
    }

    void expectRefused(const rkservice::COrinQuoterSourceInfoPtr& source, const QString& fragment,
                       int op = rkservice::kOperateAdd, const std::string& subsystem = "") {
        const size_t before = sources().size();
        const OperateResult r =
            operate(rkservice::kDataQuoteSources, op, list({source}), subsystem);
        QVERIFY2(!r.error.isSuccess(), qPrintable(fragment));
        QVERIFY2(errorText(r.error).contains(fragment), qPrintable(errorText(r.error)));
        QCOMPARE(sources().size(), before);
    }

private slots:
    void init() {
        m_dir = new QTemporaryDir;
        QVERIFY(m_dir->isValid());
        openService();
    }
    void cleanup() {
        closeService();
        delete m_dir;
        m_dir = nullptr;
    }

    void seededSubsystemsUsersAndSettings() {
        auto* centre = Hlx::COrinClientCenter::instance();
        QVERIFY(centre->isMultiServers());
        const auto systems = m_service->subsystems();
        QCOMPARE(int(systems.size()), 2);
        QCOMPARE(QString::fromStdString(systems[0].name), QStringLiteral("sys1"));
        QCOMPARE(centre->getServerNameBySystemTag("sys1"), QStringLiteral("上海主站"));
        QCOMPARE(centre->getServerNameBySystemTag("sys2"), QStringLiteral("深圳备站"));
        QVERIFY(m_service->hasClientLoginTypeAuth(0));
        QVERIFY(!m_service->hasClientLoginTypeAuth(1));

        std::map<std::string, rkservice::CUserInfoPtr> users;
        for (const auto& user : storedUsers(*m_service))
            users[user->m_strName] = user;
        QVERIFY(users.count("admin") && users.count("futures_op") && users.count("viewer"));
        QVERIFY(users["admin"]->routesBySystem());
        for (int right :
             {10385, 10937, 11231, 10709, 11029, 11019, 12147, 12361, 12353, 11222, 12369, 10389,
              10563, 10711, 10713, 11031, 11033, 11021, 11023, 12149, 12151, 12363, 12365, 12355,
              12357, 11223, 11224, 12370, 12372, 10387, 11230, 12532, 12534, 12536})
            QVERIFY2(users["admin"]->m_rights.count(right), qPrintable(QString::number(right)));
        QCOMPARE(users["futures_op"]->m_rights, (std::set<int>{10385, 11231, 10387, 11230}));
        QVERIFY(!users["futures_op"]->routesBySystem());
        QVERIFY(users["viewer"]->m_rights.empty());

        const QueryResult r = query(rkservice::kDataUsers, "");
        QVERIFY(r.error.isSuccess());
        QCOMPARE(as<rkservice::CUserInfo>(r.datas).size(), users.size());
        const QueryResult one = query(rkservice::kDataUsers, "viewer");
        QCOMPARE(int(one.datas.size()), 1);
        QVERIFY(!operate(rkservice::kDataUsers, rkservice::kOperateAdd,
                         list({boost::make_shared<rkservice::CUserInfo>()}))
                     .error.isSuccess());
    }

    void databaseFileIsPrivate() {
        struct stat info;
        QVERIFY(::stat(QFile::encodeName(m_service->databaseFile()).constData(), &info) == 0);
        QCOMPARE(int(info.st_mode & 0777), 0600);
        QVERIFY(m_service->databaseDescription().startsWith(QStringLiteral("SQLite ")));
        QVERIFY(m_service->databaseDescription().contains(QStringLiteral("quotes.db")));
    }

    void addQueryAndTagsThroughCentre() {
        const OperateResult r =
            operate(rkservice::kDataQuoteSources, rkservice::kOperateAdd,
                    list({stockSource(10000, 2, "10.0.0.1", 9000, "u1", "p@ss 1"),
                          stockSource(10001, 6, "10.0.0.2", 9001)}));
        QVERIFY2(r.error.isSuccess(), r.error.errorMsg().c_str());
        QCOMPARE(r.result.getIntField("count"), 2);
        const auto all = sources();
        QCOMPARE(int(all.size()), 2);
        QVERIFY(all[0]->m_nId > 0);
        QVERIFY(all[1]->m_nId > all[0]->m_nId);
        QCOMPARE(QString::fromStdString(r.result.getStringField("ids")),
                 QStringLiteral("%1,%2").arg(all[0]->m_nId).arg(all[1]->m_nId));
        // An add sent to the centre lands in the default sub-system.
        QCOMPARE(all[0]->getSystemTag(), std::string("sys1"));
        QCOMPARE(all[0]->m_strPassword, std::string("p@ss 1"));
        QCOMPARE(all[0]->m_strUserName, std::string("u1"));
        QCOMPARE(all[0]->m_nBrokerId, rkservice::COrinQuoterSourceInfo::kNoBroker);
        QCOMPARE(all[0]->m_nPort, 9000);
    }

    void conditions() {
        QVERIFY(addOne(stockSource(10000, 2, "10.0.0.1", 9000)) > 0);
        QVERIFY(addOne(stockSource(20000, 2, "10.0.0.2", 9000)) > 0);
        QVERIFY(addOne(stockSource(31003, 4, "10.0.0.3", 9000)) > 0);
        QVERIFY(addOne(stockSource(32000, 1002, "10.0.0.4", 9000)) > 0);
        QCOMPARE(int(sources("").size()), 4);
        QCOMPARE(int(sources("-1").size()), 4);
        QCOMPARE(int(sources("2").size()), 2);
        QCOMPARE(int(sources("4").size()), 1);
        QCOMPARE(int(sources("1002").size()), 1);
        QCOMPARE(int(sources("3").size()), 0);
        for (const char* bad : {"abc", "2 ", " 2", "2,4", "99999999999", "+2", "0x2", "-"}) {
            const QueryResult r = query(rkservice::kDataQuoteSources, bad);
            QVERIFY2(!r.error.isSuccess(), bad);
            QVERIFY(errorText(r.error).contains(QStringLiteral("查询条件格式错误")));
            QVERIFY(r.datas.empty());
        }
        QVERIFY(!query(rkservice::kDataBrokers, "x").error.isSuccess());
        QVERIFY(!query(rkservice::kDataPlatforms, "1.5").error.isSuccess());
    }

    void subsystemRouting() {
        const int a = addOne(stockSource(10000, 2, "10.0.0.1", 9000), "sys1");
        const int b = addOne(stockSource(10000, 2, "10.0.0.1", 9000), "sys2");
        QVERIFY(a > 0 && b > 0 && a != b);  // the same endpoint may exist once per sub-system
        QCOMPARE(int(sources("", "sys1").size()), 1);
        QCOMPARE(sources("", "sys2").front()->getSystemTag(), std::string("sys2"));
        QCOMPARE(int(sources("").size()), 2);

        // A modify sent to the centre applies where the id lives.
        auto change = stockSource(10000, 2, "10.0.0.9", 9009);
        change->m_nId = b;
        QVERIFY(operate(rkservice::kDataQuoteSources, rkservice::kOperateModify, list({change}))
                    .error.isSuccess());
        QCOMPARE(sources("", "sys2").front()->m_strAddress, std::string("10.0.0.9"));
        QCOMPARE(sources("", "sys1").front()->m_strAddress, std::string("10.0.0.1"));

        // A sub-system's client reaches that sub-system's data only.
        change->m_strAddress = "10.0.0.10";
        expectRefused(change, QStringLiteral("行情源不存在"), rkservice::kOperateModify, "sys1");
        const OperateResult wrongDelete =
            operate(rkservice::kDataQuoteSources, rkservice::kOperateDelete,
                    list({deleteRecord(b)}), "sys1");
        QVERIFY(!wrongDelete.error.isSuccess());
        QCOMPARE(int(sources().size()), 2);
        QVERIFY(operate(rkservice::kDataQuoteSources, rkservice::kOperateDelete,
                        list({deleteRecord(b)}), "sys2")
                    .error.isSuccess());
        QCOMPARE(int(sources("", "sys2").size()), 0);

        // A client of an unknown sub-system is refused by name.
        const QueryResult unknown = queryAt(rkservice::kDataQuoteSources, "", "nosuch");
        QVERIFY(!unknown.error.isSuccess());
        QVERIFY(errorText(unknown.error).contains(QStringLiteral("nosuch")));
        std::vector<rkservice::IDataPtr> datas;
        QVERIFY(!m_service
                     ->querySync(CCaller::owner(), Hlx::CRequestTarget::subsystem("nosuch"),
                                 rkservice::COrinQueryDataReq(), &datas)
                     .isSuccess());
    }

    void futureSources() {
        QVERIFY(addOne(futureSource(20000, 1, 8060, 1)) > 0);
        QVERIFY(addOne(futureSource(20000, 1, 8060, 2)) > 0);
        QVERIFY(addOne(futureSource(70000, 5, 8070, 1)) > 0);
        const auto futures = sources("1");
        QCOMPARE(int(futures.size()), 2);
        QCOMPARE(futures[0]->m_nBrokerId, 8060);
        QCOMPARE(futures[1]->m_nServerGroupId, 2);
        QVERIFY(futures[0]->m_strAddress.empty());
        QCOMPARE(futures[0]->m_nPort, 0);

        expectRefused(futureSource(20000, 1, 9999, 1), QStringLiteral("期货公司不存在"));
        expectRefused(futureSource(20000, 1, 8060, 7), QStringLiteral("服务器组不存在"));
        // The broker exists, but on another platform.
        expectRefused(futureSource(70001, 5, 8060, 1), QStringLiteral("期货公司不存在"));
        expectRefused(futureSource(20000, 1, 8060, 1), QStringLiteral("行情源已存在"));
        // The same broker and group for another trade type is a different source.
        QVERIFY(addOne(futureSource(20000, 5, 8060, 1)) > 0);
    }

    void sourceValidation() {
        QVERIFY(addOne(stockSource(10000, 2, "10.0.0.1", 9000)) > 0);
        expectRefused(stockSource(10000, 2, "10.0.0.2", 0),
                      QStringLiteral("端口必须在 1 到 65535 之间"));
        expectRefused(stockSource(10000, 2, "10.0.0.2", 65536), QStringLiteral("端口"));
        expectRefused(stockSource(10000, 2, "10.0.0.2", -1), QStringLiteral("端口"));
        expectRefused(stockSource(10000, 2, "", 9000), QStringLiteral("服务器地址不能为空"));
        for (const char* bad : {" 10.0.0.2", "10.0.0.2 ", "10.0.0.2.", "256.1.1.1", "01.2.3.4",
                                "10.0.0", "host.example", "1.2.3.4:80", "::g", "[::1]"})
            expectRefused(stockSource(10000, 2, bad, 9000), QStringLiteral("服务器地址格式错误"));
        QVERIFY(addOne(stockSource(10000, 2, "::1", 9000)) > 0);
        QVERIFY(addOne(stockSource(10000, 2, "fe80::1:2", 65535)) > 0);
        QVERIFY(addOne(stockSource(10000, 2, "0.0.0.0", 1)) > 0);
        expectRefused(stockSource(12345, 2, "10.0.0.3", 9000), QStringLiteral("未知的平台: 12345"));
        expectRefused(stockSource(0, 2, "10.0.0.3", 9000), QStringLiteral("未知的平台"));
        for (int type : {-1, 0, 3, 9, 14, 15, 1001})
            expectRefused(stockSource(10000, type, "10.0.0.3", 9000),
                          QStringLiteral("未知交易类型"));
        expectRefused(stockSource(10000, 2, "10.0.0.1", 9000), QStringLiteral("行情源已存在"));
        // Another port, trade type or platform is another source.
        QVERIFY(addOne(stockSource(10000, 2, "10.0.0.1", 9001)) > 0);
        QVERIFY(addOne(stockSource(20000, 2, "10.0.0.1", 9000)) > 0);
        QVERIFY(addOne(stockSource(10001, 6, "10.0.0.1", 9000)) > 0);
        // Every platform of the stock dialog and the seeded futures platforms are known.
        int port = 20000;
        for (int platform : {10000, 10001, 10002, 10003, 10004, 15000, 31003, 20000, 70000, 25011,
                             25012, 32000, 20001, 20002, 70001})
            QVERIFY2(addOne(stockSource(platform, 2, "10.1.0.1", ++port)) > 0,
                     qPrintable(QString::number(platform)));
    }

    void unknownTypesOperationsAndShapes() {
        const QueryResult q = query(4242, "");
        QVERIFY(!q.error.isSuccess());
        QVERIFY(errorText(q.error).contains(QStringLiteral("不支持的数据类型")));
        const OperateResult o = operate(4242, 2, list({stockSource(10000, 2, "10.0.0.1", 1)}));
        QVERIFY(errorText(o.error).contains(QStringLiteral("不支持的数据类型")));
        for (int op : {1, 4, -1, 7}) {
            const OperateResult r = operate(rkservice::kDataQuoteSources, op,
                                            list({stockSource(10000, 2, "10.0.0.1", 1)}));
            QVERIFY(errorText(r.error).contains(QStringLiteral("不支持的操作类型")));
        }
        QVERIFY(errorText(operate(rkservice::kDataBrokers, 2, {}).error)
                    .contains(QStringLiteral("不支持的操作类型")));
        QVERIFY(errorText(operate(rkservice::kDataPlatforms, 0, {}).error)
                    .contains(QStringLiteral("不支持的操作类型")));
        QVERIFY(errorText(operate(rkservice::kDataQuoteSources, 2, {}).error)
                    .contains(QStringLiteral("没有")));
        const OperateResult wrong = operate(rkservice::kDataQuoteSources, 2,
                                            list({boost::make_shared<rkservice::CLevel2Token>()}));
        QVERIFY(errorText(wrong.error).contains(QStringLiteral("记录类型不符")));
        QVERIFY(sources().empty());
    }

    void modify() {
        const int id = addOne(stockSource(10000, 2, "10.0.0.1", 9000, "u", "p"));
        const int other = addOne(stockSource(10000, 2, "10.0.0.2", 9000));
        auto change = stockSource(10000, 2, "10.0.0.3", 9100, "nu", "np");
        change->m_nId = id;
        QVERIFY(operate(rkservice::kDataQuoteSources, 0, list({change})).error.isSuccess());
        auto stored = sources().front();
        QCOMPARE(stored->m_nId, id);
        QCOMPARE(stored->m_strAddress, std::string("10.0.0.3"));
        QCOMPARE(stored->m_nPort, 9100);
        QCOMPARE(stored->m_strUserName, std::string("nu"));
        QCOMPARE(stored->m_strPassword, std::string("np"));

        // The all-types panel edits with trade type -1: the stored trade type stays.
        auto fromAllTypes = stockSource(10000, -1, "10.0.0.4", 9100);
        fromAllTypes->m_nId = id;
        QVERIFY(operate(rkservice::kDataQuoteSources, 0, list({fromAllTypes})).error.isSuccess());
        QCOMPARE(sources().front()->m_nTradeType, 2);

        auto missing = stockSource(10000, 2, "10.0.0.5", 9100);
        missing->m_nId = 999999;
        expectRefused(missing, QStringLiteral("行情源不存在: 999999"), 0);
        auto clash = stockSource(10000, 2, "10.0.0.2", 9000);
        clash->m_nId = id;
        expectRefused(clash, QStringLiteral("行情源已存在"), 0);
        auto badPort = stockSource(10000, 2, "10.0.0.6", 70000);
        badPort->m_nId = other;
        expectRefused(badPort, QStringLiteral("端口"), 0);
        QCOMPARE(sources()[1]->m_strAddress, std::string("10.0.0.2"));
        // Keeping its own endpoint is no clash with itself.
        auto same = stockSource(10000, 2, "10.0.0.2", 9000, "x", "y");
        same->m_nId = other;
        QVERIFY(operate(rkservice::kDataQuoteSources, 0, list({same})).error.isSuccess());
        // A refused modify batch changes nothing, not even its valid records.
        auto good = stockSource(10000, 2, "10.0.0.7", 9000);
        good->m_nId = id;
        const OperateResult r = operate(rkservice::kDataQuoteSources, 0, list({good, missing}));
        QVERIFY(!r.error.isSuccess());
        QCOMPARE(sources().front()->m_strAddress, std::string("10.0.0.4"));
    }

    void deleteKeyedByIdAndAtomic() {
        const int a = addOne(stockSource(10000, 2, "10.0.0.1", 9000));
        const int b = addOne(stockSource(20000, 2, "10.0.0.2", 9000));
        const int c = addOne(futureSource(20000, 1, 8060, 1));
        // A delete carries the id, the trade type and the platform; only the id counts.
        QVERIFY(operate(rkservice::kDataQuoteSources, 3, list({deleteRecord(b, 2, 20000)}))
                    .error.isSuccess());
        QCOMPARE(int(sources().size()), 2);
        const OperateResult partly =
            operate(rkservice::kDataQuoteSources, 3,
                    list({deleteRecord(a), deleteRecord(b), deleteRecord(c)}));
        QVERIFY(!partly.error.isSuccess());
        QVERIFY(errorText(partly.error).contains(QStringLiteral("行情源不存在: %1").arg(b)));
        QCOMPARE(int(sources().size()), 2);
        QVERIFY(!operate(rkservice::kDataQuoteSources, 3, list({deleteRecord(a), deleteRecord(a)}))
                     .error.isSuccess());
        QVERIFY(operate(rkservice::kDataQuoteSources, 3,
                        list({deleteRecord(a, 99, 1), deleteRecord(c)}))
                    .error.isSuccess());
        QVERIFY(sources().empty());
        // Ids are never handed out twice.
        QVERIFY(addOne(stockSource(10000, 2, "10.0.0.1", 9000)) > c);
    }

    void addBatchAllOrNothing() {
        std::vector<rkservice::IDataPtr> batch;
        for (int i = 0; i < 10; ++i)
            batch.push_back(stockSource(10000, 2, "10.0.1." + std::to_string(i), 9000));
        batch.push_back(stockSource(10000, 2, "10.0.2.1", 0));
        const OperateResult r = operate(rkservice::kDataQuoteSources, 2, batch);
        QVERIFY(!r.error.isSuccess());
        QVERIFY(sources().empty());
        // A batch that repeats itself is a duplicate too.
        const OperateResult twice = operate(
            rkservice::kDataQuoteSources, 2,
            list({stockSource(10000, 2, "10.0.3.1", 1), stockSource(10000, 2, "10.0.3.1", 1)}));
        QVERIFY(errorText(twice.error).contains(QStringLiteral("行情源已存在")));
        QVERIFY(sources().empty());
        batch.pop_back();
        QVERIFY(operate(rkservice::kDataQuoteSources, 2, batch).error.isSuccess());
        QCOMPARE(int(sources().size()), 10);
    }

    void brokersAndPlatforms() {
        const QueryResult all = query(rkservice::kDataBrokers, "1");
        QVERIFY(all.error.isSuccess());
        const auto brokers = as<rkservice::COrinBrokerInfo>(all.datas);
        QCOMPARE(brokers.size(), all.datas.size());
        QVERIFY(brokers.size() >= 6);
        std::set<std::string> tags;
        std::set<int> platforms;
        for (const auto& broker : brokers) {
            tags.insert(broker->getSystemTag());
            platforms.insert(broker->platformId);
            const std::string key = broker->brokerKey;
            QVERIFY(key.find('_') != std::string::npos);
            QVERIFY(QString::fromStdString(key).section('_', 0, 0).toInt() > 0);
            QVERIFY(!broker->brokerName.empty());
            QVERIFY(!broker->platformName.empty());
            QVERIFY(broker->serverGroups.size() >= 2 && broker->serverGroups.size() <= 3);
            for (const auto& group : broker->serverGroups) {
                QVERIFY(!group->serverGroupName.empty());
                QVERIFY(group->serverAddresses.size() >= 2 && group->serverAddresses.size() <= 4);
                for (const std::string& address : group->serverAddresses)
                    QVERIFY(QString::fromStdString(address).section(':', 1).toInt() > 0);
            }
        }
        // The centre answers for every sub-system, each copy tagged with its sub-system.
        QCOMPARE(tags, (std::set<std::string>{"sys1", "sys2"}));
        QVERIFY(platforms.count(20000) && platforms.count(20001) && !platforms.count(70000));
        const QueryResult one = queryAt(rkservice::kDataBrokers, "1", "sys2");
        QCOMPARE(one.datas.size() * 2, all.datas.size());
        QCOMPARE(one.datas.front()->getSystemTag(), std::string("sys2"));

        const auto options =
            as<rkservice::COrinBrokerInfo>(queryAt(rkservice::kDataBrokers, "5", "sys1").datas);
        QVERIFY(!options.empty());
        for (const auto& broker : options)
            QVERIFY(broker->platformId == 70000 || broker->platformId == 70001);
        QVERIFY(query(rkservice::kDataBrokers, "2").datas.empty());
        QCOMPARE(query(rkservice::kDataBrokers, "").datas.size(),
                 2 * (one.datas.size() + options.size()));

        const auto futuresPlatforms =
            as<rkservice::COrinPlatformInfo>(queryAt(rkservice::kDataPlatforms, "1", "sys1").datas);
        std::map<int, std::string> names;
        for (const auto& p : futuresPlatforms)
            names[p->platformId] = p->platformName;
        QCOMPARE(int(names.size()), 3);
        QCOMPARE(names[20000], std::string("高级行情-期货"));
        QVERIFY(m_service->setLoginTypeAuth(CCaller::owner(), 0, false).isSuccess());
        QVERIFY(!Hlx::COrinClientCenter::instance()->hasClientLoginTypeAuth(0));
        const auto branded =
            as<rkservice::COrinPlatformInfo>(queryAt(rkservice::kDataPlatforms, "1", "sys1").datas);
        QCOMPARE(branded.front()->platformName, std::string("Kx高级行情-期货"));
        const auto option =
            as<rkservice::COrinPlatformInfo>(queryAt(rkservice::kDataPlatforms, "5", "sys1").datas);
        QCOMPARE(int(option.size()), 2);
    }

    void wholeQuotePermission() {
        const QueryResult all = query(rkservice::kDataGlobalPermission, "");
        QVERIFY(all.error.isSuccess());
        const auto records = as<rkservice::CGlobalFeaturePermissionInfo>(all.datas);
        QCOMPARE(int(records.size()), 2);
        QCOMPARE(records[0]->getSystemTag(), std::string("sys1"));
        QVERIFY(records[0]->m_wholeQuote->isEnabled("SH"));
        QVERIFY(!records[0]->m_wholeQuote->isEnabled("GOLD"));

        auto record = as<rkservice::CGlobalFeaturePermissionInfo>(
                          queryAt(rkservice::kDataGlobalPermission, "", "sys2").datas)
                          .front();
        record->m_wholeQuote->setEnabled("GOLD", true);
        record->m_wholeQuote->setEnabled("SH", false);
        QVERIFY(
            operate(rkservice::kDataGlobalPermission, 1, list({record}), "sys2").error.isSuccess());
        auto sys2 = as<rkservice::CGlobalFeaturePermissionInfo>(
                        queryAt(rkservice::kDataGlobalPermission, "", "sys2").datas)
                        .front();
        QVERIFY(sys2->m_wholeQuote->isEnabled("GOLD"));
        QVERIFY(!sys2->m_wholeQuote->isEnabled("SH"));
        auto sys1 = as<rkservice::CGlobalFeaturePermissionInfo>(
                        queryAt(rkservice::kDataGlobalPermission, "", "sys1").datas)
                        .front();
        QVERIFY(sys1->m_wholeQuote->isEnabled("SH"));
        QVERIFY(!sys1->m_wholeQuote->isEnabled("GOLD"));

        // Sent to the centre, the record goes back where it was read.
        sys2->m_wholeQuote->setEnabled("IB", true);
        QVERIFY(operate(rkservice::kDataGlobalPermission, 1, list({sys2})).error.isSuccess());
        QVERIFY(as<rkservice::CGlobalFeaturePermissionInfo>(
                    queryAt(rkservice::kDataGlobalPermission, "", "sys2").datas)
                    .front()
                    ->m_wholeQuote->isEnabled("IB"));

        auto bad = boost::make_shared<rkservice::CGlobalFeaturePermissionInfo>(*sys1);
        bad->m_wholeQuote = boost::make_shared<rkservice::CWholeQuotedivision>();
        bad->m_wholeQuote->setEnabled("MOON", true);
        QVERIFY(errorText(operate(rkservice::kDataGlobalPermission, 1, list({bad}), "sys1").error)
                    .contains(QStringLiteral("未知的市场代码")));
        bad->m_wholeQuote.reset();
        QVERIFY(
            !operate(rkservice::kDataGlobalPermission, 1, list({bad}), "sys1").error.isSuccess());
        QVERIFY(errorText(operate(rkservice::kDataGlobalPermission, 0, list({sys1}), "sys1").error)
                    .contains(QStringLiteral("不支持的操作类型")));
        QVERIFY(as<rkservice::CGlobalFeaturePermissionInfo>(
                    queryAt(rkservice::kDataGlobalPermission, "", "sys1").datas)
                    .front()
                    ->m_wholeQuote->isEnabled("SH"));
    }

    void level2Tokens() {
        auto token = [](const std::string& text) {
            auto record = boost::make_shared<rkservice::CLevel2Token>();
            record->token = text;
            return record;
        };
        auto stored = [] {
            return as<rkservice::CLevel2Token>(query(rkservice::kDataLevel2Tokens, "").datas);
        };
        QVERIFY(query(rkservice::kDataLevel2Tokens, "").error.isSuccess());
        QVERIFY(stored().empty());
        QVERIFY(errorText(operate(rkservice::kDataLevel2Tokens, 0, list({token("abc")})).error)
                    .contains(QStringLiteral("没有可修改")));
        QVERIFY(
            operate(rkservice::kDataLevel2Tokens, 2, list({token("abc123XYZ")})).error.isSuccess());
        QCOMPARE(stored().front()->token, std::string("abc123XYZ"));
        QVERIFY(errorText(operate(rkservice::kDataLevel2Tokens, 2, list({token("other")})).error)
                    .contains(QStringLiteral("已有")));
        for (const std::string& bad : {std::string(), std::string(101, 'a'), std::string("ab-c"),
                                       std::string("ab c"), std::string("令牌")})
            QVERIFY(errorText(operate(rkservice::kDataLevel2Tokens, 0, list({token(bad)})).error)
                        .contains(QStringLiteral("1 到 100 位")));
        QVERIFY(operate(rkservice::kDataLevel2Tokens, 0, list({token(std::string(100, 'Z'))}))
                    .error.isSuccess());
        QCOMPARE(stored().front()->token, std::string(100, 'Z'));
        QCOMPARE(int(queryAt(rkservice::kDataLevel2Tokens, "", "sys2").datas.size()), 1);
        QVERIFY(!operate(rkservice::kDataLevel2Tokens, 3, list({token("abc123XYZ")}))
                     .error.isSuccess());
        QCOMPARE(int(stored().size()), 1);
        QVERIFY(!operate(rkservice::kDataLevel2Tokens, 1, list({token("abc")})).error.isSuccess());
        QVERIFY(!operate(rkservice::kDataLevel2Tokens, 2, list({token("a"), token("b")}))
                     .error.isSuccess());
        QVERIFY(operate(rkservice::kDataLevel2Tokens, 3, list({token(std::string(100, 'Z'))}))
                    .error.isSuccess());
        QVERIFY(stored().empty());
        QVERIFY(
            operate(rkservice::kDataLevel2Tokens, 2, list({token("again1")})).error.isSuccess());
    }

    void subsystemConfiguration() {
        QVERIFY(addOne(stockSource(10000, 2, "10.0.0.1", 9000), "sys2") > 0);
        QString error;
        error = failureOf(m_service->setSubsystems(CCaller::owner(), {{"sys1", "上海主站"}}));
        QVERIFY(!error.isEmpty());
        QVERIFY(error.contains(QStringLiteral("仍有行情源")));
        error = failureOf(m_service->setSubsystems(CCaller::owner(), {}));
        QVERIFY(!error.isEmpty());
        error = failureOf(m_service->setSubsystems(CCaller::owner(), {{"a", "A"}, {"a", "B"}}));
        QVERIFY(!error.isEmpty());
        QVERIFY(
            m_service
                ->setSubsystems(CCaller::owner(),
                                {{"sys2", "深圳主站"}, {"sys1", "上海备站"}, {"sys3", "北京站"}})
                .isSuccess());
        auto* centre = Hlx::COrinClientCenter::instance();
        QCOMPARE(centre->getServerNameBySystemTag("sys2"), QStringLiteral("深圳主站"));
        QCOMPARE(m_service->subsystems().front().name, std::string("sys2"));
        // The default sub-system is now sys2.
        QVERIFY(addOne(stockSource(10000, 2, "10.0.0.2", 9000)) > 0);
        QCOMPARE(int(sources("", "sys2").size()), 2);
        QVERIFY(addOne(stockSource(10000, 2, "10.0.0.3", 9000), "sys3") > 0);
        QVERIFY(
            m_service->setSubsystems(CCaller::owner(), {{"sys2", "深圳主站"}, {"sys3", "北京站"}})
                .isSuccess());
        QVERIFY(!centre->isMultiServers() || m_service->subsystems().size() == 2);

        closeService();
        openService();
        QCOMPARE(int(m_service->subsystems().size()), 2);
        QCOMPARE(Hlx::COrinClientCenter::instance()->getServerNameBySystemTag("sys3"),
                 QStringLiteral("北京站"));
        QCOMPARE(int(sources().size()), 3);
    }

    void settingsAndDataPersist() {
        QVERIFY(m_service->setLoginTypeAuth(CCaller::owner(), 0, false).isSuccess());
        QVERIFY(m_service->setLoginTypeAuth(CCaller::owner(), 3, true).isSuccess());
        const int id = addOne(stockSource(10000, 2, "10.0.0.1", 9000, "u", "secret"));
        closeService();
        openService();
        QVERIFY(!m_service->hasClientLoginTypeAuth(0));
        QVERIFY(m_service->hasClientLoginTypeAuth(3));
        const auto all = sources();
        QCOMPARE(int(all.size()), 1);
        QCOMPARE(all.front()->m_nId, id);
        QCOMPARE(all.front()->m_strPassword, std::string("secret"));
    }

    void withoutSeedOneSubsystem() {
        closeService();
        delete m_dir;
        m_dir = new QTemporaryDir;
        openService(false);
        QCOMPARE(int(m_service->subsystems().size()), 1);
        QVERIFY(!Hlx::COrinClientCenter::instance()->isMultiServers());
        std::vector<rkservice::CUserInfoPtr> users;
        QVERIFY_OK(m_service->users(CCaller::owner(), &users));
        QVERIFY(users.empty());
        QVERIFY(query(rkservice::kDataBrokers, "1").datas.empty());
        QVERIFY(addOne(stockSource(10000, 2, "10.0.0.1", 9000)) > 0);
        QCOMPARE(sources().front()->getSystemTag(), m_service->subsystems().front().name);
    }

    void newerSchemaRefused() {
        const QString file = m_service->databaseFile();
        closeService();
        {
            QSqlDatabase db =
                QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), QStringLiteral("raw"));
            db.setDatabaseName(file);
            QVERIFY(db.open());
            QSqlQuery q(db);
            QVERIFY(
                q.exec(QStringLiteral("UPDATE meta SET val = '99' WHERE name = 'schema_version'")));
            db.close();
        }
        QSqlDatabase::removeDatabase(QStringLiteral("raw"));
        const QByteArray before = [&] {
            QFile f(file);
            f.open(QIODevice::ReadOnly);
            return f.readAll();
        }();
        CServiceOptions options = SampleData::inDirectory(m_dir->path());
        QString error;
        QVERIFY(!CQuotesService::open(options, &error));
        QVERIFY2(error.contains(QStringLiteral("99")) && error.contains(QStringLiteral("拒绝打开")),
                 qPrintable(error));
        QFile after(file);
        QVERIFY(after.open(QIODevice::ReadOnly));
        QCOMPARE(after.readAll(), before);
        // Put it back so cleanup finds a service to close.
        {
            QSqlDatabase db =
                QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), QStringLiteral("raw"));
            db.setDatabaseName(file);
            QVERIFY(db.open());
            QSqlQuery q(db);
            QVERIFY(q.exec(QStringLiteral("UPDATE meta SET val = '%1' WHERE name = "
                                          "'schema_version'")
                               .arg(CSchema::currentVersion())));
            db.close();
        }
        QSqlDatabase::removeDatabase(QStringLiteral("raw"));
        openService();
    }

    void forwardMigration() {
        closeService();
        delete m_dir;
        m_dir = new QTemporaryDir;
        CServiceOptions options = SampleData::inDirectory(m_dir->path());
        QString error;
        {
            // A database as the first schema version left it, with a source in it.
            auto database = CDatabase::create(options, &error);
            QVERIFY2(database, qPrintable(error));
            database->transact(true, [&](QSqlDatabase& db) {
                CSchema::migrate(*database, db, 0, 1);
                database->exec(db,
                               QStringLiteral("INSERT INTO subsystems VALUES ('old', '旧站', 0)"));
                database->exec(
                    db, QStringLiteral(
                            "INSERT INTO kx_orin_quoter_source (subsystem, platform_id, "
                            "broker_id, server_group_id, address, port, user_name, password, "
                            "trade_type, markets) VALUES ('old', 10000, 2147483647, 0, "
                            "'10.9.9.9', 80, 'u', 'p', 2, 'SH,SZ')"));
            });
            QSqlDatabase probe = database->connection();
            QCOMPARE(CSchema::version(*database, probe), 1);
        }
        openService();
        QCOMPARE(int(m_service->subsystems().size()), 1);
        const auto all = sources();
        QCOMPARE(int(all.size()), 1);
        QCOMPARE(all.front()->m_strMarkets, std::string("SH,SZ"));
        // The migrated database refuses duplicates by itself as well.
        expectRefused(stockSource(10000, 2, "10.9.9.9", 80), QStringLiteral("行情源已存在"));
        {
            auto database = CDatabase::create(options, &error);
            QSqlDatabase probe = database->connection();
            QCOMPARE(CSchema::version(*database, probe), CSchema::currentVersion());
        }
    }

    void markets() {
        auto source = stockSource(10000, 2, "10.0.0.1", 9000);
        source->m_strMarkets = "SH,SZ";
        const int id = addOne(source);
        // The dialogs send no market list on modify: the stored one stays.
        auto change = stockSource(10000, 2, "10.0.0.2", 9000);
        change->m_nId = id;
        QVERIFY(operate(rkservice::kDataQuoteSources, 0, list({change})).error.isSuccess());
        QCOMPARE(sources().front()->m_strMarkets, std::string("SH,SZ"));
    }
};

QTEST_GUILESS_MAIN(TestRequests)
#include "tst_requests.moc"
