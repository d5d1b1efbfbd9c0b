// What each kind of client may hold of quotesd: the open files it raises its limit to, a flood
// of idle connections that exhausts them (the server listens again once they are gone), event
// streams per login and in all, threads, TLS handshakes and idle connections.

#include <grpcpp/grpcpp.h>

#include <QDeadlineTimer>
#include <QFile>
#include <QRegularExpression>
#include <QtTest>
#include <future>
#include <memory>

#include "CRemoteAdmin.h"
#include "ConnectionFlood.h"
#include "QuotesdProcess.h"
#include "TestPasswords.h"
#include "quotes.grpc.pb.h"

namespace v1 = quotes::v1;

namespace {

std::shared_ptr<grpc::Channel> channelTo(const QuotesdProcess& server) {
    grpc::SslCredentialsOptions tls;
    tls.pem_root_certs = server.certificatePem().toStdString();
    grpc::ChannelArguments arguments;
    // A connection of its own, not one shared with the test's other channels.
    arguments.SetInt(GRPC_ARG_USE_LOCAL_SUBCHANNEL_POOL, 1);
    return grpc::CreateCustomChannel(server.address().toStdString(), grpc::SslCredentials(tls),
                                     arguments);
}

std::unique_ptr<grpc::ClientContext> context(const std::string& token = std::string()) {
    auto result = std::make_unique<grpc::ClientContext>();
    result->set_deadline(std::chrono::system_clock::now() + std::chrono::seconds(60));
    if (!token.empty())
        result->AddMetadata("authorization", "Bearer " + token);
    return result;
}

// One open Events call.
struct EventStream {
    std::unique_ptr<grpc::ClientContext> call;
    std::unique_ptr<grpc::ClientReader<v1::Event>> reader;
    bool listening = false;  // the server's first event arrived
    grpc::Status refusal;    // when it did not

    ~EventStream() {
        if (!reader)
            return;
        call->TryCancel();
        reader->Finish();
    }
};

std::unique_ptr<EventStream> openEvents(v1::QuotesAdmin::Stub& stub, const std::string& token) {
    auto stream = std::make_unique<EventStream>();
    stream->call = context(token);
    stream->reader = stub.Events(stream->call.get(), v1::EventsRequest());
    v1::Event first;
    stream->listening = stream->reader->Read(&first);
    if (!stream->listening) {
        stream->refusal = stream->reader->Finish();
        stream->reader.reset();
    }
    return stream;
}

// Whether a login answers within a second.
bool loginAnswers(const QuotesdProcess& server) {
    CRemoteAdmin admin({server.address().toStdString()}, server.certificatePem().toStdString(),
                       std::chrono::seconds(1));
    return admin.login("admin", kAdminPassword.toStdString()).isSuccess();
}

// The Max open files line of a process's limits: "soft hard".
QString openFileLimits(qint64 pid) {
    QFile limits(QStringLiteral("/proc/%1/limits").arg(pid));
    if (!limits.open(QIODevice::ReadOnly))
        return QString();
    static const QRegularExpression line(QStringLiteral("Max open files\\s+(\\d+)\\s+(\\d+)"));
    const QRegularExpressionMatch match = line.match(QString::fromLatin1(limits.readAll()));
    return match.hasMatch() ? match.captured(1) + ' ' + match.captured(2) : QString();
}

}  // namespace

class TestQuotesdLimits : public QObject {
    Q_OBJECT

    // Small caps, to reach them with a few calls.
    QuotesdProcess m_capped;
    std::unique_ptr<v1::QuotesAdmin::Stub> m_stub;

    std::string login(const char* name, const QString& password) {
        v1::LoginRequest request;
        request.set_name(name);
        request.set_password(password.toStdString());
        v1::LoginReply reply;
        if (!m_stub->Login(context().get(), request, &reply).ok())
            return std::string();
        return reply.token();
    }

    // Opens a stream and keeps it when the server listens on it (a slot may still be held by
    // a stream the server has not yet seen end). QTRY_ evaluates its condition again after it
    // held: each condition says first that the stream is there already.
    bool holdStream(const std::string& token, std::vector<std::unique_ptr<EventStream>>* held) {
        auto stream = openEvents(*m_stub, token);
        if (!stream->listening)
            return false;
        held->push_back(std::move(stream));
        return true;
    }

    // Logins sent all at once; the status of each.
    std::vector<grpc::Status> loginsAtOnce(size_t count) {
        std::vector<std::unique_ptr<grpc::ClientContext>> calls;
        std::vector<v1::LoginReply> replies(count);
        std::vector<std::promise<grpc::Status>> done(count);
        v1::LoginRequest request;
        request.set_name("admin");
        request.set_password(kAdminPassword.toStdString());
        for (size_t i = 0; i < count; ++i) {
            calls.push_back(context());
            m_stub->async()->Login(calls.back().get(), &request, &replies[i],
                                   [&done, i](grpc::Status status) { done[i].set_value(status); });
        }
        std::vector<grpc::Status> statuses;
        for (auto& one : done)
            statuses.push_back(one.get_future().get());
        return statuses;
    }

private slots:
    void initTestCase() {
        QString output;
        QVERIFY2(m_capped.init(kAdminPassword, &output) &&
                     m_capped.setPassword(QStringLiteral("viewer"), kViewerPassword),
                 qPrintable(output));
        QVERIFY2(
            m_capped.start({QStringLiteral("--max-threads"), QStringLiteral("8"),
                            QStringLiteral("--max-event-streams"), QStringLiteral("3"),
                            QStringLiteral("--max-event-streams-per-login"), QStringLiteral("2"),
                            QStringLiteral("--max-password-checks"), QStringLiteral("1"),
                            QStringLiteral("--handshake-timeout-ms"), QStringLiteral("500"),
                            QStringLiteral("--idle-connection-ms"), QStringLiteral("1000")}),
            qPrintable(m_capped.log()));
        m_stub = v1::QuotesAdmin::NewStub(channelTo(m_capped));
    }

