// A writer process killed with SIGKILL in the middle of a stream of batches: after reopening,
// the database passes its integrity check and every batch is wholly there or wholly absent.

#include <QCoreApplication>
#include <QProcess>
#include <cstdio>
#include <cstring>
#include <map>

#include "ServiceResults.h"
#include "ServiceTestUtil.h"

using namespace svctest;

namespace {

const int kBatch = 25;

// The child: adds batches of sources for ever, reporting each batch once its add is answered.
int runWriter(const QString& dir, int firstBatch) {
    CServiceOptions options;
    options.dataDir = dir;
    QString error;
    auto service = CQuotesService::open(options, &error);
    if (!service) {
        std::fprintf(stderr, "writer: %s\n", error.toUtf8().constData());
        return 1;
    }
    for (int batch = firstBatch;; ++batch) {
        rkservice::COperateDataReq request;
        request.dataType = rkservice::kDataQuoteSources;
        request.operateType = rkservice::kOperateAdd;
        for (int k = 0; k < kBatch; ++k) {
            const int n = batch * kBatch + k;
            request.datas.push_back(stockSource(10000, 2,
                                                "10." + std::to_string(n / 62500) + "." +
                                                    std::to_string(n / 250 % 250) + "." +
                                                    std::to_string(n % 250),
                                                1000, "batch" + std::to_string(batch), "pw"));
        }
        const utils::RKError result =
            service->operateSync(CCaller::owner(), Hlx::CRequestTarget::centre(), request);
        if (!result.isSuccess()) {
            std::fprintf(stderr, "writer: %s\n", result.errorMsg().c_str());
            return 1;
        }
        std::printf("committed %d\n", batch);
        std::fflush(stdout);
    }
}

}  // namespace

class TestDurability : public QObject {
    Q_OBJECT

private:
    // Starts the writer, lets it commit at least `batches` batches, kills it; returns the last
    // batch it reported.
    int killWriterAfter(const QString& dir, int firstBatch, int batches) {
        QProcess child;
        child.setProcessChannelMode(QProcess::SeparateChannels);
        child.start(QCoreApplication::applicationFilePath(),
                    {QStringLiteral("--writer"), dir, QString::number(firstBatch)});
        if (!child.waitForStarted())
            return -2;
        int last = -1;
        QByteArray pending;
        QElapsedTimer timer;
        timer.start();
        while (last < firstBatch + batches - 1 && timer.elapsed() < 60000) {
            if (!child.waitForReadyRead(5000) && child.state() != QProcess::Running)
                break;
            pending += child.readAllStandardOutput();
            int end;
            while ((end = pending.indexOf('\n')) >= 0) {
                const QByteArray line = pending.left(end);
                pending.remove(0, end + 1);
                if (line.startsWith("committed "))
                    last = line.mid(10).toInt();
            }
        }
        child.kill();  // SIGKILL: no chance to finish the batch in flight or to clean up
        child.waitForFinished();
        if (child.exitStatus() != QProcess::CrashExit)
            qWarning("writer ended by itself: %s", child.readAllStandardError().constData());
        return last;
    }

    // Reopens and checks: integrity, whole batches only, every reported batch present.
    int verify(const QString& dir, int lastReported) {
        CServiceOptions options;
        options.dataDir = dir;
        QString error;
        auto service = CQuotesService::open(options, &error);
        if (!service) {
            qWarning("reopen failed: %s", qPrintable(error));
            return -1;
        }
        QString integrity;
        integrity = failureOf(service->checkIntegrity(CCaller::owner()));
        if (!integrity.isEmpty()) {
            qWarning("integrity: %s", qPrintable(integrity));
            return -1;
        }
        rkservice::COrinQueryDataReq request;
        request.dataType = rkservice::kDataQuoteSources;
        std::vector<rkservice::IDataPtr> datas;
        if (!service->querySync(CCaller::owner(), Hlx::CRequestTarget::centre(), request, &datas)
                 .isSuccess())
            return -1;
        std::map<int, int> counts;
        for (const auto& source : as<rkservice::COrinQuoterSourceInfo>(datas))
            ++counts[QString::fromStdString(source->m_strUserName).mid(5).toInt()];
        int highest = -1;
        for (const auto& entry : counts) {
            if (entry.second != kBatch) {
                qWarning("batch %d has %d of %d sources", entry.first, entry.second, kBatch);
                return -1;
            }
            highest = std::max(highest, entry.first);
        }
        for (int batch = 0; batch <= lastReported; ++batch) {
            if (!counts.count(batch)) {
                qWarning("batch %d was answered but is gone", batch);
                return -1;
            }
        }
        // At most the batch in flight got in beyond the last one reported.
        if (highest > lastReported + 1 || int(counts.size()) != highest + 1) {
            qWarning("unexpected batches up to %d (reported %d)", highest, lastReported);
            return -1;
        }
        return highest;
    }

private slots:
    void killedWriterLeavesWholeBatches() {
        QTemporaryDir dir;
        int next = 0;
        for (int round = 0; round < 3; ++round) {
            const int reported = killWriterAfter(dir.path(), next, 15 + round * 7);
            QVERIFY2(reported >= next, "the writer reported no batch");
            const int highest = verify(dir.path(), reported);
            QVERIFY(highest >= reported);
            next = highest + 1;
        }
    }
};

int main(int argc, char** argv) {
    if (argc >= 4 && std::strcmp(argv[1], "--writer") == 0) {
        QCoreApplication app(argc, argv);
        return runWriter(QString::fromLocal8Bit(argv[2]), std::atoi(argv[3]));
    }
    QCoreApplication app(argc, argv);
    TestDurability test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_durability.moc"
