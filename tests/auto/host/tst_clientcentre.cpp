#include <QMessageBox>
#include <QSignalSpy>
#include <QThread>
#include <QtTest>
#include <atomic>
#include <boost/make_shared.hpp>
#include <functional>
#include <stdexcept>

#include "Hlx/COrinClientCenter.h"
#include "ScriptedBackend.h"
#include "rkservice/COrinQuoterSourceInfo.h"
#include "rkservice/DataTypeIds.h"

using namespace Hlx;

namespace {

// What one answer delivered, and on which thread.
struct Outcome {
    std::atomic<int> calls{0};
    std::atomic<bool> success{false};
    std::atomic<int> count{-1};
    std::atomic<QThread*> thread{nullptr};
    std::string message;
    std::mutex mutex;
};

QueryCallback recordQuery(const boost::shared_ptr<Outcome>& outcome) {
    return [outcome](const utils::RKError& error, const std::vector<rkservice::IDataPtr>&,
                     int count, bson::BSONObj) {
        {
            std::lock_guard<std::mutex> lock(outcome->mutex);
            outcome->message = error.errorMsg();
        }
        outcome->success = error.isSuccess();
        outcome->count = count;
        outcome->thread = QThread::currentThread();
        ++outcome->calls;
    };
}

OperateCallback recordOperate(const boost::shared_ptr<Outcome>& outcome) {
    return [outcome](const utils::RKError& error, bson::BSONObj) {
        {
            std::lock_guard<std::mutex> lock(outcome->mutex);
            outcome->message = error.errorMsg();
        }
        outcome->success = error.isSuccess();
        outcome->thread = QThread::currentThread();
        ++outcome->calls;
    };
}

rkservice::COrinQueryDataReqPtr sourceQuery() {
    auto request = boost::make_shared<rkservice::COrinQueryDataReq>();
    request->dataType = rkservice::kDataQuoteSources;
    request->condition = "2";
    return request;
}

}  // namespace

class TestClientCentre : public QObject {
    Q_OBJECT
private slots:
    void init() { m_backend = ScriptedBackend::install(); }
    void cleanup() {
        COrinClientCenter::instance()->waitForIdle();
        COrinClientCenter::instance()->setBackend({});
    }

    void queryIsAnsweredOnceOnAWorkerThread() {
        auto source = boost::make_shared<rkservice::COrinQuoterSourceInfo>();
        m_backend->setQueryAnswer(rkservice::kDataQuoteSources, {source, source});
        auto outcome = boost::make_shared<Outcome>();
        COrinClientCenter::instance()->queryData_async(sourceQuery(), recordQuery(outcome), false);
        QTRY_COMPARE(outcome->calls.load(), 1);
        QVERIFY(outcome->success);
        QCOMPARE(outcome->count.load(), 2);
        QVERIFY(outcome->thread.load() != QThread::currentThread());
        QVERIFY(COrinClientCenter::instance()->waitForIdle());
        QCOMPARE(outcome->calls.load(), 1);
    }

    void answerIsNeverInlineOnTheCallersThread() {
        auto outcome = boost::make_shared<Outcome>();
        COrinClientCenter::instance()->queryData_async(sourceQuery(), recordQuery(outcome), false);
        // The backend may have answered already; the callback still runs on a worker.
        QTRY_COMPARE(outcome->calls.load(), 1);
        QVERIFY(outcome->thread.load() != QThread::currentThread());
        QCOMPARE(m_backend->requests().front().toCentre, true);
        QVERIFY(m_backend->requests().front().thread != std::this_thread::get_id());
    }

    void operateIsAnsweredOnceOnAWorkerThread() {
        m_backend->setOperateAnswer(rkservice::kDataQuoteSources, utils::RKError::fail("端口无效"));
        auto request = boost::make_shared<rkservice::COperateDataReq>();
        request->dataType = rkservice::kDataQuoteSources;
        request->operateType = rkservice::kOperateAdd;
        request->datas.push_back(boost::make_shared<rkservice::COrinQuoterSourceInfo>());
        auto outcome = boost::make_shared<Outcome>();
        COrinClientCenter::instance()->operateData_async(request, recordOperate(outcome), false);
        QTRY_COMPARE(outcome->calls.load(), 1);
        QVERIFY(!outcome->success);
        QCOMPARE(outcome->message, std::string("端口无效"));
        QVERIFY(outcome->thread.load() != QThread::currentThread());
        QVERIFY(COrinClientCenter::instance()->waitForIdle());
        QCOMPARE(outcome->calls.load(), 1);
    }

