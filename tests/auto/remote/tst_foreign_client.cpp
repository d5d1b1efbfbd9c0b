// A client the project did not write attacks quotesd's calls of probes, source history, restore
// and backup: Debian's grpcio with stubs generated from remote/quotes.proto at run time
// (tests/support/remote/foreign_client.py). Each attack says what the server must do; the
// sources probed are loopback listeners of the test's own, which count the connects.

#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>
#include <algorithm>

#include "CRemoteAdmin.h"
#include "LoopbackListeners.h"
#include "QuotesdLogin.h"
#include "SourceAdds.h"
#include "TestPasswords.h"
#include "model/CAuditVocabulary.h"
#include "rkservice/DataTypeIds.h"

namespace {

const QString kStockPassword = QStringLiteral("stock-password-1");
const QString kFuturesPassword = QStringLiteral("futures-password-1");

const QString kUnauthenticated = QStringLiteral("UNAUTHENTICATED");
const QString kDone = QStringLiteral("OK/ERROR_KIND_UNSPECIFIED");

// The calls the descriptor-walking test of quotesd checked only for their token.
const QStringList kNewerCalls = {QStringLiteral("ProbeSources"),  QStringLiteral("ProbeStatus"),
                                 QStringLiteral("ProbeHistory"),  QStringLiteral("SourceHistory"),
                                 QStringLiteral("RestoreSource"), QStringLiteral("BackupDatabase")};

}  // namespace

class TestForeignClient : public QObject {
    Q_OBJECT

    QuotesdProcess m_server;
    QTemporaryDir m_files;
    LoopbackListeners m_listeners;
    std::unique_ptr<CRemoteAdmin> m_admin;

    QString caFile() const { return m_files.filePath(QStringLiteral("ca.pem")); }

    // The foreign client's findings of one scenario; empty when it did not run.
    QJsonObject attack(const QString& scenario, const QStringList& arguments) const {
        QProcess python;
        // Debian's interpreter, where python3-grpcio and python3-grpc-tools are installed.
        python.start(QStringLiteral("/usr/bin/python3"),
                     QStringList{qEnvironmentVariable("QUOTES_SOURCE_DIR") +
                                     QStringLiteral("/tests/support/remote/foreign_client.py"),
                                 m_server.address(), caFile(), scenario} +
                         arguments);
        if (!python.waitForFinished(60000) || python.exitCode() != 0) {
            qWarning("foreign client failed: %s", python.readAllStandardError().constData());
            return QJsonObject();
        }
        const QByteArray out = python.readAllStandardOutput();
        qDebug("%s: %s", qPrintable(scenario), out.trimmed().constData());
        return QJsonDocument::fromJson(out).object();
    }

    // A stock source at 127.0.0.1:port, added by the administrator; its id (0 when refused).
    int addSource(int port) const {
        int id = 0;
        const utils::RKError error = addStockSource(*m_admin, "127.0.0.1", port, &id);
        if (!error.isSuccess())
            qWarning("add: %s", error.errorMsg().c_str());
        return id;
    }

    Hlx::CSourceHistory history(int id) const {
        Hlx::CSourceHistory read;
        const utils::RKError error = m_admin->sourceHistory(id, &read);
        if (!error.isSuccess())
            qWarning("history: %s", error.errorMsg().c_str());
        return read;
    }

    // The stored source with the id, as the administrator reads it; null when there is none.
    rkservice::COrinQuoterSourceInfoPtr stored(int id) const {
        rkservice::COrinQueryDataReq request;
        request.dataType = rkservice::kDataQuoteSources;
        std::vector<rkservice::IDataPtr> datas;
        m_admin->query(Hlx::CRequestTarget::centre(), request, &datas);
        for (const rkservice::IDataPtr& data : datas) {
            auto source = boost::dynamic_pointer_cast<rkservice::COrinQuoterSourceInfo>(data);
            if (source && source->m_nId == id)
                return source;
        }
        return nullptr;
    }

