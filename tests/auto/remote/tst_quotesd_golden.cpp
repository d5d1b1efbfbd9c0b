// quotesd's answers to a fixed script of calls, pinned by a golden file: every call of the
// protocol through the raw generated stub (no client code in between), as the administrator, as
// the viewer, without a token, and with malformed requests. For each call the transcript holds
// the request, the gRPC status with its message and the reply in protobuf text format, with what
// differs between runs or releases (tokens, times, uptime, audit ids, password hashes, the backup
// file, the data directory, the server's version) replaced by placeholders.
//
// The golden file is tests/auto/remote/golden/quotesd_answers.txt. After a deliberate change of
// what the server answers, regenerate it and review the difference:
//   cd build && QUOTES_UPDATE_GOLDEN=1 ctest -R remote_quotesd_golden
//   git diff tests/auto/remote/golden/

#include <google/protobuf/text_format.h>
#include <grpcpp/grpcpp.h>

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QtTest>
#include <memory>

#include "QuotesdLogin.h"
#include "TestPasswords.h"
#include "quotes.grpc.pb.h"

namespace v1 = quotes::v1;
using google::protobuf::TextFormat;

namespace {

QString goldenFile() {
    return qEnvironmentVariable("QUOTES_SOURCE_DIR") +
           QStringLiteral("/tests/auto/remote/golden/quotesd_answers.txt");
}

const char* statusName(grpc::StatusCode code) {
    static const std::map<grpc::StatusCode, const char*> names = {
        {grpc::StatusCode::OK, "OK"},
        {grpc::StatusCode::CANCELLED, "CANCELLED"},
        {grpc::StatusCode::UNKNOWN, "UNKNOWN"},
        {grpc::StatusCode::INVALID_ARGUMENT, "INVALID_ARGUMENT"},
        {grpc::StatusCode::DEADLINE_EXCEEDED, "DEADLINE_EXCEEDED"},
        {grpc::StatusCode::NOT_FOUND, "NOT_FOUND"},
        {grpc::StatusCode::ALREADY_EXISTS, "ALREADY_EXISTS"},
        {grpc::StatusCode::PERMISSION_DENIED, "PERMISSION_DENIED"},
        {grpc::StatusCode::RESOURCE_EXHAUSTED, "RESOURCE_EXHAUSTED"},
        {grpc::StatusCode::FAILED_PRECONDITION, "FAILED_PRECONDITION"},
        {grpc::StatusCode::ABORTED, "ABORTED"},
        {grpc::StatusCode::OUT_OF_RANGE, "OUT_OF_RANGE"},
        {grpc::StatusCode::UNIMPLEMENTED, "UNIMPLEMENTED"},
        {grpc::StatusCode::INTERNAL, "INTERNAL"},
        {grpc::StatusCode::UNAVAILABLE, "UNAVAILABLE"},
        {grpc::StatusCode::DATA_LOSS, "DATA_LOSS"},
        {grpc::StatusCode::UNAUTHENTICATED, "UNAUTHENTICATED"},
    };
    const auto found = names.find(code);
    return found == names.end() ? "?" : found->second;
}

bool isUtf8(const std::string& text) {
    return QString::fromStdString(text).toStdString() == text;
}

// Text as it reads: UTF-8 unescaped, only quotes, backslashes and control characters escaped;
// bytes that are not UTF-8 as octal escapes, so that the transcript stays UTF-8.
std::string quoted(const std::string& text) {
    if (!isUtf8(text))
        return '"' + google::protobuf::CEscape(text) + '"';
    std::string out = "\"";
    for (const char c : text) {
        if (c == '"' || c == '\\')
            out += std::string("\\") + c;
        else if (static_cast<unsigned char>(c) < 0x20)
            out += google::protobuf::CEscape(std::string(1, c));
        else
            out += c;
    }
    return out + '"';
}

class ReadablePrinter : public TextFormat::FastFieldValuePrinter {
public:
    void PrintString(const std::string& value,
                     TextFormat::BaseTextGenerator* generator) const override {
        generator->PrintString(quoted(value));
    }
    void PrintBytes(const std::string& value,
                    TextFormat::BaseTextGenerator* generator) const override {
        PrintString(value, generator);
    }
};

// A value that differs between runs, printed as its placeholder.
class Placeholder : public ReadablePrinter {
public:
    explicit Placeholder(std::string text) : m_text(std::move(text)) {}
    void PrintInt64(int64_t, TextFormat::BaseTextGenerator* generator) const override {
        generator->PrintString(m_text);
    }
    void PrintString(const std::string&, TextFormat::BaseTextGenerator* generator) const override {
        generator->PrintString(m_text);
    }

private:
    std::string m_text;
};

// The export document with its password hashes (salted: new each run) replaced.
QJsonObject withoutHashes(QJsonObject document) {
    if (!document.value(QStringLiteral("users")).isArray())
        return document;
    QJsonArray users = document.value(QStringLiteral("users")).toArray();
    for (auto user = users.begin(); user != users.end(); ++user) {
        QJsonObject fields = user->toObject();
        if (fields.value(QStringLiteral("passwordHash")).isString())
            fields.insert(QStringLiteral("passwordHash"), QStringLiteral("<password-hash>"));
        *user = fields;
    }
    document.insert(QStringLiteral("users"), users);
    return document;
}

// An exported document as indented JSON, once; an import's document as compact JSON with the
// sections it shares with that export abbreviated. What is no JSON object prints as text (a huge
// one by its size only).
class DocumentPrinter : public ReadablePrinter {
public:
    // exported: the last document the administrator exported; null for the export itself.
    explicit DocumentPrinter(const QJsonObject* exported) : m_exported(exported) {}

