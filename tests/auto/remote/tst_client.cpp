// The remote administration client against in-process quotesd stand-ins: the session cache,
// large queries, deadlines, lost and restarted servers, failover of reads but never of changes,
// expired sessions, shutdown with calls in flight, and TLS trust.
#include <QElapsedTimer>
#include <QJsonArray>
#include <QtTest>
#include <atomic>
#include <boost/make_shared.hpp>
#include <future>
#include <memory>
#include <mutex>
#include <thread>

#include "CRemoteAdmin.h"
#include "CTlsIdentity.h"
#include "FakeQuotesServer.h"
#include "Hlx/CAdminBackend.h"
#include "Hlx/COrinClientCenter.h"
#include "rkservice/COrinQuoterSourceInfo.h"
#include "rkservice/DataTypeIds.h"

using namespace std::chrono_literals;
using utils::RKError;

namespace {

const std::chrono::milliseconds kShortDeadline(500);
const std::chrono::seconds kFutureTimeout(10);

rkservice::IDataList sources(int count) {
    rkservice::IDataList list;
    list.reserve(static_cast<size_t>(count));
    for (int i = 0; i < count; ++i) {
        auto source = boost::make_shared<rkservice::COrinQuoterSourceInfo>();
        source->m_nId = i + 1;
        source->m_nPlatformId = 3;
        source->m_strAddress = "10.0." + std::to_string(i / 250) + "." + std::to_string(i % 250);
        source->m_nPort = 7000 + i % 1000;
        source->m_strUserName = "行情用户" + std::to_string(i);
        source->m_nTradeType = 4;
        source->m_strMarkets = "SH,SZ";
        source->setSystemTag("sys1");
        list.push_back(source);
    }
    return list;
}

rkservice::COrinQueryDataReq sourcesRequest() {
    rkservice::COrinQueryDataReq request;
    request.dataType = rkservice::kDataQuoteSources;
    return request;
}

rkservice::COperateDataReq addRequest(int count) {
    rkservice::COperateDataReq request;
    request.dataType = rkservice::kDataQuoteSources;
    request.operateType = rkservice::kOperateAdd;
    request.datas = sources(count);
    return request;
}

RKError queryOnce(CRemoteAdmin* client, rkservice::IDataList* datas = nullptr) {
    rkservice::IDataList ignored;
    return client->query(Hlx::CRequestTarget::centre(), sourcesRequest(), datas ? datas : &ignored);
}

RKError operateOnce(CRemoteAdmin* client, bson::BSONObj* result = nullptr) {
    return client->operate(Hlx::CRequestTarget::centre(), addRequest(1), result);
}

bool startsWith(const RKError& error, const char* prefix) {
    return QString::fromStdString(error.errorMsg()).startsWith(QString::fromUtf8(prefix));
}

// The message, readable in a failed comparison.
QByteArray text(const RKError& error) {
    return QByteArray::fromStdString(error.errorMsg());
}

template <typename T>
bool ready(std::future<T>& future, std::chrono::milliseconds timeout = kFutureTimeout) {
    return future.wait_for(timeout) == std::future_status::ready;
}

}  // namespace

class TestClient : public QObject {
    Q_OBJECT
private:
    CTlsIdentity m_identity;
    CTlsIdentity m_stranger;
    std::unique_ptr<FakeQuotesServer> m_first;
    std::unique_ptr<FakeQuotesServer> m_second;

    std::unique_ptr<CRemoteAdmin> client(std::vector<std::string> servers,
                                         std::chrono::milliseconds deadline = 5s,
                                         const CTlsIdentity* trusted = nullptr) const {
        const CTlsIdentity& ca = trusted ? *trusted : m_identity;
        return std::make_unique<CRemoteAdmin>(std::move(servers), ca.certificatePem().toStdString(),
                                              deadline);
    }

    std::unique_ptr<CRemoteAdmin> loggedIn(std::vector<std::string> servers,
                                           std::chrono::milliseconds deadline = 5s) const {
        auto admin = client(std::move(servers), deadline);
        const RKError error = admin->login("admin", "secret");
        if (!error.isSuccess())
            qWarning("login failed: %s", error.errorMsg().c_str());
        return admin;
    }

