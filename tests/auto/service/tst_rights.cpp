#include <QJsonObject>
#include <QtTest>
#include <functional>

#include "Hlx/CUserManager.h"
#include "RoleExpectations.h"
#include "SampleData.h"
#include "ServiceResults.h"
#include "ServiceTestUtil.h"
#include "StoredRevisions.h"
#include "rkservice/CUserInfo.h"

using namespace svctest;

using namespace RoleExpectations;

class TestRights : public QObject {
    Q_OBJECT

    // How a request reaches the service: called with the user as caller, or through the client
    // centre with the user chosen as in the embedded console.
    enum Path { Direct, Console };

    QTemporaryDir m_dir;
    boost::shared_ptr<CQuotesService> m_service;
    int m_nextPort = 20000;

    rkservice::CUserInfoPtr seeded(const QString& name) {
        for (const auto& user : storedUsers(*m_service)) {
            if (QString::fromStdString(user->m_strName) == name)
                return user;
        }
        return nullptr;
    }

    utils::RKError send(Path path, const rkservice::CUserInfoPtr& user, int dataType, int op,
                        const std::vector<rkservice::IDataPtr>& datas) {
        // Rights are the subject here: each change names the revision stored now.
        if (op != rkservice::kOperateAdd)
            StoredRevisions::fill(*m_service, dataType, datas);
        if (path == Console) {
            Hlx::CUserManager::instance()->setCurrentUser(user);
            return operate(dataType, op, datas).error;
        }
        auto request = boost::make_shared<rkservice::COperateDataReq>();
        request->dataType = dataType;
        request->operateType = op;
        request->datas = datas;
        return m_service->operateSync(CCaller::user(*user), Hlx::CRequestTarget::centre(),
                                      *request);
    }

    // The stored source with the id, null when there is none.
    rkservice::COrinQuoterSourceInfoPtr stored(int id) {
        std::vector<rkservice::IDataPtr> datas;
        rkservice::COrinQueryDataReq request;
        request.dataType = rkservice::kDataQuoteSources;
        m_service->querySync(CCaller::owner(), Hlx::CRequestTarget::centre(), request, &datas);
        for (const auto& source : as<rkservice::COrinQuoterSourceInfo>(datas)) {
            if (source->m_nId == id)
                return source;
        }
        return nullptr;
    }

    void removeEverySource() {
        std::vector<rkservice::IDataPtr> datas;
        rkservice::COrinQueryDataReq query;
        query.dataType = rkservice::kDataQuoteSources;
        m_service->querySync(CCaller::owner(), Hlx::CRequestTarget::centre(), query, &datas);
        if (datas.empty())
            return;
        rkservice::COperateDataReq request;
        request.dataType = rkservice::kDataQuoteSources;
        request.operateType = rkservice::kOperateDelete;
        for (const auto& source : as<rkservice::COrinQuoterSourceInfo>(datas)) {
            request.datas.push_back(deleteRecord(source->m_nId));
            request.datas.back()->setRevision(source->getRevision());
        }
        m_service->operateSync(CCaller::owner(), Hlx::CRequestTarget::centre(), request);
    }

    int storedCount() {
        std::vector<rkservice::IDataPtr> datas;
        rkservice::COrinQueryDataReq request;
        request.dataType = rkservice::kDataQuoteSources;
        m_service->querySync(CCaller::owner(), Hlx::CRequestTarget::centre(), request, &datas);
        return int(datas.size());
    }

    // Adds a source as the owner; its id.
    int ownerAdd(const rkservice::COrinQuoterSourceInfoPtr& source) {
        auto request = boost::make_shared<rkservice::COperateDataReq>();
        request->dataType = rkservice::kDataQuoteSources;
        request->operateType = rkservice::kOperateAdd;
        request->datas = {source};
        bson::BSONObj result;
        const utils::RKError error = m_service->operateSync(
            CCaller::owner(), Hlx::CRequestTarget::centre(), *request, &result);
        if (!error.isSuccess())
            return -1;
        return QString::fromStdString(result.getStringField("ids")).toInt();
    }

    static void verifyRefused(const utils::RKError& error, const QString& prefix) {
        QCOMPARE(error.kind(), utils::ErrorKind::Refused);
        QVERIFY2(errorText(error).startsWith(prefix), qPrintable(errorText(error)));
    }

private slots:
    void initTestCase() {
        CServiceOptions options = SampleData::inDirectory(m_dir.path());
        QString error;
        m_service = CQuotesService::open(options, &error);
        QVERIFY2(m_service, qPrintable(error));
        Hlx::COrinClientCenter::instance()->setBackend(
            CEmbeddedBackends::backendForCurrentUser(m_service));
    }