    // Whatever a callback throws, the worker survives, the request counts as finished and later
    // requests are answered.
    void throwingCallbackStillFinishes() {
        struct NotAnException {};
        const std::vector<std::function<void()>> throwers = {
            [] { throw std::runtime_error("callback failed"); },
            [] { throw 42; },
            [] { throw NotAnException(); },
        };
        std::atomic<int> thrown{0};
        for (const auto& thrower : throwers) {
            COrinClientCenter::instance()->queryData_async(
                sourceQuery(),
                [&thrown, thrower](const utils::RKError&, const std::vector<rkservice::IDataPtr>&,
                                   int, bson::BSONObj) {
                    ++thrown;
                    thrower();
                },
                false);
            auto request = boost::make_shared<rkservice::COperateDataReq>();
            request->dataType = rkservice::kDataQuoteSources;
            request->operateType = rkservice::kOperateAdd;
            COrinClientCenter::instance()->operateData_async(
                request,
                [&thrown, thrower](const utils::RKError&, bson::BSONObj) {
                    ++thrown;
                    thrower();
                },
                false);
        }
        QTRY_COMPARE(thrown.load(), 6);
        QTRY_COMPARE(COrinClientCenter::instance()->pendingCount(), 0);
        QVERIFY(COrinClientCenter::instance()->waitForIdle(5000));
        auto outcome = boost::make_shared<Outcome>();
        COrinClientCenter::instance()->queryData_async(sourceQuery(), recordQuery(outcome), false);
        QTRY_COMPARE(outcome->calls.load(), 1);
        QVERIFY(outcome->success);
    }

    void requestIsCopiedOnSend() {
        m_backend->setHolding(true);
        auto request = boost::make_shared<rkservice::COperateDataReq>();
        request->dataType = rkservice::kDataQuoteSources;
        request->operateType = rkservice::kOperateAdd;
        auto record = boost::make_shared<rkservice::COrinQuoterSourceInfo>();
        record->m_strAddress = "10.0.0.1";
        request->datas.push_back(record);
        auto outcome = boost::make_shared<Outcome>();
        COrinClientCenter::instance()->operateData_async(request, recordOperate(outcome), false);
        // The caller changes its objects right after sending.
        record->m_strAddress = "changed";
        request->operateType = rkservice::kOperateDelete;
        QTRY_COMPARE(m_backend->heldCount(), 1);
        const auto sent = m_backend->requests().front();
        QCOMPARE(sent.operateType, int(rkservice::kOperateAdd));
        auto sentRecord =
            boost::dynamic_pointer_cast<rkservice::COrinQuoterSourceInfo>(sent.datas.front());
        QVERIFY(sentRecord);
        QVERIFY(sentRecord.get() != record.get());
        QCOMPARE(sentRecord->m_strAddress, std::string("10.0.0.1"));
        m_backend->releaseAll();
        QTRY_COMPARE(outcome->calls.load(), 1);
    }

    void severalRequestsInFlight() {
        m_backend->setHolding(true);
        std::vector<boost::shared_ptr<Outcome>> outcomes;
        for (int i = 0; i < 12; ++i) {
            outcomes.push_back(boost::make_shared<Outcome>());
            COrinClientCenter::instance()->queryData_async(sourceQuery(),
                                                           recordQuery(outcomes.back()), false);
        }
        QTRY_COMPARE(m_backend->heldCount(), 12);
        for (const auto& outcome : outcomes)
            QCOMPARE(outcome->calls.load(), 0);
        m_backend->releaseAll();
        for (const auto& outcome : outcomes)
            QTRY_COMPARE(outcome->calls.load(), 1);
    }