    void script(FakeQuotesServer* server) const {
        server->addAccount("admin", "secret", {1, 2, 7}, -1);
        server->addAccount("viewer", "look", {1}, 2, false);
        server->setToken("shared-token");
        server->setSubsystems({{"sys1", "上海"}, {"sys2", "深圳"}});
        server->setLoginTypeAuth({{0, true}, {3, false}});
    }

private slots:
    void initTestCase() {
        QString error;
        m_identity = CTlsIdentity::create(CTlsIdentity::defaultHostNames(), &error);
        QVERIFY2(!m_identity.isNull(), qPrintable(error));
        m_stranger = CTlsIdentity::create(CTlsIdentity::defaultHostNames(), &error);
        QVERIFY2(!m_stranger.isNull(), qPrintable(error));
    }

    void init() {
        m_first = std::make_unique<FakeQuotesServer>(m_identity);
        m_second = std::make_unique<FakeQuotesServer>(m_identity);
        script(m_first.get());
        script(m_second.get());
        QVERIFY(m_first->start());
        QVERIFY(m_second->start());
        QVERIFY(m_first->port() != m_second->port());
    }

    void cleanup() {
        Hlx::COrinClientCenter::instance()->waitForIdle();
        Hlx::COrinClientCenter::instance()->setBackend({});
        m_first.reset();
        m_second.reset();
    }

    void loginCachesTheSession() {
        auto admin = client({m_first->address()});
        QVERIFY(!admin->isLoggedIn());
        const RKError error = admin->login("admin", "secret");
        QVERIFY2(error.isSuccess(), text(error));
        QVERIFY(admin->isLoggedIn());
        const rkservice::CUserInfoPtr account = admin->account();
        QVERIFY(account);
        QCOMPARE(account->m_strName, std::string("admin"));
        QCOMPARE(account->m_rights, (std::set<int>{1, 2, 7}));
        QCOMPARE(account->m_nSystemId, -1);
        const std::vector<Hlx::SubsystemInfo> subsystems = admin->subsystems();
        QCOMPARE(subsystems.size(), size_t(2));
        QCOMPARE(subsystems[0].name, std::string("sys1"));
        QCOMPARE(subsystems[1].displayName, std::string("深圳"));
        QVERIFY(admin->hasClientLoginTypeAuth(0));
        QVERIFY(!admin->hasClientLoginTypeAuth(3));
        QVERIFY(!admin->hasClientLoginTypeAuth(5));
        QCOMPARE(m_first->calls("Login"), 1);
    }

    void refusedLoginPassesTheServersText() {
        auto admin = client({m_first->address()});
        RKError error = admin->login("admin", "wrong");
        QVERIFY(!error.isSuccess());
        QCOMPARE(text(error), QByteArray("用户名或密码错误"));
        error = admin->login("viewer", "look");
        QCOMPARE(text(error), QByteArray("账户已停用"));
        QVERIFY(!admin->isLoggedIn());
        QVERIFY(!admin->account());
        QVERIFY(admin->subsystems().empty());
        // Without a session nothing is sent.
        const int before = m_first->totalCalls();
        QVERIFY(startsWith(queryOnce(admin.get()), CRemoteAdmin::kNotLoggedIn));
        QCOMPARE(m_first->totalCalls(), before);
    }

    void cacheAnswersWithoutTheServer() {
        auto admin = loggedIn({m_first->address()});
        QVERIFY(admin->isLoggedIn());
        const int before = m_first->totalCalls();
        // A call that reached a stalled server would be counted and would hang.
        m_first->setStalling(true);
        QElapsedTimer timer;
        timer.start();
        for (int i = 0; i < 100; ++i) {
            QCOMPARE(admin->subsystems().size(), size_t(2));
            QVERIFY(admin->hasClientLoginTypeAuth(0));
            QVERIFY(admin->account());
        }
        QVERIFY2(timer.elapsed() < 200, qPrintable(QString::number(timer.elapsed())));
        QCOMPARE(m_first->totalCalls(), before);
        m_first->stop();
        QCOMPARE(admin->subsystems().size(), size_t(2));
        QVERIFY(admin->hasClientLoginTypeAuth(0));
        QVERIFY(!admin->hasClientLoginTypeAuth(3));
        QCOMPARE(m_first->stalledCount(), 0);
    }

