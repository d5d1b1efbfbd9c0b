#include "CDemoLoopback.h"

#include <QTcpServer>
#include <QTcpSocket>
#include <boost/make_shared.hpp>
#include <iterator>

#include "CCaller.h"
#include "CProbeAllowList.h"
#include "CQuotesService.h"
#include "CSourceProber.h"
#include "CTcpProber.h"
#include "Hlx/CRequestTarget.h"
#include "Hlx/CSourcePatch.h"
#include "rkservice/COperateDataReq.h"
#include "rkservice/COrinQueryDataReq.h"
#include "rkservice/COrinQuoterSourceInfo.h"
#include "rkservice/DataTypeIds.h"

namespace {

const int kPlatform = 10000;
const int kTradeType = 2;

int indexOfUser(const std::string& user) {
    for (int i = 0; i < int(std::size(CDemoLoopback::kUsers)); ++i) {
        if (user == CDemoLoopback::kUsers[i])
            return i;
    }
    return -1;
}

utils::RKError addSource(CQuotesService& service, const char* user, int port) {
    auto record = boost::make_shared<rkservice::COrinQuoterSourceInfo>();
    record->m_nPlatformId = kPlatform;
    record->m_nTradeType = kTradeType;
    record->m_strAddress = CDemoLoopback::kAddress;
    record->m_nPort = port;
    record->m_strUserName = user;
    record->m_strPassword = std::string("Demo") + std::to_string(port);
    rkservice::COperateDataReq request;
    request.dataType = rkservice::kDataQuoteSources;
    request.operateType = rkservice::kOperateAdd;
    request.datas.push_back(record);
    return service.operateSync(CCaller::localOwner(),
                               Hlx::CRequestTarget::subsystem(CDemoLoopback::kSubsystem), request);
}

}  // namespace

CDemoLoopback::CDemoLoopback(QObject* parent) : QObject(parent) {}

CDemoLoopback::~CDemoLoopback() = default;

bool CDemoLoopback::start(CQuotesService& service, QString* error) {
    const std::vector<Stored> before = stored(service, error);
    if (before.empty())
        return false;
    m_ports.clear();
    for (int i = 0; i < kListened; ++i) {
        auto* server = new QTcpServer(this);
        m_servers.push_back(server);
        m_ports.push_back(listen(server, before[std::size_t(i)].port));
    }
    m_ports.push_back(closedPort(before[kListened].port));
    for (int port : m_ports) {
        if (port == 0) {
            *error = QStringLiteral("示例数据: 无法在 %1 上打开端口").arg(QLatin1String(kAddress));
            return false;
        }
    }
    if (!place(service, before, m_ports, error))
        return false;
    CProbeAllowList allow = service.prober().tcp().allowList();
    allow.allow(QStringLiteral("127.0.0.0/8"));
    service.prober().tcp().setAllowList(allow);
    return true;
}

std::vector<CDemoLoopback::Stored> CDemoLoopback::stored(CQuotesService& service, QString* error) {
    rkservice::COrinQueryDataReq request;
    request.dataType = rkservice::kDataQuoteSources;
    std::vector<rkservice::IDataPtr> datas;
    const utils::RKError result = service.querySync(
        CCaller::localOwner(), Hlx::CRequestTarget::subsystem(kSubsystem), request, &datas);
    if (!result.isSuccess()) {
        *error = QString::fromStdString(result.errorMsg());
        return {};
    }
    std::vector<Stored> found(std::size(kUsers));
    for (const rkservice::IDataPtr& data : datas) {
        const auto source = boost::dynamic_pointer_cast<rkservice::COrinQuoterSourceInfo>(data);
        const int index =
            source && source->m_strAddress == kAddress ? indexOfUser(source->m_strUserName) : -1;
        if (index >= 0)
            found[std::size_t(index)] = {source->m_nId, source->m_nPort};
    }
    return found;
}

int CDemoLoopback::listen(QTcpServer* server, int preferred) {
    const QHostAddress loopback(QString::fromLatin1(kAddress));
    if ((preferred > 0 && server->listen(loopback, quint16(preferred))) ||
        server->listen(loopback, 0)) {
        connect(server, &QTcpServer::newConnection, this, [this, server] { acceptAll(server); });
        return server->serverPort();
    }
    return 0;
}

int CDemoLoopback::closedPort(int preferred) {
    // A port that was free a moment ago: nothing listens there, so a connect is refused.
    QTcpServer probe;
    const QHostAddress loopback(QString::fromLatin1(kAddress));
    if ((preferred > 0 && probe.listen(loopback, quint16(preferred))) || probe.listen(loopback, 0))
        return probe.serverPort();
    return 0;
}

bool CDemoLoopback::place(CQuotesService& service, const std::vector<Stored>& stored,
                          const std::vector<int>& ports, QString* error) {
    for (std::size_t i = 0; i < ports.size(); ++i) {
        utils::RKError result;
        if (stored[i].id == 0) {
            result = addSource(service, kUsers[i], ports[i]);
        } else if (stored[i].port != ports[i]) {
            Hlx::CSourcePatch patch;
            patch.port = ports[i];
            result = service.modifySource(CCaller::localOwner(), stored[i].id, patch);
        }
        if (!result.isSuccess()) {
            *error = QStringLiteral("示例数据: %1").arg(QString::fromStdString(result.errorMsg()));
            return false;
        }
    }
    return true;
}

void CDemoLoopback::acceptAll(QTcpServer* server) {
    // Probes only connect; each is closed at once so the backlog never fills.
    while (QTcpSocket* socket = server->nextPendingConnection()) {
        socket->abort();
        socket->deleteLater();
    }
}
