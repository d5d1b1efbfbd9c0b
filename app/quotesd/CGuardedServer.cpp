#include "CGuardedServer.h"

#include <sys/socket.h>
#include <unistd.h>

#include <grpcpp/health_check_service_interface.h>

#include <algorithm>
#include <vector>

#include "CRecordCodec.h"
#include "CSelfCheck.h"
#include "CServedCertificate.h"
#include "quotes.grpc.pb.h"

namespace {

// Threads that served a burst of calls stay to poll for the next one instead of ending: each
// thread holds its own database connection, which is costly to open again.
const int kMaxIdleThreads = 32;
// A check on loopback answers in milliseconds; a server that needs longer is as good as gone.
const std::chrono::milliseconds kCheckDeadline(2000);
// Calls on the old server when it is replaced: time to finish before they are cancelled.
const std::chrono::seconds kReplacedGrace(5);
// Sockets a new server needs at least (listener, poller, wakeups).
const size_t kFilesForRebuild = 8;

std::chrono::system_clock::time_point after(std::chrono::milliseconds wait) {
    return std::chrono::system_clock::now() + wait;
}

QString joined(const std::vector<std::string>& addresses) {
    QStringList all;
    for (const std::string& address : addresses)
        all << QString::fromStdString(address);
    return all.join(QStringLiteral(", "));
}

}  // namespace

CGuardedServer::CGuardedServer(grpc::Service& service, CServedCertificate& certificate,
                               const CServerLimits& limits, Log log)
    : m_service(service), m_certificate(certificate), m_limits(limits), m_log(std::move(log)) {}

CGuardedServer::~CGuardedServer() {
    endGuard();
}

std::unique_ptr<grpc::Server> CGuardedServer::build(const std::vector<std::string>& addresses,
                                                    std::vector<int>* ports) {
    // gRPC's own health service (grpc.health.v1), answered without a login: monitors need no
    // account. Process-wide; every server built after it has one.
    grpc::EnableDefaultHealthCheckService(true);
    grpc::ServerBuilder builder;
    ports->assign(addresses.size(), 0);
    for (size_t i = 0; i < addresses.size(); ++i)
        builder.AddListeningPort(addresses[i], m_certificate.credentials(), &(*ports)[i]);
    builder.SetMaxReceiveMessageSize(CRecordCodec::kMaxMessageBytes);
    builder.SetMaxSendMessageSize(CRecordCodec::kMaxMessageBytes);
    builder.AddChannelArgument(GRPC_ARG_SERVER_HANDSHAKE_TIMEOUT_MS,
                               int(m_limits.handshakeTimeoutMs));
    builder.AddChannelArgument(GRPC_ARG_MAX_CONNECTION_IDLE_MS, int(m_limits.idleConnectionMs));
    builder.AddChannelArgument(GRPC_ARG_MAX_CONCURRENT_STREAMS, m_limits.streamsPerConnection);
    grpc::ResourceQuota quota("quotesd");
    quota.SetMaxThreads(m_limits.maxThreads);
    builder.SetResourceQuota(quota);
    builder.SetSyncServerOption(grpc::ServerBuilder::MAX_POLLERS,
                                std::min(kMaxIdleThreads, m_limits.maxThreads / 2));
    builder.RegisterService(&m_service);
    if (m_interceptors)
        builder.experimental().SetInterceptorCreators(m_interceptors());
    std::unique_ptr<grpc::Server> server = builder.BuildAndStart();
    if (!server || std::count(ports->begin(), ports->end(), 0) > 0) {
        ports->clear();
        return nullptr;
    }
    applyServing(*server);
    return server;
}

void CGuardedServer::applyServing(grpc::Server& server) const {
    grpc::HealthCheckServiceInterface* health = server.GetHealthCheckService();
    if (!health)
        return;
    health->SetServingStatus("", m_serving);
    health->SetServingStatus(quotes::v1::QuotesAdmin::service_full_name(), m_serving);
}

