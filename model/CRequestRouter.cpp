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

namespace {

// Sends through the centre's or a client's entry of the same shape.
template <class Request, class Callback>
bool send(CRequestRouter::Destination destination, const QString& systemName,
          const Request& request, const Callback& callback,
          void (COrinClientCenter::*centreEntry)(const Request&, const Callback&, bool),
          void (COrinClient::*clientEntry)(const Request&, const Callback&, bool)) {
    COrinClientCenter* centre = COrinClientCenter::instance();
    switch (destination) {
        case CRequestRouter::Destination::Centre:
            (centre->*centreEntry)(request, callback, false);
            return true;
        case CRequestRouter::Destination::Client:
            (centre->getClientByName(systemName.toStdString()).get()->*clientEntry)(
                request, callback, false);
            return true;
        case CRequestRouter::Destination::Dropped:
            break;
    }
    return false;
}

}  // namespace

bool CRequestRouter::query(const rkservice::COrinQueryDataReqPtr& request,
                           const QueryCallback& callback) const {
    return send(destination(), m_systemName, request, callback, &COrinClientCenter::queryData_async,
                &COrinClient::queryData_async);
}

bool CRequestRouter::operate(const rkservice::COperateDataReqPtr& request,
                             const OperateCallback& callback) const {
    return send(destination(), m_systemName, request, callback,
                &COrinClientCenter::operateData_async, &COrinClient::operateData_async);
}

}  // namespace Hlx