    long long newestAuditEntry() const {
        Hlx::CAuditFilter filter;
        filter.limit = 1;
        std::vector<Hlx::CAuditEntry> entries;
        m_admin->auditEntries(filter, &entries);
        return entries.empty() ? 0 : entries.front().id;
    }

    // The entries written after the one with the id.
    std::vector<Hlx::CAuditEntry> auditAfter(long long id) const {
        std::vector<Hlx::CAuditEntry> entries;
        m_admin->auditEntries(Hlx::CAuditFilter(), &entries);
        std::vector<Hlx::CAuditEntry> newer;
        for (const Hlx::CAuditEntry& entry : entries) {
            if (entry.id > id)
                newer.push_back(entry);
        }
        return newer;
    }

    QStringList backups() const {
        return QDir(m_server.dataDir())
            .entryList({QStringLiteral("backup-*")}, QDir::Files | QDir::Hidden);
    }

private slots:
    void initTestCase() {
        QString output;
        QVERIFY2(m_server.init(kAdminPassword, &output), qPrintable(output));
        QVERIFY(m_server.setPassword(QStringLiteral("viewer"), kViewerPassword));
        QVERIFY(m_server.setPassword(QStringLiteral("stock_op"), kStockPassword));
        QVERIFY(m_server.setPassword(QStringLiteral("futures_op"), kFuturesPassword));
        // Probes reach the test's loopback listeners; no timer probes behind the attacks' backs.
        QVERIFY2(m_server.start({QStringLiteral("--probe-allow"), QStringLiteral("127.0.0.0/8")}),
                 qPrintable(m_server.log()));
        QFile ca(caFile());
        QVERIFY(ca.open(QIODevice::WriteOnly));
        ca.write(m_server.certificatePem());
        ca.close();
        m_admin = loggedInTo(m_server, "admin", kAdminPassword);
    }

    void cleanupTestCase() {
        m_admin.reset();
        if (m_server.isRunning())
            QCOMPARE(m_server.stop(), 0);
    }

    // Without a valid login each call is refused before it runs: nothing probed, restored or
    // backed up, and nothing recorded but the refused session.
    void everyNewerCallNeedsALogin() {
        const int port = m_listeners.open();
        const int id = addSource(port);
        QVERIFY(id > 0);
        const Hlx::CSourceHistory before = history(id);
        QCOMPARE(int(before.entries.size()), 1);
        const long long lastEntry = newestAuditEntry();
        const QJsonObject found =
            attack(QStringLiteral("no-token"),
                   {QStringLiteral("id=%1").arg(id),
                    QStringLiteral("entry=%1").arg(before.entries.front().id),
                    QStringLiteral("user=viewer"), QStringLiteral("password=") + kViewerPassword});
        QStringList calls = kNewerCalls;
        calls.sort();
        QCOMPARE(found.keys(), calls);
        for (const QString& call : kNewerCalls) {
            const QJsonObject outcomes = found.value(call).toObject();
            QCOMPARE(outcomes.size(), 5);
            for (const QString& header : outcomes.keys())
                QVERIFY2(outcomes.value(header).toString() == kUnauthenticated,
                         qPrintable(call + QLatin1Char(' ') + header + QLatin1String(": ") +
                                    outcomes.value(header).toString()));
        }
        QCOMPARE(m_listeners.accepted(port), 0);
        QCOMPARE(backups(), QStringList());
        QCOMPARE(history(id).revision, before.revision);
        // The refusals are recorded as sessions refused (counted on one entry per address), and
        // nothing else is.
        const std::vector<Hlx::CAuditEntry> recorded = auditAfter(lastEntry);
        QVERIFY(std::any_of(recorded.begin(), recorded.end(),
                            [](const Hlx::CAuditEntry& entry) { return !entry.error.empty(); }));
        for (const Hlx::CAuditEntry& entry : recorded)
            QVERIFY2(entry.dataType == CAuditVocabulary::kSession,
                     (entry.action + " " + entry.dataType).c_str());
    }