    void refreshSessionRereadsTheCache() {
        auto admin = loggedIn({m_first->address()});
        m_first->setSubsystems({{"sys9", "北京"}});
        m_first->setLoginTypeAuth({{3, true}});
        QCOMPARE(admin->subsystems().size(), size_t(2));
        const RKError error = admin->refreshSession();
        QVERIFY2(error.isSuccess(), text(error));
        QCOMPARE(admin->subsystems().size(), size_t(1));
        QCOMPARE(admin->subsystems()[0].name, std::string("sys9"));
        QVERIFY(admin->hasClientLoginTypeAuth(3));
        QVERIFY(!admin->hasClientLoginTypeAuth(0));
    }

    void queryOf100kRecordsArrivesInChunks() {
        const int count = 100000;
        m_first->setQueryAnswer(rkservice::kDataQuoteSources, sources(count));
        auto admin = loggedIn({m_first->address()}, 30s);
        rkservice::IDataList datas;
        const RKError error = queryOnce(admin.get(), &datas);
        QVERIFY2(error.isSuccess(), text(error));
        QCOMPARE(int(datas.size()), count);
        const std::vector<int> chunks = m_first->lastChunkSizes();
        QCOMPARE(int(chunks.size()), count / CRecordCodec::kMaxChunkRecords);
        for (int size : chunks)
            QVERIFY(size <= CRecordCodec::kMaxChunkRecords);
        auto last = boost::dynamic_pointer_cast<rkservice::COrinQuoterSourceInfo>(datas.back());
        QVERIFY(last);
        QCOMPARE(last->m_nId, count);
        QCOMPARE(last->m_strUserName, "行情用户" + std::to_string(count - 1));
        QCOMPARE(last->getSystemTag(), std::string("sys1"));
    }

    void emptyQueryIsOneLastChunk() {
        m_first->setQueryAnswer(rkservice::kDataQuoteSources, {});
        auto admin = loggedIn({m_first->address()});
        rkservice::IDataList datas = sources(3);
        const RKError error = queryOnce(admin.get(), &datas);
        QVERIFY2(error.isSuccess(), text(error));
        QVERIFY(datas.empty());
        QCOMPARE(m_first->lastChunkSizes(), std::vector<int>{0});
    }

    void totalCountMismatchIsAnError() {
        auto admin = loggedIn({m_first->address()});
        for (int offset : {1, -1}) {
            m_first->setQueryAnswer(rkservice::kDataQuoteSources, sources(2500), RKError(), offset);
            rkservice::IDataList datas;
            const RKError error = queryOnce(admin.get(), &datas);
            QVERIFY(!error.isSuccess());
            QVERIFY2(text(error).contains("查询结果不完整"), text(error));
            QVERIFY(datas.empty());
        }
    }

    void brokenStreamIsAnError() {
        m_first->setQueryAnswer(rkservice::kDataQuoteSources, sources(1200));
        auto admin = loggedIn({m_first->address()});
        for (auto fault : {FakeQuotesServer::StreamFault::NoLastChunk,
                           FakeQuotesServer::StreamFault::ChunkAfterLast}) {
            m_first->setStreamFault(fault);
            rkservice::IDataList datas;
            const RKError error = queryOnce(admin.get(), &datas);
            QVERIFY(!error.isSuccess());
            QVERIFY2(text(error).contains("查询结果"), text(error));
            QVERIFY(datas.empty());
        }
        m_first->setStreamFault(FakeQuotesServer::StreamFault::None);
        QVERIFY(queryOnce(admin.get()).isSuccess());
    }

    void queryRefusalPassesTheServersText() {
        m_first->setQueryAnswer(rkservice::kDataQuoteSources, {}, RKError::fail("没有查询权限"));
        auto admin = loggedIn({m_first->address()});
        const RKError error = queryOnce(admin.get());
        QCOMPARE(text(error), QByteArray("没有查询权限"));
    }

