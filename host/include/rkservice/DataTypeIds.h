#pragma once

// The data types and operations of the data service's protocol.
namespace rkservice {

enum DataType {
    kDataGlobalPermission = 676,
    kDataBrokers = 12261,
    kDataPlatforms = 12262,
    kDataQuoteSources = 12300,
    kDataLevel2Tokens = 12417,
    // Host-side only: the user records that the user manager and the console read.
    kDataUsers = 9100,
};

enum OperateType {
    kOperateModify = 0,
    kOperateSaveWholeQuote = 1,
    kOperateAdd = 2,
    kOperateDelete = 3,
};

// The service's table key of quote sources.
constexpr const char* kQuoteSourceTableKey = "kx_orin_quoter_source";

}  // namespace rkservice
