// The online copy of a live SQLite database and its restore: writers go on while the copy is
// made, the copy holds every change answered before it began, and a restore replaces nothing
// unless the copy and its key prove themselves and no program holds the database.

#include <sys/stat.h>

#include <QFile>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QTemporaryDir>
#include <QtTest>
#include <atomic>
#include <boost/make_shared.hpp>
#include <chrono>
#include <mutex>
#include <set>
#include <thread>
#include <vector>

#include "CCaller.h"
#include "CDatabase.h"
#include "CDatabaseBackup.h"
#include "CQuotesService.h"
#include "CSecretBox.h"
#include "CSecretKeyFile.h"
#include "HeldTransaction.h"
#include "OwnerCalls.h"
#include "QuotesctlRunner.h"
#include "rkservice/COrinQuoterSourceInfo.h"
#include "rkservice/DataTypeIds.h"

namespace {

using Clock = std::chrono::steady_clock;

rkservice::COrinQuoterSourceInfoPtr source(const std::string& user, int n) {
    auto s = boost::make_shared<rkservice::COrinQuoterSourceInfo>();
    s->m_nPlatformId = 10000;
    s->m_nTradeType = 2;
    s->m_strAddress = "10." + std::to_string(n / 62500 % 250) + "." +
                      std::to_string(n / 250 % 250) + "." + std::to_string(n % 250);
    s->m_nPort = 9000 + n / 15625000;
    s->m_strUserName = user;
    s->m_strPassword = "pw-" + user;
    s->m_strMarkets = "SH,SZ";
    return s;
}

utils::RKError add(CQuotesService& service, const std::vector<rkservice::IDataPtr>& sources) {
    rkservice::COperateDataReq request;
    request.dataType = rkservice::kDataQuoteSources;
    request.operateType = rkservice::kOperateAdd;
    request.datas = sources;
    return service.operateSync(CCaller::owner(), Hlx::CRequestTarget::subsystem("sys1"), request);
}

// The user names of the stored sources, passwords opened (so the key must fit).
std::set<std::string> storedUsers(CQuotesService& service, std::string* passwordOfFirst) {
    std::vector<rkservice::IDataPtr> datas;
    if (!OwnerCalls::query(service, rkservice::kDataQuoteSources, &datas).isSuccess())
        return {};
    std::set<std::string> users;
    for (const auto& data : datas) {
        const auto& s = static_cast<const rkservice::COrinQuoterSourceInfo&>(*data);
        users.insert(s.m_strUserName);
        if (passwordOfFirst && s.m_strUserName == "before-0")
            *passwordOfFirst = s.m_strPassword;
    }
    return users;
}

boost::shared_ptr<CQuotesService> openService(const QString& dir) {
    CServiceOptions options;
    options.dataDir = dir;
    QString error;
    auto service = CQuotesService::open(options, &error);
    if (!service)
        qWarning("%s", qPrintable(error));
    return service;
}

// Adds one source after another on a thread of its own, each its own request, and keeps when
// each was answered.
class Writer {
public:
    explicit Writer(CQuotesService& service) : m_thread([this, &service] { run(service); }) {}
    ~Writer() { stop(); }

    void stop() {
        m_stop = true;
        if (m_thread.joinable())
            m_thread.join();
    }
    int answered() const { return m_answered; }
    bool failed() const { return m_failed; }
    // The users of the sources answered before t, and how many were answered in [from, to].
    std::set<std::string> answeredBefore(Clock::time_point t) const {
        std::lock_guard<std::mutex> lock(m_mutex);
        std::set<std::string> users;
        for (const auto& done : m_done) {
            if (done.second < t)
                users.insert(done.first);
        }
        return users;
    }
    int answeredBetween(Clock::time_point from, Clock::time_point to) const {
        std::lock_guard<std::mutex> lock(m_mutex);
        int n = 0;
        for (const auto& done : m_done)
            n += done.second > from && done.second < to;
        return n;
    }

private:
    void run(CQuotesService& service) {
        for (int n = 0; !m_stop; ++n) {
            const std::string user = "writer-" + std::to_string(n);
            if (!add(service, {source(user, 900000 + n)}).isSuccess()) {
                m_failed = true;
                return;
            }
            std::lock_guard<std::mutex> lock(m_mutex);
            m_done.emplace_back(user, Clock::now());
            ++m_answered;
        }
    }

    std::atomic<bool> m_stop{false};
    std::atomic<bool> m_failed{false};
    std::atomic<int> m_answered{0};
    mutable std::mutex m_mutex;
    std::vector<std::pair<std::string, Clock::time_point>> m_done;
    std::thread m_thread;
};

}  // namespace

