// quotesctl end to end: every command, exit codes, JSON output, and the export/import round trip.

#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QtTest>

#include "CImportBackups.h"
#include "CQuotesService.h"
#include "CSecretKeyFile.h"
#include "Hlx/QuotesVersion.h"
#include "QuotesctlRun.h"
#include "SampleData.h"

class TestQuotesctl : public QObject {
    Q_OBJECT

private:
    QString m_program;
    QTemporaryDir* m_dir = nullptr;

    using Run = QuotesctlRun;

    Run run(const QStringList& arguments, const QByteArray& input = QByteArray(),
            const QString& dataDir = QString()) {
        QStringList all = {QStringLiteral("--data"), dataDir.isEmpty() ? m_dir->path() : dataDir};
        return Run::start(m_program, all + arguments, input);
    }

    // The database quotesctl finds, made first with the sample brokers the test's sources name.
    bool withSampleBrokers() {
        QString error;
        if (CQuotesService::open(SampleData::inDirectory(m_dir->path()), &error))
            return true;
        qWarning("open: %s", qPrintable(error));
        return false;
    }

    static bool oneLine(const QByteArray& text) {
        return text.endsWith('\n') && text.count('\n') == 1 && text.startsWith("quotesctl: ");
    }

private slots:
    void initTestCase() {
        m_program = qEnvironmentVariable("QUOTES_BINARY_DIR") + QStringLiteral("/bin/quotesctl");
        if (!QFileInfo::exists(m_program))
            m_program = QCoreApplication::applicationDirPath() + QStringLiteral("/quotesctl");
        QVERIFY2(QFileInfo(m_program).isExecutable(), qPrintable(m_program));
    }
    void init() { m_dir = new QTemporaryDir; }
    void cleanup() { delete m_dir; }

    void help() {
        QProcess process;
        process.start(m_program, {QStringLiteral("--help")});
        QVERIFY(process.waitForFinished());
        QCOMPARE(process.exitCode(), 0);
        const QString text = QString::fromUtf8(process.readAllStandardOutput());
        for (const char* command :
             {"sources list", "sources add", "sources modify", "sources delete", "brokers list",
              "platforms list", "token show", "token set", "token delete", "subsystems list",
              "users list", "export", "import", "integrity", "--data", "--db", "Exit codes"})
            QVERIFY2(text.contains(QLatin1String(command)), command);
    }

    void sourcesLifecycle() {
        QVERIFY(withSampleBrokers());
        Run r = run({"sources", "add", "--platform", "10000", "--trade-type", "2", "--address",
                     "10.0.0.1", "--port", "9000", "--user", "u", "--password", "secret",
                     "--markets", "SH,SZ"});
        QCOMPARE(r.code, 0);
        const int first = r.out.trimmed().toInt();
        QVERIFY(first > 0);
        r = run({"sources", "add", "--platform", "20000", "--trade-type", "1", "--broker", "8060",
                 "--server-group", "2", "--subsystem", "sys2"});
        QCOMPARE(r.code, 0);
        const int second = r.out.trimmed().toInt();

        r = run({"sources", "list", "--json"});
        QCOMPARE(r.code, 0);
        QJsonArray list = QJsonDocument::fromJson(r.out).array();
        QCOMPARE(list.size(), 2);
        QJsonObject a = list[0].toObject();
        QCOMPARE(a.value("id").toInt(), first);
        QCOMPARE(a.value("subsystem").toString(), QStringLiteral("sys1"));
        QCOMPARE(a.value("address").toString(), QStringLiteral("10.0.0.1"));
        QCOMPARE(a.value("password").toString(), QStringLiteral("secret"));
        QCOMPARE(a.value("markets").toString(), QStringLiteral("SH,SZ"));
        QCOMPARE(a.value("brokerId").toInt(), 2147483647);
        QCOMPARE(list[1].toObject().value("subsystem").toString(), QStringLiteral("sys2"));
        QCOMPARE(list[1].toObject().value("serverGroupId").toInt(), 2);

        r = run({"sources", "list", "--trade-type", "1", "--json"});
        QCOMPARE(QJsonDocument::fromJson(r.out).array().size(), 1);
        r = run({"sources", "list", "--subsystem", "sys1", "--json"});
        QCOMPARE(QJsonDocument::fromJson(r.out).array().size(), 1);
        r = run({"sources", "list"});
        QCOMPARE(r.code, 0);
        QVERIFY(r.out.startsWith("ID"));
        QVERIFY(r.out.contains("10.0.0.1"));
        QVERIFY(!r.out.contains("secret"));

        r = run({"sources", "modify", QString::number(first), "--port", "9100", "--user", "v"});
        QCOMPARE(r.code, 0);
        r = run({"sources", "list", "--subsystem", "sys1", "--json"});
        a = QJsonDocument::fromJson(r.out).array()[0].toObject();
        QCOMPARE(a.value("port").toInt(), 9100);
        QCOMPARE(a.value("userName").toString(), QStringLiteral("v"));
        QCOMPARE(a.value("password").toString(), QStringLiteral("secret"));

        // Refusals of the service: exit code 1 and its message, on one line.
        r = run({"sources", "add", "--platform", "10000", "--trade-type", "2", "--address",
                 "10.0.0.1", "--port", "9100"});
        QCOMPARE(r.code, 1);
        QVERIFY(oneLine(r.err));
        QVERIFY(QString::fromUtf8(r.err).contains(QStringLiteral("行情源已存在")));
        r = run({"sources", "add", "--platform", "10000", "--trade-type", "2", "--address",
                 "10.0.0.300", "--port", "1"});
        QCOMPARE(r.code, 1);
        QVERIFY(QString::fromUtf8(r.err).contains(QStringLiteral("服务器地址格式错误")));
        r = run({"sources", "modify", "424242", "--port", "1"});
        QCOMPARE(r.code, 1);
        r = run({"sources", "delete", QString::number(first), "424242"});
        QCOMPARE(r.code, 1);
        QVERIFY(oneLine(r.err));

        r = run({"sources", "delete", QString::number(first), QString::number(second)});
        QCOMPARE(r.code, 0);
        r = run({"sources", "list", "--json"});
        QCOMPARE(QJsonDocument::fromJson(r.out).array().size(), 0);
    }

