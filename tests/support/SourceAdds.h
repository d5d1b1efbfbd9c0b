#pragma once

#include <QString>
#include <string>

#include "Hlx/CRequestTarget.h"
#include "Hlx/IQuoteData.h"
#include "RecordBuilders.h"
#include "rkservice/COperateDataReq.h"
#include "rkservice/DataTypeIds.h"

// Adds a stock source of platform 10000 to a sub-system through an administration interface,
// embedded or on quotesd: the call's result, and the new id in *id when asked.
inline utils::RKError addStockSource(Hlx::IQuoteData& admin, const std::string& address, int port,
                                     int* id = nullptr, const std::string& subsystem = "sys1") {
    rkservice::COperateDataReq request;
    request.dataType = rkservice::kDataQuoteSources;
    request.operateType = rkservice::kOperateAdd;
    request.datas = {RecordBuilders::source(0, 10000, 2, address, port)};
    bson::BSONObj result;
    const utils::RKError error =
        admin.operate(Hlx::CRequestTarget::subsystem(subsystem), request, &result);
    if (id)
        *id = error.isSuccess() ? QString::fromStdString(result.getStringField("ids")).toInt() : 0;
    return error;
}
