#pragma once

#include <QString>

#include "Hlx/DataCallbacks.h"
#include "model/PanelQuotesManageGlobal.h"
#include "rkservice/COperateDataReq.h"
#include "rkservice/COrinQueryDataReq.h"

namespace Hlx {

// How a request chooses between the client centre and a sub-system's client.
enum class RoutePolicy {
    // Always the client centre.
    Centre,
    // Always the named sub-system's client (the empty name gives the default one).
    NamedClient,
    // The named sub-system's client when a name is bound, else the centre.
    NamedOrCentre,
    // When the user routes by sub-system and several run: the named client, or the centre
    // without a name. Otherwise the centre.
    RoutedOrCentre,
    // As RoutedOrCentre, but without a name the request is dropped.
    RoutedOrDrop,
};

// Sends requests by one routing policy for a panel or dialog.
class PANELQUOTESMANAGE_EXPORT CRequestRouter {
public:
    CRequestRouter(RoutePolicy policy, bool routeBySystem, const QString& systemName);

    // False when the policy drops the request.
    bool query(const rkservice::COrinQueryDataReqPtr& request, const QueryCallback& callback) const;
    bool operate(const rkservice::COperateDataReqPtr& request,
                 const OperateCallback& callback) const;

    enum class Destination { Centre, Client, Dropped };
    Destination destination() const;

private:
    RoutePolicy m_policy;
    bool m_routeBySystem;
    QString m_systemName;
};

}  // namespace Hlx
