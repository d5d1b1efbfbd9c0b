#pragma once

class CCtlArguments;
class CCtlCommand;
class CCtlGlobals;
class CCtlSession;

// quotesctl's integrity, rekey, ping and health: the data service and its database themselves.
class CServiceCommands {
public:
    static void integrity(CCtlSession& session);
    static void rekey(CCtlSession& session);
    static void ping(CCtlSession& session);
    // The standard health service of each --server, without a login: exit 0 when every one
    // answers SERVING, 1 otherwise (for monitors).
    static void health(CCtlSession& session);
    static void checkHealth(const CCtlCommand& command, const CCtlArguments& arguments,
                            const CCtlGlobals& globals);
};