    void cleanupTestCase() {
        Hlx::COrinClientCenter::instance()->waitForIdle();
        Hlx::COrinClientCenter::instance()->setBackend(nullptr);
        Hlx::CUserManager::instance()->setCurrentUser(nullptr);
        m_service.reset();
    }

    void roles_data() {
        QTest::addColumn<int>("path");
        QTest::addColumn<QString>("role");
        QTest::addColumn<int>("kind");
        QTest::addColumn<QString>("outcome");
        for (int path : {int(Direct), int(Console)}) {
            for (const auto& role : expected()) {
                for (int kind = 0; kind < int(kinds().size()); ++kind) {
                    const QString name = QStringLiteral("%1/%2/%3")
                                             .arg(path == Direct ? "service" : "console",
                                                  role.first, kinds()[size_t(kind)].name);
                    QTest::newRow(qPrintable(name))
                        << path << role.first << kind << role.second.at(kind);
                }
            }
        }
    }

    void roles() {
        QFETCH(int, path);
        QFETCH(QString, role);
        QFETCH(int, kind);
        QFETCH(QString, outcome);
        const rkservice::CUserInfoPtr user = seeded(role);
        QVERIFY(user);
        const Kind& of = kinds()[size_t(kind)];
        const Path via = Path(path);
        removeEverySource();
        QCOMPARE(storedCount(), 0);

        // Add.
        const int before = storedCount();
        utils::RKError error = send(via, user, rkservice::kDataQuoteSources, rkservice::kOperateAdd,
                                    {of.make(m_nextPort++)});
        if (outcome[0] == 'y') {
            QVERIFY2(error.isSuccess(), error.errorMsg().c_str());
            QCOMPARE(storedCount(), before + 1);
        } else {
            verifyRefused(error, "没有权限：添加");
            QCOMPARE(storedCount(), before);
        }

        // Modify a stored source: a new user name.
        const int modifiedId = ownerAdd(of.make(m_nextPort++));
        QVERIFY(modifiedId > 0);
        auto change = boost::make_shared<rkservice::COrinQuoterSourceInfo>(*stored(modifiedId));
        change->m_strUserName = "changed";
        error = send(via, user, rkservice::kDataQuoteSources, rkservice::kOperateModify, {change});
        if (outcome[1] == 'y') {
            QVERIFY2(error.isSuccess(), error.errorMsg().c_str());
            QCOMPARE(stored(modifiedId)->m_strUserName, std::string("changed"));
        } else {
            verifyRefused(error, "没有权限：修改");
            QVERIFY(stored(modifiedId)->m_strUserName != "changed");
        }

        // Delete a stored source with the record the panels send.
        const int deletedId = ownerAdd(of.make(m_nextPort++));
        QVERIFY(deletedId > 0);
        error = send(via, user, rkservice::kDataQuoteSources, rkservice::kOperateDelete,
                     {panelDeleteRecord(*stored(deletedId))});
        if (outcome[2] == 'y') {
            QVERIFY2(error.isSuccess(), error.errorMsg().c_str());
            QVERIFY(!stored(deletedId));
        } else {
            verifyRefused(error, "没有权限：删除");
            QVERIFY(stored(deletedId));
        }
    }

    void refusalNamesTheActionAndKind() {
        const int id = ownerAdd(stockSource(10000, 2, "192.0.2.30", 1));
        const utils::RKError error = send(Direct, seeded("viewer"), rkservice::kDataQuoteSources,
                                          rkservice::kOperateDelete, {deleteRecord(id)});
        QCOMPARE(errorText(error), QString("没有权限：删除证券行情源"));
    }

    // The stored row decides, not what the request claims.
    void deleteChecksTheStoredRow() {
        const int goldId = ownerAdd(stockSource(31003, 4, "192.0.2.31", 1));
        const utils::RKError error =
            send(Direct, seeded("stock_op"), rkservice::kDataQuoteSources,
                 rkservice::kOperateDelete, {deleteRecord(goldId, 2, 10000)});
        QCOMPARE(errorText(error), QString("没有权限：删除贵金属行情源"));
        QVERIFY(stored(goldId));
    }

    void kxRowsMayBeDeletedWithTheKxRight() {
        auto kxOnly = boost::make_shared<rkservice::CUserInfo>();
        kxOnly->m_strName = "kx";
        kxOnly->m_rights = {11230};
        const int kxId = ownerAdd(stockSource(20000, 2, "192.0.2.32", 1));
        const int brokerId = ownerAdd(futureSource(20000, 1, 8070, 1));
        QVERIFY(kxId > 0 && brokerId > 0);
        QVERIFY(send(Direct, kxOnly, rkservice::kDataQuoteSources, rkservice::kOperateDelete,
                     {panelDeleteRecord(*stored(kxId))})
                    .isSuccess());
        verifyRefused(send(Direct, kxOnly, rkservice::kDataQuoteSources, rkservice::kOperateDelete,
                           {panelDeleteRecord(*stored(brokerId))}),
                      "没有权限：删除期货行情源");
        QVERIFY(stored(brokerId));
    }

