// Password checks at once are bounded: each Argon2id check takes 64 MiB, so a burst of logins
// on every server thread waits its turn instead of taking gigabytes; every login still answers.

#include <QTemporaryDir>
#include <QThread>
#include <QtTest>
#include <atomic>
#include <vector>

#include "CAccountStore.h"
#include "CLoginManager.h"
#include "CQuotesService.h"

namespace {

const std::string kPassword = "correct horse battery";
const qint64 kNow = 1700000000000;

}  // namespace

class TestPasswordChecks : public QObject {
    Q_OBJECT

    QTemporaryDir m_dir;
    boost::shared_ptr<CQuotesService> m_service;

    // Logins of admin from `threads` threads at once; how many succeeded.
    int loginsAtOnce(CLoginManager& logins, int threads) {
        std::atomic<int> succeeded{0};
        std::vector<QThread*> running;
        for (int t = 0; t < threads; ++t) {
            running.push_back(QThread::create([&, t] {
                if (logins
                        .login(QStringLiteral("admin"), kPassword,
                               QStringLiteral("10.9.0.%1").arg(t), kNow)
                        .ok())
                    ++succeeded;
            }));
        }
        for (QThread* thread : running)
            thread->start();
        for (QThread* thread : running) {
            thread->wait();
            delete thread;
        }
        return succeeded.load();
    }

private slots:
    void initTestCase() {
        CServiceOptions options;
        options.dataDir = m_dir.path();
        QString error;
        m_service = CQuotesService::open(options, &error);
        QVERIFY2(m_service, qPrintable(error));
        CAccountStore(m_service->database()).setPassword(QStringLiteral("admin"), kPassword);
    }

    void atMostTheBoundRunAtOnce() {
        CLoginManager::Options options;
        options.concurrentPasswordChecks = 2;
        CLoginManager logins(m_service->database(), options);
        QCOMPARE(loginsAtOnce(logins, 8), 8);
        QCOMPARE(int(logins.verifyCount()), 8);
        QVERIFY2(logins.peakConcurrentChecks() <= 2,
                 qPrintable(QString::number(logins.peakConcurrentChecks())));
    }

    void oneAtATime() {
        CLoginManager::Options options;
        options.concurrentPasswordChecks = 1;
        CLoginManager logins(m_service->database(), options);
        QCOMPARE(loginsAtOnce(logins, 4), 4);
        QCOMPARE(logins.peakConcurrentChecks(), 1);
    }
};

QTEST_GUILESS_MAIN(TestPasswordChecks)
#include "tst_password_checks.moc"
