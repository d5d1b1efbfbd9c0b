// quotesd's metrics endpoint under a realistic load of what it counts: 100 logged-in tokens
// and 10,000 calls over several methods, then scrapes over loopback HTTP as Prometheus sends
// them. The figure is a scrape's time (target below 20 ms).

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QRegularExpression>
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "BenchRegistry.h"
#include "CRemoteAdmin.h"
#include "QuotesdProcess.h"

namespace {

const char* const kPassword = "bench-password-1";
const int kTokens = 100;
const int kCalls = 10000;
const int kScrapes = 200;

// One scrape: GET /metrics on loopback, the whole answer read; empty when it failed.
std::string scrape(int port) {
    const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    if (fd < 0)
        return 0;
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(uint16_t(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    std::string received;
    if (::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0) {
        const std::string request =
            "GET /metrics HTTP/1.1\r\nHost: 127.0.0.1\r\nConnection: close\r\n\r\n";
        if (::send(fd, request.data(), request.size(), 0) == ssize_t(request.size())) {
            char buffer[65536];
            ssize_t got = 0;
            while ((got = ::recv(fd, buffer, sizeof buffer, 0)) > 0)
                received.append(buffer, size_t(got));
        }
    }
    ::close(fd);
    return received;
}

int metricsPort(QuotesdProcess& server) {
    static const QRegularExpression said(QStringLiteral("metrics on [0-9.]+:(\\d+)/metrics"));
    const QRegularExpressionMatch match = said.match(server.log());
    return match.hasMatch() ? match.captured(1).toInt() : 0;
}

// The value of a sample without labels in the exposition; -1 when absent.
double sampleValue(const std::string& text, const std::string& name) {
    const size_t at = text.find("\n" + name + " ");
    return at == std::string::npos ? -1 : std::atof(text.c_str() + at + name.size() + 2);
}

// The calls counted, over every method and status.
double callsCounted(const std::string& text) {
    double total = 0;
    const std::string prefix = "\nquotesd_calls_total{";
    for (size_t at = text.find(prefix); at != std::string::npos; at = text.find(prefix, at + 1))
        total += std::atof(text.c_str() + text.find("} ", at) + 2);
    return total;
}

// kTokens logins, each a client of its own that stays logged in, from a few threads.
std::vector<std::unique_ptr<CRemoteAdmin>> logIn(const QuotesdProcess& server) {
    std::vector<std::unique_ptr<CRemoteAdmin>> clients(kTokens);
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&, t] {
            for (int i = t; i < kTokens; i += 4) {
                clients[size_t(i)] = std::make_unique<CRemoteAdmin>(
                    std::vector<std::string>{server.address().toStdString()},
                    server.certificatePem().toStdString());
                // A login the busy server timed out is tried again: the figure needs them all.
                for (int attempt = 0; attempt < 5; ++attempt)
                    if (clients[size_t(i)]->login("admin", kPassword).isSuccess())
                        break;
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    return clients;
}

double percentile(std::vector<double> values, double share) {
    std::sort(values.begin(), values.end());
    return values[std::min(values.size() - 1, size_t(share * double(values.size())))];
}

}  // namespace

void runMetricsBench() {
    if (qEnvironmentVariableIsEmpty("QUOTES_BINARY_DIR"))
        qputenv("QUOTES_BINARY_DIR", (QCoreApplication::applicationDirPath() + "/..").toUtf8());
    QuotesdProcess server;
    if (!server.init(QString::fromLatin1(kPassword)) ||
        !server.start({QStringLiteral("--metrics-listen"), QStringLiteral("127.0.0.1:0")})) {
        std::fprintf(stderr, "metrics bench: quotesd did not start: %s\n",
                     server.log().toUtf8().constData());
        return;
    }
    const int port = metricsPort(server);
    std::vector<std::unique_ptr<CRemoteAdmin>> clients = logIn(server);
    // Two calls each (Subsystems, LoginTypeAuth), spread over the logins.
    for (int i = 0; i < kCalls / 2; ++i)
        clients[size_t(i % kTokens)]->refreshSession();
    std::vector<double> ms;
    std::string text;
    for (int i = 0; i < kScrapes; ++i) {
        QElapsedTimer timer;
        timer.start();
        text = scrape(port);
        ms.push_back(double(timer.nsecsElapsed()) / 1e6);
    }
    for (auto& client : clients)
        client->shutdown();
    server.stop();
    if (text.empty()) {
        std::fprintf(stderr, "metrics bench: the scrape failed\n");
        return;
    }
    benchReport("metrics_scrape_ms", percentile(ms, 0.5), "ms");
    benchReport("metrics_scrape_ms_p99", percentile(ms, 0.99), "ms");
    benchReport("metrics_scrape_bytes", double(text.size()), "bytes");
    // What the scrapes carried: the load is as the figure says.
    benchReport("metrics_logged_in_tokens", sampleValue(text, "quotesd_logged_in_tokens"),
                "tokens");
    benchReport("metrics_calls_counted", callsCounted(text), "calls");
}

static BenchRegistrar reg("metrics", &runMetricsBench);