    void operateRoundTrip() {
        m_first->setOperateAnswer(RKError(), {41, 42});
        auto admin = loggedIn({m_first->address()});
        rkservice::COperateDataReq request = addRequest(2);
        request.datas[1]->setSystemTag("sys2");
        bson::BSONObj result;
        RKError error = admin->operate(Hlx::CRequestTarget::subsystem("sys2"), request, &result);
        QVERIFY2(error.isSuccess(), text(error));
        QCOMPARE(result.getStringField("ids"), std::string("41,42"));
        QCOMPARE(result.getIntField("count"), 2);
        const quotes::v1::OperateRequest seen = m_first->lastOperate();
        QCOMPARE(seen.data_type(), google::protobuf::int64(rkservice::kDataQuoteSources));
        QCOMPARE(seen.operate_type(), google::protobuf::int64(rkservice::kOperateAdd));
        QCOMPARE(seen.target().subsystem(), std::string("sys2"));
        QCOMPARE(seen.records_size(), 2);
        QCOMPARE(seen.records(1).system_tag(), std::string("sys2"));
        QCOMPARE(seen.records(1).quote_source().user_name(), std::string("行情用户1"));

        m_first->setOperateAnswer(RKError::fail("端口超出范围"));
        error = operateOnce(admin.get());
        QCOMPARE(text(error), QByteArray("端口超出范围"));
        QCOMPARE(m_first->calls("Operate"), 2);
    }

    // A modify of some fields is one call that carries just those fields: nothing is read first
    // and written back whole, where a change made in between would be lost.
    void modifySourceSendsOnlyThePatch() {
        auto admin = loggedIn({m_first->address()});
        const int queries = m_first->calls("Query");
        Hlx::CSourcePatch patch;
        patch.port = 9001;
        patch.password = "新-1";
        QVERIFY(admin->modifySource(5, patch).isSuccess());
        QCOMPARE(m_first->calls("ModifySource"), 1);
        QCOMPARE(m_first->calls("Query"), queries);
        QCOMPARE(m_first->calls("Operate"), 0);
        const quotes::v1::ModifySourceRequest sent = m_first->lastModify();
        QCOMPARE(sent.id(), int64_t(5));
        QVERIFY(sent.patch().has_port() && sent.patch().port() == 9001);
        QCOMPARE(sent.patch().password(), std::string("新-1"));
        QVERIFY(!sent.patch().has_user_name() && !sent.patch().has_address() &&
                !sent.patch().has_markets() && !sent.patch().has_platform_id() &&
                !sent.patch().has_trade_type() && !sent.patch().has_broker_id() &&
                !sent.patch().has_server_group_id());
        // The server's refusal is the answer.
        m_first->setOperateAnswer(utils::RKError::fail("没有权限：修改证券行情源"));
        QCOMPARE(text(admin->modifySource(5, patch)), QByteArray("没有权限：修改证券行情源"));
    }

    void stalledServerAnswersOnceWithinTheDeadline() {
        // Through the client centre, as the console calls it.
        boost::shared_ptr<Hlx::IQuotesAdmin> admin(
            loggedIn({m_first->address()}, kShortDeadline).release());
        auto* centre = Hlx::COrinClientCenter::instance();
        centre->setBackend(
            boost::shared_ptr<Hlx::IDataServiceBackend>(new Hlx::CAdminBackend(admin)));
        m_first->setStalling(true);

        std::atomic<int> answers{0};
        std::mutex mutex;
        RKError answered;
        QElapsedTimer timer;
        timer.start();
        centre->queryData_async(
            boost::make_shared<rkservice::COrinQueryDataReq>(sourcesRequest()),
            [&](const RKError& error, const std::vector<rkservice::IDataPtr>&, int, bson::BSONObj) {
                std::lock_guard<std::mutex> lock(mutex);
                answered = error;
                ++answers;
            },
            false);
        QTRY_COMPARE_WITH_TIMEOUT(answers.load(), 1, int(kShortDeadline.count()) + 3000);
        const qint64 elapsed = timer.elapsed();
        QVERIFY2(elapsed < kShortDeadline.count() + 1000, qPrintable(QString::number(elapsed)));
        QVERIFY2(elapsed >= kShortDeadline.count() - 50, qPrintable(QString::number(elapsed)));
        QVERIFY(centre->waitForIdle(5000));
        QCOMPARE(answers.load(), 1);
        std::lock_guard<std::mutex> lock(mutex);
        QVERIFY2(startsWith(answered, CRemoteAdmin::kUnreachable), text(answered));
        QVERIFY2(text(answered).contains(m_first->address().c_str()), text(answered));
        QVERIFY2(text(answered).contains("超时"), text(answered));
    }

