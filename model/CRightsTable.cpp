#include "model/CRightsTable.h"

namespace Hlx {

namespace {

const int kStocks = 2;
const int kFutures = 1;
const int kFuturesOptions = 5;
const int kKxFuturesPlatform = 20000;
const int kKxFuturesOptionsPlatform = 70000;

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
        {kFutures, "期货", 10385, 10385, 10387},
        {kStocks, "证券", 10937, 10389, 10563},
        {kFuturesOptions, "期货期权", 11231, 11231, 10387},
        {6, "股票期权", 10709, 10711, 10713},
        {7, "沪港通", 11029, 11031, 11033},
        {10, "新三板", 11019, 11021, 11023},
        {4, "贵金属", 12147, 12149, 12151},
        {16, "外盘期货", 12353, 12355, 12357},
        {1002, "IB外盘", 12361, 12363, 12365},
        {8, "收益互换", 12369, 12370, 12372},
        {11, "深港通", 11222, 11223, 11224},
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
    return tradeType == kStocks &&
           (platformId == kKxFuturesPlatform || platformId == kKxFuturesOptionsPlatform);
}

int CRightsTable::kindOf(int tradeType, int platformId) {
    if (!isKxRow(tradeType, platformId))
        return tradeType;
    return platformId == kKxFuturesPlatform ? kFutures : kFuturesOptions;
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
    return refusal(std::string(verb(action)) + "Level-2行情源token");
}

std::string CRightsTable::refusal(const std::string& what) {
    return "没有权限：" + what;
}

}  // namespace Hlx