    void cleanupTestCase() {
        if (m_capped.isRunning())
            QCOMPARE(m_capped.stop(), 0);
    }

    void capsThatDoNotFitAreRefused() {
        QString output;
        QCOMPARE(m_capped.run({QStringLiteral("--data"), m_capped.dataDir(),
                               QStringLiteral("--max-threads"), QStringLiteral("16"),
                               QStringLiteral("--max-event-streams"), QStringLiteral("9")},
                              QByteArray(), &output),
                 2);
        QVERIFY2(output.contains(QStringLiteral("at most half of --max-threads (8)")),
                 qPrintable(output));
    }

    void eventStreamsPerLoginAndInAll() {
        const std::string admin = login("admin", kAdminPassword);
        const std::string viewer = login("viewer", kViewerPassword);
        const std::string secondAdmin = login("admin", kAdminPassword);
        QVERIFY(!admin.empty() && !viewer.empty() && !secondAdmin.empty());

        auto first = openEvents(*m_stub, admin);
        auto second = openEvents(*m_stub, admin);
        QVERIFY(first->listening && second->listening);
        const auto third = openEvents(*m_stub, admin);
        QVERIFY(!third->listening);
        QCOMPARE(third->refusal.error_code(), grpc::StatusCode::RESOURCE_EXHAUSTED);
        QVERIFY2(QString::fromStdString(third->refusal.error_message()).startsWith("服务器繁忙"),
                 third->refusal.error_message().c_str());

        const auto viewers = openEvents(*m_stub, viewer);
        QVERIFY(viewers->listening);
        // Three streams are open: the server has no slot left, whichever login asks.
        QCOMPARE(openEvents(*m_stub, secondAdmin)->refusal.error_code(),
                 grpc::StatusCode::RESOURCE_EXHAUSTED);

        // A stream that ends gives its slot back.
        first.reset();
        std::vector<std::unique_ptr<EventStream>> reopened;
        QTRY_VERIFY(reopened.size() == 1 || holdStream(secondAdmin, &reopened));
    }

    void callsBeyondTheThreadsAreRefused() {
        const std::string admin = login("admin", kAdminPassword);
        const std::string viewer = login("viewer", kViewerPassword);
        // Three threads held by streams, one polls: three logins at most run at once.
        std::vector<std::unique_ptr<EventStream>> held;
        QTRY_VERIFY(held.size() == 1 || holdStream(admin, &held));
        QTRY_VERIFY(held.size() == 2 || holdStream(admin, &held));
        QTRY_VERIFY(held.size() == 3 || holdStream(viewer, &held));

        int refused = 0;
        int answered = 0;
        for (const grpc::Status& status : loginsAtOnce(12)) {
            if (status.error_code() == grpc::StatusCode::RESOURCE_EXHAUSTED)
                ++refused;
            else if (status.ok())
                ++answered;
        }
        QVERIFY2(refused > 0, qPrintable(QString::number(answered)));
        QVERIFY(answered > 0);
        QCOMPARE(refused + answered, 12);
    }

    void aSilentConnectionIsCutAfterTheHandshakeTime() {
        ConnectionFlood silent;
        QCOMPARE(silent.open(m_capped.port(), 1), 1);
        QTRY_COMPARE_WITH_TIMEOUT(silent.closedByServer(), 1, 10000);
    }

    void aConnectionWithoutCallsIsClosed() {
        const auto channel = channelTo(m_capped);
        auto stub = v1::QuotesAdmin::NewStub(channel);
        v1::PingReply reply;
        QVERIFY(stub->Ping(context().get(), v1::PingRequest(), &reply).ok());
        QCOMPARE(channel->GetState(false), GRPC_CHANNEL_READY);
        QTRY_COMPARE_WITH_TIMEOUT(channel->GetState(false), GRPC_CHANNEL_IDLE, 10000);
    }

    void raisesItsOpenFileLimitAndListensAgainAfterAFlood() {
        QuotesdProcess server;
        server.setOpenFileLimit(128, 256);
        QString output;
        QVERIFY2(server.init(kAdminPassword, &output), qPrintable(output));
        QVERIFY2(server.start(), qPrintable(server.log()));
        QCOMPARE(openFileLimits(server.processId()), QStringLiteral("256 256"));
        // The threads' database connections (three files each) take at most half the files.
        QVERIFY2(server.log().contains(QStringLiteral("leaves room for 32 threads")),
                 qPrintable(server.log()));

        ConnectionFlood flood;
        QCOMPARE(flood.open(server.port(), 400), 400);
        // gRPC's listener gives up.
        QTRY_VERIFY_WITH_TIMEOUT(server.log().contains("Failed accept4"), 30000);
        flood.close();

        // Within 10 s of the last connection's end a login answers again.
        QDeadlineTimer deadline(10000);
        bool answered = false;
        QTRY_VERIFY_WITH_TIMEOUT(
            answered || (answered = loginAnswers(server)) || deadline.hasExpired(), 15000);
        QVERIFY2(answered, qPrintable(server.log()));
        QTRY_VERIFY(server.log().contains("listening anew on 127.0.0.1"));
        QCOMPARE(server.stop(), 0);
    }
};

QTEST_GUILESS_MAIN(TestQuotesdLimits)
#include "tst_quotesd_limits.moc"