    void stoppedServerIsUnreachableAndRestartedServerAnswers() {
        auto admin = loggedIn({m_first->address()});
        QVERIFY(queryOnce(admin.get()).isSuccess());
        m_first->stop();
        QElapsedTimer timer;
        timer.start();
        RKError error = queryOnce(admin.get());
        QVERIFY2(startsWith(error, CRemoteAdmin::kUnreachable), text(error));
        QCOMPARE(error.kind(), utils::ErrorKind::Unavailable);
        QVERIFY2(text(error).contains(m_first->address().c_str()), text(error));
        QVERIFY2(timer.elapsed() < 5000, qPrintable(QString::number(timer.elapsed())));
        error = operateOnce(admin.get());
        QVERIFY2(startsWith(error, CRemoteAdmin::kUnreachable), text(error));

        QVERIFY(m_first->start());
        error = queryOnce(admin.get());
        QVERIFY2(error.isSuccess(), text(error));
        error = operateOnce(admin.get());
        QVERIFY2(error.isSuccess(), text(error));
        QCOMPARE(m_first->calls("Operate"), 1);
    }

    void restartedServerAnswersTheNextRequest() {
        auto admin = loggedIn({m_first->address()});
        for (int i = 0; i < 5; ++i) {
            QVERIFY(queryOnce(admin.get()).isSuccess());
            m_first->stop();
            QVERIFY(m_first->start());
            const RKError error = queryOnce(admin.get());
            QVERIFY2(error.isSuccess(), text(error));
        }
    }

    void serverStoppedDuringACallAnswersOnce() {
        auto admin = loggedIn({m_first->address()});
        m_first->setStalling(true);
        auto pending = std::async(std::launch::async, [&] { return queryOnce(admin.get()); });
        QTRY_COMPARE(m_first->stalledCount(), 1);
        m_first->stop();
        QVERIFY(ready(pending));
        const RKError error = pending.get();
        QVERIFY2(startsWith(error, CRemoteAdmin::kUnreachable), text(error));
        QVERIFY(m_first->start());
        QVERIFY(queryOnce(admin.get()).isSuccess());
    }

    void loginMovesOnFromAStalledServer() {
        m_first->setStalling(true);
        auto admin = client({m_first->address(), m_second->address()}, kShortDeadline);
        const RKError error = admin->login("admin", "secret");
        QVERIFY2(error.isSuccess(), text(error));
        QCOMPARE(admin->currentServer(), m_second->address());
        QCOMPARE(m_first->calls("Login"), 1);
    }

    void loginMovesOnToTheSecondServer() {
        m_first->stop();
        auto admin = client({m_first->address(), m_second->address()});
        const RKError error = admin->login("admin", "secret");
        QVERIFY2(error.isSuccess(), text(error));
        QCOMPARE(admin->currentServer(), m_second->address());
        QCOMPARE(m_second->calls("Login"), 1);
    }

    void queryMovesOnToTheSecondServer() {
        m_first->setQueryAnswer(rkservice::kDataQuoteSources, sources(1));
        m_second->setQueryAnswer(rkservice::kDataQuoteSources, sources(7));
        auto admin = loggedIn({m_first->address(), m_second->address()});
        QCOMPARE(admin->currentServer(), m_first->address());
        m_first->stop();
        rkservice::IDataList datas;
        const RKError error = queryOnce(admin.get(), &datas);
        QVERIFY2(error.isSuccess(), text(error));
        QCOMPARE(datas.size(), size_t(7));
        QCOMPARE(m_second->calls("Query"), 1);
        QCOMPARE(m_second->calls("Login"), 0);  // the same token serves on the second server
        QCOMPARE(admin->currentServer(), m_second->address());
        // Changes follow to the server that answers now.
        QVERIFY(operateOnce(admin.get()).isSuccess());
        QCOMPARE(m_second->calls("Operate"), 1);
    }

