#pragma once

class CCtlSession;

// quotesctl's integrity, rekey and ping: the data service and its database themselves.
class CServiceCommands {
public:
    static void integrity(CCtlSession& session);
    static void rekey(CCtlSession& session);
    static void ping(CCtlSession& session);
};
