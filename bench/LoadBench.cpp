// The load chain: from refresh() on a stock panel to the table showing every row, with the
// embedded SQLite service holding that many sources.
#include <QCoreApplication>
#include <QElapsedTimer>
#include <QTableView>
#include <QTemporaryDir>
#include <boost/make_shared.hpp>

#include "BenchRegistry.h"
#include "CEmbeddedAdmin.h"
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

void runLoadBench() {
    auto user = boost::make_shared<rkservice::CUserInfo>();
    user->m_strName = "bench";
    user->m_rights = {10937, 10389, 10563};
    Hlx::CUserManager::instance()->setCurrentUser(user);
    for (int count : {1000, 10000, 100000}) {
        QTemporaryDir dir;
        CServiceOptions options;
        options.dataDir = dir.path();
        QString error;
        boost::shared_ptr<CQuotesService> service = CQuotesService::open(options, &error);
        if (!service || !fillService(*service, count)) {
            std::fprintf(stderr, "load bench: cannot prepare %d sources: %s\n", count,
                         error.toLocal8Bit().constData());
            return;
        }
        Hlx::COrinClientCenter::instance()->setBackend(CEmbeddedAdmin::backendAsOwner(service));
        {
            Hlx::CStockQuotesManagePanel panel(nullptr);
            panel.resize(1100, 600);
            panel.show();
            timeLoad(panel, count);  // warm-up: caches and the first paint
            const double ms = timeLoad(panel, count);
            const std::string size =
                count >= 1000 ? std::to_string(count / 1000) + "k" : std::to_string(count);
            benchReport("load_chain_ms_" + size, ms, "ms");
            if (count == 100000)
                benchReport("load_rss_mb_100k", benchRssMb(), "MB");
        }
        Hlx::COrinClientCenter::instance()->setBackend({});
    }
}

BenchRegistrar registrar("load", &runLoadBench);

}  // namespace
