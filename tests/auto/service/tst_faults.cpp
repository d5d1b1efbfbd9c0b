// A locked, full, damaged or unreachable database: every request is answered with a clear
// error, nothing crashes and nothing waits for ever.

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <QElapsedTimer>
#include <QSqlError>
#include <QSqlQuery>

#include "ServiceResults.h"
#include "ServiceTestUtil.h"

using namespace svctest;

namespace {

std::vector<rkservice::IDataPtr> manySources(int count, int offset = 0) {
    std::vector<rkservice::IDataPtr> batch;
    // Rows as large as the field limits allow, so that a few fill many pages.
    for (int i = offset; i < offset + count; ++i)
        batch.push_back(
            stockSource(10000, 2, "10.1." + std::to_string(i / 250) + "." + std::to_string(i % 250),
                        1000, std::string(64, 'u'), std::string(200, 'p')));
    return batch;
}

QString rawValue(const QString& file, const QString& sql) {
    QString value;
    {
        QSqlDatabase db =
            QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), QStringLiteral("probe"));
        db.setDatabaseName(file);
        if (db.open()) {
            QSqlQuery q(db);
            if (q.exec(sql) && q.next())
                value = q.value(0).toString();
        }
        db.close();
    }
    QSqlDatabase::removeDatabase(QStringLiteral("probe"));
    return value;
}

const uid_t kNobody = 65534;

// Opens the service in a child running as nobody: 0 opened, 1 refused with a text, 2 refused
// without one, 3 the child could not become nobody.
int openAsNobody(const CServiceOptions& options) {
    const pid_t child = ::fork();
    if (child == 0) {
        if (::setgid(kNobody) != 0 || ::setuid(kNobody) != 0)
            ::_exit(3);
        QString error;
        const bool opened = bool(CQuotesService::open(options, &error));
        ::_exit(opened ? 0 : error.isEmpty() ? 2 : 1);
    }
    int status = 0;
    if (child < 0 || ::waitpid(child, &status, 0) != child || !WIFEXITED(status))
        return -1;
    return WEXITSTATUS(status);
}

}  // namespace

