// On PostgreSQL, Qt's driver sends bound values as SQL text: a source password or the Level-2
// token must therefore leave the service sealed. Proof on a cluster of the test's own that logs
// every statement, and on its activity view sampled while the changes run.

#include <QSqlDatabase>
#include <QSqlQuery>
#include <QTemporaryDir>
#include <QtTest>
#include <atomic>
#include <boost/make_shared.hpp>
#include <mutex>
#include <thread>

#include "CCaller.h"
#include "CQuotesService.h"
#include "CServiceOptions.h"
#include "Hlx/CRequestTarget.h"
#include "OwnerCalls.h"
#include "PostgresCluster.h"
#include "rkservice/CLevel2Token.h"
#include "rkservice/COrinQuoterSourceInfo.h"
#include "rkservice/DataTypeIds.h"

namespace {

const std::string kMarker = "PgMarker-Pw-2d7e41";
const std::string kTokenMarker = "PgMarkerToken6a90";

// Reads pg_stat_activity over a connection of its own until stopped.
class ActivitySampler {
public:
    explicit ActivitySampler(const QString& url) : m_url(url) {
        m_thread = std::thread([this] { run(); });
    }
    ~ActivitySampler() { stop(); }

    void stop() {
        m_stop = true;
        if (m_thread.joinable())
            m_thread.join();
    }
    QStringList samples() {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_samples;
    }
    bool connected() const { return m_connected; }

private:
    void run() {
        const QString name = QStringLiteral("activity-sampler");
        {
            const QUrl url(m_url);
            QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QPSQL"), name);
            db.setDatabaseName(url.path().mid(1));
            db.setUserName(url.userName());
            const QUrlQuery query(url);
            db.setHostName(query.queryItemValue(QStringLiteral("host")));
            db.setPort(query.queryItemValue(QStringLiteral("port")).toInt());
            m_connected = db.open();
            QSqlQuery sample(db);
            while (m_connected && !m_stop) {
                if (!sample.exec(QStringLiteral(
                        "SELECT query FROM pg_stat_activity WHERE pid <> pg_backend_pid()")))
                    break;
                std::lock_guard<std::mutex> lock(m_mutex);
                while (sample.next())
                    m_samples << sample.value(0).toString();
            }
        }
        QSqlDatabase::removeDatabase(name);
    }

    QString m_url;
    std::atomic<bool> m_stop{false};
    std::atomic<bool> m_connected{false};
    std::mutex m_mutex;
    QStringList m_samples;
    std::thread m_thread;
};

}  // namespace

class TestPostgresSecrets : public QObject {
    Q_OBJECT

private:
    PostgresCluster m_cluster;
    QTemporaryDir m_dir;
    boost::shared_ptr<CQuotesService> m_service;

    utils::RKError operate(int dataType, int operateType, const rkservice::IDataPtr& record) {
        return OwnerCalls::operate(*m_service, dataType, operateType, record);
    }

    static rkservice::IDataPtr source(int port) {
        auto source = boost::make_shared<rkservice::COrinQuoterSourceInfo>();
        source->m_nPlatformId = 10000;
        source->m_nTradeType = 2;
        source->m_strAddress = "10.3.3.3";
        source->m_nPort = port;
        source->m_strUserName = "u";
        source->m_strPassword = kMarker;
        return source;
    }

private slots:
    void initTestCase() {
        m_cluster.setServerOptions(QStringLiteral("-c log_statement=all"));
        if (!m_cluster.startOrSkip())
            return;
        QVERIFY(m_cluster.createDatabase(QStringLiteral("quotes")));
        CServiceOptions options;
        options.dbUrl = m_cluster.url(QStringLiteral("quotes"));
        options.dataDir = m_dir.path();
        QString error;
        m_service = CQuotesService::open(options, &error);
        QVERIFY2(m_service, qPrintable(error));
    }

    void cleanupTestCase() { m_service.reset(); }

    // PostgreSQL has its own tools for a consistent copy: the service names them.
    void backupIsRefusedNamingPgDump() {
        std::string written;
        const utils::RKError error =
            m_service->backupDatabase(CCaller::owner(), Hlx::CBackupOptions(), &written);
        QVERIFY(!error.isSuccess());
        QVERIFY2(error.errorMsg().find("pg_dump") != std::string::npos, error.errorMsg().c_str());
        QVERIFY(written.empty());
    }

    void markerReachesNeitherTheLogNorTheActivityView() {
        ActivitySampler sampler(m_cluster.url(QStringLiteral("quotes")));
        QTRY_VERIFY(sampler.connected());
        // Adds until the sampler has seen an insert of the sources under way (it samples while
        // each change is in flight, so a loaded machine needs more of them).
        int added = 0;
        bool failed = false;
        const bool seen = QTest::qWaitFor(
            [&] {
                failed = !operate(rkservice::kDataQuoteSources, rkservice::kOperateAdd,
                                  source(7000 + added))
                              .isSuccess();
                if (failed)
                    return true;
                ++added;
                return added >= 40 &&
                       !sampler.samples().filter(QStringLiteral("kx_orin_quoter_source")).isEmpty();
            },
            60000);
        QVERIFY(!failed);
        QVERIFY(seen);
        auto token = boost::make_shared<rkservice::CLevel2Token>();
        token->token = kTokenMarker;
        QVERIFY(operate(rkservice::kDataLevel2Tokens, rkservice::kOperateAdd, token).isSuccess());
        sampler.stop();

        // The service still hands the plain password back to its callers.
        std::vector<rkservice::IDataPtr> datas;
        QVERIFY(OwnerCalls::query(*m_service, rkservice::kDataQuoteSources, &datas).isSuccess());
        QCOMPARE(int(datas.size()), added);
        QCOMPARE(static_cast<rkservice::COrinQuoterSourceInfo&>(*datas.front()).m_strPassword,
                 kMarker);

        const QStringList samples = sampler.samples();
        QVERIFY(!samples.filter(QStringLiteral("kx_orin_quoter_source")).isEmpty());
        QCOMPARE(samples.filter(QString::fromStdString(kMarker)), QStringList());
        QCOMPARE(samples.filter(QString::fromStdString(kTokenMarker)), QStringList());

        QFile log(m_cluster.logFile());
        QVERIFY(log.open(QIODevice::ReadOnly));
        const QByteArray logged = log.readAll();
        // The log holds the statements that carried the sealed values, and never the plain ones.
        QVERIFY(logged.contains("INSERT INTO kx_orin_quoter_source"));
        QVERIFY(logged.contains("sb1:"));
        QVERIFY(!logged.contains(QByteArray::fromStdString(kMarker)));
        QVERIFY(!logged.contains(QByteArray::fromStdString(kTokenMarker)));
    }
};

QTEST_GUILESS_MAIN(TestPostgresSecrets)
#include "tst_postgres_secrets.moc"
