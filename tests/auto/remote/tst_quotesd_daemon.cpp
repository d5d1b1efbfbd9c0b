#include <signal.h>

#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

#include "CHealthCheck.h"
#include "Hlx/QuotesVersion.h"
#include "NotifySocket.h"
#include "PostgresCluster.h"
#include "QuotesctlRun.h"
#include "QuotesdProcess.h"
#include "TestPasswords.h"

namespace {

QString binary(const QString& name) {
    return qEnvironmentVariable("QUOTES_BINARY_DIR") + QStringLiteral("/bin/") + name;
}

// The version line a program prints for --version; empty when it did not run.
QString versionOf(const QString& program) {
    QProcess process;
    process.start(binary(program), {QStringLiteral("--version")});
    if (!process.waitForFinished(30000) || process.exitCode() != 0)
        return QString();
    return QString::fromUtf8(process.readAllStandardOutput()).trimmed();
}

}  // namespace

// quotesd as an administrator runs it: its version, the standard health service without a
// login (asked by quotesctl and by Debian's python3-grpcio), systemd's readiness, status and
// watchdog, SIGHUP, and several addresses.
class TestQuotesdDaemon : public QObject {
    Q_OBJECT

    QTemporaryDir m_files;
    QuotesdProcess m_server;

    QString caFile() const { return m_files.filePath(QStringLiteral("ca.pem")); }

    QuotesctlRun health(const QStringList& servers) const {
        QStringList arguments;
        for (const QString& server : servers)
            arguments << QStringLiteral("--server") << server;
        arguments << QStringLiteral("--ca") << caFile() << QStringLiteral("health");
        return QuotesctlRun::start(binary(QStringLiteral("quotesctl")), arguments);
    }

    // Debian's grpcio, a client this project did not write: the status name it read.
    QString pythonHealth(const QString& address, const QString& mode,
                         const QString& service = QString()) const {
        QProcess python;
        QStringList arguments{qEnvironmentVariable("QUOTES_SOURCE_DIR") +
                                  QStringLiteral("/tests/support/grpc_health_check.py"),
                              address, caFile(), mode};
        if (!service.isEmpty())
            arguments << service;
        // Debian's interpreter, where python3-grpcio is installed (not one a PATH puts first).
        python.start(QStringLiteral("/usr/bin/python3"), arguments);
        if (!python.waitForFinished(30000))
            return QStringLiteral("TIMEOUT");
        return QString::fromUtf8(python.readAllStandardOutput() + python.readAllStandardError())
            .trimmed();
    }

    void writeCa(const QuotesdProcess& server) {
        QFile ca(caFile());
        QVERIFY(ca.open(QIODevice::WriteOnly | QIODevice::Truncate));
        ca.write(server.certificatePem());
    }

private slots:
    void initTestCase() {
        QString output;
        QVERIFY2(m_server.init(kAdminPassword, &output), qPrintable(output));
        QVERIFY2(m_server.start(), qPrintable(m_server.log()));
        writeCa(m_server);
    }

    void everyProgramSaysItsVersionAndCommit() {
        const QString expected =
            QStringLiteral("%1 (commit %2)")
                .arg(QLatin1String(Hlx::quotesVersion()), QLatin1String(Hlx::quotesCommit()));
        QVERIFY(QString(Hlx::quotesCommit()) != QLatin1String(""));
        for (const QString& program :
             {QStringLiteral("quotesd"), QStringLiteral("quotesctl"),
              QStringLiteral("quotes-console"), QStringLiteral("quotes-bench")}) {
            if (!QFileInfo::exists(binary(program)))
                QSKIP(qPrintable(program + QStringLiteral(" is not built")));
            QCOMPARE(versionOf(program), program + QLatin1Char(' ') + expected);
        }
    }

    void healthNeedsNoLogin() {
        const QuotesctlRun run = health({m_server.address()});
        QCOMPARE(run.code, 0);
        QCOMPARE(QString::fromUtf8(run.out).trimmed(),
                 QStringLiteral("%1 SERVING version %2 commit %3")
                     .arg(m_server.address(), QLatin1String(Hlx::quotesVersion()),
                          QLatin1String(Hlx::quotesCommit())));
        const CHealthCheck::Answer answer =
            CHealthCheck::ask(m_server.address().toStdString(),
                              m_server.certificatePem().toStdString(), std::chrono::seconds(5));
        QVERIFY(answer.serving());
        QCOMPARE(QString::fromStdString(answer.commit), QString(Hlx::quotesCommit()));
    }

    void healthOfAStrangerClient() {
        QCOMPARE(pythonHealth(m_server.address(), QStringLiteral("check")),
                 QStringLiteral("SERVING"));
        QCOMPARE(pythonHealth(m_server.address(), QStringLiteral("watch")),
                 QStringLiteral("SERVING"));
        QCOMPARE(pythonHealth(m_server.address(), QStringLiteral("check"),
                              QStringLiteral("quotes.v1.QuotesAdmin")),
                 QStringLiteral("SERVING"));
        QCOMPARE(pythonHealth(m_server.address(), QStringLiteral("check"),
                              QStringLiteral("no.such.Service")),
                 QStringLiteral("NOT_FOUND"));
    }

