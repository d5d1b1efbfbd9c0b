#pragma once

#include <string>
#include <vector>

#include "rkservice/IData.h"

class CCtlSession;

// quotesctl's token show|set|delete: the Level-2 token.
class CTokenCommand {
public:
    static void show(CCtlSession& session);
    static void set(CCtlSession& session);
    static void remove(CCtlSession& session);

private:
    // The stored token: empty when there is none.
    static std::vector<rkservice::IDataPtr> stored(CCtlSession& session);
    static void operate(CCtlSession& session, int operateType, const std::string& token,
                        long long revision);
};
