#include <google/protobuf/descriptor.h>
#include <google/protobuf/dynamic_message.h>
#include <grpcpp/generic/generic_stub.h>
#include <grpcpp/grpcpp.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QtTest>
#include <future>
#include <memory>

#include "CPasswordHasher.h"
#include "CRecordCodec.h"
#include "CRemoteAdmin.h"
#include "CTlsIdentity.h"
#include "Hlx/QuotesVersion.h"
#include "QuotesctlOnServer.h"
#include "QuotesdProcess.h"
#include "RoleExpectations.h"
#include "TestPasswords.h"
#include "model/CRevisionConflicts.h"
#include "model/CStaleRows.h"
#include "quotes.grpc.pb.h"
#include "rkservice/DataTypeIds.h"

using namespace RoleExpectations;
namespace v1 = quotes::v1;

namespace {

QString rolePassword(const QString& role) {
    return role == QLatin1String("admin") ? kAdminPassword : role + QStringLiteral("-password-1");
}

std::unique_ptr<v1::QuotesAdmin::Stub> stubFor(const QString& address,
                                               std::shared_ptr<grpc::ChannelCredentials> creds) {
    grpc::ChannelArguments arguments;
    arguments.SetMaxSendMessageSize(64 * 1024 * 1024);
    return v1::QuotesAdmin::NewStub(
        grpc::CreateCustomChannel(address.toStdString(), creds, arguments));
}

std::shared_ptr<grpc::ChannelCredentials> trusting(const QByteArray& pem) {
    grpc::SslCredentialsOptions options;
    options.pem_root_certs = pem.toStdString();
    return grpc::SslCredentials(options);
}

// A call's context with the deadline and, when given, the login token.
std::unique_ptr<grpc::ClientContext> context(const std::string& token = std::string()) {
    auto result = std::make_unique<grpc::ClientContext>();
    result->set_deadline(std::chrono::system_clock::now() + std::chrono::seconds(20));
    if (!token.empty())
        result->AddMetadata("authorization", "Bearer " + token);
    return result;
}

// Sets every number of the message out of the range the receiver accepts.
void outOfRange(google::protobuf::Message* message) {
    const google::protobuf::Reflection* reflection = message->GetReflection();
    const google::protobuf::Descriptor* type = message->GetDescriptor();
    for (int i = 0; i < type->field_count(); ++i) {
        const google::protobuf::FieldDescriptor* field = type->field(i);
        if (field->cpp_type() != google::protobuf::FieldDescriptor::CPPTYPE_INT64)
            continue;
        if (field->is_repeated())
            reflection->AddInt64(message, field, INT64_MAX);
        else
            reflection->SetInt64(message, field, INT64_MAX);
    }
}

// What a request to the method carries: nothing, every number out of range, or `padding` bytes
// in a field no message has (the receiver parses it and keeps it as unknown).
enum class Payload { Empty, OutOfRange, Oversized };

std::string requestPayload(const google::protobuf::MethodDescriptor& method, Payload kind) {
    std::unique_ptr<google::protobuf::Message> message(
        google::protobuf::MessageFactory::generated_factory()
            ->GetPrototype(method.input_type())
            ->New());
    if (kind == Payload::OutOfRange)
        outOfRange(message.get());
    if (kind == Payload::Oversized)
        message->GetReflection()
            ->MutableUnknownFields(message.get())
            ->AddLengthDelimited(4095, std::string(8 * 1024 * 1024, 'x'));
    return message->SerializeAsString();
}

// Calls the method with the payload and no token; the status it ends with.
grpc::Status callWithoutToken(grpc::GenericStub& raw, v1::QuotesAdmin::Stub& stub,
                              const google::protobuf::MethodDescriptor& method,
                              const std::string& payload) {
    const auto call = context();
    if (!method.server_streaming()) {
        grpc::Slice slice(payload.data(), payload.size());
        grpc::ByteBuffer request(&slice, 1);
        grpc::ByteBuffer response;
        std::promise<grpc::Status> done;
        raw.UnaryCall(call.get(), "/" + method.service()->full_name() + "/" + method.name(),
                      grpc::StubOptions(), &request, &response,
                      [&done](grpc::Status status) { done.set_value(status); });
        return done.get_future().get();
    }
    // The streams, by their own stubs: each reads until the server ends the call.
    if (method.name() == "Query") {
        v1::QueryRequest request;
        request.ParseFromString(payload);
        auto reader = stub.Query(call.get(), request);
        v1::QueryChunk chunk;
        while (reader->Read(&chunk)) {
        }
        return reader->Finish();
    }
    if (method.name() == "Events") {
        v1::EventsRequest request;
        request.ParseFromString(payload);
        auto reader = stub.Events(call.get(), request);
        v1::Event event;
        while (reader->Read(&event)) {
        }
        return reader->Finish();
    }
    return grpc::Status(grpc::StatusCode::UNIMPLEMENTED, "no way to call " + method.name());
}

}  // namespace

// quotesd end to end: a real server process on a loopback port, spoken to over TLS.
class TestQuotesd : public QObject {
    Q_OBJECT

    QuotesdProcess m_server;
    std::unique_ptr<v1::QuotesAdmin::Stub> m_stub;
    std::map<QString, std::string> m_tokens;
    int m_nextPort = 30000;

    v1::LoginReply login(const QString& name, const QString& password,
                         v1::QuotesAdmin::Stub* stub = nullptr) {
        v1::LoginRequest request;
        request.set_name(name.toStdString());
        request.set_password(password.toStdString());
        v1::LoginReply reply;
        const grpc::Status status =
            (stub ? stub : m_stub.get())->Login(context().get(), request, &reply);
        if (!status.ok())
            reply.mutable_error()->set_message("status " + status.error_message());
        return reply;
    }