    void referenceTokenUsersSubsystems() {
        QVERIFY(withSampleBrokers());
        Run r = run({"brokers", "list", "--trade-type", "1", "--json"});
        QCOMPARE(r.code, 0);
        const QJsonArray brokers = QJsonDocument::fromJson(r.out).array();
        QVERIFY(brokers.size() >= 6);
        QVERIFY(brokers[0].toObject().value("brokerKey").toString().contains('_'));
        QVERIFY(brokers[0].toObject().value("serverGroups").toArray().size() >= 2);
        r = run({"brokers", "list"});
        QCOMPARE(r.code, 0);
        QVERIFY(r.out.startsWith("PLATFORM"));
        r = run({"platforms", "list", "--trade-type", "5", "--json"});
        QCOMPARE(QJsonDocument::fromJson(r.out).array().size(), 2);

        r = run({"token", "show"});
        QCOMPARE(r.code, 0);
        QVERIFY(r.out.isEmpty());
        QCOMPARE(run({"token", "set", "abc123"}).code, 0);
        QCOMPARE(run({"token", "show"}).out, QByteArray("abc123\n"));
        QCOMPARE(run({"token", "set", "xyz789"}).code, 0);
        r = run({"token", "show", "--json"});
        QCOMPARE(QJsonDocument::fromJson(r.out).object().value("token").toString(),
                 QStringLiteral("xyz789"));
        r = run({"token", "set", "-"}, "bad-token\n");
        QCOMPARE(r.code, 1);
        QVERIFY(oneLine(r.err));
        QCOMPARE(run({"token", "delete"}).code, 0);
        QCOMPARE(run({"token", "delete"}).code, 1);
        r = run({"token", "show", "--json"});
        QVERIFY(QJsonDocument::fromJson(r.out).object().value("token").isNull());

        r = run({"users", "list", "--json"});
        QCOMPARE(r.code, 0);
        QStringList names;
        for (const QJsonValue& user : QJsonDocument::fromJson(r.out).array())
            names << user.toObject().value("name").toString();
        QVERIFY(names.contains("admin") && names.contains("futures_op") &&
                names.contains("viewer"));
        r = run({"subsystems", "list", "--json"});
        QCOMPARE(
            QJsonDocument::fromJson(r.out).array()[1].toObject().value("displayName").toString(),
            QStringLiteral("深圳备站"));
        QCOMPARE(run({"integrity"}).out, QByteArray("ok\n"));
    }