    void PrintBytes(const std::string& value,
                    TextFormat::BaseTextGenerator* generator) const override {
        const QJsonDocument json = QJsonDocument::fromJson(QByteArray::fromStdString(value));
        if (json.isObject())
            generator->PrintString(m_exported ? imported(json.object()) : exported(json.object()));
        else if (value.size() > 1024)
            generator->PrintString("<" + std::to_string(value.size()) + " bytes>");
        else
            ReadablePrinter::PrintBytes(value, generator);
    }

private:
    static std::string exported(const QJsonObject& document) {
        return QJsonDocument(withoutHashes(document)).toJson().trimmed().toStdString();
    }

    std::string imported(QJsonObject document) const {
        if (!m_exported->isEmpty() && document == *m_exported)
            return "<the exported document>";
        for (auto section = document.begin(); section != document.end(); ++section) {
            if (section.value().isArray() || section.value().isObject()) {
                if (section.value() == m_exported->value(section.key()))
                    section.value() = QStringLiteral("<as exported>");
            }
        }
        return QJsonDocument(withoutHashes(document)).toJson(QJsonDocument::Compact).toStdString();
    }

    const QJsonObject* m_exported;
};

void registerPlaceholder(TextFormat::Printer* printer, const google::protobuf::Descriptor* type,
                         const char* field, const char* text) {
    const google::protobuf::FieldDescriptor* descriptor = type->FindFieldByName(field);
    Q_ASSERT(descriptor);
    printer->RegisterFieldValuePrinter(descriptor, new Placeholder(text));
}

std::unique_ptr<TextFormat::Printer> transcriptPrinter(const QJsonObject* exported) {
    auto printer = std::make_unique<TextFormat::Printer>();
    printer->SetDefaultFieldValuePrinter(new ReadablePrinter());
    registerPlaceholder(printer.get(), v1::LoginReply::descriptor(), "token", "<token>");
    // The version has its own test (tst_quotesd); a release does not change the answers.
    registerPlaceholder(printer.get(), v1::PingReply::descriptor(), "server_version", "<version>");
    registerPlaceholder(printer.get(), v1::PingReply::descriptor(), "uptime_seconds", "<uptime>");
    registerPlaceholder(printer.get(), v1::PingReply::descriptor(), "commit", "<commit>");
    registerPlaceholder(printer.get(), v1::PingReply::descriptor(), "certificate_expires_ms",
                        "<certificate end>");
    registerPlaceholder(printer.get(), v1::AuditEntry::descriptor(), "id", "<audit-id>");
    registerPlaceholder(printer.get(), v1::AuditEntry::descriptor(), "time_ms", "<time>");
    registerPlaceholder(printer.get(), v1::AuditEntry::descriptor(), "os_user", "<os-user>");
    registerPlaceholder(printer.get(), v1::Event::descriptor(), "entry_id", "<audit-id>");
    registerPlaceholder(printer.get(), v1::ImportReply::descriptor(), "backup_file",
                        "<backup-file>");
    printer->RegisterFieldValuePrinter(v1::ExportReply::descriptor()->FindFieldByName("document"),
                                       new DocumentPrinter(nullptr));
    printer->RegisterFieldValuePrinter(v1::ImportRequest::descriptor()->FindFieldByName("document"),
                                       new DocumentPrinter(exported));
    return printer;
}

std::string indented(const std::string& text) {
    std::string out;
    size_t start = 0;
    while (start < text.size()) {
        const size_t end = text.find('\n', start);
        const size_t stop = end == std::string::npos ? text.size() : end;
        out += "  " + text.substr(start, stop - start) + '\n';
        start = stop + 1;
    }
    return out;
}

v1::Record stockSource(int port, const std::string& address) {
    v1::Record record;
    v1::QuoteSource* source = record.mutable_quote_source();
    source->set_platform_id(10000);
    source->set_trade_type(2);
    source->set_broker_id(2147483647);
    source->set_address(address);
    source->set_port(port);
    source->set_user_name("golden-user");
    source->set_password("golden-secret");
    source->set_markets("SH,SZ");
    return record;
}

v1::Record futuresSource(int brokerId, int groupId) {
    v1::Record record;
    v1::QuoteSource* source = record.mutable_quote_source();
    source->set_platform_id(20000);
    source->set_trade_type(1);
    source->set_broker_id(brokerId);
    source->set_server_group_id(groupId);
    return record;
}

// What a panel sends to delete a source: its id and kind.
v1::Record deletion(const v1::Record& stored) {
    v1::Record record;
    v1::QuoteSource* source = record.mutable_quote_source();
    source->set_id(stored.quote_source().id());
    source->set_platform_id(stored.quote_source().platform_id());
    source->set_trade_type(stored.quote_source().trade_type());
    return record;
}

v1::OperateRequest operation(int64_t dataType, int64_t operateType,
                             const std::vector<v1::Record>& records) {
    v1::OperateRequest request;
    request.set_data_type(dataType);
    request.set_operate_type(operateType);
    request.mutable_target()->set_centre(true);
    for (const v1::Record& record : records)
        *request.add_records() = record;
    return request;
}

v1::QueryRequest queryOf(int64_t dataType) {
    v1::QueryRequest request;
    request.set_data_type(dataType);
    request.mutable_target()->set_centre(true);
    return request;
}

}  // namespace

