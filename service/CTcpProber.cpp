#include "CTcpProber.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <deque>

#include "CIpAddress.h"
#include "model/CProbeVocabulary.h"

namespace {

using Clock = std::chrono::steady_clock;

// The socket address of a target; false when the text is no address.
bool socketAddress(const QString& text, int port, sockaddr_storage* out, socklen_t* length) {
    std::memset(out, 0, sizeof(*out));
    CIpAddress address;
    if (!CIpAddress::parse(text.toStdString(), &address))
        return false;
    if (address.isV4()) {
        auto* in = reinterpret_cast<sockaddr_in*>(out);
        in->sin_family = AF_INET;
        in->sin_port = htons(std::uint16_t(port));
        std::memcpy(&in->sin_addr, address.bytes().data(), 4);
        *length = sizeof(sockaddr_in);
        return true;
    }
    auto* in6 = reinterpret_cast<sockaddr_in6*>(out);
    in6->sin6_family = AF_INET6;
    in6->sin6_port = htons(std::uint16_t(port));
    std::memcpy(&in6->sin6_addr, address.bytes().data(), 16);
    in6->sin6_scope_id = address.scope();
    *length = sizeof(sockaddr_in6);
    return true;
}

// What a failed connect's error number means to the operator.
CTcpProber::Outcome failed(int error) {
    CTcpProber::Outcome outcome;
    switch (error) {
        case ECONNREFUSED:
            outcome.state = CProbeVocabulary::kRefused;
            return outcome;
        case ETIMEDOUT:
            outcome.state = CProbeVocabulary::kTimeout;
            return outcome;
        case ENETUNREACH:
            outcome.error = "网络不可达";
            break;
        case EHOSTUNREACH:
            outcome.error = "主机不可达";
            break;
        default:
            outcome.error = std::strerror(error);
    }
    outcome.state = CProbeVocabulary::kUnreachable;
    return outcome;
}

long long elapsedUs(Clock::time_point since) {
    return std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - since).count();
}

}  // namespace

struct CTcpProber::Flight {
    int fd;
    std::size_t index;
    Clock::time_point started;
};

// One call's targets: starts connects while places are free and collects what they find.
class CTcpProber::Round {
public:
    Round(CTcpProber& prober, const std::vector<Target>& targets)
        : m_prober(prober),
          m_timeout(std::chrono::milliseconds(prober.options().timeoutMs)),
          m_targets(targets),
          m_outcomes(targets.size()) {}

    std::vector<Outcome> run() {
        for (std::size_t i = 0; i < m_targets.size(); ++i) {
            const std::string refusal = m_prober.refusal(m_targets[i].address);
            if (refusal.empty())
                m_waiting.push_back(i);
            else
                m_outcomes[i] = {CProbeVocabulary::kNotProbed, 0, refusal};
        }
        while (!m_waiting.empty() || !m_flights.empty()) {
            startSome();
            if (m_flights.empty())
                m_prober.waitForSlot();
            else
                pollFlights();
        }
        return std::move(m_outcomes);
    }

private:
    void startSome() {
        const int places = m_prober.takeSlots(int(m_waiting.size()));
        for (int i = 0; i < places; ++i) {
            const std::size_t index = m_waiting.front();
            m_waiting.pop_front();
            if (!start(index))
                m_prober.giveSlots(1);
        }
    }

