#include <grpcpp/grpcpp.h>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QRegularExpression>
#include <QtTest>
#include <memory>

#include "CRemoteAdmin.h"
#include "QuotesdLogin.h"
#include "QuotesdProcess.h"
#include "TestPasswords.h"
#include "quotes.grpc.pb.h"

namespace {

// The port quotesd says it serves its metrics on; 0 when it said none.
int metricsPort(QuotesdProcess& server) {
    static const QRegularExpression said(QStringLiteral("metrics on [0-9.]+:(\\d+)/metrics"));
    const QRegularExpressionMatch match = said.match(server.log());
    return match.hasMatch() ? match.captured(1).toInt() : 0;
}

// One sample of a scrape, as the Prometheus project's parser read it.
struct Sample {
    QString family;
    QString type;
    QString name;
    QJsonObject labels;
    double value = 0;
};

// Scrapes the endpoint with Debian's python3-prometheus-client; empty when it failed.
QList<Sample> scrape(int port) {
    QProcess python;
    python.start(QStringLiteral("/usr/bin/python3"),
                 {qEnvironmentVariable("QUOTES_SOURCE_DIR") +
                      QStringLiteral("/tests/support/remote/read_metrics.py"),
                  QStringLiteral("http://127.0.0.1:%1/metrics").arg(port)});
    if (!python.waitForFinished(30000) || python.exitCode() != 0) {
        qWarning("metrics scrape failed: %s", python.readAllStandardError().constData());
        return {};
    }
    QList<Sample> samples;
    for (const QJsonValue& value :
         QJsonDocument::fromJson(python.readAllStandardOutput()).array()) {
        const QJsonObject object = value.toObject();
        samples.append({object.value("family").toString(), object.value("type").toString(),
                        object.value("name").toString(), object.value("labels").toObject(),
                        object.value("value").toDouble()});
    }
    return samples;
}

// The value of the sample with the name and labels; -1 when there is none.
double valueOf(const QList<Sample>& samples, const QString& name,
               const QJsonObject& labels = QJsonObject()) {
    for (const Sample& sample : samples) {
        if (sample.name != name)
            continue;
        bool matches = true;
        for (auto it = labels.begin(); it != labels.end(); ++it)
            matches = matches && sample.labels.value(it.key()) == it.value();
        if (matches)
            return sample.value;
    }
    return -1;
}

// The lines of the server's log that hold the text.
QStringList linesWith(QuotesdProcess& server, const QString& text) {
    return server.log().split(QLatin1Char('\n')).filter(text);
}

}  // namespace