    void stalledQueryMovesOnToTheSecondServer() {
        m_second->setQueryAnswer(rkservice::kDataQuoteSources, sources(3));
        auto admin = loggedIn({m_first->address(), m_second->address()}, kShortDeadline);
        m_first->setStalling(true);
        rkservice::IDataList datas;
        const RKError error = queryOnce(admin.get(), &datas);
        QVERIFY2(error.isSuccess(), text(error));
        QCOMPARE(datas.size(), size_t(3));
        QCOMPARE(m_first->calls("Query"), 1);
        QCOMPARE(m_second->calls("Query"), 1);
    }

    void everyServerDownNamesEachServer() {
        auto admin = loggedIn({m_first->address(), m_second->address()});
        m_first->stop();
        m_second->stop();
        const RKError error = queryOnce(admin.get());
        QVERIFY2(startsWith(error, CRemoteAdmin::kUnreachable), text(error));
        QVERIFY2(text(error).contains(m_first->address().c_str()), text(error));
        QVERIFY2(text(error).contains(m_second->address().c_str()), text(error));
    }

    void changeIsNeverResentToTheSecondServer() {
        auto admin = loggedIn({m_first->address(), m_second->address()}, kShortDeadline);
        m_first->setStalling(true);
        QElapsedTimer timer;
        timer.start();
        RKError error = operateOnce(admin.get());
        QVERIFY2(startsWith(error, CRemoteAdmin::kOutcomeUnknown), text(error));
        QVERIFY2(timer.elapsed() < kShortDeadline.count() + 1000,
                 qPrintable(QString::number(timer.elapsed())));
        QCOMPARE(m_first->calls("Operate"), 1);
        QCOMPARE(m_second->calls("Operate"), 0);

        // The same for the other changes.
        QVERIFY(startsWith(admin->importDocument(QJsonObject{{"a", 1}}),
                           CRemoteAdmin::kOutcomeUnknown));
        QVERIFY(startsWith(admin->setPassword("viewer", "new"), CRemoteAdmin::kOutcomeUnknown));
        QVERIFY(
            startsWith(admin->setAccountEnabled("viewer", true), CRemoteAdmin::kOutcomeUnknown));
        QVERIFY(startsWith(admin->setRights("viewer", {1, 2}, 2), CRemoteAdmin::kOutcomeUnknown));
        Hlx::CSourcePatch patch;
        patch.port = 9001;
        const RKError unknown = admin->modifySource(5, patch);
        QVERIFY(startsWith(unknown, CRemoteAdmin::kOutcomeUnknown));
        QCOMPARE(unknown.kind(), utils::ErrorKind::Unavailable);
        QCOMPARE(m_first->calls("ModifySource"), 1);
        for (const char* method : {"Operate", "ImportDocument", "SetPassword", "SetAccountEnabled",
                                   "SetRights", "ModifySource"})
            QVERIFY2(m_second->calls(method) == 0, method);
        QCOMPARE(m_second->totalCalls(), 0);
    }

    void expiredTokenAsksForLoginOnce() {
        auto admin = loggedIn({m_first->address()});
        std::atomic<int> expired{0};
        admin->setLoginExpiredHandler([&expired] { ++expired; });
        m_first->expireToken();
        RKError error = queryOnce(admin.get());
        QCOMPARE(text(error), QByteArray(CRemoteAdmin::kLoginExpired));
        QCOMPARE(expired.load(), 1);
        error = operateOnce(admin.get());
        QCOMPARE(text(error), QByteArray(CRemoteAdmin::kLoginExpired));
        QJsonObject document;
        error = admin->exportDocument(&document);
        QCOMPARE(text(error), QByteArray(CRemoteAdmin::kLoginExpired));
        QCOMPARE(expired.load(), 1);
        QVERIFY(!admin->isLoggedIn());

        // A new login arms the handler again.
        QVERIFY(admin->login("admin", "secret").isSuccess());
        QVERIFY(queryOnce(admin.get()).isSuccess());
        m_first->expireToken();
        QCOMPARE(text(queryOnce(admin.get())), QByteArray(CRemoteAdmin::kLoginExpired));
        QCOMPARE(expired.load(), 2);
    }

