// How soon a change committed by another process shows in the console's open panel: a child
// process adds sources one at a time to the console's SQLite file and says when each commit
// returned (CLOCK_MONOTONIC, shared by every process); the console, unaware, reloads its panel on
// the change feed, and the time the new row is built is compared. The changes are spaced beyond
// the console's coalescing interval, so each is one reload.

#include <QCoreApplication>
#include <QDir>
#include <QEventLoop>
#include <QProcess>
#include <QTemporaryDir>
#include <QTimer>
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <iostream>
#include <string>
#include <vector>

#include "BenchRegistry.h"
#include "BenchService.h"
#include "BenchSources.h"
#include "CCaller.h"
#include "CConsoleWindow.h"
#include "CEmbeddedBackends.h"
#include "CLiveUpdates.h"
#include "Hlx/COrinClientCenter.h"
#include "Hlx/CUserManager.h"
#include "panels/CQuotesManagePanel.h"
#include "rkservice/DataTypeIds.h"

namespace {

const char* const kChangerDirVariable = "QUOTES_BENCH_CHANGER_DIR";
const int kChanges = 40;

qint64 monotonicNs() {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

// The other process: one add per line read, answered "<id> <ns after the commit>".
void runChanger() {
    const QString dir = qEnvironmentVariable(kChangerDirVariable);
    if (dir.isEmpty())
        return;
    const auto service = openBenchService(dir);
    if (!service)
        return;
    const CCaller caller = CCaller::localOwner();
    std::string line;
    for (int n = 0; std::getline(std::cin, line); ++n) {
        rkservice::COperateDataReq request;
        request.dataType = rkservice::kDataQuoteSources;
        request.operateType = rkservice::kOperateAdd;
        request.datas = {benchSource(500000 + n)};
        bson::BSONObj result;
        if (!service->operateSync(caller, Hlx::CRequestTarget::centre(), request, &result)
                 .isSuccess())
            return;
        const qint64 committed = monotonicNs();
        std::printf("%s %lld\n", result.getStringField("ids").c_str(),
                    static_cast<long long>(committed));
        std::fflush(stdout);
    }
}

bool shows(Hlx::CQuotesManagePanel* panel, int id) {
    for (int row = panel->rowRecordCount() - 1; row >= 0; --row) {
        const auto record = panel->rowRecord(row);
        if (record && record->m_nId == id)
            return true;
    }
    return false;
}

double percentile(std::vector<double> values, double p) {
    std::sort(values.begin(), values.end());
    const std::size_t index = std::min(values.size() - 1, std::size_t(p * values.size()));
    return values[index];
}

void runNotifyBench() {
    QTemporaryDir dir;
    const auto service = openBenchService(dir.path());
    if (!service)
        return;
    std::vector<rkservice::CUserInfoPtr> users;
    service->users(CCaller::owner(), &users);
    for (const auto& user : users) {
        if (user->m_strName == "admin")
            Hlx::CUserManager::instance()->setCurrentUser(user);
    }
    const auto admin = CEmbeddedBackends::forCurrentUser(service);
    Hlx::COrinClientCenter::instance()->setBackend(
        CEmbeddedBackends::backendForCurrentUser(service));
    std::vector<double> latencies;
    {
        CConsoleWindow window(admin, QDir(dir.path()).filePath(QStringLiteral("console.ini")));
        window.restoreSettings();
        window.show();
        auto* panel = qobject_cast<Hlx::CQuotesManagePanel*>(window.panel(QStringLiteral("allq")));
        QProcess changer;
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QString::fromLatin1(kChangerDirVariable), dir.path());
        changer.setProcessEnvironment(environment);
        changer.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        changer.start(QCoreApplication::applicationFilePath(), {QStringLiteral("notify-changer")});
        if (!panel || !changer.waitForStarted())
            return;

        QEventLoop loop;
        int waitingFor = 0;
        qint64 committedNs = 0;
        auto next = [&] {
            if (int(latencies.size()) == kChanges) {
                loop.quit();
                return;
            }
            changer.write("add\n");
        };
        QObject::connect(&changer, &QProcess::readyReadStandardOutput, [&] {
            while (changer.canReadLine()) {
                const QList<QByteArray> fields = changer.readLine().trimmed().split(' ');
                waitingFor = fields.value(0).toInt();
                committedNs = fields.value(1).toLongLong();
            }
        });
        // After the panel's own slot has built the rows.
        QObject::connect(
            panel, &Hlx::CQuotesManagePanel::sigOnDataQuotesInfo, &loop,
            [&] {
                if (waitingFor == 0 || !shows(panel, waitingFor))
                    return;
                latencies.push_back(double(monotonicNs() - committedNs) / 1e6);
                waitingFor = 0;
                QTimer::singleShot(CLiveUpdates::kMinReloadMs + 100, &loop, next);
            },
            Qt::QueuedConnection);
        QTimer::singleShot(1000, &loop, next);
        QTimer::singleShot(120000, &loop, [&] { loop.quit(); });
        loop.exec();
        changer.closeWriteChannel();
        changer.waitForFinished(10000);
    }
    Hlx::COrinClientCenter::instance()->waitForIdle();
    Hlx::COrinClientCenter::instance()->setBackend({});
    if (latencies.size() != std::size_t(kChanges)) {
        std::fprintf(stderr, "notify bench: %zu of %d changes seen\n", latencies.size(), kChanges);
        return;
    }
    benchReport("notify_latency_ms_p50", percentile(latencies, 0.5), "ms");
    benchReport("notify_latency_ms_p99", percentile(latencies, 0.99), "ms");
}

BenchRegistrar registrar("notify", &runNotifyBench);
BenchRegistrar changerRegistrar("notify-changer", &runChanger);

}  // namespace