    void healthFailsForAServerThatIsGone() {
        // A port nobody listens on: the one of a server that stopped.
        QuotesdProcess other;
        QVERIFY(other.init(kAdminPassword));
        QVERIFY(other.start());
        const QString address = other.address();
        QCOMPARE(other.stop(), 0);
        const QuotesctlRun run = health({m_server.address(), address});
        QCOMPARE(run.code, 1);
        QVERIFY2(run.out.contains(" SERVING ") && run.out.contains(" UNREACHABLE "), run.out);
        QCOMPARE(health({}).code, 2);
    }

    void listensOnEveryAddressGiven() {
        QuotesdProcess server;
        QVERIFY(server.init(kAdminPassword));
        QVERIFY2(server.start({QStringLiteral("--listen"), QStringLiteral("127.0.0.1:0"),
                               QStringLiteral("--listen"), QStringLiteral("[::1]:0")}),
                 qPrintable(server.log()));
        const QRegularExpression both(
            QStringLiteral("listening on 127\\.0\\.0\\.1:\\d+, \\[::1\\]:(\\d+) "));
        const QRegularExpressionMatch match = both.match(server.log());
        QVERIFY2(match.hasMatch(), qPrintable(server.log()));
        const std::string pem = server.certificatePem().toStdString();
        // The certificate names localhost, which reaches [::1] too.
        for (const QString& address :
             {server.address(), QStringLiteral("localhost:") + match.captured(1)}) {
            const CHealthCheck::Answer answer =
                CHealthCheck::ask(address.toStdString(), pem, std::chrono::seconds(5));
            QVERIFY2(answer.serving(), qPrintable(address + QLatin1Char(' ') +
                                                  QString::fromStdString(answer.failure)));
        }
        QCOMPARE(server.stop(), 0);
    }

    void systemdHearsReadyStatusAndWatchdog() {
        NotifySocket systemd;
        QuotesdProcess server;
        QVERIFY(server.init(kAdminPassword));
        server.setEnvironment(systemd.environment(2000));
        QVERIFY2(server.start({QStringLiteral("--self-check-ms"), QStringLiteral("200")}),
                 qPrintable(server.log()));
        QTRY_COMPARE(systemd.count(QStringLiteral("READY=1")), 1);
        QVERIFY2(systemd.messages().front().text.contains(QStringLiteral("STATUS=listening on")),
                 qPrintable(systemd.messages().front().text));
        QTRY_VERIFY(systemd.count(QStringLiteral("WATCHDOG=1")) >= 3);

        // SIGHUP: logged, the settings read again, still serving.
        ::kill(pid_t(server.processId()), SIGHUP);
        QTRY_COMPARE(systemd.count(QStringLiteral("RELOADING=1")), 1);
        QTRY_COMPARE(systemd.count(QStringLiteral("READY=1")), 2);
        QVERIFY(server.isRunning());
        QTRY_VERIFY2(server.log().contains(QStringLiteral("SIGHUP")), qPrintable(server.log()));
        const int pings = systemd.count(QStringLiteral("WATCHDOG=1"));
        QTRY_VERIFY(systemd.count(QStringLiteral("WATCHDOG=1")) > pings);

        QCOMPARE(server.stop(), 0);
        QCOMPARE(systemd.count(QStringLiteral("STOPPING=1")), 1);
    }

    // The database stops answering: health says NOT_SERVING and the watchdog hears nothing
    // (systemd would restart the server); it answers again: both come back by themselves.
    void unhealthyWhileTheDatabaseHangs() {
        PostgresCluster database;
        if (!database.startOrSkip())
            return;
        QVERIFY(database.createDatabase(QStringLiteral("quotes")));
        NotifySocket systemd;
        QuotesdProcess server;
        server.setDatabaseUrl(database.url(QStringLiteral("quotes")));
        QVERIFY(server.init(kAdminPassword));
        server.setEnvironment(systemd.environment(2000));
        QVERIFY2(server.start({QStringLiteral("--self-check-ms"), QStringLiteral("200")}),
                 qPrintable(server.log()));
        writeCa(server);
        QTRY_VERIFY(systemd.count(QStringLiteral("WATCHDOG=1")) >= 2);
        QCOMPARE(health({server.address()}).code, 0);

        QVERIFY(database.suspend());
        const qint64 hung = systemd.now();
        // The database's deadline (5 s) and a check later, the pings stop.
        QTRY_VERIFY_WITH_TIMEOUT(
            systemd.now() - systemd.lastAt(QStringLiteral("WATCHDOG=1")) > 2000, 20000);
        QVERIFY(systemd.lastAt(QStringLiteral("WATCHDOG=1")) - hung < 8000);
        QTRY_VERIFY(
            systemd.messages().back().text.startsWith(QStringLiteral("STATUS=not serving")));
        const QuotesctlRun down = health({server.address()});
        QCOMPARE(down.code, 1);
        QVERIFY2(down.out.contains(" NOT_SERVING "), down.out);

        QVERIFY(database.resume());
        QTRY_VERIFY_WITH_TIMEOUT(health({server.address()}).code == 0, 30000);
        const qint64 back = systemd.now();
        QTRY_VERIFY(systemd.lastAt(QStringLiteral("WATCHDOG=1")) > back);
        QTRY_VERIFY2(server.log().contains(QStringLiteral("healthy again")),
                     qPrintable(server.log()));
        QCOMPARE(server.stop(), 0);
    }
};

QTEST_GUILESS_MAIN(TestQuotesdDaemon)
#include "tst_quotesd_daemon.moc"
