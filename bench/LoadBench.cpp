// The load chain: from refresh() on a stock panel to the table showing every row, with the
// embedded SQLite service holding that many sources; the first load of a fresh process; and the
// warm chain against a bare select -> model -> paint of the same rows.
#include <QAbstractTableModel>
#include <QCoreApplication>
#include <QElapsedTimer>
#include <QProcess>
#include <QTableView>
#include <QTemporaryDir>
#include <boost/make_shared.hpp>

#include "BenchRegistry.h"
#include "CEmbeddedBackends.h"
#include "CQuotesService.h"
#include "Hlx/COrinClientCenter.h"
#include "Hlx/CUserManager.h"
#include "Zu/COddEvenRowTable.h"
#include "panels/QuotesManagePanel.h"
#include "rkservice/COrinQuoterSourceInfo.h"
#include "rkservice/DataTypeIds.h"

namespace {

bool fillService(CQuotesService& service, int count) {
    const int batch = 1000;
    for (int first = 0; first < count; first += batch) {
        rkservice::COperateDataReq request;
        request.dataType = rkservice::kDataQuoteSources;
        request.operateType = rkservice::kOperateAdd;
        for (int i = first; i < std::min(count, first + batch); ++i) {
            auto source = boost::make_shared<rkservice::COrinQuoterSourceInfo>();
            source->m_nPlatformId = 10000;
            source->m_nTradeType = 2;
            source->m_strAddress = "10." + std::to_string((i >> 16) & 255) + "." +
                                   std::to_string((i >> 8) & 255) + "." + std::to_string(i & 255);
            source->m_nPort = 1000 + (i % 60000);
            source->m_strUserName = "user" + std::to_string(i);
            source->m_strPassword = "pw";
            request.datas.push_back(source);
        }
        if (!service.operateSync(CCaller::owner(), Hlx::CRequestTarget::subsystem("sys1"), request)
                 .isSuccess())
            return false;
    }
    return true;
}

// Milliseconds from refresh() until the table has been built and painted with `count` rows.
double timeLoad(Hlx::CQuotesManagePanel& panel, int count) {
    // Queued after the panel's own slot, so it runs once the rows are built.
    bool shown = false;
    QMetaObject::Connection connection = QObject::connect(
        &panel, &Hlx::CQuotesManagePanel::sigOnDataQuotesInfo, &panel, [&shown] { shown = true; },
        Qt::QueuedConnection);
    QElapsedTimer timer;
    timer.start();
    panel.refresh();
    while (!shown && timer.elapsed() < 60000)
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 5);
    panel.table()->view()->viewport()->repaint();
    const double ms = timer.nsecsElapsed() / 1e6;
    QObject::disconnect(connection);
    if (panel.table()->rowCount() != count)
        std::fprintf(stderr, "load bench: %d rows shown, %d expected\n", panel.table()->rowCount(),
                     count);
    Hlx::COrinClientCenter::instance()->waitForIdle();
    return ms;
}

// The rows as plain text in a plain model: what any table of these sources has to do.
class BareModel : public QAbstractTableModel {
public:
    void reset(std::vector<rkservice::IDataPtr> rows) {
        beginResetModel();
        m_rows = std::move(rows);
        endResetModel();
    }
    int rowCount(const QModelIndex& = QModelIndex()) const override { return int(m_rows.size()); }
    int columnCount(const QModelIndex& = QModelIndex()) const override { return 6; }
    QVariant data(const QModelIndex& index, int role) const override {
        if (role != Qt::DisplayRole)
            return QVariant();
        const auto& s =
            static_cast<const rkservice::COrinQuoterSourceInfo&>(*m_rows[size_t(index.row())]);
        switch (index.column()) {
            case 0:
                return s.m_nId;
            case 1:
                return s.m_nPlatformId;
            case 2:
                return QString::fromStdString(s.m_strAddress);
            case 3:
                return s.m_nPort;
            case 4:
                return QString::fromStdString(s.m_strUserName);
            default:
                return QString::fromStdString(s.m_strPassword);
        }
    }

private:
    std::vector<rkservice::IDataPtr> m_rows;
};

