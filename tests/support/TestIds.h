#pragma once

#include "model/CPlatformIds.h"
#include "model/CTradeTypeIds.h"
#include "rkservice/DataTypeIds.h"

// The ids tests script answers and read requests with, by name: the record library's data types
// and model/'s trade types and platforms, as plain ints (what requests and records hold), so
// that a test reads source(1, kKxStocks, kStocks) rather than source(1, 10000, 2).
namespace TestIds {

// Data types.
constexpr int kDataQuoteSources = rkservice::kDataQuoteSources;
constexpr int kDataBrokers = rkservice::kDataBrokers;
constexpr int kDataPlatforms = rkservice::kDataPlatforms;
constexpr int kDataGlobalPermission = rkservice::kDataGlobalPermission;
constexpr int kDataLevel2Tokens = rkservice::kDataLevel2Tokens;

// Trade types.
constexpr int kAllTypes = Hlx::CTradeTypeIds::kAll;
constexpr int kFutures = Hlx::CTradeTypeIds::kFutures;
constexpr int kStocks = Hlx::CTradeTypeIds::kStocks;
constexpr int kGold = Hlx::CTradeTypeIds::kGold;
constexpr int kFuturesOptions = Hlx::CTradeTypeIds::kFuturesOptions;
constexpr int kStockOptions = Hlx::CTradeTypeIds::kStockOptions;
constexpr int kHgt = Hlx::CTradeTypeIds::kHgt;
constexpr int kOuterStocks = Hlx::CTradeTypeIds::kOuterStocks;
constexpr int kNeeq = Hlx::CTradeTypeIds::kNeeq;
constexpr int kSgt = Hlx::CTradeTypeIds::kSgt;
constexpr int kOuterFutures = Hlx::CTradeTypeIds::kOuterFutures;
constexpr int kOuterIB = Hlx::CTradeTypeIds::kOuterIB;

// Platforms.
constexpr int kKxStocks = Hlx::CPlatformIds::kKxStocks;
constexpr int kKxStockOptions = Hlx::CPlatformIds::kKxStockOptions;
constexpr int kKxNeeq = Hlx::CPlatformIds::kKxNeeq;
constexpr int kKxHgt = Hlx::CPlatformIds::kKxHgt;
constexpr int kKxSgt = Hlx::CPlatformIds::kKxSgt;
constexpr int kKxOuterFutures = Hlx::CPlatformIds::kKxOuterFutures;
constexpr int kKxFutures = Hlx::CPlatformIds::kKxFutures;
constexpr int kCtpOptionsLive = Hlx::CPlatformIds::kCtpOptionsLive;
constexpr int kCtpOptionsSimulated = Hlx::CPlatformIds::kCtpOptionsSimulated;
constexpr int kKxGold = Hlx::CPlatformIds::kKxGold;
constexpr int kOuter = Hlx::CPlatformIds::kOuter;
constexpr int kKxFuturesOptions = Hlx::CPlatformIds::kKxFuturesOptions;

}  // namespace TestIds
