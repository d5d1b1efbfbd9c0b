#include "model/CRequestRouter.h"

#include "Hlx/COrinClientCenter.h"

namespace Hlx {

CRequestRouter::CRequestRouter(RoutePolicy policy, bool routeBySystem, const QString& systemName)
    : m_policy(policy), m_routeBySystem(routeBySystem), m_systemName(systemName) {}

CRequestRouter::Destination CRequestRouter::destination() const {
    const bool named = !m_systemName.isEmpty();
    switch (m_policy) {
        case RoutePolicy::Centre:
            return Destination::Centre;
        case RoutePolicy::NamedClient:
            return Destination::Client;
        case RoutePolicy::NamedOrCentre:
            return named ? Destination::Client : Destination::Centre;
        case RoutePolicy::RoutedOrCentre:
        case RoutePolicy::RoutedOrDrop:
            break;
    }
    if (!m_routeBySystem || !COrinClientCenter::instance()->isMultiServers())
        return Destination::Centre;
    if (named)
        return Destination::Client;
    return m_policy == RoutePolicy::RoutedOrDrop ? Destination::Dropped : Destination::Centre;
}

bool CRequestRouter::query(const rkservice::COrinQueryDataReqPtr& request,
                           const QueryCallback& callback) const {
    COrinClientCenter* centre = COrinClientCenter::instance();
    switch (destination()) {
        case Destination::Centre:
            centre->queryData_async(request, callback, false);
            return true;
        case Destination::Client:
            centre->getClientByName(m_systemName.toStdString())
                ->queryData_async(request, callback, false);
            return true;
        case Destination::Dropped:
            break;
    }
    return false;
}

bool CRequestRouter::operate(const rkservice::COperateDataReqPtr& request,
                             const OperateCallback& callback) const {
    COrinClientCenter* centre = COrinClientCenter::instance();
    switch (destination()) {
        case Destination::Centre:
            centre->operateData_async(request, callback, false);
            return true;
        case Destination::Client:
            centre->getClientByName(m_systemName.toStdString())
                ->operateData_async(request, callback, false);
            return true;
        case Destination::Dropped:
            break;
    }
    return false;
}

}  // namespace Hlx
