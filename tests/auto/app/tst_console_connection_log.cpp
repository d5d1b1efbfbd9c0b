// The console's log file holds its own connection events: a server it cannot reach is written
// there, not only shown in a box.

#include <QFile>
#include <QTemporaryDir>
#include <QtTest>

#include "CConsoleLogging.h"
#include "CRemoteAdmin.h"

class TestConsoleConnectionLog : public QObject {
    Q_OBJECT

private slots:
    void aServerThatCannotBeReachedIsInTheLogFile() {
        QTemporaryDir dir;
        QString error;
        QVERIFY2(CConsoleLogging::start(dir.path(), &error), qPrintable(error));
        // Port 1 on loopback: nobody listens there.
        CRemoteAdmin remote({"127.0.0.1:1"}, std::string(), std::chrono::seconds(1));
        CConsoleLogging::logConnection(remote);
        QVERIFY(!remote.login("admin", "admin-password-1").isSuccess());
        QFile log(dir.filePath(QStringLiteral("quotes-console.log")));
        QVERIFY(log.open(QIODevice::ReadOnly));
        const QString text = QString::fromUtf8(log.readAll());
        QVERIFY2(text.contains(QStringLiteral("WARN  quotes.console.connection - login to "
                                              "127.0.0.1:1 as admin failed: 无法连接服务器")),
                 qPrintable(text));
        QVERIFY(!text.contains(QStringLiteral("admin-password-1")));
    }
};

QTEST_MAIN(TestConsoleConnectionLog)
#include "tst_console_connection_log.moc"
