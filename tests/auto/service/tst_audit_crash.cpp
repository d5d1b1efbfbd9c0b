// The audit trail survives a writer killed at any moment: after each SIGKILL the database holds
// exactly the changes its entries describe. A process makes the changes through the data
// service; the test kills it after a random number of them (seeded, printed) and checks.

#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>
#include <map>
#include <random>

#include "CQuotesService.h"
#include "OwnerCalls.h"
#include "ServiceResults.h"
#include "rkservice/DataTypeIds.h"

namespace {

constexpr int kRounds = 5;
constexpr int kChangesPerRound = 300;
// Kills come no later than this, so that the writer is still running when the kill arrives.
constexpr int kLatestTarget = 270;
constexpr unsigned kDefaultSeed = 20240614;
constexpr int kWriterMs = 60000;

using Fields = QJsonObject;
using State = std::map<QString, Fields>;

// The fields the trail's details hold that the check compares with the stored row.
Fields storedFields(const rkservice::COrinQuoterSourceInfo& source) {
    return Fields{{QStringLiteral("address"), QString::fromStdString(source.m_strAddress)},
                  {QStringLiteral("port"), source.m_nPort},
                  {QStringLiteral("user_name"), QString::fromStdString(source.m_strUserName)},
                  {QStringLiteral("platform_id"), source.m_nPlatformId},
                  {QStringLiteral("trade_type"), source.m_nTradeType}};
}

Fields comparedPart(const Fields& detail) {
    Fields part;
    for (const QString& key : storedFields(rkservice::COrinQuoterSourceInfo()).keys())
        part.insert(key, detail.value(key));
    return part;
}

}  // namespace

class TestAuditCrash : public QObject {
    Q_OBJECT

    unsigned m_seed = kDefaultSeed;
    QTemporaryDir m_dir;
    QString m_writer;

    boost::shared_ptr<CQuotesService> openService() {
        CServiceOptions options;
        options.dataDir = m_dir.path();
        QString error;
        const boost::shared_ptr<CQuotesService> service = CQuotesService::open(options, &error);
        if (!service)
            qWarning("%s", qPrintable(error));
        return service;
    }

    // Runs the writer until it has reported `target` changes, then kills it; how many it
    // reported (a change it made after its last line may exist too), -1 when it ended before.
    int runAndKill(unsigned writerSeed, int target) {
        QProcess writer;
        writer.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        writer.start(m_writer, {m_dir.path(), QString::number(writerSeed),
                                QString::number(kChangesPerRound)});
        if (!writer.waitForStarted())
            return -1;
        int reported = 0;
        const bool ended = QTest::qWaitFor(
            [&] {
                while (writer.canReadLine()) {
                    writer.readLine();
                    ++reported;
                }
                return reported >= target || writer.state() == QProcess::NotRunning;
            },
            kWriterMs);
        if (!ended)
            qWarning("the writer reported %d changes in %d ms", reported, kWriterMs);
        writer.kill();
        writer.waitForFinished();
        // Lines written before the kill but not yet read count too.
        reported += writer.readAllStandardOutput().count('\n');
        return writer.exitStatus() == QProcess::CrashExit ? reported : -1;
    }

    // Replays the successful quote-source entries, oldest first, checking that each follows
    // from the state before it; the sources the trail says exist.
    static bool replay(const std::vector<Hlx::CAuditEntry>& newestFirst, State* state) {
        for (auto entry = newestFirst.rbegin(); entry != newestFirst.rend(); ++entry) {
            if (!entry->error.empty() || entry->dataType != "quote_source")
                continue;
            for (const Hlx::CAuditEntry::Detail& detail : entry->details) {
                const QString id = QString::fromStdString(detail.recordId);
                const bool present = state->count(id) > 0;
                if (present != !detail.before.isEmpty() ||
                    (present && state->at(id) != comparedPart(detail.before))) {
                    qWarning("entry %lld (%s of %s) does not follow from the entries before it",
                             entry->id, entry->action.c_str(), qPrintable(id));
                    return false;
                }
                if (detail.after.isEmpty())
                    state->erase(id);
                else
                    (*state)[id] = comparedPart(detail.after);
            }
        }
        return true;
    }

    static State stored(CQuotesService& service) {
        std::vector<rkservice::IDataPtr> datas;
        OwnerCalls::query(service, rkservice::kDataQuoteSources, &datas);
        State state;
        for (const rkservice::IDataPtr& data : datas) {
            if (auto* source = dynamic_cast<rkservice::COrinQuoterSourceInfo*>(data.get()))
                state[QString::number(source->m_nId)] = storedFields(*source);
        }
        return state;
    }

    static std::vector<Hlx::CAuditEntry> trail(CQuotesService& service) {
        Hlx::CAuditFilter everything;
        everything.limit = 1000000;
        std::vector<Hlx::CAuditEntry> entries;
        QString error;
        error = failureOf(service.auditEntries(CCaller::owner(), everything, &entries));
        if (!error.isEmpty())
            qWarning("%s", qPrintable(error));
        return entries;
    }

private slots:
    void initTestCase() {
        const QByteArray seed = qgetenv("QUOTES_CRASH_SEED");
        if (!seed.isEmpty())
            m_seed = seed.toUInt();
        qInfo("seed %u (QUOTES_CRASH_SEED=%u repeats this run)", m_seed, m_seed);
        m_writer =
            qEnvironmentVariable("QUOTES_BINARY_DIR") + QStringLiteral("/bin/audit-crash-writer");
        QVERIFY2(QFile::exists(m_writer), qPrintable(m_writer));
        QVERIFY(m_dir.isValid());
        // The database and its key exist before the first writer runs.
        QVERIFY(openService());
        QVERIFY(trail(*openService()).empty());
    }

    void everyChangeHasItsEntryAfterEachKill() {
        std::mt19937 random(m_seed);
        int reported = 0;
        for (int round = 1; round <= kRounds; ++round) {
            const int target = 1 + int(random() % kLatestTarget);
            const int made = runAndKill(m_seed + round, target);
            QVERIFY2(made >= target,
                     qPrintable(QStringLiteral("round %1: the writer was not killed after %2 "
                                               "changes (reported %3)")
                                    .arg(round)
                                    .arg(target)
                                    .arg(made)));
            reported += made;
            const boost::shared_ptr<CQuotesService> service = openService();
            QVERIFY(service);
            const std::vector<Hlx::CAuditEntry> entries = trail(*service);
            // Each reported change wrote its entry; at most one more per kill, the change the
            // writer made but had no time to report.
            QVERIFY2(int(entries.size()) >= reported && int(entries.size()) <= reported + round,
                     qPrintable(QStringLiteral("round %1: %2 entries for %3 reported changes")
                                    .arg(round)
                                    .arg(entries.size())
                                    .arg(reported)));
            State described;
            QVERIFY2(replay(entries, &described), qPrintable(QString::number(round)));
            const State actual = stored(*service);
            QCOMPARE(int(actual.size()), int(described.size()));
            for (const auto& source : actual) {
                QVERIFY2(described.count(source.first),
                         qPrintable(QStringLiteral("source %1 has no entry").arg(source.first)));
                QCOMPARE(source.second, described.at(source.first));
            }
            qInfo("round %d: killed after %d changes, %d sources, %d entries", round, made,
                  int(actual.size()), int(entries.size()));
        }
    }
};

QTEST_GUILESS_MAIN(TestAuditCrash)
#include "tst_audit_crash.moc"
