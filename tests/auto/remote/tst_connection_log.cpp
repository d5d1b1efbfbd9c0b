// What a client of quotesd tells its log: logins, the calls the server refused, and an outage
// once, with its end.

#include <QtTest>
#include <mutex>
#include <string>
#include <vector>

#include "CRemoteAdmin.h"
#include "QuotesdProcess.h"
#include "TestPasswords.h"

namespace {

// The lines a client told, in order.
class ToldLines {
public:
    void attach(CRemoteAdmin& remote) {
        remote.setConnectionLog([this](CConnectionLog::Level level, const std::string& line) {
            std::lock_guard<std::mutex> lock(m_mutex);
            m_lines << QString(level == CConnectionLog::Level::Warning ? "W " : "I ") +
                           QString::fromStdString(line);
        });
    }
    QStringList with(const QString& text) const {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_lines.filter(text);
    }
    QStringList all() const {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_lines;
    }

private:
    mutable std::mutex m_mutex;
    QStringList m_lines;
};

}  // namespace

class TestConnectionLog : public QObject {
    Q_OBJECT

    QuotesdProcess m_server;

private slots:
    void initTestCase() {
        QString output;
        QVERIFY2(m_server.init(kAdminPassword, &output) &&
                     m_server.setPassword(QStringLiteral("viewer"), kViewerPassword) &&
                     m_server.start(),
                 qPrintable(output));
    }

    void loginsAndRefusalsAreTold() {
        CRemoteAdmin viewer({m_server.address().toStdString()},
                            m_server.certificatePem().toStdString());
        ToldLines told;
        told.attach(viewer);
        QVERIFY(!viewer.login("viewer", "wrong-password-1").isSuccess());
        QVERIFY(viewer.login("viewer", kViewerPassword.toStdString()).isSuccess());
        QVERIFY(!viewer.setLoginTypeAuth(7, true).isSuccess());
        const QString server = m_server.address();
        QCOMPARE(told.with("W login to " + server + " as viewer failed: ").size(), 1);
        QCOMPARE(told.with("I logged in to " + server + " as viewer").size(), 1);
        QCOMPARE(told.with("W SetLoginTypeAuth refused by " + server + ": 没有权限").size(), 1);
        // Nothing else: a successful call is not worth a line.
        QVERIFY(viewer.refreshSession().isSuccess());
        QCOMPARE(told.all().size(), 3);
        for (const QString& line : told.all())
            QVERIFY2(!line.contains("password-1"), qPrintable(line));
    }

    void anOutageIsToldOnceAndItsEndToo() {
        CRemoteAdmin admin({m_server.address().toStdString()},
                           m_server.certificatePem().toStdString(), std::chrono::seconds(1));
        ToldLines told;
        told.attach(admin);
        QVERIFY(admin.login("admin", kAdminPassword.toStdString()).isSuccess());
        QVERIFY(m_server.suspend());
        QVERIFY(!admin.refreshSession().isSuccess());
        QVERIFY(!admin.refreshSession().isSuccess());
        m_server.resume();
        QVERIFY(admin.refreshSession().isSuccess());
        const QString server = m_server.address();
        QCOMPARE(
            told.with("W connection to " + server + " lost (Subsystems): 无法连接服务器").size(),
            1);
        QCOMPARE(told.with("I connection to " + server + " restored").size(), 1);
        QCOMPARE(told.all().size(), 3);
    }

    void cleanupTestCase() { QCOMPARE(m_server.stop(), 0); }
};

QTEST_GUILESS_MAIN(TestConnectionLog)
#include "tst_connection_log.moc"