class TestFaults : public QObject {
    Q_OBJECT

private:
    boost::shared_ptr<CQuotesService> open(const CServiceOptions& options) {
        QString error;
        auto service = CQuotesService::open(options, &error);
        if (!service)
            qWarning("open: %s", qPrintable(error));
        return service;
    }
    void install(const boost::shared_ptr<CQuotesService>& service) {
        Hlx::COrinClientCenter::instance()->setBackend(CEmbeddedBackends::backendAsOwner(service));
    }
    void uninstall() {
        QVERIFY(Hlx::COrinClientCenter::instance()->waitForIdle());
        Hlx::COrinClientCenter::instance()->setBackend(nullptr);
    }

private slots:
    void lockedDatabase() {
        QTemporaryDir dir;
        CServiceOptions options;
        options.dataDir = dir.path();
        options.busyTimeoutMs = 300;
        auto service = open(options);
        QVERIFY(service);
        install(service);
        QVERIFY(operate(rkservice::kDataQuoteSources, 2, manySources(1)).error.isSuccess());

        // Another program holds the write lock (WAL lets readers go on meanwhile).
        QSqlDatabase other =
            QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), QStringLiteral("other"));
        other.setDatabaseName(service->databaseFile());
        QVERIFY(other.open());
        {
            QSqlQuery q(other);
            QVERIFY2(q.exec(QStringLiteral("BEGIN IMMEDIATE")), qPrintable(q.lastError().text()));
            QVERIFY(
                q.exec(QStringLiteral("UPDATE meta SET val = val WHERE name = 'schema_version'")));
        }
        QElapsedTimer timer;
        timer.start();
        const OperateResult add = operate(rkservice::kDataQuoteSources, 2, manySources(1, 1));
        QVERIFY(!add.error.isSuccess());
        QVERIFY2(errorText(add.error).contains(QStringLiteral("锁定")),
                 add.error.errorMsg().c_str());
        // A database that does not answer is told apart from a refusal: a later try may work.
        QCOMPARE(add.error.kind(), utils::ErrorKind::Unavailable);
        auto tokenRecord = boost::make_shared<rkservice::CLevel2Token>();
        tokenRecord->token = "abc";
        const OperateResult token = operate(rkservice::kDataLevel2Tokens, 2, list({tokenRecord}));
        QVERIFY2(errorText(token.error).contains(QStringLiteral("锁定")),
                 token.error.errorMsg().c_str());
        QCOMPARE(service->setLoginTypeAuth(CCaller::owner(), 0, false).kind(),
                 utils::ErrorKind::Unavailable);
        QVERIFY(timer.elapsed() < 10000);
        const QueryResult read = query(rkservice::kDataQuoteSources, "");
        QVERIFY(read.error.isSuccess());
        QCOMPARE(int(read.datas.size()), 1);

        {
            QSqlQuery q(other);
            QVERIFY(q.exec(QStringLiteral("COMMIT")));
        }
        other.close();
        other = QSqlDatabase();
        QSqlDatabase::removeDatabase(QStringLiteral("other"));
        // Once the other program lets go, requests succeed again and nothing was half-done.
        QVERIFY(operate(rkservice::kDataQuoteSources, 2, manySources(1, 1)).error.isSuccess());
        QCOMPARE(int(query(rkservice::kDataQuoteSources, "").datas.size()), 2);
        uninstall();
    }

    void fullDatabase() {
        QTemporaryDir dir;
        CServiceOptions options;
        options.dataDir = dir.path();
        {
            auto service = open(options);
            QVERIFY(service);
        }
        const QString file = QDir(dir.path()).filePath(QStringLiteral("quotes.db"));
        const int pages = rawValue(file, QStringLiteral("PRAGMA page_count")).toInt();
        QVERIFY(pages > 0);
        options.maxPageCount = pages + 4;
        auto service = open(options);
        QVERIFY(service);
        install(service);
        const OperateResult big = operate(rkservice::kDataQuoteSources, 2, manySources(400));
        QVERIFY(!big.error.isSuccess());
        QVERIFY2(errorText(big.error).contains(QStringLiteral("空间已满")),
                 big.error.errorMsg().c_str());
        QCOMPARE(int(query(rkservice::kDataQuoteSources, "").datas.size()), 0);
        // Small changes still fit, and reads go on.
        QVERIFY(operate(rkservice::kDataQuoteSources, 2, manySources(1)).error.isSuccess());
        QVERIFY(service->checkIntegrity(CCaller::owner()).isSuccess());
        uninstall();
    }

    void damagedDatabase() {
        QTemporaryDir dir;
        CServiceOptions options;
        options.dataDir = dir.path();
        QString file;
        {
            // Without the audit trail, so the quote sources are the last thing written.
            CServiceOptions writing = options;
            writing.auditTrail = false;
            auto service = open(writing);
            QVERIFY(service);
            QVERIFY(service
                        ->operateSync(CCaller::owner(), Hlx::CRequestTarget::centre(),
                                      [] {
                                          rkservice::COperateDataReq r;
                                          r.dataType = rkservice::kDataQuoteSources;
                                          r.operateType = rkservice::kOperateAdd;
                                          r.datas = manySources(3000);
                                          return r;
                                      }())
                        .isSuccess());
            file = service->databaseFile();
        }
        QVERIFY(!QFile::exists(file + QStringLiteral("-wal")) ||
                QFileInfo(file + "-wal").size() == 0);
        // The quote sources were written last: damage the back half of the file.
        {
            QFile f(file);
            QVERIFY(f.open(QIODevice::ReadWrite));
            const qint64 size = f.size();
            f.seek(size / 2);
            f.write(QByteArray(int(size - size / 2), char(0xA5)));
        }
        QString error;
        auto service = CQuotesService::open(options, &error);
        if (!service) {
            QVERIFY2(error.contains(QStringLiteral("损坏")), qPrintable(error));
        } else {
            install(service);
            const QueryResult r = query(rkservice::kDataQuoteSources, "");
            QVERIFY(!r.error.isSuccess());
            QVERIFY2(errorText(r.error).contains(QStringLiteral("损坏")),
                     r.error.errorMsg().c_str());
            const OperateResult add =
                operate(rkservice::kDataQuoteSources, 2, manySources(5, 5000));
            QVERIFY(!add.error.isSuccess());
            QString integrity;
            integrity = failureOf(service->checkIntegrity(CCaller::owner()));
            QVERIFY(!integrity.isEmpty());
            uninstall();
        }

        // A file that is no database at all.
        {
            QFile f(file);
            QVERIFY(f.open(QIODevice::WriteOnly | QIODevice::Truncate));
            f.write(QByteArray(8192, 'x'));
        }
        QFile::remove(file + QStringLiteral("-wal"));
        QFile::remove(file + QStringLiteral("-shm"));
        QVERIFY(!CQuotesService::open(options, &error));
        QVERIFY2(error.contains(QStringLiteral("损坏")), qPrintable(error));
    }

    void unusablePaths() {
        QTemporaryDir dir;
        QString error;
        CServiceOptions options;
        // The database file's place is taken by a directory.
        QVERIFY(QDir(dir.path()).mkpath(QStringLiteral("a/quotes.db")));
        options.dataDir = dir.filePath(QStringLiteral("a"));
        QVERIFY(!CQuotesService::open(options, &error));
        QVERIFY2(error.contains(QStringLiteral("不是文件")), qPrintable(error));
        // The data directory is a file.
        QFile plain(dir.filePath(QStringLiteral("plain")));
        QVERIFY(plain.open(QIODevice::WriteOnly));
        plain.close();
        options.dataDir = dir.filePath(QStringLiteral("plain/sub"));
        QVERIFY(!CQuotesService::open(options, &error));
        QVERIFY2(error.contains(QStringLiteral("无法创建数据目录")), qPrintable(error));
        options.dataDir.clear();
        options.dbUrl = QStringLiteral("mysql://x/y");
        QVERIFY(!CQuotesService::open(options, &error));
        QVERIFY(error.contains(QStringLiteral("不支持的数据库地址")));
        // An unreadable database file: an ordinary user cannot open it, and says so. Root reads
        // everything, so under root the opening runs in a child that becomes nobody.
        options.dbUrl.clear();
        options.dataDir = dir.filePath(QStringLiteral("b"));
        { QVERIFY(CQuotesService::open(options, &error)); }
        const QString file = QDir(options.dataDir).filePath(QStringLiteral("quotes.db"));
        const QFileDevice::Permissions all = QFile::ReadOwner | QFile::WriteOwner |
                                             QFile::ReadGroup | QFile::WriteGroup |
                                             QFile::ReadOther | QFile::WriteOther;
        if (::geteuid() == 0) {
            // The directory is nobody's, the file root's: only the file's mode decides.
            QVERIFY(::chmod(QFile::encodeName(dir.path()).constData(), 0755) == 0);
            QVERIFY(::chown(QFile::encodeName(options.dataDir).constData(), kNobody, kNobody) == 0);
            // Nobody holds the key, so that only the database file's mode stands in the way.
            const QString key = QDir(options.dataDir).filePath(QStringLiteral("secrets.key"));
            QVERIFY(::chown(QFile::encodeName(key).constData(), kNobody, kNobody) == 0);
            QVERIFY(QFile::setPermissions(file, all));
            QCOMPARE(openAsNobody(options), 0);
        }
        QVERIFY(QFile::setPermissions(file, {}));
        if (::geteuid() == 0) {
            QCOMPARE(openAsNobody(options), 1);
        } else {
            QVERIFY(!CQuotesService::open(options, &error));
            QVERIFY(!error.isEmpty());
        }
    }

    void unreachableServer() {
        QTemporaryDir dir;
        CServiceOptions options;
        options.dbUrl =
            QStringLiteral("postgresql://nobody@/quotes?host=%1&port=1").arg(dir.path());
        QString error;
        QElapsedTimer timer;
        timer.start();
        QVERIFY(!CQuotesService::open(options, &error));
        QVERIFY2(error.contains(QStringLiteral("无法连接数据库服务器")), qPrintable(error));
        QVERIFY(timer.elapsed() < 10000);
        options.dbUrl = QStringLiteral("postgresql://nobody@localhost:1/");
        QVERIFY(!CQuotesService::open(options, &error));
        QVERIFY(error.contains(QStringLiteral("缺少数据库名")));
    }

    void noBackendAnswers() {
        Hlx::COrinClientCenter::instance()->setBackend(nullptr);
        const QueryResult r = query(rkservice::kDataQuoteSources, "");
        QVERIFY(!r.error.isSuccess());
        QVERIFY(!r.error.errorMsg().empty());
    }
};

QTEST_GUILESS_MAIN(TestFaults)
#include "tst_faults.moc"