    void expiryFoundByConcurrentCallsIsReportedOnce() {
        auto admin = loggedIn({m_first->address()});
        std::atomic<int> expired{0};
        admin->setLoginExpiredHandler([&expired] { ++expired; });
        m_first->expireToken();
        std::vector<std::future<RKError>> calls;
        for (int i = 0; i < 8; ++i)
            calls.push_back(std::async(std::launch::async, [&] { return queryOnce(admin.get()); }));
        for (auto& call : calls) {
            QVERIFY(ready(call));
            QCOMPARE(text(call.get()), QByteArray(CRemoteAdmin::kLoginExpired));
        }
        QCOMPARE(expired.load(), 1);
    }

    void shutdownAnswersCallsInFlightPromptly() {
        auto admin = loggedIn({m_first->address(), m_second->address()}, 30s);
        m_first->setStalling(true);
        std::vector<std::future<RKError>> calls;
        for (int i = 0; i < 8; ++i) {
            calls.push_back(std::async(std::launch::async, [&admin, i] {
                return i % 2 ? operateOnce(admin.get()) : queryOnce(admin.get());
            }));
        }
        QTRY_COMPARE(m_first->stalledCount(), 8);
        QCOMPARE(admin->callsInFlight(), 8);
        QElapsedTimer timer;
        timer.start();
        admin->shutdown();
        for (auto& call : calls) {
            QVERIFY(ready(call, 2s));
            const RKError error = call.get();
            QVERIFY(!error.isSuccess());
        }
        QVERIFY2(timer.elapsed() < 2000, qPrintable(QString::number(timer.elapsed())));
        // Nothing moved on to the second server, and nothing new is sent.
        QCOMPARE(m_second->totalCalls(), 0);
        QCOMPARE(text(queryOnce(admin.get())), QByteArray(CRemoteAdmin::kClosed));
        QCOMPARE(text(admin->login("admin", "secret")), QByteArray(CRemoteAdmin::kClosed));
        QCOMPARE(m_second->totalCalls(), 0);
        QCOMPARE(admin->callsInFlight(), 0);
    }

    void concurrentCallsFromEightThreads() {
        m_first->setQueryAnswer(rkservice::kDataQuoteSources, sources(1500));
        auto admin = loggedIn({m_first->address()});
        const int perThread = 25;
        std::vector<std::future<int>> workers;
        for (int t = 0; t < 8; ++t) {
            workers.push_back(std::async(std::launch::async, [&admin, t] {
                int failures = 0;
                for (int i = 0; i < perThread; ++i) {
                    rkservice::IDataList datas;
                    const RKError error = (i + t) % 3 == 0 ? operateOnce(admin.get())
                                                           : queryOnce(admin.get(), &datas);
                    if (!error.isSuccess() || ((i + t) % 3 != 0 && datas.size() != 1500))
                        ++failures;
                    if (admin->subsystems().size() != 2)
                        ++failures;
                }
                return failures;
            }));
        }
        for (auto& worker : workers) {
            QVERIFY(ready(worker, 60s));
            QCOMPARE(worker.get(), 0);
        }
        QCOMPARE(m_first->calls("Query") + m_first->calls("Operate"), 8 * perThread);
    }

    void clientTrustingAnotherCertificateCannotConnect() {
        auto admin = client({m_first->address()}, 5s, &m_stranger);
        const RKError error = admin->login("admin", "secret");
        QVERIFY2(startsWith(error, CRemoteAdmin::kUnreachable), text(error));
        QVERIFY(!admin->isLoggedIn());
        QCOMPARE(m_first->totalCalls(), 0);
    }

    void unsupportedOperationsAreRefused() {
        auto admin = loggedIn({m_first->address()});
        const int before = m_first->totalCalls();
        QCOMPARE(text(admin->setSubsystems({{"x", "y"}})), QByteArray(CRemoteAdmin::kUnsupported));
        QCOMPARE(text(admin->setLoginTypeAuth(0, true)), QByteArray(CRemoteAdmin::kUnsupported));
        QCOMPARE(text(admin->checkIntegrity(nullptr)), QByteArray(CRemoteAdmin::kUnsupported));
        QCOMPARE(m_first->totalCalls(), before);
    }