    // A restore that sends the revision it read before another console changed the source is a
    // conflict, and the source keeps the other console's change.
    void aRestoreOfAStaleRecordIsAConflict() {
        const int id = addSource(m_listeners.closed());
        QVERIFY(id > 0);
        const int otherPort = m_listeners.closed();
        const QJsonObject found =
            attack(QStringLiteral("stale-restore"),
                   {QStringLiteral("user=stock_op"), QStringLiteral("password=") + kStockPassword,
                    QStringLiteral("id=%1").arg(id), QStringLiteral("port=%1").arg(otherPort)});
        QCOMPARE(found.value("modify").toString(), kDone);
        QCOMPARE(found.value("restore").toString(), QStringLiteral("OK/ERROR_KIND_CONFLICT"));
        const long long read = found.value("read_revision").toVariant().toLongLong();
        QCOMPARE(found.value("after_revision").toVariant().toLongLong(), read + 1);
        const auto source = stored(id);
        QVERIFY(source);
        QCOMPARE(source->m_nPort, otherPort);
        QCOMPARE(source->getRevision(), read + 1);
        // The add and the other console's modify; the refused restore changed nothing.
        QCOMPARE(found.value("after_entries").toInt(), 2);
    }

    // Restoring is a change: refused to an account without the modify right of the source's
    // kind, allowed to one with it. Reading the history and probing need only a login.
    void aRestoreNeedsTheRightToModify() {
        const int id = addSource(m_listeners.closed());
        QVERIFY(id > 0);
        const long long revision = history(id).revision;
        const auto as = [&](const QString& user, const QString& password) {
            return attack(QStringLiteral("rights"),
                          {QStringLiteral("user=") + user, QStringLiteral("password=") + password,
                           QStringLiteral("id=%1").arg(id)});
        };
        for (const auto& account :
             {std::make_pair(QStringLiteral("viewer"), kViewerPassword),
              std::make_pair(QStringLiteral("futures_op"), kFuturesPassword)}) {
            const QJsonObject found = as(account.first, account.second);
            QCOMPARE(found.value("restore").toString(), QStringLiteral("OK/ERROR_KIND_REFUSED"));
            QCOMPARE(found.value("backup").toString(), QStringLiteral("OK/ERROR_KIND_REFUSED"));
            QCOMPARE(found.value("history").toString(), kDone);
            QCOMPARE(found.value("probe").toString(), kDone);
            QCOMPARE(history(id).revision, revision);
        }
        QCOMPARE(backups(), QStringList());
        const QJsonObject allowed = as(QStringLiteral("stock_op"), kStockPassword);
        QCOMPARE(allowed.value("restore").toString(), kDone);
        QCOMPARE(history(id).revision, revision + 1);
    }

    // An account that may no longer read (disabled meanwhile) reads nothing with the token it
    // had: the server reads the account again on every call.
    void aLoginThatLostTheRightToReadReadsNothing() {
        const int id = addSource(m_listeners.closed());
        QVERIFY(id > 0);
        const QJsonObject found = attack(
            QStringLiteral("disabled"),
            {QStringLiteral("user=futures_op"), QStringLiteral("password=") + kFuturesPassword,
             QStringLiteral("admin=admin"), QStringLiteral("admin_password=") + kAdminPassword,
             QStringLiteral("id=%1").arg(id)});
        QCOMPARE(found.value("before").toString(), kDone);
        QCOMPARE(found.value("disable").toString(), kDone);
        QCOMPARE(found.value("history").toString(), kUnauthenticated);
        QCOMPARE(found.value("probe").toString(), kUnauthenticated);
        QCOMPARE(found.value("status").toString(), kUnauthenticated);
        QVERIFY(found.value("login").toString() != QLatin1String("OK"));
        QCOMPARE(found.value("enable").toString(), kDone);
    }