    void modifyChangingTheKindNeedsBothKinds() {
        const int id = ownerAdd(stockSource(10000, 2, "192.0.2.33", 1));
        auto toOptions = boost::make_shared<rkservice::COrinQuoterSourceInfo>(*stored(id));
        toOptions->m_nTradeType = 6;
        toOptions->m_nPlatformId = 10001;
        verifyRefused(send(Direct, seeded("stock_op"), rkservice::kDataQuoteSources,
                           rkservice::kOperateModify, {toOptions}),
                      "没有权限：修改股票期权行情源");
        QCOMPARE(stored(id)->m_nTradeType, 2);
        auto optionsOnly = boost::make_shared<rkservice::CUserInfo>();
        optionsOnly->m_rights = {10711};
        verifyRefused(send(Direct, optionsOnly, rkservice::kDataQuoteSources,
                           rkservice::kOperateModify, {toOptions}),
                      "没有权限：修改证券行情源");
        auto both = boost::make_shared<rkservice::CUserInfo>();
        both->m_rights = {10389, 10711};
        const utils::RKError error = send(Direct, both, rkservice::kDataQuoteSources,
                                          rkservice::kOperateModify, {toOptions});
        QVERIFY2(error.isSuccess(), error.errorMsg().c_str());
        QCOMPARE(stored(id)->m_nTradeType, 6);
    }

    // The all-types panel edits with trade type -1: the stored kind counts, once.
    void modifyWithTradeTypeMinusOneKeepsTheStoredKind() {
        const int id = ownerAdd(stockSource(10000, 2, "192.0.2.34", 1));
        auto edit = boost::make_shared<rkservice::COrinQuoterSourceInfo>(*stored(id));
        edit->m_nTradeType = -1;
        edit->m_strMarkets.clear();
        edit->m_nPort = 2;
        const utils::RKError error = send(Direct, seeded("stock_op"), rkservice::kDataQuoteSources,
                                          rkservice::kOperateModify, {edit});
        QVERIFY2(error.isSuccess(), error.errorMsg().c_str());
        QCOMPARE(stored(id)->m_nPort, 2);
    }

    void batchesAreRefusedWhole() {
        const int stockId = ownerAdd(stockSource(10000, 2, "192.0.2.35", 1));
        const int goldId = ownerAdd(stockSource(31003, 4, "192.0.2.35", 1));
        // Each record names its row's platform, as the panels send it.
        verifyRefused(send(Console, seeded("stock_op"), rkservice::kDataQuoteSources,
                           rkservice::kOperateDelete,
                           {deleteRecord(stockId), deleteRecord(goldId, 4, 31003)}),
                      "没有权限：删除贵金属行情源");
        QVERIFY(stored(stockId));
        QVERIFY(stored(goldId));
        const int before = storedCount();
        verifyRefused(
            send(Console, seeded("stock_op"), rkservice::kDataQuoteSources, rkservice::kOperateAdd,
                 {stockSource(10000, 2, "192.0.2.36", 1), stockSource(31003, 4, "192.0.2.36", 1)}),
            "没有权限：添加贵金属行情源");
        QCOMPARE(storedCount(), before);
    }

    void level2TokenRights() {
        const auto token = [](const std::string& text) {
            auto record = boost::make_shared<rkservice::CLevel2Token>();
            record->token = text;
            return record;
        };
        const auto futuresOp = seeded("futures_op");
        verifyRefused(send(Console, futuresOp, rkservice::kDataLevel2Tokens, rkservice::kOperateAdd,
                           {token("abc123")}),
                      "没有权限：添加Level-2行情源token");
        auto addOnly = boost::make_shared<rkservice::CUserInfo>();
        addOnly->m_rights = {12532};
        QVERIFY(send(Console, addOnly, rkservice::kDataLevel2Tokens, rkservice::kOperateAdd,
                     {token("abc123")})
                    .isSuccess());
        QCOMPARE(errorText(send(Console, addOnly, rkservice::kDataLevel2Tokens,
                                rkservice::kOperateModify, {token("def456")})),
                 QString("没有权限：修改Level-2行情源token"));
        QCOMPARE(errorText(send(Console, addOnly, rkservice::kDataLevel2Tokens,
                                rkservice::kOperateDelete, {token("abc123")})),
                 QString("没有权限：删除Level-2行情源token"));
        const auto admin = seeded("admin");
        QVERIFY(send(Console, admin, rkservice::kDataLevel2Tokens, rkservice::kOperateModify,
                     {token("def456")})
                    .isSuccess());
        QVERIFY(send(Console, admin, rkservice::kDataLevel2Tokens, rkservice::kOperateDelete,
                     {token("def456")})
                    .isSuccess());
    }