// quotesd's metrics and log, seen from outside: the metrics parsed by a client the project did
// not write, the log read from the server's standard error.
class TestQuotesdObserve : public QObject {
    Q_OBJECT

private slots:
    void metricsParseAndCountWhatHappened() {
        QuotesdProcess server;
        QString output;
        QVERIFY2(server.init(kAdminPassword, &output) &&
                     server.setPassword(QStringLiteral("viewer"), kViewerPassword),
                 qPrintable(output));
        QVERIFY(server.start({QStringLiteral("--metrics-listen"), QStringLiteral("127.0.0.1:0")}));
        const int port = metricsPort(server);
        QVERIFY2(port > 0, qPrintable(server.log()));

        auto admin = loggedInTo(server, "admin", kAdminPassword);
        auto viewer = loggedInTo(server, "viewer", kViewerPassword);
        CRemoteAdmin stranger({server.address().toStdString()},
                              server.certificatePem().toStdString());
        QVERIFY(!stranger.login("admin", "wrong-password-1").isSuccess());
        const bool granted = admin->hasClientLoginTypeAuth(7);
        QVERIFY(admin->setLoginTypeAuth(7, !granted).isSuccess());
        QVERIFY(!viewer->setLoginTypeAuth(7, granted).isSuccess());
        const std::shared_ptr<void> watching =
            viewer->watchChanges([](const Hlx::CChangeEvent&) {});

        QList<Sample> samples;
        QTRY_VERIFY_WITH_TIMEOUT(
            (samples = scrape(port), valueOf(samples, "quotesd_event_streams") == 1), 20000);
        QCOMPARE(valueOf(samples, "quotesd_logins_total", {{"outcome", "ok"}}), 2.0);
        QCOMPARE(valueOf(samples, "quotesd_logins_total", {{"outcome", "refused"}}), 1.0);
        QCOMPARE(valueOf(samples, "quotesd_logins_total", {{"outcome", "locked"}}), 0.0);
        QCOMPARE(valueOf(samples, "quotesd_calls_total", {{"method", "Login"}, {"code", "OK"}}),
                 3.0);
        QVERIFY(valueOf(samples, "quotesd_calls_total",
                        {{"method", "SetLoginTypeAuth"}, {"code", "OK"}}) >= 2);
        QVERIFY(valueOf(samples, "quotesd_call_duration_seconds_count",
                        {{"method", "SetLoginTypeAuth"}}) >= 2);
        QCOMPARE(valueOf(samples, "quotesd_refused_requests_total", {{"action", "set"}}), 1.0);
        QVERIFY(valueOf(samples, "quotesd_audit_rows_written_total") >= 4);
        QVERIFY(valueOf(samples, "quotesd_db_statement_duration_seconds_count") > 0);
        QVERIFY(valueOf(samples, "quotesd_commit_group_writers_count") > 0);
        QCOMPARE(valueOf(samples, "quotesd_logged_in_tokens"), 2.0);
        QVERIFY(valueOf(samples, "quotesd_open_files") > 0);
        QVERIFY(valueOf(samples, "quotesd_open_files_limit") >=
                valueOf(samples, "quotesd_open_files"));
        // init's server certificate is valid 397 days.
        const double daysLeft = valueOf(samples, "quotesd_certificate_days_left");
        QVERIFY2(daysLeft >= 396 && daysLeft <= 397, qPrintable(QString::number(daysLeft)));
        // Nothing names whom: accounts and addresses have no bound.
        for (const Sample& sample : samples) {
            for (const QString& label : sample.labels.keys())
                QVERIFY2(
                    label != "account" && label != "address" && label != "user" && label != "peer",
                    qPrintable(sample.name + " " + label));
            QVERIFY2(!sample.labels.contains("method") ||
                         !sample.labels.value("method").toString().contains('/'),
                     qPrintable(sample.labels.value("method").toString()));
        }
        QCOMPARE(server.stop(), 0);
    }

    void lockoutsAreCountedApart() {
        QuotesdProcess server;
        QVERIFY(server.init(kAdminPassword));
        QVERIFY(server.start({QStringLiteral("--metrics-listen"), QStringLiteral("127.0.0.1:0"),
                              QStringLiteral("--lockout-base-ms"), QStringLiteral("600000")}));
        const int port = metricsPort(server);
        CRemoteAdmin stranger({server.address().toStdString()},
                              server.certificatePem().toStdString());
        for (int i = 0; i < 6; ++i)
            QVERIFY(!stranger.login("admin", "wrong-password-1").isSuccess());
        const QList<Sample> samples = scrape(port);
        QVERIFY2(!samples.isEmpty(), qPrintable(server.log()));
        QCOMPARE(valueOf(samples, "quotesd_logins_total", {{"outcome", "refused"}}), 5.0);
        QCOMPARE(valueOf(samples, "quotesd_logins_total", {{"outcome", "locked"}}), 1.0);
        QTRY_COMPARE(linesWith(server, QStringLiteral("warning: login locked out")).size(), 1);
        QCOMPARE(server.stop(), 0);
    }

    void noMetricsUnlessAsked() {
        QuotesdProcess server;
        QVERIFY(server.init(kAdminPassword));
        QVERIFY(server.start());
        QCOMPARE(metricsPort(server), 0);
        QVERIFY(!server.log().contains(QStringLiteral("metrics")));
        QCOMPARE(server.stop(), 0);
    }