    // Hundreds of probes of one address from several channels of each login connect there once
    // per login; the answers come from the stored finding, and the server answers others
    // meanwhile.
    void aFloodOfProbesConnectsOncePerLogin() {
        const int port = m_listeners.open();
        const int id = addSource(port);
        QVERIFY(id > 0);
        const int logins = 2;
        const QJsonObject found =
            attack(QStringLiteral("flood"),
                   {QStringLiteral("user=viewer"), QStringLiteral("password=") + kViewerPassword,
                    QStringLiteral("id=%1").arg(id), QStringLiteral("calls=200"),
                    QStringLiteral("channels=4"), QStringLiteral("logins=%1").arg(logins)});
        const int calls = found.value("calls").toInt();
        QVERIFY(calls >= 200);
        QCOMPARE(found.value("answers").toObject().value(kDone).toInt(), calls);
        QCOMPARE(found.value("states").toObject().value("reachable").toInt(), calls);
        QVERIFY(found.value("answered_during").toBool());
        QCOMPARE(found.value("ping_failures").toArray().size(), 0);
        // The connects completed before their answers; the kernel's queue holds them.
        int connects = 0;
        QTRY_VERIFY_WITH_TIMEOUT((connects += m_listeners.accepted(port)) >= logins, 5000);
        QCOMPARE(connects + m_listeners.accepted(port), logins);
    }

    // Requests no console sends: refused with a clear status, and the server serves on.
    void oversizedAndAbsurdRequestsAreRefused() {
        const int port = m_listeners.open();
        const int id = addSource(port);
        QVERIFY(id > 0);
        const QJsonObject found =
            attack(QStringLiteral("oversized"),
                   {QStringLiteral("user=admin"), QStringLiteral("password=") + kAdminPassword,
                    QStringLiteral("id=%1").arg(id)});
        const std::map<QString, QString> expected = {
            // Beyond the ids a request may name, however few sources they are.
            {"probe_million_ids", "INVALID_ARGUMENT"},
            {"probe_million_same", "INVALID_ARGUMENT"},
            {"probe_negative_id", "OK/ERROR_KIND_NOT_FOUND"},
            // Ids that fit no source id are malformed; those that fit name no source.
            {"history_negative", "OK/ERROR_KIND_NOT_FOUND"},
            {"history_int31", "OK/ERROR_KIND_NOT_FOUND"},
            {"history_int63", "INVALID_ARGUMENT"},
            {"history_int63_min", "INVALID_ARGUMENT"},
            {"restore_negative_id", "OK/ERROR_KIND_NOT_FOUND"},
            {"restore_int31_id", "OK/ERROR_KIND_NOT_FOUND"},
            {"restore_int63_id", "INVALID_ARGUMENT"},
            {"restore_int63_entry", "OK/ERROR_KIND_NOT_FOUND"},
            {"restore_negative_entry", "OK/ERROR_KIND_NOT_FOUND"},
            // A revision never read is no revision; one never written is stale.
            {"restore_negative_revision", "OK/ERROR_KIND_INVALID"},
            {"restore_revision_int63", "OK/ERROR_KIND_CONFLICT"},
            // Texts of megabytes where a field holds a name or an address.
            {"status_huge_subsystem", "INVALID_ARGUMENT"},
            {"history_huge_address", "INVALID_ARGUMENT"},
            {"history_negative_port", "OK/ERROR_KIND_INVALID"},
            {"history_port_beyond", "OK/ERROR_KIND_INVALID"},
            {"over_message_limit", "RESOURCE_EXHAUSTED"},
        };
        for (const auto& [name, outcome] : expected)
            QVERIFY2(found.value(name).toObject().value("outcome").toString() == outcome,
                     qPrintable(name + QLatin1String(": ") +
                                found.value(name).toObject().value("outcome").toString()));
        QCOMPARE(m_listeners.accepted(port), 0);
        QCOMPARE(history(id).revision, 1LL);
        // Answered after all of them, to another client and to the attacker's own login.
        QCOMPARE(found.value("after").toObject().value("ping").toString(), kDone);
        QCOMPARE(found.value("after").toObject().value("history").toString(), kDone);
        QVERIFY(m_server.isRunning());
        Hlx::CServiceStatus status;
        QVERIFY(m_admin->status(&status).isSuccess());
    }
};

QTEST_GUILESS_MAIN(TestForeignClient)
#include "tst_foreign_client.moc"