    void blockedAnswerDoesNotStallOthers() {
        std::mutex gate;
        std::unique_lock<std::mutex> closed(gate);
        auto blocked = boost::make_shared<Outcome>();
        COrinClientCenter::instance()->queryData_async(
            sourceQuery(),
            [&gate, blocked](const utils::RKError&, const std::vector<rkservice::IDataPtr>&, int,
                             bson::BSONObj) {
                std::lock_guard<std::mutex> wait(gate);
                ++blocked->calls;
            },
            false);
        auto other = boost::make_shared<Outcome>();
        COrinClientCenter::instance()->queryData_async(sourceQuery(), recordQuery(other), false);
        QTRY_COMPARE(other->calls.load(), 1);
        QCOMPARE(blocked->calls.load(), 0);
        closed.unlock();
        QTRY_COMPARE(blocked->calls.load(), 1);
    }

    void unknownSubsystemAnswersWithAnError() {
        COrinClientPtr client = COrinClientCenter::instance()->getClientByName("nowhere");
        QVERIFY(client);
        auto outcome = boost::make_shared<Outcome>();
        client->queryData_async(sourceQuery(), recordQuery(outcome), false);
        QTRY_COMPARE(outcome->calls.load(), 1);
        QVERIFY(!outcome->success);
        QVERIFY(QString::fromStdString(outcome->message).contains("nowhere"));
        QVERIFY(outcome->thread.load() != QThread::currentThread());
        QCOMPARE(m_backend->requestCount(), 0);
    }

    void emptyNameGivesTheDefaultClient() {
        m_backend->setSubsystems({{"a", "甲"}, {"b", "乙"}});
        COrinClientPtr client = COrinClientCenter::instance()->getClientByName("");
        QCOMPARE(client->name(), std::string("a"));
        auto outcome = boost::make_shared<Outcome>();
        client->queryData_async(sourceQuery(), recordQuery(outcome), false);
        QTRY_COMPARE(outcome->calls.load(), 1);
        QVERIFY(outcome->success);
        QCOMPARE(m_backend->requests().front().toCentre, false);
        QCOMPARE(m_backend->requests().front().subsystem, std::string("a"));
    }

    void requestWithoutBackendIsAnsweredWithAnError() {
        COrinClientCenter::instance()->setBackend({});
        auto outcome = boost::make_shared<Outcome>();
        COrinClientCenter::instance()->queryData_async(sourceQuery(), recordQuery(outcome), false);
        auto operated = boost::make_shared<Outcome>();
        COrinClientCenter::instance()->operateData_async(
            boost::make_shared<rkservice::COperateDataReq>(), recordOperate(operated), false);
        QTRY_COMPARE(outcome->calls.load(), 1);
        QTRY_COMPARE(operated->calls.load(), 1);
        QVERIFY(!outcome->success);
        QVERIFY(!operated->success);
        QVERIFY(!outcome->message.empty());
        QVERIFY(outcome->thread.load() != QThread::currentThread());
    }

    void droppedAnswerStillAnswersOnce() {
        // A backend that forgets to answer: the dropped answer object answers with an error.
        struct Forgetful : ScriptedBackend {
            void query(const CRequestTarget&, const rkservice::COrinQueryDataReq&,
                       const CQueryAnswer&) override {}
        };
        COrinClientCenter::instance()->setBackend(boost::make_shared<Forgetful>());
        auto outcome = boost::make_shared<Outcome>();
        COrinClientCenter::instance()->queryData_async(sourceQuery(), recordQuery(outcome), false);
        QTRY_COMPARE(outcome->calls.load(), 1);
        QVERIFY(!outcome->success);
        QVERIFY(COrinClientCenter::instance()->waitForIdle());
        QCOMPARE(outcome->calls.load(), 1);
    }

    void multiServersAndServerNames() {
        m_backend->setSubsystems({{"sys1", "上海主站"}});
        QVERIFY(!COrinClientCenter::instance()->isMultiServers());
        m_backend->setSubsystems({{"sys1", "上海主站"}, {"sys2", "深圳备站"}});
        QVERIFY(COrinClientCenter::instance()->isMultiServers());
        QCOMPARE(COrinClientCenter::instance()->getServerNameBySystemTag("sys2"),
                 QString("深圳备站"));
        QCOMPARE(COrinClientCenter::instance()->getServerNameBySystemTag("other"),
                 QString("other"));
    }

