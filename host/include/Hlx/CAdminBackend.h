#pragma once

#include <boost/shared_ptr.hpp>

#include "Hlx/IDataServiceBackend.h"
#include "Hlx/IQuotesAdmin.h"

namespace Hlx {

// Puts an administration interface (embedded or remote) behind the client centre: each request
// runs on the centre's worker thread and answers once.
class CAdminBackend : public IDataServiceBackend {
public:
    explicit CAdminBackend(boost::shared_ptr<IQuotesAdmin> admin);

    void query(const CRequestTarget& target, const rkservice::COrinQueryDataReq& request,
               const CQueryAnswer& answer) override;
    void operate(const CRequestTarget& target, const rkservice::COperateDataReq& request,
                 const COperateAnswer& answer) override;
    std::vector<SubsystemInfo> subsystems() const override;
    bool hasClientLoginTypeAuth(int loginType) const override;

    const boost::shared_ptr<IQuotesAdmin>& admin() const { return m_admin; }

private:
    boost::shared_ptr<IQuotesAdmin> m_admin;
};

}  // namespace Hlx