// Milliseconds of the bare path over the same service: select, model, paint.
double timeBare(CQuotesService& service) {
    BareModel model;
    QTableView view;
    view.setModel(&model);
    view.resize(1100, 600);
    view.show();
    double best = 1e9;
    for (int round = 0; round < 2; ++round) {
        QElapsedTimer timer;
        timer.start();
        rkservice::COrinQueryDataReq request;
        request.dataType = rkservice::kDataQuoteSources;
        request.condition = "2";
        std::vector<rkservice::IDataPtr> datas;
        service.querySync(CCaller::owner(), Hlx::CRequestTarget::centre(), request, &datas);
        model.reset(std::move(datas));
        view.viewport()->repaint();
        best = std::min(best, timer.nsecsElapsed() / 1e6);
    }
    return best;
}

boost::shared_ptr<CQuotesService> preparedService(const QString& dir, int count) {
    CServiceOptions options;
    options.dataDir = dir;
    QString error;
    boost::shared_ptr<CQuotesService> service = CQuotesService::open(options, &error);
    if (!service || !fillService(*service, count)) {
        std::fprintf(stderr, "load bench: cannot prepare %d sources: %s\n", count,
                     error.toLocal8Bit().constData());
        return nullptr;
    }
    return service;
}

void actAsBenchUser() {
    auto user = boost::make_shared<rkservice::CUserInfo>();
    user->m_strName = "bench";
    user->m_rights = {10937, 10389, 10563};
    Hlx::CUserManager::instance()->setCurrentUser(user);
}

const char* const kColdDirVariable = "QUOTES_BENCH_COLD_DIR";

// The first load of a process that has loaded nothing before: run as a child of the load group,
// on the database it prepared.
void runColdLoad() {
    const QString dir = qEnvironmentVariable(kColdDirVariable);
    if (dir.isEmpty())
        return;
    actAsBenchUser();
    CServiceOptions options;
    options.dataDir = dir;
    QString error;
    const auto service = CQuotesService::open(options, &error);
    if (!service)
        return;
    Hlx::COrinClientCenter::instance()->setBackend(CEmbeddedBackends::backendAsOwner(service));
    {
        Hlx::CStockQuotesManagePanel panel(nullptr);
        panel.resize(1100, 600);
        panel.show();
        benchReport("load_chain_ms_100k_cold", timeLoad(panel, 100000), "ms");
    }
    Hlx::COrinClientCenter::instance()->setBackend({});
}

void reportColdLoad(const QString& dir) {
    QProcess child;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QString::fromLatin1(kColdDirVariable), dir);
    child.setProcessEnvironment(environment);
    child.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    child.start(QCoreApplication::applicationFilePath(), {QStringLiteral("load-cold")});
    child.waitForFinished(300000);
    std::fputs(child.readAllStandardOutput().constData(), stdout);
    std::fflush(stdout);
}

void runLoadBench() {
    actAsBenchUser();
    for (int count : {1000, 10000, 100000}) {
        QTemporaryDir dir;
        const auto service = preparedService(dir.path(), count);
        if (!service)
            return;
        if (count == 100000)
            reportColdLoad(dir.path());
        Hlx::COrinClientCenter::instance()->setBackend(CEmbeddedBackends::backendAsOwner(service));
        {
            Hlx::CStockQuotesManagePanel panel(nullptr);
            panel.resize(1100, 600);
            panel.show();
            timeLoad(panel, count);  // warm-up: caches and the first paint
            const double ms = timeLoad(panel, count);
            const std::string size =
                count >= 1000 ? std::to_string(count / 1000) + "k" : std::to_string(count);
            benchReport("load_chain_ms_" + size, ms, "ms");
            if (count == 100000) {
                benchReport("load_rss_mb_100k", benchRssMb(), "MB");
                const double bare = timeBare(*service);
                benchReport("load_bare_ms_100k", bare, "ms");
                benchReport("load_chain_ratio_100k", ms / bare, "x");
            }
        }
        Hlx::COrinClientCenter::instance()->setBackend({});
    }
}

BenchRegistrar registrar("load", &runLoadBench);
BenchRegistrar coldRegistrar("load-cold", &runColdLoad);

}  // namespace
