// libFuzzer target: the checks of a quote source's own fields and of the Level-2 token.

#include <fuzzer/FuzzedDataProvider.h>

#include <cstddef>
#include <cstdint>

#include "CServiceError.h"
#include "CSourceValidator.h"
#include "rkservice/COrinQuoterSourceInfo.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider input(data, size);
    rkservice::COrinQuoterSourceInfo source;
    source.m_nTradeType = input.ConsumeIntegral<int>();
    source.m_nPlatformId = input.ConsumeIntegral<int>();
    source.m_nBrokerId = input.ConsumeBool() ? rkservice::COrinQuoterSourceInfo::kNoBroker
                                             : input.ConsumeIntegral<int>();
    source.m_nServerGroupId = input.ConsumeIntegral<int>();
    source.m_nPort = input.ConsumeIntegral<int>();
    source.m_strAddress = input.ConsumeRandomLengthString(300);
    source.m_strUserName = input.ConsumeRandomLengthString(300);
    source.m_strMarkets = input.ConsumeRandomLengthString(300);
    const std::string rest = input.ConsumeRemainingBytesAsString();
    try {
        CSourceValidator::checkFields(source);
    } catch (const CServiceError&) {
    }
    try {
        CSourceValidator::checkToken(rest);
    } catch (const CServiceError&) {
    }
    int tradeType = 0;
    try {
        CSourceValidator::parseCondition(rest, &tradeType);
    } catch (const CServiceError&) {
    }
    CSourceValidator::isAddress(rest);
    return 0;
}
