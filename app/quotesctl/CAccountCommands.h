#pragma once

#include <string>

class CCtlSession;

// quotesctl's accounts list|password|enable|disable|rights|unlock.
class CAccountCommands {
public:
    static void list(CCtlSession& session);
    static void password(CCtlSession& session);
    static void enable(CCtlSession& session);
    static void disable(CCtlSession& session);
    static void rights(CCtlSession& session);
    static void unlock(CCtlSession& session);

private:
    // The account the command names.
    static std::string name(const CCtlSession& session);
};