    void exportImportRoundTrip() {
        QVERIFY(withSampleBrokers());
        QCOMPARE(run({"sources", "add", "--platform", "10001", "--trade-type", "6", "--address",
                      "fe80::1", "--port", "8000", "--user", "用户", "--password", "p\"w\\d"})
                     .code,
                 0);
        QCOMPARE(run({"sources", "add", "--platform", "70001", "--trade-type", "5", "--broker",
                      "8100", "--server-group", "1", "--subsystem", "sys2"})
                     .code,
                 0);
        QCOMPARE(run({"sources", "delete", "1"}).code, 0);
        QCOMPARE(run({"sources", "add", "--platform", "10000", "--trade-type", "2", "--address",
                      "10.0.0.7", "--port", "1"})
                     .code,
                 0);
        QCOMPARE(run({"token", "set", "TOKEN42"}).code, 0);
        const Run exported = run({"export"});
        QCOMPARE(exported.code, 0);
        const QJsonObject document = QJsonDocument::fromJson(exported.out).object();
        QCOMPARE(document.value("sources").toArray().size(), 2);
        QCOMPARE(document.value("sources").toArray()[0].toObject().value("id").toInt(), 2);

        // Into a fresh data directory, through standard input and from a file.
        QTemporaryDir other;
        QCOMPARE(run({"import", "-"}, exported.out, other.path()).code, 0);
        const Run again = run({"export"}, QByteArray(), other.path());
        QCOMPARE(again.out, exported.out);
        QTemporaryDir third;
        QFile file(third.filePath("dump.json"));
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(exported.out);
        file.close();
        QTemporaryDir fourth;
        QCOMPARE(run({"import", file.fileName()}, QByteArray(), fourth.path()).code, 0);
        QCOMPARE(run({"export"}, QByteArray(), fourth.path()).out, exported.out);
        // New ids continue after the imported ones.
        const Run added = run({"sources", "add", "--platform", "10000", "--trade-type", "2",
                               "--address", "10.0.0.8", "--port", "1"},
                              QByteArray(), fourth.path());
        QCOMPARE(added.out.trimmed().toInt(), 4);

        // A document with one bad source changes nothing.
        QJsonObject broken = document;
        QJsonArray sources = broken.value("sources").toArray();
        QJsonObject bad = sources[1].toObject();
        QCOMPARE(bad.value("address").toString(), QStringLiteral("10.0.0.7"));
        bad.insert("port", 70000);
        bad.insert("id", 99);
        sources.append(bad);
        broken.insert("sources", sources);
        const Run refused = run({"import", "-"}, QJsonDocument(broken).toJson(), fourth.path());
        QCOMPARE(refused.code, 1);
        QVERIFY(oneLine(refused.err));
        QVERIFY2(QString::fromUtf8(refused.err).contains(QStringLiteral("端口")),
                 refused.err.constData());
        const QJsonObject after =
            QJsonDocument::fromJson(run({"export"}, QByteArray(), fourth.path()).out).object();
        QCOMPARE(after.value("sources").toArray().size(), 3);

        for (const QByteArray& junk :
             {QByteArray("not json"), QByteArray("{}"), QByteArray("[1,2]")}) {
            const Run r = run({"import", "-"}, junk, fourth.path());
            QCOMPARE(r.code, 1);
            QVERIFY(oneLine(r.err));
        }
        QCOMPARE(run({"import", third.filePath("missing.json")}, QByteArray(), fourth.path()).code,
                 1);
    }

    void exportWritesWholePrivateFilesOrFails() {
        const Run reference = run({"export"});
        QCOMPARE(reference.code, 0);
        const QString target = m_dir->filePath("backup.json");
        const Run written = run({"export", "--output", target});
        QCOMPARE(written.code, 0);
        QFile file(target);
        QVERIFY(file.open(QIODevice::ReadOnly));
        QCOMPARE(file.readAll(), reference.out);
        QCOMPARE(int(file.permissions() & 0x7077), int(QFile::ReadOwner | QFile::WriteOwner));
        // A directory that does not exist: a refusal, and nothing half-written anywhere.
        const QStringList before = QDir(m_dir->path()).entryList(QDir::Files | QDir::Hidden);
        const Run failed = run({"export", "--output", m_dir->filePath("no/such/dir/x.json")});
        QCOMPARE(failed.code, 1);
        QVERIFY(oneLine(failed.err));
        QCOMPARE(QDir(m_dir->path()).entryList(QDir::Files | QDir::Hidden), before);
        // A full disk on standard output is a failure too.
        QProcess full;
        full.setStandardOutputFile(QStringLiteral("/dev/full"));
        full.start(m_program, {"--data", m_dir->path(), "export"});
        QVERIFY(full.waitForFinished(60000));
        QCOMPARE(full.exitCode(), 1);
    }

