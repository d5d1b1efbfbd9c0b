// quotes-console without a display: it says so in one line naming --screenshot DIR and exits
// with a failure, instead of Qt's abort on the missing xcb platform; asked for screenshots, it
// renders them offscreen by itself.

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QProcessEnvironment>
#include <QTemporaryDir>
#include <QtTest>

class TestConsoleHeadless : public QObject {
    Q_OBJECT

    QTemporaryDir m_dir;

    static QString console() {
        return qEnvironmentVariable("QUOTES_BINARY_DIR") + QStringLiteral("/bin/quotes-console");
    }

    // The console on a machine without a display, QT_QPA_PLATFORM as given (none when empty).
    struct Run {
        int code = -1;
        QByteArray err;
    };
    static Run run(const QStringList& arguments, const QString& platform = QString()) {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.remove(QStringLiteral("DISPLAY"));
        environment.remove(QStringLiteral("WAYLAND_DISPLAY"));
        environment.remove(QStringLiteral("QT_QPA_PLATFORM"));
        if (!platform.isEmpty())
            environment.insert(QStringLiteral("QT_QPA_PLATFORM"), platform);
        QProcess process;
        process.setProcessEnvironment(environment);
        process.start(console(), arguments);
        Run result;
        if (!process.waitForFinished(120000) || process.exitStatus() != QProcess::NormalExit)
            return result;
        result.code = process.exitCode();
        result.err = process.readAllStandardError();
        return result;
    }

private slots:
    void initTestCase() { QVERIFY2(QFile::exists(console()), qPrintable(console())); }

    void withoutADisplayItSaysSoAndFails_data() {
        QTest::addColumn<QString>("platform");
        QTest::newRow("QT_QPA_PLATFORM unset") << QString();
        QTest::newRow("QT_QPA_PLATFORM=xcb") << QString("xcb");
    }

    void withoutADisplayItSaysSoAndFails() {
        QFETCH(QString, platform);
        const Run result = run({"--data", m_dir.filePath("data")}, platform);
        QVERIFY(result.code > 0);
        const QString err = QString::fromLocal8Bit(result.err).trimmed();
        QVERIFY2(!err.contains('\n'), qPrintable(err));
        QVERIFY2(err.contains("--screenshot DIR"), qPrintable(err));
        QVERIFY2(!err.contains("platform plugin"), qPrintable(err));
        // It stopped before it opened anything.
        QVERIFY(!QDir(m_dir.filePath("data")).exists());
    }

    void screenshotsNeedNoDisplay() {
        const QString shots = m_dir.filePath("shots");
        const Run result = run({"--data", m_dir.filePath("shot-data"), "--screenshot", shots});
        QVERIFY2(result.code == 0, result.err.constData());
        QVERIFY(QFile::exists(QDir(shots).filePath("console.png")));
    }
};

QTEST_MAIN(TestConsoleHeadless)
#include "tst_console_headless.moc"
