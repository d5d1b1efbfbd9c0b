#include "CSelfCheck.h"

#include <grpcpp/grpcpp.h>

#include "CServedCertificate.h"
#include "quotes.grpc.pb.h"

CSelfCheck::CSelfCheck(const std::string& listen, int port, CServedCertificate& certificate,
                       Log log, std::chrono::milliseconds deadline)
    : m_target(loopbackTarget(listen, port)),
      m_certificate(certificate),
      m_log(std::move(log)),
      m_deadline(deadline) {}

std::string CSelfCheck::loopbackTarget(const std::string& listen, int port) {
    const size_t colon = listen.rfind(':');
    std::string host = colon == std::string::npos ? listen : listen.substr(0, colon);
    if (host.empty() || host == "0.0.0.0" || host == "*")
        host = "127.0.0.1";
    else if (host == "[::]")
        host = "[::1]";
    return host + ":" + std::to_string(port);
}

bool CSelfCheck::passes(std::string* why) const {
    m_certificate.refresh(m_log);
    grpc::SslCredentialsOptions tls;
    tls.pem_root_certs = m_certificate.trustedRoots();
    grpc::ChannelArguments arguments;
    // A name the certificate holds, so the check does not depend on the loopback address being
    // one of the certificate's names.
    const std::string serverName = m_certificate.serverName();
    if (!serverName.empty())
        arguments.SetSslTargetNameOverride(serverName);
    // A subchannel of its own: channels otherwise share connections to the same address.
    arguments.SetInt(GRPC_ARG_USE_LOCAL_SUBCHANNEL_POOL, 1);
    const auto channel = grpc::CreateCustomChannel(m_target, grpc::SslCredentials(tls), arguments);
    const auto stub = quotes::v1::QuotesAdmin::NewStub(channel);
    grpc::ClientContext context;
    context.set_deadline(std::chrono::system_clock::now() + m_deadline);
    quotes::v1::PingReply reply;
    const grpc::Status status = stub->Ping(&context, quotes::v1::PingRequest(), &reply);
    if (status.ok() || status.error_code() == grpc::StatusCode::RESOURCE_EXHAUSTED)
        return true;
    *why =
        m_target + ": " + std::to_string(int(status.error_code())) + " " + status.error_message();
    return false;
}
