// quotesctl and the audit trail on its own database file: every command that changes data makes
// exactly one entry, marked local with the operating-system user; audit lists and filters them,
// audit prune removes the older ones and is itself recorded.

#include <pwd.h>
#include <unistd.h>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QtTest>

#include "QuotesctlRun.h"

class TestAuditctl : public QObject {
    Q_OBJECT

    QString m_program;
    QTemporaryDir* m_dir = nullptr;

    using Run = QuotesctlRun;

    Run run(const QStringList& arguments) {
        return Run::start(m_program,
                          QStringList{QStringLiteral("--data"), m_dir->path()} + arguments);
    }

    QJsonArray audit(const QStringList& filters = QStringList()) {
        const Run r = run(QStringList{QStringLiteral("audit"), QStringLiteral("--json")} + filters);
        if (r.code != 0)
            qWarning("%s", r.err.constData());
        return QJsonDocument::fromJson(r.out).array();
    }

    static QString osUser() {
        const passwd* entry = getpwuid(geteuid());
        return QString::fromLocal8Bit(entry->pw_name);
    }

private slots:
    void initTestCase() {
        m_program = qEnvironmentVariable("QUOTES_BINARY_DIR") + QStringLiteral("/bin/quotesctl");
        QVERIFY2(QFileInfo(m_program).isExecutable(), qPrintable(m_program));
    }
    void init() { m_dir = new QTemporaryDir; }
    void cleanup() { delete m_dir; }

    void everyChangeMakesOneLocalEntry() {
        QCOMPARE(audit().size(), 0);
        const Run added =
            run({"sources", "add", "--platform", "10000", "--trade-type", "2", "--address",
                 "10.0.0.1", "--port", "9000", "--user", "u", "--password", "ctl-secret-1"});
        QCOMPARE(added.code, 0);
        const QString id = QString::fromUtf8(added.out.trimmed());
        QJsonArray entries = audit();
        QCOMPARE(entries.size(), 1);
        QJsonObject entry = entries[0].toObject();
        QCOMPARE(entry.value("action").toString(), QStringLiteral("add"));
        QCOMPARE(entry.value("ids").toString(), id);
        QCOMPARE(entry.value("local").toBool(), true);
        QCOMPARE(entry.value("os_user").toString(), osUser());
        QVERIFY(entry.value("time").toString().endsWith(QLatin1Char('Z')));

        QCOMPARE(
            run({"sources", "modify", id, "--port", "9001", "--password", "ctl-secret-2"}).code, 0);
        QCOMPARE(run({"token", "set", "CtlToken42"}).code, 0);
        QCOMPARE(run({"accounts", "rights", "viewer", "--rights", "10385"}).code, 0);
        QCOMPARE(run({"sources", "delete", id}).code, 0);
        // Reads leave the trail alone, but for an export, which carries every secret.
        QCOMPARE(run({"sources", "list"}).code, 0);
        QCOMPARE(run({"export"}).code, 0);
        entries = audit();
        QCOMPARE(entries.size(), 6);
        QStringList actions;
        for (const QJsonValue& value : entries)
            actions << value.toObject().value("action").toString();
        QCOMPARE(actions, (QStringList{"export", "delete", "set_rights", "add", "modify", "add"}));
        QCOMPARE(entries[0].toObject().value("local").toBool(), true);
        const QJsonObject modified = entries[4].toObject();
        const QJsonObject row = modified.value("details").toArray().at(0).toObject();
        QCOMPARE(row.value("before").toObject().value("port").toInt(), 9000);
        QCOMPARE(row.value("after").toObject().value("port").toInt(), 9001);
        QCOMPARE(row.value("after").toObject().value("password_changed").toBool(), true);

        const QByteArray everything = QJsonDocument(entries).toJson();
        for (const char* secret : {"ctl-secret-1", "ctl-secret-2", "CtlToken42"})
            QVERIFY2(!everything.contains(secret), secret);
    }

