#pragma once

#include <QJsonObject>
#include <QStringList>
#include <map>
#include <string>

#include "Hlx/CProbeResult.h"
#include "utils/RKError.h"

class CCtlArguments;
class CCtlCommand;
class CCtlGlobals;
class CCtlSession;
namespace Hlx {
class IQuotesAdmin;
}
namespace rkservice {
class COrinQuoterSourceInfo;
}

// quotesctl's sources list|add|modify|delete|probe.
class CSourceCommands {
public:
    static void list(CCtlSession& session);
    static void add(CCtlSession& session);
    static void modify(CCtlSession& session);
    static void remove(CCtlSession& session);
    static void probe(CCtlSession& session);

    // A listed trade type is one the service knows (or -1, every one).
    static void checkList(const CCtlCommand& command, const CCtlArguments& arguments,
                          const CCtlGlobals& globals);
    // Platform and trade type, and an address and port or a broker and server group.
    static void checkAdd(const CCtlCommand& command, const CCtlArguments& arguments,
                         const CCtlGlobals& globals);
    // Ids or --all, not both.
    static void checkProbe(const CCtlCommand& command, const CCtlArguments& arguments,
                           const CCtlGlobals& globals);
    // One id, and at least one field to change (never the sub-system).
    static void checkModify(const CCtlCommand& command, const CCtlArguments& arguments,
                            const CCtlGlobals& globals);

private:
    // The password of an add or modify, from --password-file or --password; false when neither
    // is given. Throws CCtlError when the file cannot be read.
    static bool password(const CCtlArguments& arguments, std::string* password);
    // Every stored source's platform by id; the error when the query fails.
    // A stored source as a delete names it.
    struct Stored {
        int platformId;
        long long revision;
    };
    static utils::RKError storedPlatforms(Hlx::IQuotesAdmin& admin,
                                          std::map<int, Stored>* platforms);
    static QStringList row(const rkservice::COrinQuoterSourceInfo& source);
    static QJsonObject probeToJson(const Hlx::CProbeResult& result);
    static QStringList probeRow(const Hlx::CProbeResult& result);
};