    void loginTypeAuthFollowsBackendAndOverride() {
        m_backend->setLoginTypeAuth(false);
        QVERIFY(!COrinClientCenter::instance()->hasClientLoginTypeAuth(0));
        m_backend->setLoginTypeAuth(true);
        QVERIFY(COrinClientCenter::instance()->hasClientLoginTypeAuth(0));
        COrinClientCenter::instance()->setLoginTypeAuthOverride(0);
        QVERIFY(!COrinClientCenter::instance()->hasClientLoginTypeAuth(0));
        COrinClientCenter::instance()->setLoginTypeAuthOverride(-1);
        QVERIFY(COrinClientCenter::instance()->hasClientLoginTypeAuth(0));
    }

    void ipv6Table_data() {
        QTest::addColumn<QString>("text");
        QTest::addColumn<bool>("valid");
        QTest::newRow("full") << "2001:0db8:85a3:0000:0000:8a2e:0370:7334" << true;
        QTest::newRow("compressed") << "2001:db8::1" << true;
        QTest::newRow("loopback") << "::1" << true;
        QTest::newRow("unspecified") << "::" << true;
        QTest::newRow("ipv4 mapped") << "::ffff:192.168.1.1" << true;
        QTest::newRow("upper case") << "FE80::ABCD" << true;
        QTest::newRow("trailing compression") << "fe80::" << true;
        QTest::newRow("ipv4") << "192.168.1.1" << false;
        QTest::newRow("two compressions") << "2001::db8::1" << false;
        QTest::newRow("too many groups") << "1:2:3:4:5:6:7:8:9" << false;
        QTest::newRow("group too long") << "12345::1" << false;
        QTest::newRow("bad hex") << "2001:db8::g1" << false;
        QTest::newRow("empty") << "" << false;
        QTest::newRow("blank") << " ::1" << false;
        QTest::newRow("brackets") << "[::1]" << false;
        QTest::newRow("trailing dot") << "::ffff:1.2.3.4." << false;
        QTest::newRow("bad mapped") << "::ffff:256.1.1.1" << false;
    }

    void ipv6Table() {
        QFETCH(QString, text);
        QFETCH(bool, valid);
        QCOMPARE(COrinClientCenter::instance()->isIPv6Addr(text.toStdString()), valid);
    }

    void serverMessageIsShownAndReported() {
        QWidget parent;
        QSignalSpy spy(COrinClientCenter::instance(), &COrinClientCenter::serverMessageShown);
        COrinClientCenter::instance()->showServerMsgCallBack(1, false, &parent, "标题", "出错了",
                                                             true, false);
        QCOMPARE(spy.count(), 1);
        QCOMPARE(spy.at(0).at(0).toInt(), 1);
        QCOMPARE(spy.at(0).at(1).toBool(), false);
        QCOMPARE(spy.at(0).at(3).toString(), QString("标题"));
        QCOMPARE(spy.at(0).at(4).toString(), QString("出错了"));
        auto* box = parent.findChild<QMessageBox*>("serverMessageBox");
        QVERIFY(box);
        QVERIFY(box->isVisible());
        QVERIFY(!box->isModal());
        QCOMPARE(box->text(), QString("出错了"));
        QCOMPARE(box->icon(), QMessageBox::Critical);
        COrinClientCenter::instance()->showServerMsgCallBack(0, true, &parent, "提示", "保存成功",
                                                             true, false);
        bool sawInformation = false;
        for (QMessageBox* shown : parent.findChildren<QMessageBox*>("serverMessageBox"))
            sawInformation = sawInformation || shown->icon() == QMessageBox::Information;
        QVERIFY(sawInformation);
    }

private:
    boost::shared_ptr<ScriptedBackend> m_backend;
};

QTEST_MAIN(TestClientCentre)
#include "tst_clientcentre.moc"