class TestBackup : public QObject {
    Q_OBJECT

private:
    std::unique_ptr<QTemporaryDir> m_live;
    std::unique_ptr<QTemporaryDir> m_elsewhere;

    QString livePath() const { return m_live->path(); }
    QString copyPath() const { return m_elsewhere->filePath(QStringLiteral("copy.db")); }
    QString liveKey() const { return CSecretKeyFile::defaultPath(livePath()); }

    // A database of `count` sources before-0.., copied to copyPath() by the service.
    bool makeCopy(int count) {
        auto service = openService(livePath());
        if (!service)
            return false;
        for (int from = 0; from < count; from += 1000) {
            std::vector<rkservice::IDataPtr> batch;
            for (int n = from; n < std::min(count, from + 1000); ++n)
                batch.push_back(source("before-" + std::to_string(n), n));
            if (!add(*service, batch).isSuccess())
                return false;
        }
        Hlx::CBackupOptions options;
        options.file = copyPath().toStdString();
        std::string written;
        return service->backupDatabase(CCaller::owner(), options, &written).isSuccess();
    }

    QuotesctlRunner::Result restore(const QString& dir, const QStringList& more = {}) {
        return QuotesctlRunner::run(
            QStringList{QStringLiteral("restore"), copyPath(), QStringLiteral("--data"), dir} +
            more);
    }

    static QByteArray fileBytes(const QString& path) {
        QFile file(path);
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }

    // Sets a value of the copy's meta table, as another program could.
    bool setMeta(const QString& path, const QString& name, const QString& value) {
        bool ok = false;
        {
            QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"),
                                                        QStringLiteral("tst-backup-meta"));
            db.setDatabaseName(path);
            QSqlQuery update(db);
            ok = db.open() &&
                 update.prepare(QStringLiteral("UPDATE meta SET val = ? WHERE name = ?"));
            update.addBindValue(value);
            update.addBindValue(name);
            ok = ok && update.exec() && update.numRowsAffected() == 1;
        }
        QSqlDatabase::removeDatabase(QStringLiteral("tst-backup-meta"));
        return ok;
    }

