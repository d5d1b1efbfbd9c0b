#include <QDir>
#include <QFile>
#include <QImage>
#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

#include "XvfbDisplay.h"

// Every panel and dialog of the demo console, rendered under Xvfb and compared with the
// reference images. QUOTES_UPDATE_REFERENCES=1 writes the new pictures as references instead
// (scripts/update-references.sh).
class TestScreenshots : public QObject {
    Q_OBJECT

    // A pixel counts as changed when a channel differs by more than this.
    static const int kChannelTolerance = 24;
    // A picture passes with at most this share of changed pixels.
    static constexpr double kChangedShare = 0.005;

    static QString referenceDir() {
        return qEnvironmentVariable("QUOTES_SOURCE_DIR") +
               QStringLiteral("/tests/auto/screens/references");
    }

    static bool updating() { return qEnvironmentVariableIntValue("QUOTES_UPDATE_REFERENCES"); }

    static QStringList pictures(const QString& dir) {
        return QDir(dir).entryList({QStringLiteral("*.png")}, QDir::Files, QDir::Name);
    }

    static bool differs(QRgb a, QRgb b) {
        return qAbs(qRed(a) - qRed(b)) > kChannelTolerance ||
               qAbs(qGreen(a) - qGreen(b)) > kChannelTolerance ||
               qAbs(qBlue(a) - qBlue(b)) > kChannelTolerance;
    }

    // The changed pixels, marked red on a faded copy of the reference in *marked.
    static int changedPixels(const QImage& reference, const QImage& shot, QImage* marked) {
        *marked = reference.convertToFormat(QImage::Format_RGB32);
        int changed = 0;
        for (int y = 0; y < reference.height(); ++y) {
            for (int x = 0; x < reference.width(); ++x) {
                const bool hit = differs(reference.pixel(x, y), shot.pixel(x, y));
                changed += hit ? 1 : 0;
                marked->setPixel(
                    x, y,
                    hit ? qRgb(255, 0, 0)
                        : qRgb(qGray(reference.pixel(x, y)), qGray(reference.pixel(x, y)),
                               qGray(reference.pixel(x, y))));
            }
        }
        return changed;
    }

private slots:
    void initTestCase() {
        std::string error;
        QVERIFY2(m_display.start(true, &error), error.c_str());
        QVERIFY(m_work.isValid());
        m_shots = m_work.filePath(QStringLiteral("shots"));

        // The console's demo data directory goes into the scratch directory, not the home.
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("DISPLAY"), QString::fromStdString(m_display.name()));
        environment.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("xcb"));
        // Widgets only: no OpenGL driver to load (and to keep until the process ends).
        environment.insert(QStringLiteral("QT_XCB_GL_INTEGRATION"), QStringLiteral("none"));
        environment.insert(QStringLiteral("XDG_DATA_HOME"),
                           m_work.filePath(QStringLiteral("data")));
        environment.insert(QStringLiteral("XDG_CONFIG_HOME"),
                           m_work.filePath(QStringLiteral("config")));
        environment.insert(QStringLiteral("XDG_RUNTIME_DIR"), m_work.path());
        // The history dialog shows its scripted times in local time: the same on every machine.
        environment.insert(QStringLiteral("TZ"), QStringLiteral("CST-8"));
        QProcess console;
        console.setProcessEnvironment(environment);
        console.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        console.start(
            qEnvironmentVariable("QUOTES_BINARY_DIR") + QStringLiteral("/bin/quotes-console"),
            {QStringLiteral("--demo"), QStringLiteral("--reset"), QStringLiteral("--screenshot"),
             m_shots});
        QVERIFY(console.waitForStarted());
        QVERIFY2(console.waitForFinished(240000), "the console did not finish its screenshots");
        QCOMPARE(console.exitStatus(), QProcess::NormalExit);
        QCOMPARE(console.exitCode(), 0);
        m_display.stop();
    }

    void everyPictureHasAReference() {
        if (updating()) {
            QDir(referenceDir()).removeRecursively();
            QVERIFY(QDir().mkpath(referenceDir()));
            for (const QString& name : pictures(m_shots))
                QVERIFY(
                    QFile::copy(QDir(m_shots).filePath(name), QDir(referenceDir()).filePath(name)));
            QSKIP("references written");
        }
        QVERIFY(pictures(m_shots).size() >= 20);
        QCOMPARE(pictures(m_shots), pictures(referenceDir()));
    }

    void pictureMatchesItsReference_data() {
        QTest::addColumn<QString>("name");
        for (const QString& name : pictures(referenceDir()))
            QTest::newRow(qPrintable(name)) << name;
    }

    void pictureMatchesItsReference() {
        QFETCH(QString, name);
        const QImage reference(QDir(referenceDir()).filePath(name));
        const QImage shot(QDir(m_shots).filePath(name));
        QVERIFY2(!shot.isNull(), qPrintable(name + " was not rendered"));
        QCOMPARE(shot.size(), reference.size());
        QImage marked;
        const int changed = changedPixels(reference, shot, &marked);
        const double share = double(changed) / (reference.width() * reference.height());
        if (share > kChangedShare) {
            // Kept for a look at what changed: red where the pixels differ.
            const QString diff =
                qEnvironmentVariable("QUOTES_BINARY_DIR") + QStringLiteral("/screens-diff/") + name;
            QDir().mkpath(QFileInfo(diff).path());
            marked.save(diff);
            QFile::copy(QDir(m_shots).filePath(name), diff + QStringLiteral(".new.png"));
            QFAIL(qPrintable(QStringLiteral("%1: %2 % of the pixels changed (see %3)")
                                 .arg(name)
                                 .arg(share * 100, 0, 'f', 2)
                                 .arg(diff)));
        }
    }

private:
    XvfbDisplay m_display;
    QTemporaryDir m_work{QStringLiteral("/tmp/qs-XXXXXX")};
    QString m_shots;
};

QTEST_MAIN(TestScreenshots)
#include "tst_screenshots.moc"