    void logsLoginsRefusalsAndChangesWithoutSecrets() {
        QuotesdProcess server;
        QString output;
        QVERIFY2(server.init(kAdminPassword, &output) &&
                     server.setPassword(QStringLiteral("viewer"), kViewerPassword),
                 qPrintable(output));
        QVERIFY(server.start());
        auto admin = loggedInTo(server, "admin", kAdminPassword);
        auto viewer = loggedInTo(server, "viewer", kViewerPassword);
        CRemoteAdmin stranger({server.address().toStdString()},
                              server.certificatePem().toStdString());
        QVERIFY(!stranger.login("admin", "wrong-password-1").isSuccess());
        QVERIFY(!viewer->setLoginTypeAuth(7, true).isSuccess());
        const std::string secret = "brand-new-secret-17";
        QVERIFY(admin->setPassword("viewer", secret).isSuccess());

        const QString ok = QStringLiteral(
            "info: login ok account=admin address=127.0.0.1 "
            "action=login");
        QTRY_COMPARE(linesWith(server, ok).size(), 1);
        QCOMPARE(linesWith(server, QStringLiteral("login ok account=viewer")).size(), 1);
        const QStringList refused = linesWith(server, QStringLiteral("notice: login refused"));
        QCOMPARE(refused.size(), 1);
        QVERIFY2(refused.first().contains(QStringLiteral("account=admin address=127.0.0.1")),
                 qPrintable(refused.first()));
        QTRY_COMPARE(
            linesWith(server, QStringLiteral("notice: set_password account account=admin "
                                             "address=127.0.0.1 action=set_password ids=viewer"))
                .size(),
            1);
        const QStringList refusal = linesWith(server, QStringLiteral("warning: refused set "));
        QCOMPARE(refusal.size(), 1);
        QVERIFY2(refusal.first().contains(QStringLiteral("account=viewer address=127.0.0.1 "
                                                         "action=set")),
                 qPrintable(refusal.first()));
        QCOMPARE(server.stop(), 0);
        const QString log = server.log();
        for (const QString& secretText :
             {kAdminPassword, kViewerPassword, QString::fromStdString(secret),
              QStringLiteral("wrong-password-1")})
            QVERIFY2(!log.contains(secretText), qPrintable(secretText));
    }

    void callsWithoutALoginAreLoggedAsRefused() {
        QuotesdProcess server;
        QVERIFY(server.init(kAdminPassword));
        QVERIFY(server.start());
        grpc::SslCredentialsOptions trust;
        trust.pem_root_certs = server.certificatePem().toStdString();
        const auto stub = quotes::v1::QuotesAdmin::NewStub(
            grpc::CreateChannel(server.address().toStdString(), grpc::SslCredentials(trust)));
        grpc::ClientContext context;
        context.set_deadline(std::chrono::system_clock::now() + std::chrono::seconds(10));
        quotes::v1::SetLoginTypeAuthRequest request;
        request.set_login_type(7);
        quotes::v1::AdminReply reply;
        QCOMPARE(stub->SetLoginTypeAuth(&context, request, &reply).error_code(),
                 grpc::StatusCode::UNAUTHENTICATED);
        QTRY_COMPARE(linesWith(server, QStringLiteral("warning: refused a call without a valid "
                                                      "login"))
                         .size(),
                     1);
        QCOMPARE(server.stop(), 0);
    }

    void logLevelLeavesOutLowerLines() {
        QuotesdProcess server;
        QVERIFY(server.init(kAdminPassword));
        QVERIFY(server.start({QStringLiteral("--log-level"), QStringLiteral("warning")}));
        auto admin = loggedInTo(server, "admin", kAdminPassword);
        const bool granted = admin->hasClientLoginTypeAuth(7);
        QVERIFY(admin->setLoginTypeAuth(7, !granted).isSuccess());
        CRemoteAdmin stranger({server.address().toStdString()},
                              server.certificatePem().toStdString());
        QVERIFY(!stranger.login("admin", "wrong-password-1").isSuccess());
        QCOMPARE(server.stop(), 0);
        QVERIFY(linesWith(server, QStringLiteral("login ok")).isEmpty());
        QVERIFY(linesWith(server, QStringLiteral("login refused")).isEmpty());
        QVERIFY(linesWith(server, QStringLiteral("action=set")).isEmpty());
        QCOMPARE(server.run({QStringLiteral("--data"), server.dataDir(),
                             QStringLiteral("--log-level"), QStringLiteral("loud")}),
                 2);
    }
};

QTEST_GUILESS_MAIN(TestQuotesdObserve)
#include "tst_quotesd_observe.moc"
