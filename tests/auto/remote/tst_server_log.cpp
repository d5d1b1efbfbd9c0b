// quotesd's log line by line: what a plain line and a journal entry hold, how values that could
// break a line are quoted, which lines a level leaves out, and when the journal is used.

#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QtTest>
#include <string>
#include <vector>

#include "CServerLog.h"
#include "model/CAuditVocabulary.h"

namespace {

Hlx::CAuditEntry change(const std::string& action, const std::string& error = std::string()) {
    Hlx::CAuditEntry entry;
    entry.account = "stock_op";
    entry.clientAddress = "10.0.0.5";
    entry.action = action;
    entry.dataType = CAuditVocabulary::kQuoteSource;
    entry.ids = "3,4";
    entry.error = error;
    return entry;
}

}  // namespace

class TestServerLog : public QObject {
    Q_OBJECT

private slots:
    void plainLinesNameWhoWhatAndWhich() {
        std::vector<std::string> lines;
        CServerLog log(CServerLog::Level::Info,
                       [&](const std::string& line) { lines.push_back(line); });
        log.recorded(change(CAuditVocabulary::kModify), false);
        log.recorded(change(CAuditVocabulary::kDelete, "没有权限"), true);
        log.loginAnswered("admin", "::1", IAdminObserver::LoginOutcome::Ok, std::string());
        log.loginAnswered("admin", "::1", IAdminObserver::LoginOutcome::Locked, "请稍后再试");
        QCOMPARE(lines.size(), std::size_t(4));
        QCOMPARE(QString::fromStdString(lines[0]),
                 QString("quotesd: notice: modify quote_source account=stock_op address=10.0.0.5 "
                         "action=modify ids=3,4"));
        QCOMPARE(QString::fromStdString(lines[1]),
                 QString("quotesd: warning: refused delete quote_source: 没有权限 (again within "
                         "the minute) account=stock_op address=10.0.0.5 action=delete ids=3,4"));
        QCOMPARE(QString::fromStdString(lines[2]),
                 QString("quotesd: info: login ok account=admin address=::1 action=login"));
        QCOMPARE(QString::fromStdString(lines[3]),
                 QString("quotesd: warning: login locked out: 请稍后再试 account=admin "
                         "address=::1 action=login"));
    }

    void aRecordedLoginIsLeftToTheLoginsOwnLine() {
        std::vector<std::string> lines;
        CServerLog log(CServerLog::Level::Debug,
                       [&](const std::string& line) { lines.push_back(line); });
        Hlx::CAuditEntry login = change(CAuditVocabulary::kLogin, "用户名或密码错误");
        login.dataType = CAuditVocabulary::kSession;
        log.recorded(login, false);
        QVERIFY(lines.empty());
        login.account.clear();
        log.recorded(login, false);
        QCOMPARE(lines.size(), std::size_t(1));
        QVERIFY(QString::fromStdString(lines[0]).startsWith(
            "quotesd: warning: refused a call without a valid login"));
    }

    void valuesThatCouldBreakALineAreQuoted() {
        CServerLog::Fields fields;
        fields.account = "a b\nquotesd: notice: forged";
        fields.ids = "x\"y\\z";
        const QString line = QString::fromStdString(
            CServerLog::plainLine(CServerLog::Level::Info, "two\nlines", fields));
        QVERIFY2(!line.contains('\n'), qPrintable(line));
        QCOMPARE(line,
                 QString("quotesd: info: two lines account=\"a b\\x0aquotesd: notice: forged\" "
                         "ids=\"x\\\"y\\\\z\""));
    }

    void theLevelLeavesOutLowerLines() {
        std::vector<std::string> lines;
        CServerLog log(CServerLog::Level::Warning,
                       [&](const std::string& line) { lines.push_back(line); });
        log.loginAnswered("admin", "::1", IAdminObserver::LoginOutcome::Ok, std::string());
        log.loginAnswered("admin", "::1", IAdminObserver::LoginOutcome::Refused, "错误");
        log.recorded(change(CAuditVocabulary::kAdd), false);
        QVERIFY(lines.empty());
        log.recorded(change(CAuditVocabulary::kAdd, "没有权限"), false);
        QCOMPARE(lines.size(), std::size_t(1));
        CServerLog::Level level = CServerLog::Level::Info;
        QVERIFY(CServerLog::parseLevel("debug", &level));
        QCOMPARE(level, CServerLog::Level::Debug);
        QVERIFY(!CServerLog::parseLevel("verbose", &level));
    }

    void journalEntriesCarryStructuredFields() {
        CServerLog::Fields fields;
        fields.account = "admin";
        fields.address = "10.0.0.5";
        fields.action = "login";
        const std::vector<std::string> entry =
            CServerLog::journalFields(CServerLog::Level::Notice, "login refused: 错误", fields);
        const std::vector<std::string> expected{
            "MESSAGE=login refused: 错误", "PRIORITY=5",
            "SYSLOG_IDENTIFIER=quotesd",   "QUOTES_ACCOUNT=admin",
            "QUOTES_ADDRESS=10.0.0.5",     "QUOTES_ACTION=login"};
        QCOMPARE(entry, expected);
    }

    // systemd names the journal's stream in JOURNAL_STREAM; standard error redirected
    // elsewhere (a pipe of a test, a file) is not the journal even with the variable set.
    void theJournalOnlyWhenStandardErrorIsItsStream() {
        const QByteArray saved = qgetenv("JOURNAL_STREAM");
        struct stat error {};
        QCOMPARE(::fstat(STDERR_FILENO, &error), 0);
        qputenv("JOURNAL_STREAM", QByteArray::number(qulonglong(error.st_dev)) + ':' +
                                      QByteArray::number(qulonglong(error.st_ino)));
        QVERIFY(CServerLog::journalAttached());
        qputenv("JOURNAL_STREAM", QByteArray::number(qulonglong(error.st_dev)) + ':' +
                                      QByteArray::number(qulonglong(error.st_ino) + 1));
        QVERIFY(!CServerLog::journalAttached());
        qunsetenv("JOURNAL_STREAM");
        QVERIFY(!CServerLog::journalAttached());
        if (!saved.isNull())
            qputenv("JOURNAL_STREAM", saved);
    }
};

QTEST_GUILESS_MAIN(TestServerLog)
#include "tst_server_log.moc"
