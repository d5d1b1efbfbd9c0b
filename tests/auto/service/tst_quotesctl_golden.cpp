// quotesctl's command line pinned: what CQuotesCtl::parse answers (the parsed command, or the
// exit code and the text it printed) for every input of the fuzz corpus and for a list of command
// lines covering each command and option, compared with the golden files in golden/. No database
// is touched. The manual page and the bash completion must be what the command table makes.
// QUOTES_UPDATE_GOLDEN=1 writes the current answers and texts into those files instead.

#include <unistd.h>

#include <cstdio>

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QtTest>

#include "CCtlCompletion.h"
#include "CCtlManPage.h"
#include "CQuotesCtl.h"
#include "CQuotesService.h"

namespace {

// Every command with its options, missing and extra arguments and bad values.
const QList<QStringList> kCommandLines = {
    // Global options.
    {},
    {"--help"},
    {"-h"},
    {"--data", "/d", "--help"},
    {"--help", "sources"},
    {"sources", "--help"},
    {"--verbose", "export"},
    {"-x", "ping"},
    {"-", "ping"},
    {"--data"},
    {"--data", "", "ping"},
    {"--data", "/d"},
    {"--data", "/d", "ping"},
    {"--data", "/d", "--data", "/e", "ping"},
    {"--db", "sqlite:///tmp/x.db", "ping"},
    {"--db", "postgresql://u:p@/q", "ping"},
    {"--db", "postgresql://u@/q", "ping"},
    {"--data", "/d", "--db", "sqlite:///x.db", "export"},
    {"--secrets-key", "/k", "ping"},
    {"--secrets-key"},
    {"--data", "/d", "--secrets-key", "/k", "integrity"},
    {"--server", "h:1", "ping"},
    {"--server", "h:1", "--login", "a", "ping"},
    {"--server", "h:1", "--login-password-file", "f", "ping"},
    {"--server", "h:1", "--login", "a", "--login-password-file", "f", "ping"},
    {"--server", "h:1", "--server", "h:2", "--ca", "c.pem", "--login", "a", "--login-password-file",
     "-", "sources", "list"},
    {"--server", "h:1", "--login", "a", "--login-password-file", "f", "--data", "/d", "ping"},
    {"--server", "h:1", "--login", "a", "--login-password-file", "f", "--db", "sqlite:///x",
     "ping"},
    {"--server", "h:1", "--login", "a", "--login-password-file", "f", "--secrets-key", "/k",
     "ping"},
    {"--server", "h:1", "--login", "a", "--login-password-file", "f"},
    {"--ca", "c.pem", "ping"},
    {"--login", "a", "ping"},
    {"--login-password-file", "f", "ping"},
    {"--server", "h:1", "--login", "a", "--login-password-file", "f", "rekey"},
    {"--server", "h:1", "--login", "a", "--login-password-file", "-", "rekey", "extra"},
    {"--server", "h:1", "--login", "a", "--login-password-file", "-", "import", "-"},
    {"--server", "h:1", "--login", "a", "--login-password-file", "-", "token", "set", "-"},
    {"--server", "h:1", "--login", "a", "--login-password-file", "-", "sources", "add",
     "--platform", "1", "--trade-type", "2", "--address", "a", "--port", "1", "--password-file",
     "-"},
    {"--server", "h:1", "--login", "a", "--login-password-file", "-", "accounts", "password", "bob",
     "--password-file", "-"},
    {"--server", "h:1", "--login", "a", "--login-password-file", "-", "accounts", "password", "bob",
     "--password-file", "f"},
    // Commands.
    {""},
    {"nosuch"},
    {"sources"},
    {"sources", "nosuch"},
    {"sources", "--json", "list"},
    {"sources", ""},
    // sources list
    {"sources", "list"},
    {"sources", "list", "--json"},
    {"sources", "list", "--json", "--json"},
    {"sources", "list", "--trade-type", "1"},
    {"sources", "list", "--trade-type", "-1"},
    {"sources", "list", "--trade-type", "99"},
    {"sources", "list", "--trade-type", "x"},
    {"sources", "list", "--trade-type", " 5"},
    {"sources", "list", "--trade-type", "+2"},
    {"sources", "list", "--trade-type", "99999999999"},
    {"sources", "list", "--trade-type"},
    {"sources", "list", "--subsystem", "sys1", "--trade-type", "2", "--json"},
    {"sources", "list", "--subsystem"},
    {"sources", "list", "--platform", "1"},
    {"sources", "list", "extra"},
    {"sources", "list", ""},
    {"sources", "list", "--json=1"},
    {"sources", "list", "--"},
    {"sources", "list", "-j"},
    // sources add
    {"sources", "add", "--platform", "10000", "--trade-type", "2", "--address", "10.0.0.1",
     "--port", "9000", "--user", "u", "--password-file", "f", "--markets", "SH,SZ"},
    {"sources", "add", "--platform", "10000", "--trade-type", "2", "--address", "10.0.0.1",
     "--port", "9000", "--password", "secret"},
    {"sources", "add", "--platform", "10000", "--trade-type", "2", "--address", "10.0.0.1",
     "--port", "9000", "--password", "secret", "--password-file", "f"},
    {"sources", "add", "--platform", "20000", "--trade-type", "1", "--broker", "8060",
     "--server-group", "2", "--subsystem", "sys2"},
    {"sources", "add"},
    {"sources", "add", "--trade-type", "2", "--address", "a", "--port", "1"},
    {"sources", "add", "--platform", "1", "--address", "a", "--port", "1"},
    {"sources", "add", "--platform", "1", "--trade-type", "2", "--port", "1"},
    {"sources", "add", "--platform", "1", "--trade-type", "2", "--address", "a"},
    {"sources", "add", "--platform", "1", "--trade-type", "2"},
    {"sources", "add", "--platform", "x", "--trade-type", "2", "--address", "a", "--port", "1"},
    {"sources", "add", "--platform", "1", "--trade-type", "y", "--address", "a", "--port", "1"},
    {"sources", "add", "--platform", "1", "--trade-type", "2", "--address", "a", "--port", "z"},
    {"sources", "add", "--trade-type", "2", "--port", "z"},
    {"sources", "add", "--platform", "1", "--trade-type", "99", "--address", "a", "--port", "1"},
    {"sources", "add", "--platform", "1", "--trade-type", "2", "--broker", "8060"},
    {"sources", "add", "--platform", "1", "--trade-type", "2", "--broker", "x", "--server-group",
     "1"},
    {"sources", "add", "--platform", "1", "--trade-type", "2", "--broker", "1", "--server-group",
     "x"},
    {"sources", "add", "--platform", "1", "--trade-type", "2", "--address", "a", "--port", "1",
     "--server-group", "1"},
    {"sources", "add", "--platform", "1", "--trade-type", "2", "--broker", "1", "--server-group",
     "1", "--address", "a"},
    {"sources", "add", "--platform", "1", "--trade-type", "2", "--broker", "1", "--server-group",
     "1", "--port", "1"},
    {"sources", "add", "--platform", "1", "--trade-type", "2", "--broker", "1", "--server-group",
     "1", "--user", "u"},
    {"sources", "add", "--platform", "1", "--trade-type", "2", "--broker", "1", "--server-group",
     "1", "--password", "p"},
    {"sources", "add", "--platform", "1", "--trade-type", "2", "--broker", "1", "--server-group",
     "1", "--password-file", "f"},
    {"sources", "add", "--platform", "1", "--trade-type", "2", "--broker", "1", "--server-group",
     "1", "--markets", "SH"},
    {"sources", "add", "--platform", "1", "--trade-type", "2", "--broker", "1", "--server-group",
     "1", "--markets", "SH", "--address", "a"},
    {"sources", "add", "--platform", "1", "--trade-type", "2", "--address", "a", "--port", "1",
     "extra"},
    {"sources", "add", "--platform", "1", "--trade-type", "2", "--address", "a", "--port", "1",
     "--json"},
    {"sources", "add", "--platform", "1", "--trade-type", "2", "--address", "a", "--port", "1",
     "--rights", "1"},
    {"sources", "add", "--platform", "1", "--trade-type", "2", "--address", "a", "--port"},
    {"sources", "add", "--platform", "1", "--trade-type", "2", "--address", "a", "--port", "1",
     "--password-file", "-"},
    {"sources", "add", "--platform", "1", "--trade-type", "2", "--address", "a", "--port", "1",
     "--password", ""},
    // sources modify
    {"sources", "modify", "7", "--port", "9100", "--user", "v"},
    {"sources", "modify", "--port", "9100", "7"},
    {"sources", "modify",   "7", "--platform",     "1", "--trade-type",    "2", "--address",
     "a",       "--port",   "3", "--user",         "u", "--password-file", "f", "--markets",
     "SH",      "--broker", "4", "--server-group", "5"},
    {"sources", "modify", "7"},
    {"sources", "modify", "--port", "1"},
    {"sources", "modify", "7", "8", "--port", "1"},
    {"sources", "modify", "x", "--port", "1"},
    {"sources", "modify", "-1", "--port", "1"},
    {"sources", "modify", "7", "--port", "x"},
    {"sources", "modify", "x", "--port", "x"},
    {"sources", "modify", "7", "--subsystem", "sys2"},
    {"sources", "modify", "7", "--subsystem", "sys2", "--port", "1"},
    {"sources", "modify", "7", "--password", "p"},
    {"sources", "modify", "7", "--password", "p", "--password-file", "f"},
    {"sources", "modify", "7", "--password-file", "-"},
    {"sources", "modify", "7", "--json"},
    {"sources", "modify", "7", "--markets", ""},
    {"sources", "modify", "7", "--broker", "1"},
    {"sources", "modify", "7", "--server-group", "1"},
    {"sources", "modify", "7", "--user"},
    // sources delete
    {"sources", "delete"},
    {"sources", "delete", "7"},
    {"sources", "delete", "7", "8", "9"},
    {"sources", "history"},
    {"sources", "history", "7"},
    {"sources", "history", "7", "--json"},
    {"sources", "history", "7", "8"},
    {"sources", "history", "x"},
    {"sources", "restore", "7"},
    {"sources", "restore", "7", "--entry", "12"},
    {"sources", "restore", "7", "--entry", "x"},
    {"sources", "restore", "--entry", "12"},
    {"sources", "delete", "x"},
    {"sources", "delete", "7", "x"},
    {"sources", "delete", "7", "--json"},
    {"sources", "delete", "7", "--port", "1"},
    {"sources", "delete", "7", "--port", "x"},
    // brokers, platforms
    {"brokers"},
    {"brokers", "nosuch"},
    {"brokers", "list"},
    {"brokers", "list", "--json"},
    {"brokers", "list", "--trade-type", "1"},
    {"brokers", "list", "--trade-type", "99"},
    {"brokers", "list", "--trade-type", "x"},
    {"brokers", "list", "extra"},
    {"brokers", "list", "--subsystem", "s"},
    {"platforms"},
    {"platforms", "add"},
    {"platforms", "list"},
    {"platforms", "list", "--json", "--trade-type", "5"},
    {"platforms", "list", "--trade-type", "x"},
    {"platforms", "list", "extra"},
    // token
    {"token"},
    {"token", "nosuch"},
    {"token", "show"},
    {"token", "show", "--json"},
    {"token", "show", "extra"},
    {"token", "set"},
    {"token", "set", "-"},
    {"token", "set", "abc123"},
    {"token", "set", "a", "b"},
    {"token", "set", "-", "--json"},
    {"token", "delete"},
    {"token", "delete", "extra"},
    {"token", "delete", "--json"},
    // subsystems, users
    {"subsystems"},
    {"subsystems", "list"},
    {"subsystems", "list", "--json"},
    {"subsystems", "list", "extra"},
    {"subsystems", "show"},
    {"users"},
    {"users", "list"},
    {"users", "list", "--json"},
    {"users", "list", "--trade-type", "1"},
    {"users", "list", "extra"},
    // accounts
    {"accounts"},
    {"accounts", "nosuch"},
    {"accounts", "list"},
    {"accounts", "list", "--json"},
    {"accounts", "list", "bob"},
    {"accounts", "list", "--password-file", "f"},
    {"accounts", "password", "bob", "--password-file", "f"},
    {"accounts", "password", "bob", "--password-file", "-"},
    {"accounts", "password", "bob"},
    {"accounts", "password", "--password-file", "f"},
    {"accounts", "password", "a", "b", "--password-file", "f"},
    {"accounts", "password", "bob", "--password", "p"},
    {"accounts", "password", "bob", "--password-file"},
    {"accounts", "enable", "bob"},
    {"accounts", "enable"},
    {"accounts", "enable", "bob", "--json"},
    {"accounts", "enable", "bob", "--rights", "1"},
    {"accounts", "disable", "bob"},
    {"accounts", "disable", "a", "b"},
    {"accounts", "rights", "bob", "--rights", "1,2"},
    {"accounts", "rights", "bob", "--rights", ""},
    {"accounts", "rights", "bob", "--rights", " 1, 2 ,"},
    {"accounts", "rights", "bob"},
    {"accounts", "rights", "--rights", "1"},
    {"accounts", "rights", "bob", "--rights", "x"},
    {"accounts", "rights", "bob", "--rights", "-1"},
    {"accounts", "rights", "bob", "--rights", "1;2"},
    // audit
    {"audit"},
    {"audit", "--json"},
    {"audit", "--since", "2026-11-23"},
    {"audit", "--since", "2026-11-23T08:00:00Z", "--until", "2026-11-24T08:00:00.123+08:00"},
    {"audit", "--since", "garbage"},
    {"audit", "--until", "2026-13-01"},
    {"audit", "--login", "admin", "--action", "add", "--json"},
    {"audit", "--login"},
    {"audit", "--before", "2026-11-23"},
    {"audit", "prune"},
    {"audit", "prune", "--before", "2026-11-23"},
    {"audit", "--before", "2026-11-23", "prune"},
    {"audit", "prune", "--before", "garbage"},
    {"audit", "prune", "--before", "2026-11-23", "--json"},
    {"audit", "prune", "--before", "2026-11-23", "--since", "garbage"},
    {"audit", "prune", "--before", "2026-11-23", "--login", "a"},
    {"audit", "prune", "extra", "--before", "2026-11-23"},
    {"audit", "foo"},
    {"audit", "list"},
    {"audit", "--output", "f"},
    // export, import
    {"export"},
    {"export", "--output", "backup.json"},
    {"export", "--output"},
    {"export", "--no-secrets", "--with-audit"},
    {"export", "extra"},
    {"export", "--json"},
    {"import", "backup.json"},
    {"import", "-"},
    {"import"},
    {"import", "a.json", "b.json"},
    {"import", "--dry-run", "backup.json"},
    {"import", "--backup", "b.json", "backup.json"},
    {"import", "--backup"},
    {"import", "backup.json", "--json"},
    {"--db", "postgresql://u@/q", "import", "backup.json"},
    {"--db", "postgresql://u@/q", "import", "--dry-run", "backup.json"},
    {"--db", "postgresql://u@/q", "import", "--backup", "b.json", "backup.json"},
    {"--db", "postgres://u@/q", "import", "backup.json"},
    {"--db", "postgresXYZ", "import", "-"},
    {"--db", "sqlite:///tmp/x.db", "import", "backup.json"},
    {"--db", "postgresql://u@/q", "import"},
    // integrity, rekey, ping
    {"integrity"},
    {"integrity", "extra"},
    {"integrity", "--json"},
    {"rekey"},
    {"rekey", "extra"},
    {"rekey", "--json"},
    {"--data", "/d", "rekey"},
    {"ping"},
    {"ping", "--json"},
    {"ping", "extra"},
    {"ping", "--trade-type", "1"},
    // Which of two faults is named, and the order of the warnings.
    {"-h", "--data", "/d"},
    {"--data", "/d", "-h"},
    {"--data", "/d", "--", "ping"},
    {"--db", "", "ping"},
    {"--data", "-", "ping"},
    {"--data", "/d", "--server", "h:1", "--ca", "c", "ping"},
    {"--server", "h:1", "--login", "", "--login-password-file", "f", "ping"},
    {"--server", "h:1", "--login", "a", "--login-password-file", "f", "nosuch"},
    {"--server", "h:1", "--login", "a", "--login-password-file", "f", "rekey", "--json"},
    {"--server",
     "h:1",
     "--login",
     "a",
     "--login-password-file",
     "-",
     "sources",
     "add",
     "--platform",
     "1",
     "--trade-type",
     "2",
     "--address",
     "a",
     "--port",
     "1",
     "--password",
     "p",
     "--password-file",
     "-"},
    {"sources", "list", "extra", "--trade-type", "x"},
    {"sources", "list", "--trade-type", "x", "--nosuch"},
    {"sources", "list", "--trade-type", "1", "--trade-type", "99"},
    {"sources", "add", "--platform", "1", "--trade-type", "99", "--broker", "1", "--server-group",
     "1"},
    {"sources", "add", "--address", "a", "--port", "1", "extra"},
    {"sources", "modify", "7", "--port", "1", "--port", "x"},
    {"sources", "modify", "7", "--port", " 12 "},
    {"sources", "modify", "x", "8", "--port", "1"},
    {"sources", "modify", "7", "--port", "1", "--subsystem", "s", "--password", "p",
     "--password-file", "f"},
    {"sources", "delete", "7", "8", "-1"},
    {"sources", "delete", "x", "--nosuch"},
    {"--db", "postgresql://u:p@/q", "sources", "modify", "7", "--password", "p"},
    {"--db", "postgresql://u:p@/q", "token", "set", "abc"},
    {"token", "set", "abc", "--nosuch"},
    {"token", "show", "extra", "--json"},
    {"accounts", "rights", "bob", "--rights", "x", "--password-file", "-"},
    {"accounts", "enable", "bob", "--rights", "x"},
    {"accounts", "list", "--rights", "x"},
    {"accounts", "password", "bob", "--password-file", "f", "--rights", "1"},
    {"accounts", "list", "bob", "--nosuch"},
    {"audit", "--since", "2026-11-23", "--since", "bad"},
    {"audit", "prune", "prune", "--before", "2026-11-23"},
    {"audit", "prune", "--before", "x", "extra"},
    {"audit", "extra", "--since", "bad"},
    {"import", "--dry-run", "a", "b"},
    {"import", "--dry-run", "--backup", "b", "-"},
    {"export", "--output", "f", "--output", "g", "--no-secrets", "--no-secrets"},
};

// What one answer printed: fd 1 and 2 go to temporary files while parse runs.
class CCapture {
public:
    CCapture() {
        std::fflush(stdout);
        std::fflush(stderr);
        for (int fd : {1, 2}) {
            m_files[fd - 1] = std::tmpfile();
            m_saved[fd - 1] = dup(fd);
            dup2(fileno(m_files[fd - 1]), fd);
        }
    }
    // Ends the capture: {standard output, standard error}.
    QPair<QByteArray, QByteArray> finish() {
        std::fflush(stdout);
        std::fflush(stderr);
        QByteArray texts[2];
        for (int fd : {1, 2}) {
            dup2(m_saved[fd - 1], fd);
            close(m_saved[fd - 1]);
            std::FILE* file = m_files[fd - 1];
            std::rewind(file);
            char buffer[4096];
            size_t n = 0;
            while ((n = std::fread(buffer, 1, sizeof buffer, file)) > 0)
                texts[fd - 1].append(buffer, int(n));
            std::fclose(file);
        }
        return {texts[0], texts[1]};
    }

private:
    std::FILE* m_files[2] = {nullptr, nullptr};
    int m_saved[2] = {-1, -1};
};

// One stream's lines, each behind its prefix; a last line without its line end is marked.
QString streamLines(const QString& prefix, const QByteArray& bytes) {
    QString text = QString::fromUtf8(bytes);
    // The default data directory depends on the user running the test.
    text.replace(CQuotesService::defaultDataDir(), QStringLiteral("<default data dir>"));
    if (text.isEmpty())
        return QString();
    QStringList lines = text.split(QLatin1Char('\n'));
    const bool complete = lines.last().isEmpty();
    if (complete)
        lines.removeLast();
    QString block;
    for (const QString& line : lines)
        block += prefix + QLatin1Char('|') +
                 (line.isEmpty() ? QString() : QLatin1Char(' ') + line) + QLatin1Char('\n');
    if (!complete)
        block += prefix + QLatin1String(" (no line end)\n");
    return block;
}

// One case: its arguments, then "parsed" with what was parsed, or the exit code; then what it
// printed.
QString answer(const QString& title, const QStringList& arguments) {
    QString block = title.isEmpty() ? QString() : title + QLatin1Char('\n');
    block +=
        QStringLiteral("args ") +
        QString::fromUtf8(
            QJsonDocument(QJsonArray::fromStringList(arguments)).toJson(QJsonDocument::Compact)) +
        QLatin1Char('\n');
    CQuotesCtl ctl;
    CCapture capture;
    const int code = ctl.parse(arguments);
    const QPair<QByteArray, QByteArray> printed = capture.finish();
    if (code == CQuotesCtl::kParsed) {
        block += QStringLiteral("parsed\n");
        for (const QString& line : ctl.describe().split(QLatin1Char('\n'), Qt::SkipEmptyParts))
            block += QStringLiteral("  ") + line + QLatin1Char('\n');
    } else {
        block += QStringLiteral("exit %1\n").arg(code);
    }
    return block + streamLines(QStringLiteral("out"), printed.first) +
           streamLines(QStringLiteral("err"), printed.second);
}

QString sourceDir() {
    return qEnvironmentVariable("QUOTES_SOURCE_DIR");
}

}  // namespace