    // True while the connect is in flight (its place stays taken).
    bool start(std::size_t index) {
        const Target& target = m_targets[index];
        sockaddr_storage address;
        socklen_t length = 0;
        if (!socketAddress(target.address, target.port, &address, &length)) {
            m_outcomes[index] = {CProbeVocabulary::kNotProbed, 0, "不是 IP 地址，不探测"};
            return false;
        }
        const int fd = ::socket(address.ss_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
        if (fd < 0) {
            m_outcomes[index] = failed(errno);
            return false;
        }
        m_prober.counted(target.address);
        const Clock::time_point started = Clock::now();
        if (::connect(fd, reinterpret_cast<sockaddr*>(&address), length) == 0) {
            m_outcomes[index] = {CProbeVocabulary::kReachable, elapsedUs(started), {}};
            ::close(fd);
            return false;
        }
        if (errno != EINPROGRESS) {
            m_outcomes[index] = failed(errno);
            ::close(fd);
            return false;
        }
        m_flights.push_back({fd, index, started});
        return true;
    }

    void pollFlights() {
        std::vector<pollfd> fds;
        for (const Flight& flight : m_flights)
            fds.push_back({flight.fd, POLLOUT, 0});
        ::poll(fds.data(), fds.size(), waitMs());
        std::vector<Flight> open;
        for (std::size_t i = 0; i < m_flights.size(); ++i) {
            if (!finish(m_flights[i], fds[i].revents))
                open.push_back(m_flights[i]);
        }
        m_prober.giveSlots(int(m_flights.size() - open.size()));
        m_flights.swap(open);
    }

    // How long to wait for the first flight to run out of time; short while more wait to start,
    // so that places freed by other calls are taken promptly.
    int waitMs() const {
        const auto timeout = m_timeout;
        auto first = m_flights.front().started;
        for (const Flight& flight : m_flights)
            first = std::min(first, flight.started);
        const long long left =
            std::chrono::duration_cast<std::chrono::milliseconds>(first + timeout - Clock::now())
                .count() +
            1;
        const long long bound = m_waiting.empty() ? left : std::min<long long>(left, 20);
        return int(std::max<long long>(0, bound));
    }

    // True when the flight ended (its socket closed).
    bool finish(const Flight& flight, short events) {
        if (events != 0) {
            int error = 0;
            socklen_t length = sizeof(error);
            ::getsockopt(flight.fd, SOL_SOCKET, SO_ERROR, &error, &length);
            m_outcomes[flight.index] =
                error == 0 ? Outcome{CProbeVocabulary::kReachable, elapsedUs(flight.started), {}}
                           : failed(error);
        } else if (Clock::now() - flight.started >= m_timeout) {
            m_outcomes[flight.index] = failed(ETIMEDOUT);
        } else {
            return false;
        }
        ::close(flight.fd);
        return true;
    }

    CTcpProber& m_prober;
    const std::chrono::milliseconds m_timeout;
    const std::vector<Target>& m_targets;
    std::vector<Outcome> m_outcomes;
    std::deque<std::size_t> m_waiting;
    std::vector<Flight> m_flights;
};

CTcpProber::CTcpProber() : CTcpProber(CProbeAllowList(), Options()) {}

CTcpProber::CTcpProber(CProbeAllowList allow, Options options)
    : m_options(options), m_allow(std::move(allow)) {}

void CTcpProber::setOptions(const Options& options) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_options = options;
}

CTcpProber::Options CTcpProber::options() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_options;
}

std::vector<CTcpProber::Outcome> CTcpProber::probe(const std::vector<Target>& targets) {
    return Round(*this, targets).run();
}

void CTcpProber::setAllowList(const CProbeAllowList& allow) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_allow = allow;
}

CProbeAllowList CTcpProber::allowList() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_allow;
}

std::string CTcpProber::refusal(const QString& address) const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_allow.refusal(address);
}

long long CTcpProber::connectsTo(const QString& address) const {
    std::lock_guard<std::mutex> lock(m_mutex);
    const auto found = m_perAddress.find(address);
    return found == m_perAddress.end() ? 0 : found->second;
}

int CTcpProber::peakInFlight() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_peak;
}

int CTcpProber::takeSlots(int wanted) {
    std::lock_guard<std::mutex> lock(m_mutex);
    const int taken = std::max(0, std::min(wanted, m_options.concurrency - m_inFlight));
    m_inFlight += taken;
    m_peak = std::max(m_peak, m_inFlight);
    return taken;
}

void CTcpProber::giveSlots(int count) {
    if (count == 0)
        return;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_inFlight -= count;
    }
    m_freed.notify_all();
}

void CTcpProber::waitForSlot() {
    std::unique_lock<std::mutex> lock(m_mutex);
    m_freed.wait_for(lock, std::chrono::milliseconds(50),
                     [this] { return m_inFlight < m_options.concurrency; });
}

void CTcpProber::counted(const QString& address) {
    ++m_started;
    std::lock_guard<std::mutex> lock(m_mutex);
    ++m_perAddress[address];
}
