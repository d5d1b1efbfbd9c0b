#include "CServerMetrics.h"

#include <dirent.h>
#include <sys/resource.h>

#include <prometheus/counter.h>
#include <prometheus/exposer.h>
#include <prometheus/gauge.h>
#include <prometheus/histogram.h>
#include <prometheus/registry.h>
#include <prometheus/text_serializer.h>

#include <sstream>

#include "model/CAuditVocabulary.h"

namespace {

using Buckets = prometheus::Histogram::BucketBoundaries;

// From a fast read to the call deadline (10 s).
const Buckets& callBuckets() {
    static const Buckets buckets{0.0005, 0.001, 0.0025, 0.005, 0.01, 0.025, 0.05,
                                 0.1,    0.25,  0.5,    1,     2.5,  5,     10};
    return buckets;
}

// From a cached page to the statement watchdog's bound.
const Buckets& statementBuckets() {
    static const Buckets buckets{0.0001, 0.00025, 0.0005, 0.001, 0.0025, 0.005, 0.01,
                                 0.025,  0.05,    0.1,    0.25,  0.5,    1,     5};
    return buckets;
}

// Up to CGroupCommit::kMaxBatch.
const Buckets& writerBuckets() {
    static const Buckets buckets{1, 2, 4, 8, 16, 32, 64};
    return buckets;
}

double seconds(std::chrono::nanoseconds elapsed) {
    return std::chrono::duration<double>(elapsed).count();
}

// "/quotes.v1.QuotesAdmin/Login" -> "Login": the methods of one service, a bounded set.
std::string methodName(const std::string& path) {
    const size_t slash = path.rfind('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

const char* outcomeName(IAdminObserver::LoginOutcome outcome) {
    switch (outcome) {
        case IAdminObserver::LoginOutcome::Ok:
            return "ok";
        case IAdminObserver::LoginOutcome::Locked:
            return "locked";
        default:
            return "refused";
    }
}

// The files this process holds now.
double openFiles() {
    DIR* dir = ::opendir("/proc/self/fd");
    if (!dir)
        return 0;
    double count = 0;
    while (const dirent* entry = ::readdir(dir))
        if (entry->d_name[0] != '.')
            ++count;
    ::closedir(dir);
    return count - 1;  // the directory's own
}

double openFileLimit() {
    rlimit files{};
    if (::getrlimit(RLIMIT_NOFILE, &files) != 0 || files.rlim_cur == RLIM_INFINITY)
        return 0;
    return double(files.rlim_cur);
}

prometheus::MetricFamily gaugeFamily(const std::string& name, const std::string& help,
                                     double value) {
    prometheus::MetricFamily family;
    family.name = name;
    family.help = help;
    family.type = prometheus::MetricType::Gauge;
    prometheus::ClientMetric metric;
    metric.gauge.value = value;
    family.metric.push_back(metric);
    return family;
}

}  // namespace

// The gauges that are read when a scrape asks, not counted as things happen.
class CServerMetrics::ScrapeGauges final : public prometheus::Collectable {
public:
    explicit ScrapeGauges(Sources sources) : m_sources(std::move(sources)) {}

    std::vector<prometheus::MetricFamily> Collect() const override {
        std::vector<prometheus::MetricFamily> families{
            gaugeFamily("quotesd_open_files", "Files this process holds open.", openFiles()),
            gaugeFamily("quotesd_open_files_limit", "The process's soft limit of open files.",
                        openFileLimit())};
        if (m_sources.liveLogins) {
            try {
                families.push_back(gaugeFamily(
                    "quotesd_logged_in_tokens",
                    "Logins not idle beyond the timeout, of every server of the database.",
                    double(m_sources.liveLogins())));
            } catch (const std::exception&) {
                // The database did not answer: this scrape goes without, the next one asks.
            }
        }
        if (m_sources.certificateExpiry) {
            const QDateTime expiry = m_sources.certificateExpiry();
            if (expiry.isValid())
                families.push_back(gaugeFamily(
                    "quotesd_certificate_days_left", "Days until the served certificate expires.",
                    double(QDateTime::currentDateTimeUtc().secsTo(expiry)) / 86400.0));
        }
        return families;
    }

private:
    const Sources m_sources;
};

// Times one call from its arrival to its status.
class CServerMetrics::CallCounter final : public grpc::experimental::Interceptor {
public:
    CallCounter(CServerMetrics* metrics, const char* method)
        : m_metrics(metrics),
          m_method(method ? method : ""),
          m_started(std::chrono::steady_clock::now()) {}

    void Intercept(grpc::experimental::InterceptorBatchMethods* methods) override {
        if (methods->QueryInterceptionHookPoint(
                grpc::experimental::InterceptionHookPoints::PRE_SEND_STATUS))
            m_metrics->callEnded(m_method, methods->GetSendStatus().error_code(),
                                 std::chrono::steady_clock::now() - m_started);
        methods->Proceed();
    }

private:
    CServerMetrics* m_metrics;
    const std::string m_method;
    const std::chrono::steady_clock::time_point m_started;
};

class CServerMetrics::CallCounterFactory final
    : public grpc::experimental::ServerInterceptorFactoryInterface {
public:
    explicit CallCounterFactory(CServerMetrics* metrics) : m_metrics(metrics) {}

    grpc::experimental::Interceptor* CreateServerInterceptor(
        grpc::experimental::ServerRpcInfo* info) override {
        return new CallCounter(m_metrics, info->method());
    }

private:
    CServerMetrics* m_metrics;
};

CServerMetrics::CServerMetrics(Sources sources)
    : m_registry(std::make_shared<prometheus::Registry>()),
      m_scrapeGauges(std::make_shared<ScrapeGauges>(std::move(sources))) {
    prometheus::Registry& registry = *m_registry;
    m_calls = &prometheus::BuildCounter()
                   .Name("quotesd_calls_total")
                   .Help("Calls answered, by method and gRPC status.")
                   .Register(registry);
    m_callSeconds = &prometheus::BuildHistogram()
                         .Name("quotesd_call_duration_seconds")
                         .Help("Time from a call's arrival to its status, by method.")
                         .Register(registry);
    m_logins = &prometheus::BuildCounter()
                    .Name("quotesd_logins_total")
                    .Help(
                        "Logins answered: ok, refused, or locked (refused unchecked while the "
                        "name or address is locked out).")
                    .Register(registry);
    m_refusals = &prometheus::BuildCounter()
                      .Name("quotesd_refused_requests_total")
                      .Help(
                          "Requests refused (rights, validation, conflicts, no login), by the "
                          "action they asked for.")
                      .Register(registry);
    m_eventStreams = &prometheus::BuildGauge()
                          .Name("quotesd_event_streams")
                          .Help("Live-update streams open now.")
                          .Register(registry)
                          .Add({});
    m_statementSeconds = &prometheus::BuildHistogram()
                              .Name("quotesd_db_statement_duration_seconds")
                              .Help("Time of each database statement.")
                              .Register(registry)
                              .Add({}, statementBuckets());
    m_commitWriters = &prometheus::BuildHistogram()
                           .Name("quotesd_commit_group_writers")
                           .Help("Writers answered by one SQLite commit.")
                           .Register(registry)
                           .Add({}, writerBuckets());
    m_auditRows = &prometheus::BuildCounter()
                       .Name("quotesd_audit_rows_written_total")
                       .Help("Audit entries written (repeated refusals counted on one).")
                       .Register(registry)
                       .Add({});
    for (const char* outcome : {"ok", "refused", "locked"})
        m_logins->Add({{"outcome", outcome}});
}

CServerMetrics::~CServerMetrics() = default;

bool CServerMetrics::listen(const std::string& address, std::string* error) {
    try {
        m_exposer = std::make_unique<prometheus::Exposer>(address, 2);
    } catch (const std::exception& e) {
        *error = e.what();
        return false;
    }
    m_exposer->RegisterCollectable(m_registry);
    m_exposer->RegisterCollectable(m_scrapeGauges);
    return true;
}

int CServerMetrics::port() const {
    if (!m_exposer)
        return 0;
    const std::vector<int> ports = m_exposer->GetListeningPorts();
    return ports.empty() ? 0 : ports.front();
}

std::string CServerMetrics::exposition() const {
    std::vector<prometheus::MetricFamily> families = m_registry->Collect();
    for (prometheus::MetricFamily& family : m_scrapeGauges->Collect())
        families.push_back(std::move(family));
    std::ostringstream out;
    prometheus::TextSerializer().Serialize(out, families);
    return out.str();
}

std::vector<std::unique_ptr<grpc::experimental::ServerInterceptorFactoryInterface>>
CServerMetrics::interceptors() {
    std::vector<std::unique_ptr<grpc::experimental::ServerInterceptorFactoryInterface>> made;
    made.push_back(std::make_unique<CallCounterFactory>(this));
    return made;
}

void CServerMetrics::callEnded(const std::string& method, grpc::StatusCode code,
                               std::chrono::nanoseconds elapsed) {
    const std::string name = methodName(method);
    m_calls->Add({{"method", name}, {"code", codeName(code)}}).Increment();
    m_callSeconds->Add({{"method", name}}, callBuckets()).Observe(seconds(elapsed));
}

void CServerMetrics::statementRan(std::chrono::nanoseconds elapsed) {
    m_statementSeconds->Observe(seconds(elapsed));
}

void CServerMetrics::groupCommitted(std::size_t writers) {
    m_commitWriters->Observe(double(writers));
}

void CServerMetrics::recorded(const Hlx::CAuditEntry& entry, bool repeat) {
    if (!repeat)
        m_auditRows->Increment();
    if (entry.error.empty())
        return;
    // A refused login names its account and is counted as a login; a call without a valid
    // login names none.
    const bool login = entry.action == CAuditVocabulary::kLogin;
    if (login && !entry.account.empty())
        return;
    m_refusals->Add({{"action", login ? "unauthenticated" : entry.action}}).Increment();
}

void CServerMetrics::loginAnswered(const std::string&, const std::string&, LoginOutcome outcome,
                                   const std::string&) {
    m_logins->Add({{"outcome", outcomeName(outcome)}}).Increment();
}

void CServerMetrics::eventStreamsChanged(int delta) {
    m_eventStreams->Increment(delta);
}

const char* CServerMetrics::codeName(grpc::StatusCode code) {
    static const char* const kNames[] = {"OK",
                                         "CANCELLED",
                                         "UNKNOWN",
                                         "INVALID_ARGUMENT",
                                         "DEADLINE_EXCEEDED",
                                         "NOT_FOUND",
                                         "ALREADY_EXISTS",
                                         "PERMISSION_DENIED",
                                         "RESOURCE_EXHAUSTED",
                                         "FAILED_PRECONDITION",
                                         "ABORTED",
                                         "OUT_OF_RANGE",
                                         "UNIMPLEMENTED",
                                         "INTERNAL",
                                         "UNAVAILABLE",
                                         "DATA_LOSS",
                                         "UNAUTHENTICATED"};
    const int index = int(code);
    return index >= 0 && index < int(sizeof(kNames) / sizeof(kNames[0])) ? kNames[index]
                                                                         : "UNKNOWN";
}
