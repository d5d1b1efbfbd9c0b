#include "CHealthCheck.h"

#include <grpcpp/generic/generic_stub.h>
#include <grpcpp/grpcpp.h>

#include <condition_variable>
#include <mutex>

#include "quotes.grpc.pb.h"

namespace {

const char* const kCheckMethod = "/grpc.health.v1.Health/Check";

std::string bytesOf(const grpc::ByteBuffer& buffer) {
    std::vector<grpc::Slice> slices;
    std::string bytes;
    if (!buffer.Dump(&slices).ok())
        return bytes;
    for (const grpc::Slice& slice : slices)
        bytes.append(reinterpret_cast<const char*>(slice.begin()), slice.size());
    return bytes;
}

// The generic stub answers on a callback: waited for here, the call is one request.
grpc::Status callCheck(grpc::GenericStub& stub, std::chrono::milliseconds deadline,
                       std::string* response) {
    grpc::ClientContext context;
    context.set_deadline(std::chrono::system_clock::now() + deadline);
    // HealthCheckRequest{service = ""}: every field at its default, no bytes at all.
    // (A ByteBuffer made without a slice is no message at all.)
    grpc::Slice nothing{std::string()};
    grpc::ByteBuffer request(&nothing, 1);
    grpc::ByteBuffer reply;
    std::mutex mutex;
    std::condition_variable done;
    bool finished = false;
    grpc::Status status;
    stub.UnaryCall(&context, kCheckMethod, grpc::StubOptions(), &request, &reply,
                   [&](grpc::Status answered) {
                       std::lock_guard<std::mutex> lock(mutex);
                       status = std::move(answered);
                       finished = true;
                       done.notify_all();
                   });
    std::unique_lock<std::mutex> lock(mutex);
    done.wait(lock, [&] { return finished; });
    *response = bytesOf(reply);
    return status;
}

void askVersion(const std::shared_ptr<grpc::Channel>& channel, std::chrono::milliseconds deadline,
                CHealthCheck::Answer* answer) {
    const auto stub = quotes::v1::QuotesAdmin::NewStub(channel);
    grpc::ClientContext context;
    context.set_deadline(std::chrono::system_clock::now() + deadline);
    quotes::v1::PingReply reply;
    if (!stub->Ping(&context, quotes::v1::PingRequest(), &reply).ok())
        return;
    answer->version = reply.server_version();
    answer->commit = reply.commit();
    answer->certificateExpiresMs = reply.certificate_expires_ms();
}

}  // namespace

std::string CHealthCheck::statusOf(const std::string& response) {
    static const char* const names[] = {"UNKNOWN", "SERVING", "NOT_SERVING", "SERVICE_UNKNOWN"};
    // An empty message is status 0; else its one field: tag 0x08 (field 1, varint), a value
    // below 128.
    if (response.empty())
        return names[0];
    if (response.size() != 2 || response[0] != 0x08 || response[1] < 0 || response[1] > 3)
        return std::string();
    return names[int(response[1])];
}

std::shared_ptr<grpc::Channel> CHealthCheck::channelTo(const std::string& server,
                                                       const std::string& caPem) {
    grpc::SslCredentialsOptions tls;
    tls.pem_root_certs = caPem;
    grpc::ChannelArguments arguments;
    arguments.SetInt(GRPC_ARG_USE_LOCAL_SUBCHANNEL_POOL, 1);
    return grpc::CreateCustomChannel(server, grpc::SslCredentials(tls), arguments);
}

CHealthCheck::Answer CHealthCheck::ask(const std::string& server, const std::string& caPem,
                                       std::chrono::milliseconds deadline) {
    const std::shared_ptr<grpc::Channel> channel = channelTo(server, caPem);
    Answer answer = check(channel, deadline);
    if (answer.reached)
        askVersion(channel, deadline, &answer);
    return answer;
}

CHealthCheck::Answer CHealthCheck::check(const std::shared_ptr<grpc::Channel>& channel,
                                         std::chrono::milliseconds deadline) {
    Answer answer;
    grpc::GenericStub stub(channel);
    std::string response;
    const grpc::Status status = callCheck(stub, deadline, &response);
    if (!status.ok()) {
        answer.failure = std::to_string(int(status.error_code())) + " " + status.error_message();
        return answer;
    }
    answer.status = statusOf(response);
    answer.reached = !answer.status.empty();
    if (!answer.reached)
        answer.failure = "malformed health answer";
    return answer;
}