// Calls the stub's method of that name, recording it in the transcript.
#define CALL(rpc, what, token, request) \
    call(#rpc, &v1::QuotesAdmin::Stub::rpc, what, token, request)

class TestQuotesdGolden : public QObject {
    Q_OBJECT

    QuotesdProcess m_server;
    std::unique_ptr<v1::QuotesAdmin::Stub> m_stub;
    // What the administrator exported last, for the transcript of the imports that follow.
    QJsonObject m_exported;
    std::unique_ptr<TextFormat::Printer> m_printer = transcriptPrinter(&m_exported);
    std::string m_transcript;
    int m_step = 0;
    std::string m_admin;
    std::string m_viewer;

    std::unique_ptr<grpc::ClientContext> context(const std::string& token) const {
        auto result = std::make_unique<grpc::ClientContext>();
        result->set_deadline(std::chrono::system_clock::now() + std::chrono::seconds(30));
        if (!token.empty())
            result->AddMetadata("authorization", "Bearer " + token);
        return result;
    }

    std::string text(const google::protobuf::Message& message) const {
        std::string out;
        m_printer->PrintToString(message, &out);
        return out;
    }

    void begin(const char* rpc, const char* what, const google::protobuf::Message& request) {
        m_transcript += "\n== " + std::to_string(++m_step) + ". " + rpc + ": " + what + '\n';
        const std::string body = text(request);
        m_transcript += body.empty() ? "request {}\n" : "request {\n" + indented(body) + "}\n";
    }

    void end(const grpc::Status& status) {
        m_transcript += std::string("status ") + statusName(status.error_code());
        if (!status.error_message().empty())
            m_transcript += ' ' + quoted(status.error_message());
        m_transcript += '\n';
    }

    void answer(const char* name, const google::protobuf::Message& reply) {
        const std::string body = text(reply);
        m_transcript +=
            std::string(name) + (body.empty() ? " {}\n" : " {\n" + indented(body) + "}\n");
    }

    template <class Request, class Reply>
    Reply call(const char* rpc,
               grpc::Status (v1::QuotesAdmin::Stub::*method)(grpc::ClientContext*, const Request&,
                                                             Reply*),
               const char* what, const std::string& token, const Request& request) {
        begin(rpc, what, request);
        Reply reply;
        const grpc::Status status = (m_stub.get()->*method)(context(token).get(), request, &reply);
        end(status);
        if (status.ok())
            answer("reply", reply);
        return reply;
    }

    // A query with every chunk it streams; the records received.
    std::vector<v1::Record> query(const char* what, const std::string& token,
                                  const v1::QueryRequest& request) {
        begin("Query", what, request);
        auto call = context(token);
        auto reader = m_stub->Query(call.get(), request);
        std::vector<v1::Record> records;
        v1::QueryChunk chunk;
        std::string chunks;
        while (reader->Read(&chunk)) {
            records.insert(records.end(), chunk.records().begin(), chunk.records().end());
            chunks += "chunk {\n" + indented(text(chunk)) + "}\n";
        }
        end(reader->Finish());
        m_transcript += chunks;
        return records;
    }

    v1::LoginReply login(const char* what, const std::string& name, const QString& password) {
        v1::LoginRequest request;
        request.set_name(name);
        request.set_password(password.toStdString());
        return CALL(Login, what, std::string(), request);
    }

    std::vector<v1::Record> sources(const char* what, const std::string& token) {
        return query(what, token, queryOf(12300));
    }

    void session() {
        CALL(Ping, "needs no login", std::string(), v1::PingRequest());
        login("the administrator with a wrong password", "admin", "wrong-password-1");
        login("an unknown account", "nobody-here", "wrong-password-1");
        // The client's protobuf logs that it sends bytes that are not UTF-8; the server's
        // parser refuses them.
        login("a name that is not UTF-8", "adm\xffin", kAdminPassword);
        m_admin = login("the administrator", "admin", kAdminPassword).token();
        m_viewer = login("the viewer", "viewer", kViewerPassword).token();
    }

    void withoutToken() {
        const std::string none;
        CALL(Logout, "without a token", none, v1::LogoutRequest());
        query("without a token", none, queryOf(12300));
        query("with a token the server never gave", "not-a-token", queryOf(12300));
        CALL(Operate, "without a token", none,
             operation(12300, 2, {stockSource(9000, "192.0.2.1")}));
        v1::ModifySourceRequest modify;
        modify.set_id(1);
        modify.mutable_patch()->set_port(9001);
        CALL(ModifySource, "without a token", none, modify);
        CALL(Subsystems, "without a token", none, v1::SubsystemsRequest());
        CALL(LoginTypeAuth, "without a token", none, v1::LoginTypeAuthRequest());
        CALL(ExportDocument, "without a token", none, v1::ExportRequest());
        v1::ImportRequest import;
        import.set_document("{}");
        import.set_dry_run(true);
        CALL(ImportDocument, "without a token", none, import);
        CALL(SetSubsystems, "without a token", none, v1::SetSubsystemsRequest());
        v1::SetLoginTypeAuthRequest loginType;
        loginType.set_login_type(7);
        CALL(SetLoginTypeAuth, "without a token", none, loginType);
        CALL(CheckIntegrity, "without a token", none, v1::CheckIntegrityRequest());
        CALL(ListAccounts, "without a token", none, v1::ListAccountsRequest());
        v1::SetPasswordRequest password;
        password.set_name("viewer");
        password.set_password("viewer-password-2");
        CALL(SetPassword, "without a token", none, password);
        v1::SetAccountEnabledRequest enabled;
        enabled.set_name("viewer");
        CALL(SetAccountEnabled, "without a token", none, enabled);
        v1::SetRightsRequest rights;
        rights.set_name("viewer");
        CALL(SetRights, "without a token", none, rights);
        CALL(Audit, "without a token", none, v1::AuditRequest());
        CALL(PruneAudit, "without a token", none, v1::PruneAuditRequest());
        events("without a token", none, nullptr);
    }

    void reads() {
        for (const std::string* token : {&m_admin, &m_viewer}) {
            const char* who = token == &m_admin ? "as the administrator" : "as the viewer";
            CALL(Subsystems, who, *token, v1::SubsystemsRequest());
            CALL(LoginTypeAuth, who, *token, v1::LoginTypeAuthRequest());
            for (const int64_t type : {676, 12261, 12262, 12300, 12417, 9100})
                query(who, *token, queryOf(type));
            CALL(CheckIntegrity, who, *token, v1::CheckIntegrityRequest());
            CALL(ListAccounts, who, *token, v1::ListAccountsRequest());
        }
        v1::QueryRequest one = queryOf(676);
        one.mutable_target()->set_subsystem("sys2");
        query("one sub-system", m_admin, one);
        one.mutable_target()->set_subsystem("no-such-system");
        query("an unknown sub-system", m_admin, one);
    }

    void sourceChanges() {
        CALL(Operate, "the viewer adds a source", m_viewer,
             operation(12300, 2, {stockSource(9000, "192.0.2.1")}));
        CALL(Operate, "the administrator adds two sources", m_admin,
             operation(12300, 2, {stockSource(9000, "192.0.2.1"), futuresSource(8060, 1)}));
        CALL(Operate, "the same source again", m_admin,
             operation(12300, 2, {stockSource(9000, "192.0.2.1")}));
        CALL(Operate, "a port out of 0..65535", m_admin,
             operation(12300, 2, {stockSource(70000, "192.0.2.2")}));
        CALL(Operate, "an empty address", m_admin, operation(12300, 2, {stockSource(9002, "")}));
        CALL(Operate, "a broker that does not exist", m_admin,
             operation(12300, 2, {futuresSource(4711, 1)}));
        sources("as the viewer (no passwords)", m_viewer);
        std::vector<v1::Record> stored = sources("as the administrator", m_admin);
        QCOMPARE(int(stored.size()), 2);
        v1::Record changed = stored.front();
        changed.mutable_quote_source()->set_user_name("golden-user-2");
        CALL(Operate, "the viewer modifies a source", m_viewer, operation(12300, 0, {changed}));
        CALL(Operate, "the administrator modifies a source", m_admin,
             operation(12300, 0, {changed}));
        modifySource(stored.front().quote_source().id());
        CALL(Operate, "the viewer deletes a source", m_viewer,
             operation(12300, 3, {deletion(stored.back())}));
        CALL(Operate, "the administrator deletes a source", m_admin,
             operation(12300, 3, {deletion(stored.back())}));
        CALL(Operate, "a source that is gone", m_admin,
             operation(12300, 3, {deletion(stored.back())}));
        otherRecords();
        sources("after the changes", m_admin);
    }

    void modifySource(int64_t id) {
        v1::ModifySourceRequest request;
        request.set_id(id);
        request.mutable_patch()->set_port(9100);
        request.mutable_patch()->set_markets("SH");
        CALL(ModifySource, "the viewer patches a source", m_viewer, request);
        CALL(ModifySource, "the administrator patches a source", m_admin, request);
        request.mutable_patch()->set_port(-1);
        CALL(ModifySource, "a patch with a port the service refuses", m_admin, request);
        v1::ModifySourceRequest missing;
        missing.set_id(999999);
        missing.mutable_patch()->set_port(9101);
        CALL(ModifySource, "a source that does not exist", m_admin, missing);
        CALL(ModifySource, "a patch that names no field", m_admin, [&] {
            v1::ModifySourceRequest empty;
            empty.set_id(id);
            return empty;
        }());
    }

    void otherRecords() {
        v1::Record token;
        token.mutable_level2_token()->set_token("GoldenLevel2Token1");
        CALL(Operate, "the viewer adds the Level-2 token", m_viewer, operation(12417, 2, {token}));
        CALL(Operate, "the administrator changes a Level-2 token not yet there", m_admin,
             operation(12417, 0, {token}));
        CALL(Operate, "the administrator adds the Level-2 token", m_admin,
             operation(12417, 2, {token}));
        token.mutable_level2_token()->set_token("GoldenLevel2Token2");
        CALL(Operate, "the administrator changes the Level-2 token", m_admin,
             operation(12417, 0, {token}));
        token.mutable_level2_token()->set_token("golden-level2-token");
        CALL(Operate, "a Level-2 token with dashes", m_admin, operation(12417, 0, {token}));
        query("the Level-2 token", m_admin, queryOf(12417));
        v1::Record permission;
        (*permission.mutable_global_permission()->mutable_whole_quote()->mutable_markets())["SH"] =
            true;
        v1::OperateRequest wholeQuote = operation(676, 1, {permission});
        wholeQuote.mutable_target()->set_subsystem("sys1");
        CALL(Operate, "the viewer saves the whole-quote markets", m_viewer, wholeQuote);
        CALL(Operate, "the administrator saves the whole-quote markets", m_admin, wholeQuote);
        query("the global permission", m_admin, queryOf(676));
    }

    void malformed() {
        CALL(Operate, "an unknown data type", m_admin, operation(9999, 2, {}));
        CALL(Operate, "an unknown operation", m_admin, operation(12300, 7, {}));
        v1::OperateRequest noTarget = operation(12300, 2, {stockSource(9003, "192.0.2.3")});
        noTarget.clear_target();
        CALL(Operate, "no target", m_admin, noTarget);
        v1::Record tooLarge = stockSource(9004, "192.0.2.4");
        tooLarge.mutable_quote_source()->set_port(int64_t(1) << 40);
        CALL(Operate, "a port beyond int", m_admin, operation(12300, 2, {tooLarge}));
        CALL(Operate, "a record of no kind", m_admin, operation(12300, 2, {v1::Record()}));
        CALL(Operate, "an address that is not UTF-8", m_admin,
             operation(12300, 2, {stockSource(9005, "bad\xc3\x28")}));
        query("an unknown data type", m_admin, queryOf(4711));
        v1::QueryRequest noQueryTarget = queryOf(12300);
        noQueryTarget.clear_target();
        query("no target", m_admin, noQueryTarget);
        v1::ModifySourceRequest modify;
        modify.set_id(int64_t(1) << 40);
        modify.mutable_patch()->set_port(9006);
        CALL(ModifySource, "an id beyond int", m_admin, modify);
        modify.set_id(1);
        modify.mutable_patch()->set_port(-(int64_t(1) << 40));
        CALL(ModifySource, "a port beyond int", m_admin, modify);
        v1::SetLoginTypeAuthRequest loginType;
        loginType.set_login_type(int64_t(1) << 40);
        CALL(SetLoginTypeAuth, "a login type beyond int", m_admin, loginType);
        CALL(SetLoginTypeAuth, "a login type beyond int, without a token", std::string(),
             loginType);
        v1::AuditRequest audit;
        audit.set_limit(-1);
        CALL(Audit, "a negative limit", m_admin, audit);
        CALL(Audit, "a negative limit, without a token", std::string(), audit);
        v1::SetRightsRequest rights;
        rights.set_name("viewer");
        rights.add_rights(-1);
        CALL(SetRights, "a right beyond int", m_admin, rights);
        v1::ImportRequest oversized;
        oversized.set_document(std::string(17 * 1024 * 1024, ' '));
        oversized.set_dry_run(true);
        CALL(ImportDocument, "a message beyond the size limit", m_admin, oversized);
    }

    void settings() {
        v1::SubsystemsReply before =
            CALL(Subsystems, "before the change", m_admin, v1::SubsystemsRequest());
        v1::SetSubsystemsRequest changed;
        *changed.mutable_subsystems() = before.subsystems();
        v1::Subsystem* extra = changed.add_subsystems();
        extra->set_name("sys_extra");
        extra->set_display_name("备用");
        CALL(SetSubsystems, "the viewer adds a sub-system", m_viewer, changed);
        CALL(SetSubsystems, "the administrator adds a sub-system", m_admin, changed);
        CALL(Subsystems, "after the change", m_viewer, v1::SubsystemsRequest());
        CALL(SetSubsystems, "none at all", m_admin, v1::SetSubsystemsRequest());
        v1::SetSubsystemsRequest twice = changed;
        *twice.add_subsystems() = *extra;
        CALL(SetSubsystems, "a name twice", m_admin, twice);
        v1::SetSubsystemsRequest restored;
        *restored.mutable_subsystems() = before.subsystems();
        CALL(SetSubsystems, "back as before", m_admin, restored);

        v1::SetLoginTypeAuthRequest loginType;
        loginType.set_login_type(7);
        loginType.set_granted(true);
        CALL(SetLoginTypeAuth, "the viewer grants login type 7", m_viewer, loginType);
        CALL(SetLoginTypeAuth, "the administrator grants login type 7", m_admin, loginType);
        CALL(LoginTypeAuth, "after the change", m_viewer, v1::LoginTypeAuthRequest());
        loginType.set_granted(false);
        CALL(SetLoginTypeAuth, "back as before", m_admin, loginType);
    }

    void accounts() {
        v1::SetPasswordRequest password;
        password.set_name("futures_op");
        password.set_password("futures-password-2");
        CALL(SetPassword, "the viewer sets a password", m_viewer, password);
        CALL(SetPassword, "the administrator sets a password", m_admin, password);
        password.set_password("short");
        CALL(SetPassword, "a password too short", m_admin, password);
        password.set_name("nobody-here");
        password.set_password("nobody-password-1");
        CALL(SetPassword, "an unknown account", m_admin, password);
        login("futures_op with the new password", "futures_op", "futures-password-2");

        v1::SetAccountEnabledRequest enabled;
        enabled.set_name("futures_op");
        enabled.set_enabled(false);
        CALL(SetAccountEnabled, "the viewer disables an account", m_viewer, enabled);
        CALL(SetAccountEnabled, "the administrator disables an account", m_admin, enabled);
        login("a disabled account", "futures_op", "futures-password-2");
        enabled.set_enabled(true);
        CALL(SetAccountEnabled, "enabled again", m_admin, enabled);

        v1::SetRightsRequest rights;
        rights.set_name("viewer");
        rights.add_rights(10937);
        CALL(SetRights, "the viewer gives itself a right", m_viewer, rights);
        CALL(SetRights, "the administrator gives the viewer a right", m_admin, rights);
        rights.clear_rights();
        CALL(SetRights, "the viewer's rights back as before", m_admin, rights);
        CALL(ListAccounts, "after the changes", m_admin, v1::ListAccountsRequest());
    }

    void audit() {
        v1::AuditRequest request;
        request.set_limit(3);
        CALL(Audit, "the viewer reads the trail", m_viewer, request);
        CALL(Audit, "the newest three entries", m_admin, request);
        request.set_account("admin");
        request.set_action("login");
        request.set_limit(5);
        CALL(Audit, "the administrator's refused logins", m_admin, request);
        v1::PruneAuditRequest prune;
        prune.set_before_ms(1);
        CALL(PruneAudit, "the viewer prunes", m_viewer, prune);
        CALL(PruneAudit, "nothing older than 1970", m_admin, prune);
        prune.set_before_ms(32503680000000);
        CALL(PruneAudit, "everything before the year 3000", m_admin, prune);
        request.clear_account();
        request.clear_action();
        CALL(Audit, "after the prune", m_admin, request);
    }

    void transfer() {
        CALL(ExportDocument, "the viewer exports", m_viewer, v1::ExportRequest());
        const v1::ExportReply exported =
            CALL(ExportDocument, "the administrator exports", m_admin, v1::ExportRequest());
        m_exported =
            QJsonDocument::fromJson(QByteArray::fromStdString(exported.document())).object();
        v1::ImportRequest request;
        request.set_document(exported.document());
        request.set_dry_run(true);
        CALL(ImportDocument, "the viewer tries a dry run", m_viewer, request);
        CALL(ImportDocument, "a dry run of the export", m_admin, request);
        QJsonObject document =
            QJsonDocument::fromJson(QByteArray::fromStdString(exported.document())).object();
        document.insert(QStringLiteral("sources"), QJsonArray());
        request.set_document(QJsonDocument(document).toJson(QJsonDocument::Compact).toStdString());
        CALL(ImportDocument, "a dry run without sources", m_admin, request);
        document.remove(QStringLiteral("users"));
        request.set_document(QJsonDocument(document).toJson(QJsonDocument::Compact).toStdString());
        CALL(ImportDocument, "a document without users", m_admin, request);
        request.set_document("{\"format\":");
        CALL(ImportDocument, "a document that is no JSON", m_admin, request);
        request.set_document("{\"format\":\"\xff\xfe\"}");
        CALL(ImportDocument, "a document that is not UTF-8", m_admin, request);
        request.set_document("{\"format\":\"other\",\"version\":3}");
        CALL(ImportDocument, "another program's document", m_admin, request);
        request.set_document(exported.document());
        request.set_dry_run(false);
        CALL(ImportDocument, "the export imported back", m_admin, request);
    }

    // A viewer's event stream sees the administrator's change.
    void events(const char* what, const std::string& token, const v1::OperateRequest* change) {
        begin("Events", what, v1::EventsRequest());
        auto call = context(token);
        auto reader = m_stub->Events(call.get(), v1::EventsRequest());
        std::string events;
        v1::Event event;
        if (reader->Read(&event)) {
            events += "event {\n" + indented(text(event)) + "}\n";
            v1::OperateReply reply;
            if (change && m_stub->Operate(context(m_admin).get(), *change, &reply).ok() &&
                reader->Read(&event))
                events += "event {\n" + indented(text(event)) + "}\n";
            call->TryCancel();
        }
        end(reader->Finish());
        m_transcript += events;
    }

    void logout() {
        const v1::OperateRequest change = operation(12300, 2, {stockSource(9200, "192.0.2.9")});
        events("the viewer sees the administrator's add", m_viewer, &change);
        CALL(Logout, "the viewer", m_viewer, v1::LogoutRequest());
        CALL(Logout, "the viewer once more", m_viewer, v1::LogoutRequest());
        query("with the token of an ended login", m_viewer, queryOf(12300));
        CALL(Logout, "the administrator", m_admin, v1::LogoutRequest());
    }

    // The first line where the transcript differs from the golden file.
    static QString firstDifference(const QString& expected, const QString& actual) {
        const QStringList want = expected.split(QLatin1Char('\n'));
        const QStringList got = actual.split(QLatin1Char('\n'));
        for (int line = 0; line < std::max(want.size(), got.size()); ++line) {
            const QString a = line < want.size() ? want[line] : QStringLiteral("<end>");
            const QString b = line < got.size() ? got[line] : QStringLiteral("<end>");
            if (a != b)
                return QStringLiteral("line %1\n  golden: %2\n  now:    %3")
                    .arg(line + 1)
                    .arg(a, b);
        }
        return QString();
    }

private slots:
    void initTestCase() {
        QString output;
        QVERIFY2(startWithViewer(m_server, kAdminPassword, kViewerPassword, &output),
                 qPrintable(output + m_server.log()));
        grpc::SslCredentialsOptions tls;
        tls.pem_root_certs = m_server.certificatePem().toStdString();
        grpc::ChannelArguments arguments;
        arguments.SetMaxSendMessageSize(64 * 1024 * 1024);
        m_stub = v1::QuotesAdmin::NewStub(grpc::CreateCustomChannel(
            m_server.address().toStdString(), grpc::SslCredentials(tls), arguments));
    }

    void cleanupTestCase() {
        if (m_server.isRunning())
            QCOMPARE(m_server.stop(), 0);
    }

    void answersMatchTheGoldenFile() {
        m_transcript = "# quotesd's answers to a fixed script of calls (tst_quotesd_golden.cpp)\n";
        session();
        withoutToken();
        reads();
        sourceChanges();
        malformed();
        settings();
        accounts();
        audit();
        transfer();
        logout();
        const QString actual = QString::fromStdString(m_transcript)
                                   .replace(m_server.dataDir(), QStringLiteral("<data-dir>"));

        QFile golden(goldenFile());
        if (qEnvironmentVariableIntValue("QUOTES_UPDATE_GOLDEN") == 1) {
            QDir().mkpath(QFileInfo(golden).path());
            QVERIFY(golden.open(QIODevice::WriteOnly | QIODevice::Truncate));
            golden.write(actual.toUtf8());
            golden.close();
            qInfo("golden file written: %s", qPrintable(golden.fileName()));
        }
        QVERIFY2(golden.open(QIODevice::ReadOnly),
                 qPrintable(golden.fileName() + " is missing: run with QUOTES_UPDATE_GOLDEN=1"));
        const QString expected = QString::fromUtf8(golden.readAll());
        const QString difference = firstDifference(expected, actual);
        if (!difference.isEmpty()) {
            QFile now(QDir::temp().filePath(QStringLiteral("quotesd_answers.now.txt")));
            if (now.open(QIODevice::WriteOnly | QIODevice::Truncate))
                now.write(actual.toUtf8());
            QFAIL(qPrintable(QStringLiteral("quotesd answers differently from %1 at %2\n(the whole "
                                            "transcript: %3; QUOTES_UPDATE_GOLDEN=1 regenerates)")
                                 .arg(golden.fileName(), difference, now.fileName())));
        }
    }
};

QTEST_GUILESS_MAIN(TestQuotesdGolden)
#include "tst_quotesd_golden.moc"