    std::string token(const QString& role) {
        if (!m_tokens.count(role))
            m_tokens[role] = login(role, rolePassword(role)).token();
        return m_tokens[role];
    }

    grpc::Status query(const std::string& token, std::vector<v1::Record>* records,
                       v1::QueryChunk* last = nullptr) {
        v1::QueryRequest request;
        request.set_data_type(12300);
        request.mutable_target()->set_centre(true);
        auto call = context(token);
        auto reader = m_stub->Query(call.get(), request);
        v1::QueryChunk chunk;
        while (reader->Read(&chunk)) {
            for (const auto& record : chunk.records())
                records->push_back(record);
            if (last)
                *last = chunk;
        }
        return reader->Finish();
    }

    std::vector<rkservice::COrinQuoterSourceInfoPtr> sources(const std::string& token) {
        std::vector<v1::Record> records;
        query(token, &records);
        std::vector<rkservice::COrinQuoterSourceInfoPtr> result;
        for (const auto& record : records) {
            rkservice::IDataPtr data;
            if (CRecordCodec::decodeRecord(record, &data).isSuccess())
                result.push_back(
                    boost::dynamic_pointer_cast<rkservice::COrinQuoterSourceInfo>(data));
        }
        return result;
    }

    rkservice::COrinQuoterSourceInfoPtr stored(int id) {
        for (const auto& source : sources(token("admin"))) {
            if (source->m_nId == id)
                return source;
        }
        return nullptr;
    }

    // The service's answer to a change (a transport failure reads as one too).
    utils::RKError operate(const std::string& token, int operateType,
                           const rkservice::IDataList& datas, bson::BSONObj* result = nullptr) {
        rkservice::COperateDataReq request;
        request.dataType = 12300;
        request.operateType = operateType;
        request.datas = datas;
        v1::OperateRequest message;
        const utils::RKError encoded =
            CRecordCodec::encodeOperate(Hlx::CRequestTarget::centre(), request, &message);
        if (!encoded.isSuccess())
            return encoded;
        v1::OperateReply reply;
        const grpc::Status status = m_stub->Operate(context(token).get(), message, &reply);
        if (!status.ok())
            return utils::RKError::fail("status " + status.error_message());
        if (result)
            CRecordCodec::decodeResult(reply.result(), result);
        return CRecordCodec::decodeError(reply.error());
    }

    int ownerAdd(const rkservice::COrinQuoterSourceInfoPtr& source) {
        bson::BSONObj result;
        if (!operate(token("admin"), 2, {source}, &result).isSuccess())
            return -1;
        return QString::fromStdString(result.getStringField("ids")).toInt();
    }

    // The import generation a login's token row holds in the server's database; -1 without one.
    long long storedGeneration(const std::string& token) {
        long long generation = -1;
        {
            QSqlDatabase db =
                QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), QStringLiteral("probe"));
            db.setDatabaseName(QDir(m_server.dataDir()).filePath(QStringLiteral("quotes.db")));
            db.setConnectOptions(QStringLiteral("QSQLITE_OPEN_READONLY"));
            QSqlQuery query(db);
            if (db.open() &&
                query.prepare(QStringLiteral(
                    "SELECT import_generation FROM login_tokens WHERE token_hash = ?"))) {
                query.addBindValue(QString::fromStdString(CPasswordHasher::sha256Hex(token)));
                if (query.exec() && query.next())
                    generation = query.value(0).toLongLong();
            }
        }
        QSqlDatabase::removeDatabase(QStringLiteral("probe"));
        return generation;
    }

    // Everything exported and imported back by the administrator.
    bool reimport() {
        v1::ExportReply exported;
        if (!m_stub->ExportDocument(context(token("admin")).get(), v1::ExportRequest(), &exported)
                 .ok() ||
            !exported.error().success())
            return false;
        v1::ImportRequest request;
        request.set_document(exported.document());
        v1::ImportReply imported;
        return m_stub->ImportDocument(context(token("admin")).get(), request, &imported).ok() &&
               imported.error().success();
    }

    void removeEverySource() {
        rkservice::IDataList all;
        for (const auto& source : sources(token("admin")))
            all.push_back(panelDeleteRecord(*source));
        if (!all.empty())
            QVERIFY(operate(token("admin"), 3, all).isSuccess());
    }