    void importDryRunAndBackup() {
        QCOMPARE(run({"sources", "add", "--platform", "10000", "--trade-type", "2", "--address",
                      "10.0.0.7", "--port", "1"})
                     .code,
                 0);
        const Run exported = run({"export"});
        QJsonObject document = QJsonDocument::fromJson(exported.out).object();
        QJsonArray sources = document.value("sources").toArray();
        QJsonObject second = sources[0].toObject();
        second.insert("id", 2);
        second.insert("port", 2);
        sources.append(second);
        document.insert("sources", sources);
        const QByteArray changed = QJsonDocument(document).toJson();

        const Run dry = run({"import", "--dry-run", "-"}, changed);
        QCOMPARE(dry.code, 0);
        QVERIFY2(dry.out.contains("sources 1 -> 2 (+1 -0)\n"), dry.out.constData());
        QVERIFY2(dry.out.contains("users 4 -> 4 (+0 -0)\n"), dry.out.constData());
        QVERIFY(!dry.out.contains("backup"));
        QCOMPARE(run({"export"}).out, exported.out);
        QVERIFY(QDir(m_dir->path()).entryList({"import-backup-*"}).isEmpty());

        const Run real = run({"import", "-"}, changed);
        QCOMPARE(real.code, 0);
        QVERIFY2(real.out.startsWith("backup "), real.out.constData());
        const QString backup = QString::fromUtf8(real.out.split('\n').front().mid(7));
        QCOMPARE(QFileInfo(backup).absolutePath(), QDir(m_dir->path()).absolutePath());
        QFile file(backup);
        QVERIFY(file.open(QIODevice::ReadOnly));
        // Sealed under the data's key.
        QCOMPARE(
            CImportBackups::open(file.readAll(),
                                 CSecretKeyFile::read(CSecretKeyFile::defaultPath(m_dir->path()))),
            QJsonDocument::fromJson(exported.out).object());
        QCOMPARE(int(file.permissions() & 0x7077), int(QFile::ReadOwner | QFile::WriteOwner));
        QCOMPARE(
            QJsonDocument::fromJson(run({"export"}).out).object().value("sources").toArray().size(),
            2);

        // On PostgreSQL there is no data directory: the backup must be named.
        QProcess postgres;
        postgres.start(m_program, {"--db", "postgresql://nobody@/x?host=/nonexistent", "import",
                                   m_dir->filePath("any.json")});
        QVERIFY(postgres.waitForFinished(20000));
        QCOMPARE(postgres.exitCode(), 2);
        QVERIFY(postgres.readAllStandardError().contains("--backup"));
    }

    void pingNamesTheVersionAndDatabase() {
        Run r = run({"ping", "--json"});
        QCOMPARE(r.code, 0);
        const QJsonObject status = QJsonDocument::fromJson(r.out).object();
        QCOMPARE(status.value("version").toString(), QString(Hlx::quotesVersion()));
        QVERIFY2(status.value("database").toString().contains(m_dir->path()), r.out.constData());
        QVERIFY(status.value("uptimeMs").toDouble() >= 0);
        r = run({"ping"});
        QCOMPARE(r.code, 0);
        QVERIFY(
            r.out.startsWith(QByteArray("version ") + Hlx::quotesVersion() + "\ndatabase SQLite "));
        QCOMPARE(run({"ping", "extra"}).code, 2);
    }

    void accountCommands() {
        Run r =
            run({"accounts", "password", "viewer", "--password-file", "-"}, "viewer-password-1\n");
        QCOMPARE(r.code, 0);
        r = run({"accounts", "rights", "viewer", "--rights", "10937,10389"});
        QCOMPARE(r.code, 0);
        r = run({"accounts", "disable", "viewer"});
        QCOMPARE(r.code, 0);
        r = run({"accounts", "list", "--json"});
        QCOMPARE(r.code, 0);
        QJsonObject viewer;
        for (const QJsonValue& value : QJsonDocument::fromJson(r.out).array()) {
            if (value.toObject().value("name").toString() == QLatin1String("viewer"))
                viewer = value.toObject();
        }
        QCOMPARE(viewer.value("enabled").toBool(), false);
        QCOMPARE(viewer.value("rights").toArray(), (QJsonArray{10389, 10937}));
        QVERIFY(!r.out.contains("argon2"));
        QVERIFY(!r.out.contains("viewer-password-1"));
        r = run({"accounts", "enable", "viewer"});
        QCOMPARE(r.code, 0);

        r = run({"accounts", "password", "viewer", "--password-file", "-"}, "short\n");
        QCOMPARE(r.code, 1);
        QVERIFY2(QString::fromUtf8(r.err).contains("密码至少需要 12 个字符"), r.err.constData());
        QCOMPARE(run({"accounts", "enable", "nobody-here"}).code, 1);
        for (const QStringList& bad :
             QList<QStringList>{{"accounts", "password", "viewer"},
                                {"accounts", "rights", "viewer", "--rights", "x"},
                                {"accounts", "rights", "viewer"},
                                {"accounts", "enable"},
                                {"accounts", "list", "viewer"},
                                {"accounts", "frobnicate", "viewer"}}) {
            const Run usage = run(bad);
            QVERIFY2(usage.code == 2, qPrintable(bad.join(' ')));
            QVERIFY2(oneLine(usage.err), usage.err.constData());
        }
    }