void CGuardedServer::setServing(bool serving) {
    if (m_serving.exchange(serving) != serving && m_server)
        applyServing(*m_server);
}

bool CGuardedServer::start(const std::vector<std::string>& listen) {
    m_listen = listen;
    m_server = build(listen, &m_ports);
    if (!m_server)
        return false;
    m_check =
        std::make_unique<CSelfCheck>(listen.front(), port(), m_certificate, m_log, kCheckDeadline);
    std::string why;
    m_armed = checkTwice(&why);
    if (!m_armed)
        m_log(QStringLiteral("self-check does not pass (%1): the server is not listened anew "
                             "until it does")
                  .arg(QString::fromStdString(why)));
    return true;
}

std::vector<std::string> CGuardedServer::addresses() const {
    std::vector<std::string> all;
    for (size_t i = 0; i < m_listen.size(); ++i)
        all.push_back(m_listen[i].substr(0, m_listen[i].rfind(':')) + ":" +
                      std::to_string(m_ports[i]));
    return all;
}

void CGuardedServer::guard(CheckObserver observer) {
    m_thread = std::thread([this, observer] { run(observer); });
}

void CGuardedServer::endGuard() {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_stop = true;
    }
    m_stopping.notify_all();
    if (m_thread.joinable())
        m_thread.join();
}

void CGuardedServer::stop(std::chrono::milliseconds grace) {
    endGuard();
    if (!m_server)
        return;
    m_server->Shutdown(after(grace));
    m_server->Wait();
    m_server.reset();
}

bool CGuardedServer::waitInterval() {
    std::unique_lock<std::mutex> lock(m_mutex);
    return !m_stopping.wait_for(lock, std::chrono::milliseconds(m_limits.selfCheckMs),
                                [this] { return m_stop; });
}

bool CGuardedServer::canOpenFiles() {
    std::vector<int> taken;
    while (taken.size() < kFilesForRebuild) {
        const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        if (fd < 0)
            break;
        taken.push_back(fd);
    }
    const bool enough = taken.size() == kFilesForRebuild;
    for (const int fd : taken)
        ::close(fd);
    return enough;
}

bool CGuardedServer::checkTwice(std::string* why) const {
    return m_check->passes(why) || m_check->passes(why);
}

void CGuardedServer::run(const CheckObserver& observer) {
    bool failing = false;
    while (waitInterval()) {
        std::string why;
        const bool passed = checkTwice(&why);
        if (observer)
            observer(passed);
        if (passed == failing)  // a change: said once, not every interval
            m_log(passed
                      ? QStringLiteral("self-check passes again")
                      : QStringLiteral("self-check failed: %1").arg(QString::fromStdString(why)));
        failing = !passed;
        m_armed = m_armed || passed;
        if (failing && m_armed && canOpenFiles())
            rebuild();
    }
}

void CGuardedServer::rebuild() {
    const std::vector<std::string> where = addresses();
    m_log(QStringLiteral("the server no longer accepts connections: listening anew on %1")
              .arg(joined(where)));
    // The new listener first (gRPC listens with SO_REUSEPORT), so the port is never closed;
    // the old server's established connections then end.
    std::vector<int> ports;
    std::unique_ptr<grpc::Server> fresh = build(where, &ports);
    std::unique_ptr<grpc::Server> old = std::move(m_server);
    if (old) {
        old->Shutdown(after(kReplacedGrace));
        old->Wait();
        old.reset();
    }
    if (!fresh || ports != m_ports)
        fresh = build(where, &ports);
    if (!fresh || ports != m_ports) {
        m_log(QStringLiteral("cannot listen on %1 again; trying at the next check")
                  .arg(joined(where)));
        return;
    }
    m_server = std::move(fresh);
    m_log(QStringLiteral("listening anew on %1").arg(joined(where)));
}