class TestQuotesctlGolden : public QObject {
    Q_OBJECT

    // Compares a text with the file of the source tree that holds what it must be (or writes
    // it there when asked to). A difference names the first differing part and how many differ;
    // parts are separated by separator.
    void compareWithFile(const QString& file, const QString& actual, const QString& separator) {
        const QString path = sourceDir() + QLatin1Char('/') + file;
        if (qEnvironmentVariableIntValue("QUOTES_UPDATE_GOLDEN") == 1) {
            QDir().mkpath(QFileInfo(path).path());
            QFile out(path);
            QVERIFY2(out.open(QIODevice::WriteOnly | QIODevice::Truncate), qPrintable(path));
            out.write(actual.toUtf8());
            qInfo("wrote %s", qPrintable(path));
        }
        QFile in(path);
        QVERIFY2(in.open(QIODevice::ReadOnly), qPrintable(path));
        const QString expected = QString::fromUtf8(in.readAll());
        if (expected == actual)
            return;
        const QStringList want = expected.split(separator);
        const QStringList got = actual.split(separator);
        int differing = 0;
        QString first;
        for (int i = 0; i < std::max(want.size(), got.size()); ++i) {
            if (want.value(i) == got.value(i))
                continue;
            if (differing++ == 0)
                first = QStringLiteral("expected:\n%1\nactual:\n%2")
                            .arg(want.value(i, QStringLiteral("(none)")),
                                 got.value(i, QStringLiteral("(none)")));
        }
        QFAIL(qPrintable(QStringLiteral("%1: %2 part(s) differ (QUOTES_UPDATE_GOLDEN=1 rewrites "
                                        "the file); the first:\n%3")
                             .arg(file)
                             .arg(differing)
                             .arg(first)));
    }

