// The online copy of a 100,000-source SQLite database while a writer goes on adding sources one
// by one: how long the copy takes, and how many of the writer's adds were answered meanwhile
// (none would mean the copy stopped the writers).

#include <QElapsedTimer>
#include <QTemporaryDir>
#include <atomic>
#include <thread>

#include "BenchRegistry.h"
#include "BenchService.h"
#include "BenchSources.h"
#include "CCaller.h"
#include "CQuotesService.h"
#include "rkservice/DataTypeIds.h"

namespace {

void runBackupBench() {
    QTemporaryDir dir;
    auto service = openBenchService(dir.path());
    if (!service)
        return;
    const int sources = 100000;
    if (!fillBenchSources(*service, sources)) {
        std::fprintf(stderr, "backup bench: could not fill the database\n");
        return;
    }
    std::atomic<bool> stop{false};
    std::atomic<int> answered{0};
    std::thread writer([&] {
        for (int n = sources; !stop && addBenchSources(*service, n, 1); ++n)
            ++answered;
    });
    while (answered < 3)
        std::this_thread::yield();
    Hlx::CBackupOptions backup;
    backup.file = dir.filePath(QStringLiteral("copy.db")).toStdString();
    std::string written;
    const int before = answered;
    QElapsedTimer timer;
    timer.start();
    const utils::RKError error = service->backupDatabase(CCaller::owner(), backup, &written);
    const double seconds = double(timer.nsecsElapsed()) / 1e9;
    const int during = answered - before;
    stop = true;
    writer.join();
    if (!error.isSuccess()) {
        std::fprintf(stderr, "backup bench: %s\n", error.errorMsg().c_str());
        return;
    }
    benchReport("backup_s_100k", seconds, "s");
    benchReport("backup_writes_answered_during_100k", during, "adds");
}

static BenchRegistrar reg("backup", &runBackupBench);

}  // namespace
