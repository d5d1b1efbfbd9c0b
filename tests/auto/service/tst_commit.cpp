// Faults at the commit itself: a write that fails when the transaction commits leaves the
// in-process caches as they were, and a power cut keeps every change that was answered.

#include <QDir>
#include <QJsonArray>

#include "FaultVfs.h"
#include "ServiceResults.h"
#include "ServiceTestUtil.h"

using namespace svctest;

namespace {

// Sources 10.9.0.1 ... added one request each.
rkservice::COperateDataReq addOne(int n) {
    rkservice::COperateDataReq request;
    request.dataType = rkservice::kDataQuoteSources;
    request.operateType = rkservice::kOperateAdd;
    request.datas.push_back(stockSource(10000, 2, "10.9.0." + std::to_string(n), 1000));
    return request;
}

// Releases the failing writes when a check returns early.
struct FailingCommits {
    FailingCommits() { FaultVfs::failLogWrites(true); }
    ~FailingCommits() { FaultVfs::failLogWrites(false); }
};

}  // namespace

class TestCommit : public QObject {
    Q_OBJECT

private:
    boost::shared_ptr<CQuotesService> open(const QString& dir, bool synchronousFull = true) {
        CServiceOptions options;
        options.dataDir = dir;
        options.synchronousFull = synchronousFull;
        QString error;
        auto service = CQuotesService::open(options, &error);
        if (!service)
            qWarning("open: %s", qPrintable(error));
        return service;
    }

    // Copies what a power cut would leave of the database into dir.
    static bool cutPower(const QString& from, const QString& to) {
        bool any = false;
        for (const QString& name : {QStringLiteral("quotes.db"), QStringLiteral("quotes.db-wal")}) {
            QByteArray image;
            if (!FaultVfs::durableImage(QDir(from).filePath(name), &image))
                continue;
            QFile file(QDir(to).filePath(name));
            if (!file.open(QIODevice::WriteOnly) || file.write(image) != image.size())
                return false;
            any = true;
        }
        // The key was written and synced when the database was created, long before the cut.
        const QString key = QStringLiteral("secrets.key");
        return any && QFile::copy(QDir(from).filePath(key), QDir(to).filePath(key));
    }

    // How many of the answered adds are in the database a power cut leaves.
    int survivors(bool synchronousFull, int adds) {
        QTemporaryDir live;
        QTemporaryDir after;
        auto service = open(live.path(), synchronousFull);
        if (!service)
            return -1;
        for (int n = 1; n <= adds; ++n) {
            const auto answer =
                service->operateSync(CCaller::owner(), Hlx::CRequestTarget::centre(), addOne(n));
            if (!answer.isSuccess())
                return -1;
        }
        // The power goes while the service still runs: nothing is closed or checkpointed.
        if (!cutPower(live.path(), after.path()))
            return -1;
        auto restored = open(after.path());
        if (!restored || !restored->checkIntegrity(CCaller::owner()).isSuccess())
            return -1;
        std::vector<rkservice::IDataPtr> datas;
        rkservice::COrinQueryDataReq request;
        request.dataType = rkservice::kDataQuoteSources;
        restored->querySync(CCaller::owner(), Hlx::CRequestTarget::centre(), request, &datas);
        return int(datas.size());
    }

private slots:
    void initTestCase() { FaultVfs::install(); }

    void cachesChangeOnlyAfterCommit() {
        QTemporaryDir dir;
        auto service = open(dir.path());
        QVERIFY(service);
        // The service's connections really go through the VFS.
        QVERIFY(FaultVfs::opened(dir.path() + QStringLiteral("/quotes.db")) > 0);
        const auto subsystems = service->subsystems();
        const bool granted = service->hasClientLoginTypeAuth(0);
        std::vector<Hlx::SubsystemInfo> renamed = subsystems;
        renamed.front().displayName = "改名";
        renamed.push_back({"sys9", "新分系统"});
        QJsonObject document;
        QVERIFY(service->exportDocument(CCaller::owner(), &document).isSuccess());
        document.insert(QStringLiteral("subsystems"),
                        QJsonArray{QJsonObject{{"name", "only"}, {"displayName", "唯一"}}});
        document.insert(QStringLiteral("sources"), QJsonArray());
        document.insert(QStringLiteral("wholeQuote"), QJsonObject());
        {
            FailingCommits failing;
            QString error;
            error = failureOf(service->setSubsystems(CCaller::owner(), renamed));
            QVERIFY(!error.isEmpty());
            QVERIFY2(!error.isEmpty(), "refused without a text");
            QCOMPARE(service->subsystems().size(), subsystems.size());
            QCOMPARE(service->subsystems().front().displayName, subsystems.front().displayName);
            QVERIFY(!service->setLoginTypeAuth(CCaller::owner(), 0, !granted).isSuccess());
            QCOMPARE(service->hasClientLoginTypeAuth(0), granted);
            QVERIFY(!service->importDocument(CCaller::owner(), document, {}, nullptr).isSuccess());
            QCOMPARE(service->subsystems().front().name, subsystems.front().name);
        }
        // Once writes work again the same changes go through and the caches follow them.
        QVERIFY(service->setSubsystems(CCaller::owner(), renamed).isSuccess());
        QCOMPARE(service->subsystems().size(), renamed.size());
        QVERIFY(service->setLoginTypeAuth(CCaller::owner(), 0, !granted).isSuccess());
        QCOMPARE(service->hasClientLoginTypeAuth(0), !granted);
        QVERIFY(service->checkIntegrity(CCaller::owner()).isSuccess());
    }

    void answeredChangesSurvivePowerCut() {
        const int adds = 20;
        QCOMPARE(survivors(true, adds), adds);
        // The check can tell: without a sync at each commit the same cut loses changes.
        const int unsynced = survivors(false, adds);
        QVERIFY2(unsynced >= 0 && unsynced < adds, qPrintable(QString::number(unsynced)));
    }
};

QTEST_GUILESS_MAIN(TestCommit)
#include "tst_commit.moc"