    void compareWithGolden(const QString& name, const QStringList& answers) {
        compareWithFile(QStringLiteral("tests/auto/service/golden/") + name,
                        answers.join(QLatin1Char('\n')), QStringLiteral("\n\n"));
    }

private slots:
    void initTestCase() { QVERIFY2(!sourceDir().isEmpty(), "QUOTES_SOURCE_DIR is not set"); }

    // Each input of the fuzz corpus, read as the fuzz target reads it: one argument a line.
    void fuzzCorpus() {
        const QDir corpus(sourceDir() + QStringLiteral("/fuzz/corpus/fuzz_quotesctl_args"));
        const QStringList names = corpus.entryList(QDir::Files, QDir::Name);
        QVERIFY(!names.isEmpty());
        QStringList answers;
        for (const QString& name : names) {
            QFile file(corpus.filePath(name));
            QVERIFY(file.open(QIODevice::ReadOnly));
            const QStringList arguments =
                QString::fromUtf8(file.readAll()).split(QLatin1Char('\n'));
            if (arguments.size() > 64)
                answers << QStringLiteral("corpus %1\nnot parsed: over 64 arguments\n").arg(name);
            else
                answers << answer(QStringLiteral("corpus ") + name, arguments);
        }
        compareWithGolden(QStringLiteral("quotesctl_corpus.txt"), answers);
    }

    void commandLines() {
        QStringList answers;
        for (const QStringList& arguments : kCommandLines)
            answers << answer(QString(), arguments);
        compareWithGolden(QStringLiteral("quotesctl_commands.txt"), answers);
    }

    // The manual page and the bash completion the package installs are made from the command
    // table, and so is --help (pinned above): each command and option is documented once.
    void manPage() {
        compareWithFile(QStringLiteral("packaging/man/quotesctl.1"), CCtlManPage::text(),
                        QStringLiteral("\n"));
    }

    void completion() {
        compareWithFile(QStringLiteral("packaging/quotesctl.bash-completion"),
                        CCtlCompletion::text(), QStringLiteral("\n"));
    }
};

QTEST_GUILESS_MAIN(TestQuotesctlGolden)
#include "tst_quotesctl_golden.moc"