    void refusedCommandsAreRecorded() {
        QCOMPARE(run({"sources", "delete", "4711"}).code, 1);
        const QJsonArray entries = audit();
        QCOMPARE(entries.size(), 1);
        QCOMPARE(entries[0].toObject().value("ids").toString(), QStringLiteral("4711"));
        QVERIFY(!entries[0].toObject().value("error").toString().isEmpty());
    }

    void filtersAndPrune() {
        QCOMPARE(run({"token", "set", "CtlToken43"}).code, 0);
        QCOMPARE(run({"subsystems", "list"}).code, 0);
        QCOMPARE(run({"accounts", "enable", "viewer"}).code, 0);
        QCOMPARE(audit({"--action", "set_enabled"}).size(), 1);
        QCOMPARE(audit({"--action", "add"}).size(), 1);
        QCOMPARE(audit({"--login", "nobody"}).size(), 0);
        QCOMPARE(audit({"--since", "2999-01-01"}).size(), 0);
        QCOMPARE(audit({"--until", "2000-01-01T00:00:00Z"}).size(), 0);
        QCOMPARE(audit({"--since", "2000-01-01"}).size(), 2);

        const Run table = run({"audit"});
        QCOMPARE(table.code, 0);
        QVERIFY(table.out.contains("set_enabled"));

        const Run pruned = run({"audit", "prune", "--before", "2999-01-01T00:00:00Z"});
        QCOMPARE(pruned.code, 0);
        QCOMPARE(pruned.out.trimmed(), QByteArray("2"));
        const QJsonArray left = audit();
        QCOMPARE(left.size(), 1);
        QCOMPARE(left[0].toObject().value("action").toString(), QStringLiteral("prune"));
        QCOMPARE(left[0].toObject().value("summary").toObject().value("removed").toInt(), 2);
    }

    void exportWithAuditAndImportLeaveTheTrailAlone() {
        QCOMPARE(run({"token", "set", "CtlToken44"}).code, 0);
        const Run plain = run({"export"});
        QCOMPARE(plain.code, 0);
        QVERIFY(!QJsonDocument::fromJson(plain.out).object().contains("audit"));
        const Run with = run({"export", "--with-audit"});
        QCOMPARE(with.code, 0);
        const QJsonArray exported =
            QJsonDocument::fromJson(with.out).object().value("audit").toArray();
        // The token's entry and both exports' (the one reading the trail comes first).
        QCOMPARE(exported.size(), 3);
        QVERIFY(!QJsonDocument(exported).toJson().contains("CtlToken44"));
        QCOMPARE(audit().size(), 3);

        // Importing a document whose trail says otherwise changes nothing of the trail but
        // the import's own entry.
        QJsonObject document = QJsonDocument::fromJson(with.out).object();
        QJsonArray forged;
        forged.append(QJsonObject{{"id", 999}, {"action", "delete"}});
        document.insert("audit", forged);
        QTemporaryFile file;
        QVERIFY(file.open());
        file.write(QJsonDocument(document).toJson());
        file.close();
        QCOMPARE(run({"import", file.fileName()}).code, 0);
        const QJsonArray after = audit();
        QCOMPARE(after.size(), 4);
        QCOMPARE(after[0].toObject().value("action").toString(), QStringLiteral("import"));
        QCOMPARE(after[1].toObject().value("id"), exported[0].toObject().value("id"));
    }

    void badCommandLines() {
        QCOMPARE(run({"audit", "prune"}).code, 2);
        QCOMPARE(run({"audit", "--before", "2020-01-01"}).code, 2);
        QCOMPARE(run({"audit", "--since", "yesterday"}).code, 2);
        QCOMPARE(run({"audit", "list"}).code, 2);
        // Nothing was recorded by a refused command line.
        QCOMPARE(audit().size(), 0);
    }
};

QTEST_GUILESS_MAIN(TestAuditctl)
#include "tst_auditctl.moc"