    // The server options are checked before anything is read or reached.
    void badServerCommandLines() {
        const QList<QStringList> usageErrors = {
            {"--server", "127.0.0.1:1", "ping"},
            {"--server", "127.0.0.1:1", "--login", "admin", "ping"},
            {"--server", "127.0.0.1:1", "--login-password-file", "-", "ping"},
            {"--ca", "ca.pem", "ping"},
            {"--login", "admin", "ping"},
            {"--server", "127.0.0.1:1", "--data", "/tmp", "--login", "a", "--login-password-file",
             "-", "ping"},
            {"--server", "127.0.0.1:1", "--login", "a", "--login-password-file", "-", "import",
             "-"},
            {"--server", "127.0.0.1:1", "--login", "a", "--login-password-file", "-", "accounts",
             "password", "viewer", "--password-file", "-"},
        };
        for (const QStringList& arguments : usageErrors) {
            QProcess process;
            process.start(m_program, arguments);
            process.closeWriteChannel();
            QVERIFY(process.waitForFinished(60000));
            QVERIFY2(process.exitCode() == 2, qPrintable(arguments.join(' ')));
            QVERIFY2(oneLine(process.readAllStandardError()), qPrintable(arguments.join(' ')));
        }
    }

    void badCommandLines() {
        const QList<QStringList> usageErrors = {
            {},
            {"bogus"},
            {"sources"},
            {"sources", "frobnicate"},
            {"sources", "list", "--trade-type"},
            {"sources", "list", "--trade-type", "x"},
            {"sources", "list", "--colour", "red"},
            {"sources", "list", "extra"},
            {"sources", "add", "--platform", "10000"},
            {"sources", "add", "--platform", "10000", "--trade-type", "2", "--address", "1.2.3.4"},
            {"sources", "add", "--platform", "20000", "--trade-type", "1", "--broker", "8060"},
            {"sources", "add", "--platform", "20000", "--trade-type", "1", "--broker", "8060",
             "--server-group", "1", "--address", "1.2.3.4"},
            {"sources", "modify"},
            {"sources", "modify", "abc"},
            {"sources", "modify", "1"},
            {"sources", "delete"},
            {"sources", "delete", "1", "x"},
            {"token", "set"},
            {"token", "show", "extra"},
            {"import"},
            {"export", "extra"},
            {"sources", "list", "--trade-type", "3"},
            {"import", "--dry-run"},
            {"export", "--output"},
        };
        for (const QStringList& arguments : usageErrors) {
            const Run r = run(arguments);
            QVERIFY2(r.code == 2, qPrintable(arguments.join(' ')));
            QVERIFY2(oneLine(r.err), r.err.constData());
        }
        QProcess both;
        both.start(m_program, {"--data", m_dir->path(), "--db", "postgresql://x@/y", "export"});
        QVERIFY(both.waitForFinished());
        QCOMPARE(both.exitCode(), 2);
        QProcess unknown;
        unknown.start(m_program, {"--verbose", "export"});
        QVERIFY(unknown.waitForFinished());
        QCOMPARE(unknown.exitCode(), 2);
        // A typo on the command line never creates a database.
        QVERIFY(!QFile::exists(m_dir->filePath("quotes.db")));

        QProcess unreachable;
        unreachable.start(
            m_program,
            {"--db", QStringLiteral("postgresql://nobody@/x?host=%1&port=1").arg(m_dir->path()),
             "sources", "list"});
        QVERIFY(unreachable.waitForFinished(20000));
        QCOMPARE(unreachable.exitCode(), 3);
        QVERIFY(oneLine(unreachable.readAllStandardError()));
    }
};

QTEST_GUILESS_MAIN(TestQuotesctl)
#include "tst_quotesctl.moc"
