#include "model/CRightsTable.h"

#include "model/CLevel2Names.h"
#include "model/CPlatformIds.h"
#include "model/CTradeTypeIds.h"

namespace Hlx {

namespace {

using T = CTradeTypeIds;
using P = CPlatformIds;

const char* verb(CRecordAction action) {
    switch (action) {
        case CRecordAction::Add:
            return "添加";
        case CRecordAction::Modify:
            return "修改";
        case CRecordAction::Delete:
            break;
    }
    return "删除";
}

}  // namespace

const std::vector<CSourceRights>& CRightsTable::sources() {
    // kind, name, add, modify, delete
    static const std::vector<CSourceRights> table = {
        {T::kFutures, "期货", 10385, 10385, 10387},
        {T::kStocks, "证券", 10937, 10389, 10563},
        {T::kFuturesOptions, "期货期权", 11231, 11231, 10387},
        {T::kStockOptions, "股票期权", 10709, 10711, 10713},
        {T::kHgt, "沪港通", 11029, 11031, 11033},
        {T::kNeeq, "新三板", 11019, 11021, 11023},
        {T::kGold, "贵金属", 12147, 12149, 12151},
        {T::kOuterFutures, "外盘期货", 12353, 12355, 12357},
        {T::kOuterIB, "IB外盘", 12361, 12363, 12365},
        {T::kOuterStocks, "收益互换", 12369, 12370, 12372},
        {T::kSgt, "深港通", 11222, 11223, 11224},
    };
    return table;
}

const CSourceRights* CRightsTable::find(int tradeType) {
    for (const CSourceRights& rights : sources()) {
        if (rights.kind == tradeType)
            return &rights;
    }
    return nullptr;
}

bool CRightsTable::isKxRow(int tradeType, int platformId) {
    return tradeType == T::kStocks &&
           (platformId == P::kKxFutures || platformId == P::kKxFuturesOptions);
}

int CRightsTable::kindOf(int tradeType, int platformId) {
    if (!isKxRow(tradeType, platformId))
        return tradeType;
    return platformId == P::kKxFutures ? T::kFutures : T::kFuturesOptions;
}

std::vector<int> CRightsTable::sourceRights(CRecordAction action, int tradeType, int platformId) {
    const CSourceRights* rights = find(kindOf(tradeType, platformId));
    if (!rights)
        return {};
    switch (action) {
        case CRecordAction::Add:
            return {rights->add};
        case CRecordAction::Modify:
            return {rights->modify};
        case CRecordAction::Delete:
            break;
    }
    if (isKxRow(tradeType, platformId))
        return {rights->remove, kKxRowDelete};
    return {rights->remove};
}

int CRightsTable::level2Right(CRecordAction action) {
    switch (action) {
        case CRecordAction::Add:
            return kLevel2Add;
        case CRecordAction::Modify:
            return kLevel2Modify;
        case CRecordAction::Delete:
            break;
    }
    return kLevel2Delete;
}

std::string CRightsTable::sourceRefusal(CRecordAction action, int tradeType, int platformId) {
    const CSourceRights* rights = find(kindOf(tradeType, platformId));
    if (!rights)
        return refusal(std::string(verb(action)) + "交易类型 " + std::to_string(tradeType) +
                       " 的行情源");
    return refusal(std::string(verb(action)) + rights->name + "行情源");
}

std::string CRightsTable::level2Refusal(CRecordAction action) {
    return refusal(std::string(verb(action)) + CLevel2Names::kTokenNoun);
}

bool CRightsTable::isKnown(int right) {
    for (int fixed : {int(kKxRowDelete), int(kLevel2Add), int(kLevel2Modify), int(kLevel2Delete),
                      int(kWholeQuoteSave), int(kAdminister)}) {
        if (right == fixed)
            return true;
    }
    for (const CSourceRights& kind : sources()) {
        if (right == kind.add || right == kind.modify || right == kind.remove)
            return true;
    }
    return false;
}

std::string CRightsTable::refusal(const std::string& what) {
    return "没有权限：" + what;
}

}  // namespace Hlx