private slots:
    void init() {
        m_live.reset(new QTemporaryDir);
        m_elsewhere.reset(new QTemporaryDir);
    }

    void writersGoOnAndTheCopyHoldsEveryAnsweredChange() {
        auto service = openService(livePath());
        QVERIFY(service);
        // Big enough that the copy takes a while, so writers meet it.
        for (int from = 0; from < 40000; from += 1000) {
            std::vector<rkservice::IDataPtr> batch;
            for (int n = from; n < from + 1000; ++n)
                batch.push_back(source("before-" + std::to_string(n), n));
            QVERIFY(add(*service, batch).isSuccess());
        }
        Writer writer(*service);
        QTRY_VERIFY(writer.answered() >= 5 || writer.failed());
        const Clock::time_point began = Clock::now();
        Hlx::CBackupOptions options;
        options.file = copyPath().toStdString();
        std::string written;
        const utils::RKError error = service->backupDatabase(CCaller::owner(), options, &written);
        const Clock::time_point ended = Clock::now();
        // The writer answers at least once more after the copy, so a stop is never a lock wait.
        const int after = writer.answered();
        QTRY_VERIFY(writer.answered() > after || writer.failed());
        writer.stop();
        QVERIFY2(error.isSuccess(), error.errorMsg().c_str());
        QVERIFY(!writer.failed());
        QCOMPARE(QString::fromStdString(written), copyPath());
        QVERIFY2(writer.answeredBetween(began, ended) > 0,
                 "no write was answered while the copy was made");
        struct stat info {};
        QCOMPARE(::stat(QFile::encodeName(copyPath()).constData(), &info), 0);
        QCOMPARE(int(info.st_mode & 0777), 0600);
        const std::set<std::string> before = writer.answeredBefore(began);
        service.reset();

        QTemporaryDir restored;
        const auto r = QuotesctlRunner::run(
            {"restore", copyPath(), "--data", restored.path(), "--key", liveKey()});
        QVERIFY2(r.code == 0, r.err.constData());
        QVERIFY(r.out.contains("restored"));
        auto copy = openService(restored.path());
        QVERIFY(copy);
        std::string password;
        const std::set<std::string> users = storedUsers(*copy, &password);
        for (int n = 0; n < 40000; n += 997)
            QVERIFY(users.count("before-" + std::to_string(n)));
        QVERIFY(users.count("before-39999"));
        for (const std::string& user : before)
            QVERIFY2(users.count(user), user.c_str());
        QCOMPARE(password, std::string("pw-before-0"));
        std::vector<std::string> kept;
        QVERIFY(copy->checkIntegrity(CCaller::owner(), &kept).isSuccess());
    }

    // The copy needs no writer's lock: with a write transaction held open (and no busy wait at
    // all) it is made, of what was committed.
    void copyNeverWaitsForAWriter() {
        CServiceOptions options;
        options.dataDir = livePath();
        options.busyTimeoutMs = 0;
        QString error;
        auto service = CQuotesService::open(options, &error);
        QVERIFY2(service, qPrintable(error));
        QVERIFY(add(*service, {source("committed", 1)}).isSuccess());
        HeldTransaction held(
            service->database(),
            [](QSqlDatabase& db) {
                QSqlQuery(db).exec(QStringLiteral("UPDATE kx_orin_quoter_source SET port = 1"));
            },
            HeldTransaction::Queue::Alone);
        QVERIFY(held.isHolding());
        try {
            QSqlDatabase db = service->database().connection();
            CDatabaseBackup::write(service->database(), db, copyPath());
        } catch (const CServiceError& e) {
            QFAIL(e.what());
        }
        QVERIFY(held.release());
        service.reset();
        QSqlDatabase copy =
            QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), QStringLiteral("tst-copy"));
        copy.setDatabaseName(copyPath());
        QVERIFY(copy.open());
        QSqlQuery ports(copy);
        QVERIFY(ports.exec(QStringLiteral("SELECT port FROM kx_orin_quoter_source")));
        QVERIFY(ports.next());
        QCOMPARE(ports.value(0).toInt(), 9000);
        ports.finish();
        copy.close();
        copy = QSqlDatabase();
        QSqlDatabase::removeDatabase(QStringLiteral("tst-copy"));
    }

    void backupIsRecordedAndLandsInTheDataDirectoryByDefault() {
        auto service = openService(livePath());
        QVERIFY(service);
        std::string written;
        QVERIFY(service->backupDatabase(CCaller::owner(), {}, &written).isSuccess());
        const QFileInfo file(QString::fromStdString(written));
        QCOMPARE(file.absolutePath(), QFileInfo(livePath()).absoluteFilePath());
        QVERIFY(file.fileName().startsWith(QLatin1String("backup-")));
        Hlx::CAuditFilter filter;
        filter.action = "backup";
        std::vector<Hlx::CAuditEntry> entries;
        QVERIFY(service->auditEntries(CCaller::owner(), filter, &entries).isSuccess());
        QCOMPARE(int(entries.size()), 1);
    }

    void backupNeedsTheAdministratorRight() {
        auto service = openService(livePath());
        QVERIFY(service);
        std::string written;
        const utils::RKError error = service->backupDatabase(CCaller::user("op", {90001}),
                                                             {copyPath().toStdString()}, &written);
        QVERIFY(!error.isSuccess());
        QVERIFY(!QFile::exists(copyPath()));
    }

    void restoreReplacesTheDatabaseAndKeepsTheOldOne() {
        QVERIFY(makeCopy(10));
        {
            auto service = openService(livePath());
            QVERIFY(add(*service, {source("after-copy", 777)}).isSuccess());
        }
        const auto r = restore(livePath());
        QVERIFY2(r.code == 0, r.err.constData());
        QVERIFY(r.out.contains("previous "));
        auto service = openService(livePath());
        QVERIFY(service);
        const std::set<std::string> users = storedUsers(*service, nullptr);
        QVERIFY(users.count("before-9"));
        QVERIFY(!users.count("after-copy"));
        const QStringList kept =
            QDir(livePath()).entryList({QStringLiteral("quotes-before-restore-*.db")});
        QCOMPARE(kept.size(), 1);
    }

    void restoreRefusedWhileAProgramHoldsTheDatabase() {
        QVERIFY(makeCopy(10));
        auto service = openService(livePath());
        QVERIFY(add(*service, {source("after-copy", 777)}).isSuccess());
        const auto r = restore(livePath());
        QCOMPARE(r.code, 3);
        QVERIFY2(r.err.contains("数据库正被使用"), r.err.constData());
        // Nothing replaced: the holder still sees its own change and writes on.
        QVERIFY(storedUsers(*service, nullptr).count("after-copy"));
        QVERIFY(add(*service, {source("after-refusal", 778)}).isSuccess());
        QVERIFY(
            QDir(livePath()).entryList({QStringLiteral("quotes-before-restore-*.db")}).isEmpty());
        QVERIFY(QDir(livePath()).entryList({QStringLiteral("restore-*")}).isEmpty());
    }

    void restoreRefusesAnotherKey() {
        QVERIFY(makeCopy(3));
        const QString other = m_elsewhere->filePath(QStringLiteral("other.key"));
        CSecretKeyFile::write(other, CSecretBox::generate());
        const QByteArray database = fileBytes(QDir(livePath()).filePath("quotes.db"));
        const QByteArray key = fileBytes(liveKey());
        const auto r = restore(livePath(), {QStringLiteral("--key"), other});
        QCOMPARE(r.code, 1);
        QVERIFY2(r.err.contains("密钥与备份不符"), r.err.constData());
        QCOMPARE(fileBytes(QDir(livePath()).filePath("quotes.db")), database);
        QCOMPARE(fileBytes(liveKey()), key);
    }

    void restoreInstallsTheKeyItWasGiven() {
        QVERIFY(makeCopy(3));
        QTemporaryDir fresh;
        const auto r = QuotesctlRunner::run(
            {"restore", copyPath(), "--data", fresh.path(), "--key", liveKey()});
        QVERIFY2(r.code == 0, r.err.constData());
        QCOMPARE(fileBytes(CSecretKeyFile::defaultPath(fresh.path())), fileBytes(liveKey()));
        auto service = openService(fresh.path());
        std::string password;
        QVERIFY(storedUsers(*service, &password).count("before-2"));
        QCOMPARE(password, std::string("pw-before-0"));
    }

    void restoreRefusesADamagedCopy() {
        QVERIFY(makeCopy(2000));
        QFile copy(copyPath());
        QVERIFY(copy.open(QIODevice::ReadWrite));
        // Inside the pages of the sources' table, past the header SQLite checks on opening.
        copy.seek(copy.size() / 2);
        copy.write(QByteArray(8192, '\x5a'));
        copy.close();
        const QByteArray database = fileBytes(QDir(livePath()).filePath("quotes.db"));
        const auto r = restore(livePath());
        QCOMPARE(r.code, 1);
        QVERIFY2(r.err.contains("未恢复"), r.err.constData());
        QCOMPARE(fileBytes(QDir(livePath()).filePath("quotes.db")), database);
    }

    void restoreRefusesANewerSchema() {
        QVERIFY(makeCopy(1));
        QVERIFY(setMeta(copyPath(), QStringLiteral("schema_version"), QStringLiteral("999")));
        const auto r = restore(livePath());
        QCOMPARE(r.code, 1);
        QVERIFY2(r.err.contains("999"), r.err.constData());
    }

    void restoreRefusesWhatIsNoDatabase() {
        QFile copy(copyPath());
        QVERIFY(copy.open(QIODevice::WriteOnly));
        copy.write(QByteArray(4096, 'x'));
        copy.close();
        QVERIFY(openService(livePath()));
        const auto r = restore(livePath());
        QCOMPARE(r.code, 1);
        QVERIFY2(r.err.contains("未恢复"), r.err.constData());
    }

    void restoreCommandLine() {
        QVERIFY(makeCopy(1));
        auto r = QuotesctlRunner::run({"--db", "postgresql://u@/db", "restore", copyPath()});
        QCOMPARE(r.code, 2);
        QVERIFY(r.err.contains("pg_restore"));
        r = QuotesctlRunner::run({"--server", "127.0.0.1:1", "restore", copyPath()});
        QCOMPARE(r.code, 2);
        r = QuotesctlRunner::run({"restore", "-", "--data", livePath()});
        QCOMPARE(r.code, 2);
        r = QuotesctlRunner::run({"--server", "127.0.0.1:1", "--login", "admin",
                                  "--login-password-file", "/dev/null", "backup", "--output",
                                  copyPath()});
        QCOMPARE(r.code, 2);
        QVERIFY(r.err.contains("own data directory"));
        // The global --data names the directory too.
        r = QuotesctlRunner::run({"--data", livePath(), "restore", copyPath()});
        QVERIFY2(r.code == 0, r.err.constData());
    }

    void backupOnTheCommandLine() {
        QVERIFY(openService(livePath()));
        const auto r =
            QuotesctlRunner::run({"--data", livePath(), "backup", "--output", copyPath()});
        QVERIFY2(r.code == 0, r.err.constData());
        QCOMPARE(r.out, QByteArray("backup ") + copyPath().toUtf8() + '\n');
        QVERIFY(QFile::exists(copyPath()));
    }
};

QTEST_GUILESS_MAIN(TestBackup)
#include "tst_backup.moc"
