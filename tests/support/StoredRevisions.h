#pragma once

#include <boost/pointer_cast.hpp>
#include <map>
#include <string>
#include <vector>

#include "CCaller.h"
#include "CQuotesService.h"
#include "Hlx/CRequestTarget.h"
#include "rkservice/COrinQuoterSourceInfo.h"
#include "rkservice/DataTypeIds.h"

// The revisions stored now, read as the owner: a test whose subject is not concurrency sends
// them with its modifies and deletes, as a client that has just read the rows does. The owner's
// read leaves every session's view of imports as it was.
namespace StoredRevisions {

inline std::vector<rkservice::IDataPtr> stored(CQuotesService& service, int dataType) {
    rkservice::COrinQueryDataReq request;
    request.dataType = dataType;
    std::vector<rkservice::IDataPtr> datas;
    service.querySync(CCaller::owner(), Hlx::CRequestTarget::centre(), request, &datas);
    return datas;
}

// The stored revision of the record's counterpart: a source by id, a sub-system's whole-quote
// settings by the record's tag (else the sub-system given, else the default one), the token; 0
// when there is none.
inline long long of(CQuotesService& service, int dataType, const rkservice::IData& record,
                    const std::string& subsystem = std::string()) {
    const std::vector<rkservice::IDataPtr> datas = stored(service, dataType);
    if (dataType == rkservice::kDataLevel2Tokens)
        return datas.empty() ? 0 : datas.front()->getRevision();
    const std::string tag = !record.getSystemTag().empty() ? record.getSystemTag() : subsystem;
    for (const rkservice::IDataPtr& data : datas) {
        if (dataType == rkservice::kDataGlobalPermission) {
            if (tag.empty() || data->getSystemTag() == tag)
                return data->getRevision();
            continue;
        }
        auto source = boost::dynamic_pointer_cast<rkservice::COrinQuoterSourceInfo>(data);
        auto wanted = dynamic_cast<const rkservice::COrinQuoterSourceInfo*>(&record);
        if (source && wanted && source->m_nId == wanted->m_nId)
            return source->getRevision();
    }
    return 0;
}

// Gives each record the revision stored now.
inline void fill(CQuotesService& service, int dataType,
                 const std::vector<rkservice::IDataPtr>& records,
                 const std::string& subsystem = std::string()) {
    for (const rkservice::IDataPtr& record : records) {
        if (record)
            record->setRevision(of(service, dataType, *record, subsystem));
    }
}

}  // namespace StoredRevisions