    void exportAndImportDocuments() {
        m_first->setExportDocument(R"({"sources":[{"id":1,"address":"行情.example"}]})");
        auto admin = loggedIn({m_first->address()});
        QJsonObject document;
        RKError error = admin->exportDocument(&document);
        QVERIFY2(error.isSuccess(), text(error));
        QCOMPARE(document["sources"].toArray()[0].toObject()["address"].toString(),
                 QString::fromUtf8("行情.example"));

        error = admin->importDocument(document);
        QVERIFY2(error.isSuccess(), text(error));
        QCOMPARE(QJsonDocument::fromJson(QByteArray::fromStdString(m_first->lastImport())).object(),
                 document);

        m_first->setExportDocument("not json");
        error = admin->exportDocument(&document);
        QVERIFY2(text(error).contains("文档无效"), text(error));
    }

    void oversizedImportIsRefusedBeforeSending() {
        auto admin = loggedIn({m_first->address()});
        const QJsonObject huge{{"blob", QString(CRecordCodec::kMaxMessageBytes, QLatin1Char('x'))}};
        const RKError error = admin->importDocument(huge);
        QVERIFY2(text(error).contains("16 MiB"), text(error));
        QCOMPARE(m_first->calls("ImportDocument"), 0);
    }

    void oversizedChangeIsRefusedWithoutBeingSent() {
        auto admin = loggedIn({m_first->address()});
        rkservice::COperateDataReq request = addRequest(1);
        boost::static_pointer_cast<rkservice::COrinQuoterSourceInfo>(request.datas[0])
            ->m_strMarkets = std::string(CRecordCodec::kMaxMessageBytes + 1024, 'S');
        const RKError error = admin->operate(Hlx::CRequestTarget::centre(), request, nullptr);
        QVERIFY2(text(error).contains("16 MiB"), text(error));
        QCOMPARE(m_first->calls("Operate"), 0);
        // The connection stays usable.
        QVERIFY(operateOnce(admin.get()).isSuccess());
    }

    void accountsAreListedAndChanged() {
        auto admin = loggedIn({m_first->address()});
        std::vector<CRemoteAdmin::Account> accounts;
        RKError error = admin->accounts(&accounts);
        QVERIFY2(error.isSuccess(), text(error));
        QCOMPARE(accounts.size(), size_t(2));
        QCOMPARE(accounts[1].user->m_strName, std::string("viewer"));
        QVERIFY(!accounts[1].enabled);

        QVERIFY(admin->setAccountEnabled("viewer", true).isSuccess());
        QVERIFY(admin->setRights("viewer", {1, 5}, 7).isSuccess());
        QVERIFY(admin->setPassword("viewer", "fresh").isSuccess());
        QCOMPARE(text(admin->setPassword("nobody", "x")), QByteArray("账户不存在: nobody"));

        std::vector<rkservice::CUserInfoPtr> users;
        QVERIFY(admin->users(&users).isSuccess());
        QCOMPARE(users.size(), size_t(2));
        QCOMPARE(users[1]->m_rights, (std::set<int>{1, 5}));
        QCOMPARE(users[1]->m_nSystemId, 7);
        auto viewer = client({m_first->address()});
        QVERIFY(viewer->login("viewer", "fresh").isSuccess());
    }

    void statusPingsTheServer() {
        auto admin = client({m_first->address()});
        Hlx::CServiceStatus status;
        const RKError error = admin->status(&status);  // needs no session
        QVERIFY2(error.isSuccess(), text(error));
        QCOMPARE(status.version, "fake-" + std::to_string(m_first->port()));
        QCOMPARE(status.database, std::string("memory"));
        QCOMPARE(status.uptimeMs, 42000LL);
        QCOMPARE(m_first->calls("Ping"), 1);
    }

    void logoutEndsTheSession() {
        auto admin = loggedIn({m_first->address()});
        QVERIFY(admin->logout().isSuccess());
        QVERIFY(!admin->isLoggedIn());
        QCOMPARE(m_first->calls("Logout"), 1);
        QVERIFY(startsWith(queryOnce(admin.get()), CRemoteAdmin::kNotLoggedIn));
    }
};

QTEST_MAIN(TestClient)
#include "tst_client.moc"