private slots:
    void initTestCase() {
        QString output;
        QVERIFY2(m_server.init(kAdminPassword, &output), qPrintable(output));
        QVERIFY2(output.contains(QStringLiteral("SHA-256 fingerprint")), qPrintable(output));
        for (const QString& role :
             {QStringLiteral("futures_op"), QStringLiteral("stock_op"), QStringLiteral("viewer")})
            QVERIFY(m_server.setPassword(role, rolePassword(role)));
        QVERIFY2(m_server.start(), qPrintable(m_server.log()));
        m_stub = stubFor(m_server.address(), trusting(m_server.certificatePem()));
    }

    void cleanupTestCase() {
        if (m_server.isRunning())
            QCOMPARE(m_server.stop(), 0);
    }

    void setUpOnceOnly() {
        QString output;
        QVERIFY(!m_server.init(kAdminPassword, &output));
        QVERIFY2(output.contains(QStringLiteral("set up already")), qPrintable(output));
        struct stat data;
        QCOMPARE(::stat(QFile::encodeName(m_server.dataDir()).constData(), &data), 0);
        QCOMPARE(int(data.st_mode & 0777), 0700);
        struct stat key;
        QCOMPARE(
            ::stat(QFile::encodeName(QDir(m_server.dataDir()).filePath("quotesd.key")).constData(),
                   &key),
            0);
        QCOMPARE(int(key.st_mode & 0777), 0600);
    }

    void shortAdminPasswordSetsNothingUp() {
        QuotesdProcess fresh;
        QString output;
        QVERIFY(!fresh.init(QStringLiteral("too-short"), &output));
        QVERIFY2(output.contains(QStringLiteral("密码至少需要 12 个字符")), qPrintable(output));
        QVERIFY(!QFileInfo::exists(QDir(fresh.dataDir()).filePath(QStringLiteral("quotesd.key"))));
        QVERIFY2(fresh.init(kAdminPassword, &output), qPrintable(output));
    }

    void refusesRoot() {
        if (::geteuid() != 0)
            QSKIP("only root can show that root is refused");
        QProcess direct;
        direct.start(qEnvironmentVariable("QUOTES_BINARY_DIR") + QStringLiteral("/bin/quotesd"),
                     {QStringLiteral("--data"), m_server.dataDir()});
        QVERIFY(direct.waitForFinished(30000));
        QCOMPARE(direct.exitCode(), 2);
        QVERIFY(direct.readAllStandardError().contains("refusing to run as root"));
    }

    void pingNeedsNoLoginButReadsDo() {
        v1::PingReply ping;
        QVERIFY(m_stub->Ping(context().get(), v1::PingRequest(), &ping).ok());
        QCOMPARE(QString::fromStdString(ping.server_version()), QString(Hlx::quotesVersion()));
        // Where the database lives is for the logged-in only.
        QCOMPARE(ping.database(), std::string());
        QVERIFY(m_stub->Ping(context(token("viewer")).get(), v1::PingRequest(), &ping).ok());
        QVERIFY(QString::fromStdString(ping.database()).contains(m_server.dataDir()));
        std::vector<v1::Record> records;
        QCOMPARE(query(std::string(), &records).error_code(), grpc::StatusCode::UNAUTHENTICATED);
        QCOMPARE(query("not-a-token", &records).error_code(), grpc::StatusCode::UNAUTHENTICATED);
        v1::SubsystemsReply subsystems;
        QCOMPARE(
            m_stub->Subsystems(context().get(), v1::SubsystemsRequest(), &subsystems).error_code(),
            grpc::StatusCode::UNAUTHENTICATED);
    }

    void loginGivesATokenAndTheAccount() {
        const v1::LoginReply reply = login(QStringLiteral("stock_op"), rolePassword("stock_op"));
        QVERIFY2(reply.error().success(), reply.error().message().c_str());
        // 32 random bytes, base64url.
        QVERIFY(reply.token().size() >= 43);
        QCOMPARE(reply.account().name(), std::string("stock_op"));
        QCOMPARE(reply.account().rights_size(), 3);
        QCOMPARE(reply.subsystems_size(), 2);
        QVERIFY(reply.login_type_auth().count(0));
    }

    void wrongLoginsLookAlike() {
        for (const auto& [name, password] : std::vector<std::pair<QString, QString>>{
                 {"viewer", "wrong-password-1"}, {"nobody-here", "wrong-password-1"}}) {
            const v1::LoginReply reply = login(name, password);
            QVERIFY(!reply.error().success());
            QCOMPARE(QString::fromStdString(reply.error().message()), QString("用户名或密码错误"));
            QVERIFY(reply.token().empty());
        }
    }

    void roles_data() {
        QTest::addColumn<QString>("role");
        QTest::addColumn<int>("kind");
        QTest::addColumn<QString>("outcome");
        for (const auto& role : expected()) {
            for (int kind = 0; kind < int(kinds().size()); ++kind)
                QTest::newRow(qPrintable(role.first + '/' + kinds()[size_t(kind)].name))
                    << role.first << kind << role.second.at(kind);
        }
    }

    void roles() {
        QFETCH(QString, role);
        QFETCH(int, kind);
        QFETCH(QString, outcome);
        removeEverySource();
        const Kind& of = kinds()[size_t(kind)];
        const std::string mine = token(role);
        QVERIFY(!mine.empty());

        utils::RKError error = operate(mine, 2, {of.make(m_nextPort++)});
        QCOMPARE(error.isSuccess(), outcome[0] == 'y');
        if (!error.isSuccess())
            QVERIFY2(QString::fromStdString(error.errorMsg()).startsWith("没有权限：添加"),
                     error.errorMsg().c_str());
        QCOMPARE(int(sources(token("admin")).size()), outcome[0] == 'y' ? 1 : 0);

        const int modifiedId = ownerAdd(of.make(m_nextPort++));
        QVERIFY(modifiedId > 0);
        auto change = boost::make_shared<rkservice::COrinQuoterSourceInfo>(*stored(modifiedId));
        change->m_strUserName = "changed";
        error = operate(mine, 0, {change});
        QCOMPARE(error.isSuccess(), outcome[1] == 'y');
        QCOMPARE(stored(modifiedId)->m_strUserName == "changed", outcome[1] == 'y');

        const int deletedId = ownerAdd(of.make(m_nextPort++));
        QVERIFY(deletedId > 0);
        error = operate(mine, 3, {panelDeleteRecord(*stored(deletedId))});
        QCOMPARE(error.isSuccess(), outcome[2] == 'y');
        QCOMPARE(!stored(deletedId), outcome[2] == 'y');
    }

    void passwordsOnlyForThoseWhoMayModify() {
        removeEverySource();
        auto source = addressSource(10000, 2, "192.0.2.40", 1);
        source->m_strPassword = "marker-secret";
        QVERIFY(ownerAdd(source) > 0);
        QCOMPARE(sources(token("stock_op")).front()->m_strPassword, std::string("marker-secret"));
        QCOMPARE(sources(token("futures_op")).front()->m_strPassword, std::string());
        QCOMPARE(sources(token("viewer")).front()->m_strPassword, std::string());
    }

    void logoutEndsTheToken() {
        const std::string once = login("viewer", rolePassword("viewer")).token();
        std::vector<v1::Record> records;
        QVERIFY(query(once, &records).ok());
        v1::LogoutReply reply;
        QVERIFY(m_stub->Logout(context(once).get(), v1::LogoutRequest(), &reply).ok());
        QCOMPARE(query(once, &records).error_code(), grpc::StatusCode::UNAUTHENTICATED);
    }

    void accountChangesCountAtOnce() {
        const std::string viewer = login("viewer", rolePassword("viewer")).token();
        v1::SetRightsRequest rights;
        rights.set_name("viewer");
        rights.add_rights(10937);
        v1::AdminReply reply;
        QVERIFY(m_stub->SetRights(context(token("admin")).get(), rights, &reply).ok());
        QVERIFY2(reply.error().success(), reply.error().message().c_str());
        QVERIFY(operate(viewer, 2, {addressSource(10000, 2, "192.0.2.41", 1)}).isSuccess());
        rights.clear_rights();
        QVERIFY(m_stub->SetRights(context(token("admin")).get(), rights, &reply).ok());
        QVERIFY(!operate(viewer, 2, {addressSource(10000, 2, "192.0.2.41", 2)}).isSuccess());

        v1::SetAccountEnabledRequest disable;
        disable.set_name("viewer");
        disable.set_enabled(false);
        QVERIFY(m_stub->SetAccountEnabled(context(token("admin")).get(), disable, &reply).ok());
        QVERIFY2(reply.error().success(), reply.error().message().c_str());
        std::vector<v1::Record> records;
        QCOMPARE(query(viewer, &records).error_code(), grpc::StatusCode::UNAUTHENTICATED);
        QVERIFY(!login("viewer", rolePassword("viewer")).error().success());
        disable.set_enabled(true);
        QVERIFY(m_stub->SetAccountEnabled(context(token("admin")).get(), disable, &reply).ok());
        m_tokens.erase("viewer");
        QVERIFY(!token("viewer").empty());
    }

    void administrationNeedsTheAdministratorRight() {
        v1::ListAccountsReply accounts;
        QVERIFY(m_stub
                    ->ListAccounts(context(token("stock_op")).get(), v1::ListAccountsRequest(),
                                   &accounts)
                    .ok());
        QCOMPARE(QString::fromStdString(accounts.error().message()), QString("没有权限：管理账户"));
        QCOMPARE(accounts.accounts_size(), 0);
        QVERIFY(
            m_stub
                ->ListAccounts(context(token("admin")).get(), v1::ListAccountsRequest(), &accounts)
                .ok());
        QCOMPARE(accounts.accounts_size(), 4);
        v1::ExportReply exported;
        QVERIFY(
            m_stub->ExportDocument(context(token("viewer")).get(), v1::ExportRequest(), &exported)
                .ok());
        QCOMPARE(QString::fromStdString(exported.error().message()), QString("没有权限：导出数据"));
        QVERIFY(exported.document().empty());
    }

    // Sub-systems, login types and the integrity check: administrators only; the client's cache
    // follows a change at once, other clients see it at their next refresh.
    void settingsAndIntegrityThroughTheServer() {
        const std::vector<std::string> servers{m_server.address().toStdString()};
        const std::string pem = m_server.certificatePem().toStdString();
        CRemoteAdmin admin(servers, pem);
        CRemoteAdmin viewer(servers, pem);
        QVERIFY(admin.login("admin", rolePassword("admin").toStdString()).isSuccess());
        QVERIFY(viewer.login("viewer", rolePassword("viewer").toStdString()).isSuccess());
        const std::vector<Hlx::SubsystemInfo> before = admin.subsystems();
        QVERIFY(!before.empty());
        std::vector<Hlx::SubsystemInfo> changed = before;
        changed.push_back({"sys_extra", "备用"});
        const bool typeBefore = admin.hasClientLoginTypeAuth(7);

        QCOMPARE(QString::fromStdString(viewer.setSubsystems(changed).errorMsg()),
                 QString("没有权限：修改分系统"));
        QCOMPARE(QString::fromStdString(viewer.setLoginTypeAuth(7, !typeBefore).errorMsg()),
                 QString("没有权限：修改登录类型设置"));
        QCOMPARE(QString::fromStdString(viewer.checkIntegrity(nullptr).errorMsg()),
                 QString("没有权限：一致性检查"));
        QVERIFY(viewer.refreshSession().isSuccess());
        QCOMPARE(viewer.subsystems().size(), before.size());
        QCOMPARE(viewer.hasClientLoginTypeAuth(7), typeBefore);

        QVERIFY(admin.setSubsystems(changed).isSuccess());
        QCOMPARE(admin.subsystems().size(), changed.size());
        QCOMPARE(admin.subsystems().back().name, std::string("sys_extra"));
        QVERIFY(admin.setLoginTypeAuth(7, !typeBefore).isSuccess());
        QCOMPARE(admin.hasClientLoginTypeAuth(7), !typeBefore);
        QVERIFY(admin.checkIntegrity(nullptr).isSuccess());
        QCOMPARE(viewer.subsystems().size(), before.size());
        QVERIFY(viewer.refreshSession().isSuccess());
        QCOMPARE(viewer.subsystems().size(), changed.size());
        QCOMPARE(viewer.hasClientLoginTypeAuth(7), !typeBefore);

        v1::SetLoginTypeAuthRequest outOfRange;
        outOfRange.set_login_type(int64_t(1) << 40);
        outOfRange.set_granted(true);
        v1::AdminReply reply;
        QCOMPARE(m_stub->SetLoginTypeAuth(context(token("admin")).get(), outOfRange, &reply)
                     .error_code(),
                 grpc::StatusCode::INVALID_ARGUMENT);

        QVERIFY(admin.setSubsystems(before).isSuccess());
        QVERIFY(admin.setLoginTypeAuth(7, typeBefore).isSuccess());
        QCOMPARE(admin.subsystems().size(), before.size());
        admin.shutdown();
        viewer.shutdown();
    }

    void malformedRequestsChangeNothing() {
        removeEverySource();
        v1::OperateRequest unknownType;
        unknownType.set_data_type(9999);
        unknownType.set_operate_type(2);
        unknownType.mutable_target()->set_centre(true);
        v1::OperateReply reply;
        QCOMPARE(m_stub->Operate(context(token("admin")).get(), unknownType, &reply).error_code(),
                 grpc::StatusCode::INVALID_ARGUMENT);

        v1::OperateRequest unknownOperation = unknownType;
        unknownOperation.set_data_type(12300);
        unknownOperation.set_operate_type(7);
        QCOMPARE(
            m_stub->Operate(context(token("admin")).get(), unknownOperation, &reply).error_code(),
            grpc::StatusCode::INVALID_ARGUMENT);

        v1::OperateRequest outOfRange = unknownOperation;
        outOfRange.set_operate_type(2);
        v1::Record* record = outOfRange.add_records();
        record->mutable_quote_source()->set_platform_id(10000);
        record->mutable_quote_source()->set_trade_type(2);
        record->mutable_quote_source()->set_port(int64_t(1) << 40);
        QCOMPARE(m_stub->Operate(context(token("admin")).get(), outOfRange, &reply).error_code(),
                 grpc::StatusCode::INVALID_ARGUMENT);

        v1::ImportRequest oversized;
        oversized.set_document(std::string(17 * 1024 * 1024, ' '));
        v1::ImportReply imported;
        QCOMPARE(m_stub->ImportDocument(context(token("admin")).get(), oversized, &imported)
                     .error_code(),
                 grpc::StatusCode::RESOURCE_EXHAUSTED);
        QCOMPARE(int(sources(token("admin")).size()), 0);
    }

    // Bytes that are no message at all, to every changing call: refused, nothing changes.
    void garbageBytesAreRefused() {
        removeEverySource();
        grpc::SslCredentialsOptions tls;
        tls.pem_root_certs = m_server.certificatePem().toStdString();
        grpc::GenericStub raw(
            grpc::CreateChannel(m_server.address().toStdString(), grpc::SslCredentials(tls)));
        const std::string garbage(
            "\xff\xff\xff\xff\x0f\x08\x80\x80\x80\x80\x80\x80\x80\x80\x80"
            "\x80\x01\x12\xff\xff\xff\x7f",
            22);
        for (const char* method :
             {"/quotes.v1.QuotesAdmin/Operate", "/quotes.v1.QuotesAdmin/ImportDocument",
              "/quotes.v1.QuotesAdmin/SetRights", "/quotes.v1.QuotesAdmin/Login"}) {
            grpc::Slice slice(garbage.data(), garbage.size());
            grpc::ByteBuffer request(&slice, 1);
            grpc::ByteBuffer response;
            auto call = context(token("admin"));
            std::promise<grpc::Status> done;
            raw.UnaryCall(call.get(), method, grpc::StubOptions(), &request, &response,
                          [&done](grpc::Status status) { done.set_value(status); });
            const grpc::Status status = done.get_future().get();
            // Refused for what it carries, not lost on the way.
            QVERIFY2(status.error_code() == grpc::StatusCode::INTERNAL ||
                         status.error_code() == grpc::StatusCode::INVALID_ARGUMENT,
                     qPrintable(QStringLiteral("%1: %2 %3")
                                    .arg(method)
                                    .arg(int(status.error_code()))
                                    .arg(QString::fromStdString(status.error_message()))));
        }
        QCOMPARE(int(sources(token("admin")).size()), 0);
        v1::ListAccountsReply accounts;
        QVERIFY(
            m_stub
                ->ListAccounts(context(token("admin")).get(), v1::ListAccountsRequest(), &accounts)
                .ok());
        for (const auto& account : accounts.accounts())
            QVERIFY(account.enabled());
    }

    // Every call of the protocol, the ones added later included, authenticates before anything
    // else: without a token, an empty, a malformed and an oversized request are all refused as
    // unauthenticated, never decoded or answered. Only Login and Ping need no token.
    void everyCallButLoginAndPingNeedsAToken() {
        grpc::SslCredentialsOptions tls;
        tls.pem_root_certs = m_server.certificatePem().toStdString();
        grpc::GenericStub raw(
            grpc::CreateChannel(m_server.address().toStdString(), grpc::SslCredentials(tls)));
        const google::protobuf::ServiceDescriptor* service =
            google::protobuf::DescriptorPool::generated_pool()->FindServiceByName(
                v1::QuotesAdmin::service_full_name());
        QVERIFY(service);
        QVERIFY(service->method_count() >= 20);
        for (int i = 0; i < service->method_count(); ++i) {
            const google::protobuf::MethodDescriptor& method = *service->method(i);
            const bool open = method.name() == "Login" || method.name() == "Ping";
            for (Payload payload : {Payload::Empty, Payload::OutOfRange, Payload::Oversized}) {
                const grpc::Status status =
                    callWithoutToken(raw, *m_stub, method, requestPayload(method, payload));
                const grpc::StatusCode expected =
                    open ? grpc::StatusCode::OK : grpc::StatusCode::UNAUTHENTICATED;
                QVERIFY2(status.error_code() == expected,
                         qPrintable(QStringLiteral("%1 (payload %2): %3 %4")
                                        .arg(QString::fromStdString(method.name()))
                                        .arg(int(payload))
                                        .arg(int(status.error_code()))
                                        .arg(QString::fromStdString(status.error_message()))));
            }
        }
    }

    void onlyTlsClientsThatTrustTheServer() {
        v1::PingReply ping;
        auto plaintext = stubFor(m_server.address(), grpc::InsecureChannelCredentials());
        QVERIFY(!plaintext->Ping(context().get(), v1::PingRequest(), &ping).ok());
        const CTlsIdentity other = CTlsIdentity::create();
        QVERIFY(!other.isNull());
        auto foreign = stubFor(m_server.address(), trusting(other.certificatePem()));
        QVERIFY(!foreign->Ping(context().get(), v1::PingRequest(), &ping).ok());
        QVERIFY(m_stub->Ping(context().get(), v1::PingRequest(), &ping).ok());
    }

    void repeatedFailuresAreRefusedForAWhile() {
        QuotesdProcess server;
        QVERIFY(server.init(kAdminPassword));
        // Long enough that no loaded machine lets it pass between the fifth failure and the next
        // attempt; the check after it waits for it to pass.
        QVERIFY(server.start({QStringLiteral("--lockout-base-ms"), QStringLiteral("2000")}));
        auto stub = stubFor(server.address(), trusting(server.certificatePem()));
        for (int i = 0; i < 5; ++i)
            QCOMPARE(QString::fromStdString(
                         login("admin", QStringLiteral("wrong-password-1"), stub.get())
                             .error()
                             .message()),
                     QString("用户名或密码错误"));
        const v1::LoginReply refused = login("admin", kAdminPassword, stub.get());
        QCOMPARE(QString::fromStdString(refused.error().message()),
                 QString("登录失败次数过多，请 2 秒后再试"));
        QVERIFY(refused.token().empty());
        // Once the interval has passed the right password is taken again.
        QTRY_VERIFY_WITH_TIMEOUT(login("admin", kAdminPassword, stub.get()).error().success(),
                                 10000);
        QCOMPARE(server.stop(), 0);
    }

    // The counters are the database's: a restart keeps them, and the server's owner clears them
    // (and enables the account) with reset-password.
    void lockoutSurvivesARestartUntilResetPassword() {
        QuotesdProcess server;
        QVERIFY(server.init(kAdminPassword));
        const QStringList slow = {QStringLiteral("--lockout-base-ms"), QStringLiteral("600000")};
        QVERIFY(server.start(slow));
        auto stub = stubFor(server.address(), trusting(server.certificatePem()));
        for (int i = 0; i < 5; ++i)
            QVERIFY(
                !login("admin", QStringLiteral("wrong-password-1"), stub.get()).error().success());
        QCOMPARE(server.stop(), 0);
        QVERIFY(server.start(slow));
        stub = stubFor(server.address(), trusting(server.certificatePem()));
        QVERIFY(QString::fromStdString(login("admin", kAdminPassword, stub.get()).error().message())
                    .startsWith(QStringLiteral("登录失败次数过多")));
        QVERIFY(server.setPassword(QStringLiteral("admin"), kAdminPassword));
        const v1::LoginReply admin = login("admin", kAdminPassword, stub.get());
        QVERIFY(admin.error().success());
        // A disabled account comes back with its new password.
        const QString viewerPassword = QStringLiteral("viewer-password-1");
        QVERIFY(server.setPassword(QStringLiteral("viewer"), viewerPassword));
        v1::SetAccountEnabledRequest disable;
        disable.set_name("viewer");
        disable.set_enabled(false);
        v1::AdminReply reply;
        QVERIFY(stub->SetAccountEnabled(context(admin.token()).get(), disable, &reply).ok());
        QVERIFY(reply.error().success());
        QCOMPARE(
            QString::fromStdString(login("viewer", viewerPassword, stub.get()).error().message()),
            QStringLiteral("账户已停用"));
        QVERIFY(server.setPassword(QStringLiteral("viewer"), viewerPassword));
        QVERIFY(login("viewer", viewerPassword, stub.get()).error().success());
        QCOMPARE(server.stop(), 0);
    }

    // A patch is applied by the server to the stored source with the rights of a modify: the
    // fields it names change, the others (the password among them) stay; a number out of range
    // is refused before the service sees it.
    void modifySourceAppliesAPatch() {
        removeEverySource();
        auto source = addressSource(10000, 2, "192.0.2.90", 9000);
        source->m_strUserName = "before";
        source->m_strPassword = "secret-1";
        const int id = ownerAdd(source);
        QVERIFY(id > 0);
        const auto modify = [&](const std::string& token, const v1::SourcePatch& patch,
                                v1::AdminReply* reply) {
            v1::ModifySourceRequest request;
            request.set_id(id);
            *request.mutable_patch() = patch;
            return m_stub->ModifySource(context(token).get(), request, reply);
        };
        v1::SourcePatch patch;
        patch.set_user_name("after");
        patch.set_port(9001);
        v1::AdminReply reply;
        QCOMPARE(modify(std::string(), patch, &reply).error_code(),
                 grpc::StatusCode::UNAUTHENTICATED);
        QVERIFY(modify(token("viewer"), patch, &reply).ok());
        QVERIFY(!reply.error().success());
        QCOMPARE(QString::fromStdString(reply.error().message()),
                 QStringLiteral("没有权限：修改证券行情源"));
        QCOMPARE(stored(id)->m_strUserName, std::string("before"));

        QVERIFY(modify(token("admin"), patch, &reply).ok());
        QVERIFY2(reply.error().success(), reply.error().message().c_str());
        const auto changed = stored(id);
        QCOMPARE(changed->m_strUserName, std::string("after"));
        QCOMPARE(changed->m_nPort, 9001);
        QCOMPARE(changed->m_strAddress, std::string("192.0.2.90"));
        QCOMPARE(changed->m_strPassword, std::string("secret-1"));

        v1::SourcePatch tooLarge;
        tooLarge.set_port(int64_t(1) << 40);
        QCOMPARE(modify(token("admin"), tooLarge, &reply).error_code(),
                 grpc::StatusCode::INVALID_ARGUMENT);
        QCOMPARE(stored(id)->m_nPort, 9001);
    }

    // quotesctl runs every command through the server with the account's rights.
    void quotesctlThroughTheServer() {
        removeEverySource();
        const auto ctl = [&](const QString& login, const QString& secret,
                             const QStringList& command, QByteArray* out = nullptr) {
            const QuotesctlRun run = QuotesctlOnServer(m_server, login, secret).run(command);
            if (out)
                *out = run.out + run.err;
            return run.code;
        };
        QByteArray out;
        QCOMPARE(ctl("stock_op", rolePassword("stock_op"),
                     {"sources", "add", "--platform", "10000", "--trade-type", "2", "--address",
                      "192.0.2.60", "--port", "9000"},
                     &out),
                 0);
        const int id = out.trimmed().toInt();
        QVERIFY2(id > 0, out.constData());
        QCOMPARE(
            ctl("viewer", rolePassword("viewer"), {"sources", "delete", QString::number(id)}, &out),
            1);
        QVERIFY2(QString::fromUtf8(out).contains("没有权限：删除证券行情源"), out.constData());
        QCOMPARE(ctl("viewer", rolePassword("viewer"),
                     {"sources", "modify", QString::number(id), "--port", "9001"}, &out),
                 1);
        QVERIFY2(QString::fromUtf8(out).contains("没有权限：修改证券行情源"), out.constData());
        QCOMPARE(ctl("stock_op", rolePassword("stock_op"),
                     {"sources", "modify", QString::number(id), "--port", "9001"}, &out),
                 0);
        QCOMPARE(stored(id)->m_nPort, 9001);
        QCOMPARE(stored(id)->m_strAddress, std::string("192.0.2.60"));
        QCOMPARE(ctl("viewer", rolePassword("viewer"), {"sources", "list", "--json"}, &out), 0);
        QCOMPARE(QJsonDocument::fromJson(out).array().size(), 1);
        QCOMPARE(ctl("admin", kAdminPassword, {"ping"}, &out), 0);
        QVERIFY(out.startsWith(QByteArray("version ") + Hlx::quotesVersion()));
        QCOMPARE(ctl("admin", QStringLiteral("wrong-password-1"), {"ping"}, &out), 3);
        QVERIFY2(QString::fromUtf8(out).contains("用户名或密码错误"), out.constData());
        // Accounts are the administrator's: the server refuses them to others.
        QCOMPARE(ctl("stock_op", rolePassword("stock_op"), {"accounts", "list"}, &out), 1);
        QVERIFY2(QString::fromUtf8(out).contains("没有权限：管理账户"), out.constData());
        QCOMPARE(
            ctl("admin", kAdminPassword, {"accounts", "rights", "viewer", "--rights", "10563"}), 0);
        QCOMPARE(ctl("viewer", rolePassword("viewer"), {"sources", "delete", QString::number(id)}),
                 0);
        QCOMPARE(ctl("admin", kAdminPassword, {"accounts", "rights", "viewer", "--rights", ""}), 0);
        QCOMPARE(ctl("admin", kAdminPassword, {"accounts", "list", "--json"}, &out), 0);
        QCOMPARE(QJsonDocument::fromJson(out).array().size(), 4);
        QCOMPARE(int(sources(token("admin")).size()), 0);
    }

    // A stopped server is answered once, within the deadline and a second; a killed one too;
    // once it is back the next request succeeds.
    // A login whose last quote-source query came before an import may change nothing until it
    // reads again; what each login saw is kept with its token in the database. (Later tests
    // only add and read: their logins have not read since this import.)
    void staleRowsAfterAnImportAreRefused() {
        removeEverySource();
        const int id = ownerAdd(addressSource(10000, 2, "192.0.2.70", 1));
        QVERIFY(id > 0);
        const std::string earlier = login("admin", kAdminPassword).token();
        const std::string later = login("admin", kAdminPassword).token();
        QCOMPARE(int(sources(earlier).size()), 1);
        QVERIFY(reimport());
        QCOMPARE(int(sources(later).size()), 1);
        QCOMPARE(storedGeneration(later), 1LL);
        QCOMPARE(storedGeneration(earlier), 0LL);

        const rkservice::IDataList remove{panelDeleteRecord(*stored(id))};
        const utils::RKError refused = operate(earlier, 3, remove);
        QCOMPARE(QString::fromStdString(refused.errorMsg()),
                 QString::fromUtf8(CStaleRows::kRefusal));
        QVERIFY(stored(id));
        const utils::RKError removed = operate(later, 3, remove);
        QVERIFY2(removed.isSuccess(), removed.errorMsg().c_str());
        QVERIFY(!stored(id));
    }

    // Through a raw Operate: A reads a source, B changes its user name, A sends the port it
    // changed on what it read: refused as a conflict, nothing changes; without a revision it is
    // refused as invalid; read again it goes through, and both changes are kept.
    void staleOperateIsRefused() {
        removeEverySource();
        const int id = ownerAdd(addressSource(10000, 2, "192.0.2.80", 1));
        QVERIFY(id > 0);
        const auto seenByA = stored(id);
        rkservice::COrinQuoterSourceInfoPtr seenByB;
        for (const auto& source : sources(token("stock_op")))
            seenByB = source->m_nId == id ? source : seenByB;
        QVERIFY(seenByB);
        QCOMPARE(seenByA->getRevision(), 1LL);
        seenByB->m_strUserName = "bob";
        bson::BSONObj result;
        QVERIFY(
            operate(token("stock_op"), rkservice::kOperateModify, {seenByB}, &result).isSuccess());
        QCOMPARE(result.getStringField("revisions"), std::string("2"));

        seenByA->m_nPort = 9100;
        const utils::RKError refused =
            operate(token("admin"), rkservice::kOperateModify, {seenByA});
        QCOMPARE(QString::fromStdString(refused.errorMsg()),
                 QString::fromUtf8(CRevisionConflicts::kSource));
        QCOMPARE(refused.kind(), utils::ErrorKind::Conflict);
        QCOMPARE(stored(id)->m_nPort, 1);
        QCOMPARE(stored(id)->m_strUserName, std::string("bob"));
        seenByA->setRevision(0);
        const utils::RKError missing =
            operate(token("admin"), rkservice::kOperateModify, {seenByA});
        QCOMPARE(QString::fromStdString(missing.errorMsg()),
                 QString::fromUtf8(CRevisionConflicts::kMissing));
        QCOMPARE(missing.kind(), utils::ErrorKind::Invalid);

        auto again = stored(id);
        again->m_nPort = 9100;
        QVERIFY(operate(token("admin"), rkservice::kOperateModify, {again}).isSuccess());
        QCOMPARE(stored(id)->m_nPort, 9100);
        QCOMPARE(stored(id)->m_strUserName, std::string("bob"));
        QCOMPARE(stored(id)->getRevision(), 3LL);
    }

    // quotesctl sources modify --if-revision through the server: refused once the source moved
    // on, applied while it is the stored revision.
    void conditionalModifyThroughQuotesctl() {
        removeEverySource();
        const int id = ownerAdd(addressSource(10000, 2, "192.0.2.81", 1));
        QVERIFY(id > 0);
        const QuotesctlOnServer ctl(m_server, QStringLiteral("admin"), kAdminPassword);
        QuotesctlRun run = ctl.run({"sources", "list", "--json"});
        QCOMPARE(run.code, 0);
        QCOMPARE(QJsonDocument::fromJson(run.out).array().at(0).toObject().value("revision"),
                 QJsonValue(1));
        QCOMPARE(ctl.run({"sources", "modify", QString::number(id), "--port", "9001"}).code, 0);
        run = ctl.run(
            {"sources", "modify", QString::number(id), "--port", "9002", "--if-revision", "1"});
        QVERIFY2(run.code != 0, run.out.constData());
        QVERIFY2(QString::fromUtf8(run.out + run.err).contains(CRevisionConflicts::kSource),
                 run.err.constData());
        QCOMPARE(stored(id)->m_nPort, 9001);
        QCOMPARE(ctl.run({"sources", "modify", QString::number(id), "--port", "9002",
                          "--if-revision", "2"})
                     .code,
                 0);
        QCOMPARE(stored(id)->m_nPort, 9002);
    }

    void stoppedKilledAndRestartedServer() {
        CRemoteAdmin remote({m_server.address().toStdString()},
                            m_server.certificatePem().toStdString(), std::chrono::seconds(1));
        QVERIFY(remote.login("viewer", rolePassword("viewer").toStdString()).isSuccess());
        rkservice::COrinQueryDataReq request;
        request.dataType = 12300;
        std::vector<rkservice::IDataPtr> datas;
        QVERIFY(remote.query(Hlx::CRequestTarget::centre(), request, &datas).isSuccess());

        QVERIFY(m_server.suspend());
        QElapsedTimer timer;
        timer.start();
        utils::RKError error = remote.query(Hlx::CRequestTarget::centre(), request, &datas);
        const qint64 elapsed = timer.elapsed();
        m_server.resume();
        QVERIFY(!error.isSuccess());
        QVERIFY2(QString::fromStdString(error.errorMsg()).startsWith("无法连接服务器"),
                 error.errorMsg().c_str());
        QVERIFY2(elapsed < 2000, qPrintable(QString::number(elapsed)));
        QVERIFY(remote.query(Hlx::CRequestTarget::centre(), request, &datas).isSuccess());

        const QString address = m_server.address();
        m_server.kill();
        error = remote.query(Hlx::CRequestTarget::centre(), request, &datas);
        QVERIFY2(QString::fromStdString(error.errorMsg()).startsWith("无法连接服务器"),
                 error.errorMsg().c_str());
        QVERIFY2(m_server.start({QStringLiteral("--listen"), address}), qPrintable(m_server.log()));
        QCOMPARE(m_server.address(), address);
        // The login is kept in the database: the restarted server still knows it.
        error = remote.query(Hlx::CRequestTarget::centre(), request, &datas);
        QVERIFY2(error.isSuccess(), error.errorMsg().c_str());
    }

    // Last: it stops the server. A call in flight when SIGTERM comes is answered in full.
    void sigtermLetsACallInFlightFinish() {
        removeEverySource();
        rkservice::IDataList many;
        for (int i = 0; i < 5000; ++i)
            many.push_back(addressSource(10000, 2, "192.0.2.50", 1 + i));
        QVERIFY(operate(token("admin"), 2, many).isSuccess());
        v1::QueryRequest request;
        request.set_data_type(12300);
        request.mutable_target()->set_centre(true);
        auto call = context(token("admin"));
        auto reader = m_stub->Query(call.get(), request);
        v1::QueryChunk chunk;
        QVERIFY(reader->Read(&chunk));
        int received = chunk.records_size();
        const qint64 pid = m_server.processId();
        QVERIFY(pid > 0);
        ::kill(pid_t(pid), SIGTERM);
        while (reader->Read(&chunk))
            received += chunk.records_size();
        QVERIFY(reader->Finish().ok());
        QCOMPARE(received, 5000);
        QCOMPARE(int(chunk.total_count()), 5000);
        QCOMPARE(m_server.stop(), 0);
        QVERIFY(m_server.log().contains("stopped"));
    }
};

QTEST_GUILESS_MAIN(TestQuotesd)
#include "tst_quotesd.moc"