    void wholeQuoteNeedsItsRight() {
        auto record = boost::make_shared<rkservice::CGlobalFeaturePermissionInfo>();
        record->m_wholeQuote = boost::make_shared<rkservice::CWholeQuotedivision>();
        record->m_wholeQuote->setEnabled("SH", false);
        record->setSystemTag("sys1");
        QCOMPARE(errorText(send(Console, seeded("stock_op"), rkservice::kDataGlobalPermission,
                                rkservice::kOperateSaveWholeQuote, {record})),
                 QString("没有权限：保存行情全推设置"));
        QVERIFY(send(Console, seeded("admin"), rkservice::kDataGlobalPermission,
                     rkservice::kOperateSaveWholeQuote, {record})
                    .isSuccess());
    }

    void administrationNeedsItsRight() {
        const CCaller stockOp = CCaller::user(*seeded("stock_op"));
        const CCaller admin = CCaller::user(*seeded("admin"));
        QJsonObject document;
        QString error;
        error = failureOf(m_service->exportDocument(stockOp, &document));
        QVERIFY(!error.isEmpty());
        QCOMPARE(error, QString("没有权限：导出数据"));
        QVERIFY(document.isEmpty());
        error = failureOf(m_service->exportDocument(admin, &document));
        QVERIFY2(error.isEmpty(), qPrintable(error));
        error = failureOf(m_service->importDocument(stockOp, document, {}, nullptr));
        QVERIFY(!error.isEmpty());
        QCOMPARE(error, QString("没有权限：导入数据"));
        error = failureOf(m_service->setLoginTypeAuth(stockOp, 0, false));
        QVERIFY(!error.isEmpty());
        QCOMPARE(error, QString("没有权限：修改登录类型设置"));
        QVERIFY(m_service->hasClientLoginTypeAuth(0));
        error = failureOf(m_service->setSubsystems(stockOp, {{"sys1", "甲"}, {"sys2", "乙"}}));
        QVERIFY(!error.isEmpty());
        QCOMPARE(error, QString("没有权限：修改分系统"));
        QCOMPARE(QString::fromStdString(m_service->subsystems().front().displayName),
                 QString("上海主站"));
        error = failureOf(m_service->setLoginTypeAuth(admin, 0, true));
        QVERIFY2(error.isEmpty(), qPrintable(error));
    }

    // A source's password reaches only who may modify the source.
    void passwordsOnlyForThoseWhoMayModify() {
        const int stockId = ownerAdd(stockSource(10000, 2, "192.0.2.37", 1, "u", "secret-s"));
        const int kxId = ownerAdd(stockSource(20000, 2, "192.0.2.37", 1, "u", "secret-k"));
        const auto passwordOf = [&](const rkservice::CUserInfoPtr& user, int id) {
            Hlx::CUserManager::instance()->setCurrentUser(user);
            for (const auto& source : as<rkservice::COrinQuoterSourceInfo>(
                     query(rkservice::kDataQuoteSources, "").datas)) {
                if (source->m_nId == id)
                    return source->m_strPassword;
            }
            return std::string("(missing)");
        };
        QCOMPARE(passwordOf(seeded("stock_op"), stockId), std::string("secret-s"));
        QCOMPARE(passwordOf(seeded("stock_op"), kxId), std::string());
        QCOMPARE(passwordOf(seeded("futures_op"), kxId), std::string("secret-k"));
        QCOMPARE(passwordOf(seeded("futures_op"), stockId), std::string());
        QCOMPARE(passwordOf(seeded("viewer"), stockId), std::string());
        QCOMPARE(stored(kxId)->m_strPassword, std::string("secret-k"));
    }

    void withoutAUserNothingChanges() {
        Hlx::CUserManager::instance()->setCurrentUser(nullptr);
        const int before = storedCount();
        verifyRefused(operate(rkservice::kDataQuoteSources, rkservice::kOperateAdd,
                              {stockSource(10000, 2, "192.0.2.38", 1)})
                          .error,
                      "没有权限：添加证券行情源");
        QCOMPARE(storedCount(), before);
    }
};

QTEST_GUILESS_MAIN(TestRights)
#include "tst_rights.moc"
